#include "TimingPlot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>

#include "PlotPainter.h"

namespace orvplot {

namespace {

using Align = PlotPainter::Align;

constexpr int WIDTH = 1280;
constexpr double LEFT = 78;
constexpr double LEGEND_WIDTH = 132;
constexpr double TITLE_HEIGHT = 46;
constexpr double LABEL_HEIGHT = 16;
constexpr int LABEL_ROWS = 4;
constexpr double PANEL_HEIGHT = 158;
constexpr double PANEL_GAP = 18;
constexpr double AXIS_HEIGHT = 46;
constexpr size_t MOST_LABEL = 34;        // characters
constexpr double LONGEST_STEP_S = 0.75;  // of a curve that goes on

constexpr Colour GRID = {0.88, 0.88, 0.88};
constexpr Colour FRAME = {0.55, 0.55, 0.55};
constexpr Colour ZERO = {0.45, 0.45, 0.45};
// Colours that stay apart for every kind of sight (Okabe and Ito).
constexpr Colour BLUE = {0.0, 0.447, 0.698};
constexpr Colour VERMILION = {0.835, 0.369, 0.0};
constexpr Colour GREEN = {0.0, 0.62, 0.451};
constexpr Colour PURPLE = {0.8, 0.475, 0.655};
constexpr Colour SKY = {0.337, 0.706, 0.914};
constexpr Colour ORANGE = {0.902, 0.624, 0.0};
constexpr Colour BLACK = {0.1, 0.1, 0.1};
constexpr Colour GREY = {0.6, 0.6, 0.6};
constexpr Colour CYCLE[] = {BLUE, VERMILION, GREEN, PURPLE, SKY, ORANGE, BLACK, GREY};

Colour fainter(Colour colour, double alpha) {
    colour.alpha = alpha;
    return colour;
}

std::string numberText(double value) {
    char text[32];
    snprintf(text, sizeof text, "%.10g", std::abs(value) < 1e-9 ? 0.0 : value);
    return text;
}

// Seconds, or minutes and seconds of a long run.
std::string timeText(double seconds, bool inMinutes) {
    if (!inMinutes) {
        return numberText(seconds);
    }
    char text[48];
    const double whole = std::abs(seconds);
    snprintf(text, sizeof text, "%s%d:%02d", seconds < 0 ? "-" : "", static_cast<int>(whole / 60),
             static_cast<int>(std::fmod(whole, 60)));
    return text;
}

// In whole characters of UTF-8.
std::string shortened(const std::string& utf8, size_t most) {
    size_t characters = 0;
    for (size_t i = 0; i < utf8.size(); ++i) {
        if ((utf8[i] & 0xC0) != 0x80 && characters++ == most) {
            return utf8.substr(0, i) + "...";
        }
    }
    return utf8;
}

struct Curve {
    std::string name;
    const std::vector<Point>* points;
    Colour colour;
    bool isDashed = false;
};

class Plot {
public:
    Plot(const TimingData& data, const std::string& path)
        : mData(data),
          mTime{std::min(data.time.low, 0.0), std::max(data.time.high, data.time.low + 1.0)},
          mPainter(path, WIDTH, height()) {}

    std::string draw() {
        placeFaults();
        drawTitle();
        drawFaults();
        drawCurves("sound - picture [ms]", {{"skew", &mData.skewMs, BLUE}}, false);
        drawCurves("early [ms]",
                   {{"pictures", &mData.videoMs, BLUE}, {"sound", &mData.audioMs, VERMILION, true}},
                   false);
        std::vector<Curve> fills;
        for (const auto& [name, points] : mData.fills) {
            const size_t i = fills.size();
            fills.push_back({name, &points, CYCLE[i % std::size(CYCLE)], name[0] == 'A'});
        }
        drawCurves("fill of buffers [%]", fills, true);
        drawDrops();
        drawTimeAxis();
        return mPainter.finish();
    }

private:
    static constexpr int PANELS = 4;
    static constexpr double FIRST_PANEL = TITLE_HEIGHT + LABEL_ROWS * LABEL_HEIGHT;

    static int height() {
        return static_cast<int>(FIRST_PANEL + PANELS * (PANEL_HEIGHT + PANEL_GAP) + AXIS_HEIGHT);
    }
    static double bottomOfPanels() {
        return FIRST_PANEL + PANELS * (PANEL_HEIGHT + PANEL_GAP) - PANEL_GAP;
    }
    Box nextPanel() {
        return {LEFT, FIRST_PANEL + mPanel++ * (PANEL_HEIGHT + PANEL_GAP),
                WIDTH - LEFT - LEGEND_WIDTH, PANEL_HEIGHT};
    }
    double xOf(double t) const {
        return LEFT +
               mTime.partOf(std::clamp(t, mTime.low, mTime.high)) * (WIDTH - LEFT - LEGEND_WIDTH);
    }
    static double yOf(const Box& box, Range range, double value) {
        return box.bottom() - range.partOf(value) * box.height;
    }

    void drawTitle() {
        mPainter.text(LEFT, 22, "Presentation timing  " + shortened(mData.source, 90), Align::LEFT,
                      15, true);
        size_t dropped = 0;
        for (const auto& [why, times] : mData.drops) {
            dropped += times.size();
        }
        std::string figures =
            std::to_string(mData.shown) + " pictures shown, " + std::to_string(dropped) + " not";
        if (mData.missed > 0) {
            figures += ", " + std::to_string(mData.missed) + " lines missed";
        }
        if (mData.badLines > 0) {
            figures += ", " + std::to_string(mData.badLines) + " lines not understood";
        }
        if (mData.otherBases > 0) {
            figures += ", " + std::to_string(mData.otherBases) + " times of another time base";
        }
        mPainter.text(LEFT, 40, figures);
    }

    void placeFaults() {
        std::vector<double> begins;
        std::vector<double> widths;
        for (const TimingData::Fault& fault : mData.faults) {
            begins.push_back(xOf(fault.from));
            widths.push_back(mPainter.widthOf(shortened(fault.what, MOST_LABEL), 11) + 10);
        }
        mLabels = placeLabels(begins, widths, LABEL_ROWS);
    }

    // A line where it begins, and a shade for as long as it lasts.
    void drawFaults() {
        for (const TimingData::Fault& fault : mData.faults) {
            const Colour colour = fault.isInjected ? ORANGE : PURPLE;
            const double x = xOf(fault.from);
            mPainter.fill({x, FIRST_PANEL, xOf(fault.to) - x, bottomOfPanels() - FIRST_PANEL},
                          fainter(colour, 0.13));
            mPainter.line(x, FIRST_PANEL, x, bottomOfPanels(), fainter(colour, 0.8), true);
        }
        for (const FaultLabel& label : mLabels) {
            const TimingData::Fault& fault = mData.faults[label.fault];
            const double x = xOf(fault.from);
            const double y = FIRST_PANEL - 5 - label.row * LABEL_HEIGHT;
            mPainter.line(x, y - 9, x, FIRST_PANEL, fault.isInjected ? ORANGE : PURPLE);
            mPainter.text(x + 3, y, shortened(fault.what, MOST_LABEL), Align::LEFT, 11);
        }
    }

    void drawFrame(const Box& box, Range range, const std::string& title) {
        for (const double tick : ticksOf(mTime, 12)) {
            mPainter.line(xOf(tick), box.y, xOf(tick), box.bottom(), GRID);
        }
        for (const double tick : ticksOf(range, 5)) {
            const double y = yOf(box, range, tick);
            mPainter.line(box.x, y, box.right(), y, tick == 0.0 ? ZERO : GRID);
            mPainter.text(box.x - 7, y + 4, numberText(tick), Align::RIGHT);
        }
        mPainter.frame(box, FRAME);
        mPainter.textUpwards(18, box.y + box.height / 2, title);
    }

    void drawLegend(const Box& box, size_t row, const std::string& name,
                    const std::function<void(double x, double y)>& sign) {
        const double y = box.y + 12 + static_cast<double>(row) * 19;
        if (y < box.bottom()) {
            sign(box.right() + 10, y);
            mPainter.text(box.right() + 38, y + 4, shortened(name, 14));
        }
    }

    void drawCurves(const std::string& title, const std::vector<Curve>& curves, bool fromZero) {
        const Box box = nextPanel();
        Range range{0, 0};
        for (const Curve& curve : curves) {
            for (const Point& point : *curve.points) {
                range.include(point.value);
            }
        }
        range = fromZero ? Range{0, std::max(range.high * 1.06, 1.0)} : widened(range);
        drawFrame(box, range, title);
        size_t row = 0;
        for (const Curve& curve : curves) {
            std::vector<Point> pixels =
                thinned(*curve.points, mTime, static_cast<size_t>(box.width));
            for (Point& pixel : pixels) {
                pixel = {xOf(pixel.t), yOf(box, range, pixel.value)};
            }
            const double longest = std::max(LONGEST_STEP_S / mTime.span() * box.width, 3.0);
            mPainter.curve(pixels, longest, box, curve.colour, curve.isDashed);
            drawLegend(box, row++, curve.name, [&](double x, double y) {
                mPainter.line(x, y, x + 22, y, curve.colour, curve.isDashed);
            });
        }
        if (std::all_of(curves.begin(), curves.end(),
                        [](const Curve& curve) { return curve.points->empty(); })) {
            mPainter.text(box.x + box.width / 2, box.y + box.height / 2, "nothing told",
                          Align::CENTRE);
        }
    }

    // How many pictures in each stretch of the time were not shown, one kind on the other.
    void drawDrops() {
        const Box box = nextPanel();
        constexpr size_t BARS = 200;
        const size_t bars = std::clamp<size_t>(static_cast<size_t>(mTime.span() * 2), 10, BARS);
        std::vector<std::vector<double>> counts;
        std::vector<double> sums(bars, 0.0);
        for (const auto& [why, times] : mData.drops) {
            std::vector<double>& count = counts.emplace_back(bars, 0.0);
            for (const double t : times) {
                const double part = std::clamp(mTime.partOf(t), 0.0, 1.0);
                const size_t bar =
                    std::min(static_cast<size_t>(part * static_cast<double>(bars)), bars - 1);
                count[bar] += 1.0;
                sums[bar] += 1.0;
            }
        }
        const Range range{0, std::max(*std::max_element(sums.begin(), sums.end()) * 1.06, 1.0)};
        drawFrame(box, range, "pictures not shown");
        const double width = box.width / static_cast<double>(bars);
        std::vector<double> tops(bars, box.bottom());
        size_t row = 0;
        for (const auto& [why, times] : mData.drops) {
            const Colour colour = CYCLE[row % std::size(CYCLE)];
            for (size_t bar = 0; bar < bars; ++bar) {
                const double height = counts[row][bar] / range.span() * box.height;
                tops[bar] -= height;
                mPainter.fill({box.x + static_cast<double>(bar) * width, tops[bar], width, height},
                              colour);
            }
            drawLegend(box, row++, why, [&](double x, double y) {
                mPainter.fill({x + 4, y - 5, 14, 10}, colour);
            });
        }
        char text[64];
        snprintf(text, sizeof text, "per %.3g s", mTime.span() / static_cast<double>(bars));
        mPainter.text(box.right() + 10, box.bottom() - 4, text);
    }

    void drawTimeAxis() {
        const bool inMinutes = mTime.span() >= 300;
        for (const double tick : ticksOf(mTime, 12)) {
            mPainter.line(xOf(tick), bottomOfPanels(), xOf(tick), bottomOfPanels() + 5, FRAME);
            mPainter.text(xOf(tick), bottomOfPanels() + 19, timeText(tick, inMinutes),
                          Align::CENTRE);
        }
        mPainter.text((LEFT + WIDTH - LEGEND_WIDTH) / 2, bottomOfPanels() + 38,
                      inMinutes ? "since the start [min:s]" : "since the start [s]", Align::CENTRE);
    }

    const TimingData& mData;
    const Range mTime;
    PlotPainter mPainter;
    int mPanel = 0;
    std::vector<FaultLabel> mLabels;
};

}  // namespace

std::vector<FaultLabel> placeLabels(const std::vector<double>& begins,
                                    const std::vector<double>& widths, int rows) {
    std::vector<FaultLabel> placed;
    std::vector<double> ends(static_cast<size_t>(rows), -1.0);
    for (size_t i = 0; i < begins.size(); ++i) {
        const auto row =
            std::find_if(ends.begin(), ends.end(), [&](double end) { return end <= begins[i]; });
        if (row != ends.end()) {
            *row = begins[i] + widths[i];
            placed.push_back({i, static_cast<int>(row - ends.begin())});
        }
    }
    return placed;
}

bool canPlotTo(const std::string& path) {
    return PlotPainter::canWrite(path);
}

std::string plotTiming(const TimingData& data, const std::string& path) {
    return Plot(data, path).draw();
}

}  // namespace orvplot
