#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "PlotScale.h"
#include "TimingData.h"
#include "TimingPlot.h"

// The fonts that cairo found stay with it for the life of the process.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:libfontconfig\n";
}

namespace orvplot {
namespace {

// Ten minutes at a point every 16 ms, flat but for one.
TEST(PlotScaleTest, ThinningKeepsWhatStandsOut) {
    std::vector<Point> points;
    for (int i = 0; i < 36'000; ++i) {
        points.push_back({i / 60.0, std::sin(i * 0.1)});
    }
    points[20'001].value = 900;
    points[20'002].value = -700;
    constexpr size_t COLUMNS = 1000;
    const auto thin = thinned(points, {0, 600}, COLUMNS);
    EXPECT_LE(thin.size(), 4 * COLUMNS + 4);
    EXPECT_GE(thin.size(), COLUMNS);
    for (const int outlier : {20'001, 20'002}) {
        EXPECT_EQ(std::count_if(thin.begin(), thin.end(),
                                [&](const Point& p) {
                                    return p.t == points[outlier].t &&
                                           p.value == points[outlier].value;
                                }),
                  1);
    }
    EXPECT_TRUE(std::is_sorted(thin.begin(), thin.end(),
                               [](const Point& a, const Point& b) { return a.t < b.t; }));
    EXPECT_EQ(thin.front().t, points.front().t);
    EXPECT_EQ(thin.back().t, points.back().t);
}

TEST(PlotScaleTest, LeavesShortRunsAloneAndSurvivesOddOnes) {
    const std::vector<Point> few = {{0, 1}, {1, 2}, {0.5, 3}};
    EXPECT_EQ(thinned(few, {0, 1}, 100).size(), 3u);
    std::vector<Point> back(5000, {3.0, 0.0});
    back[4000].value = 5;
    EXPECT_EQ(thinned(back, {10, 20}, 10).size(), 3u);
    EXPECT_EQ(thinned(back, {1, 1}, 10).size(), back.size());
}

TEST(PlotScaleTest, TicksAreRoundNumbers) {
    EXPECT_EQ(ticksOf({0, 10}, 5), (std::vector<double>{0, 2, 4, 6, 8, 10}));
    EXPECT_EQ(ticksOf({-0.3, 0.3}, 4), (std::vector<double>{-0.2, 0, 0.2}));
    EXPECT_EQ(ticksOf({95, 640}, 6), (std::vector<double>{100, 200, 300, 400, 500, 600}));
    EXPECT_TRUE(ticksOf({1, 1}, 5).empty());
}

constexpr char TIMING[] = R"({"kind":"start","t":0.0,"source":"news.ts"}
{"kind":"video","t":1.5,"pts":8589934500,"clock":8589934500,"waitMs":90,"shown":false,"why":"gate"}
{"kind":"video","t":2.0,"pts":8589934590,"clock":178,"waitMs":80,"shown":true}
{"kind":"audio","t":2.1,"pts":90,"clock":0,"waitMs":170,"shown":true,"frames":1024,"skewMs":12.5}
{"kind":"silence","t":2.2,"pts":90,"clock":0,"frames":2048}
{"kind":"buffers","t":2.3,"percent":{"VideoTS":12.5,"AudioRaw":80}}
{"kind":"fault","t":3.0,"what":"sourceGap"}
{"kind":"fault","t":4.5,"what":"sourceBack","gapMs":1500}
{"kind":"fault","t":5.0,"what":"continuity","count":3}
{"kind":"fault","t":5.1,"what":"continuity","count":1}
{"kind":"fault","t":6.0,"what":"injected","text":"drop 1% for 2s","ms":2000}
{"kind":"fault","t":9.0,"what":"continuity","count":1}
{"kind":"caption","t":9.5,"pts":0,"clock":0,"waitMs":0,"shown":true,"text":"Boa noite"}
{"kind":"missed","count":7}
{"kind":"video","t":10.0,"pts":0,"clock":null,"waitMs":-1400,"shown":false,"why":"late"}
)";

TimingData dataOf(const std::string& text) {
    std::istringstream in(text);
    return TimingData::read(in);
}

TEST(TimingDataTest, TakesLinesApart) {
    const TimingData data = dataOf(TIMING);
    EXPECT_EQ(data.badLines, 0u);
    EXPECT_EQ(data.lines, 14u);
    EXPECT_EQ(data.missed, 7u);
    EXPECT_EQ(data.source, "news.ts");
    EXPECT_EQ(data.time.high, 10.0);
    EXPECT_EQ(data.shown, 1u);
    EXPECT_EQ(data.videoMs.size(), 3u);
    EXPECT_EQ(data.drops.at("gate").size(), 1u);
    EXPECT_EQ(data.drops.at("late").size(), 1u);
    // The picture was two milliseconds late, over the wrap.
    ASSERT_EQ(data.skewMs.size(), 1u);
    EXPECT_NEAR(data.skewMs[0].value, 10.5, 0.1);
    EXPECT_EQ(data.fills.at("AudioRaw")[0].value, 80);
    ASSERT_EQ(data.faults.size(), 4u);
    EXPECT_EQ(data.faults[0].what, "sourceGap");
    EXPECT_EQ(data.faults[0].to, 4.5);
    EXPECT_EQ(data.faults[1].to, 5.1);  // two in one
    EXPECT_TRUE(data.faults[2].isInjected);
    EXPECT_EQ(data.faults[2].what, "drop 1% for 2s");
    EXPECT_EQ(data.faults[2].to, 8.0);
}

// Behind a jump of the time base: hours would flatten everything else.
TEST(TimingDataTest, TimesOfAnotherBaseAreCountedOnly) {
    const TimingData data = dataOf(
        "{\"kind\":\"video\",\"t\":1,\"waitMs\":39000000,\"shown\":false,\"why\":\"early\"}\n"
        "{\"kind\":\"audio\",\"t\":1,\"waitMs\":-90000,\"skewMs\":39000000,\"shown\":true}\n"
        "{\"kind\":\"video\",\"t\":2,\"waitMs\":1500,\"shown\":true}\n");
    EXPECT_EQ(data.otherBases, 3u);
    ASSERT_EQ(data.videoMs.size(), 1u);
    EXPECT_EQ(data.videoMs[0].value, 1500);
    EXPECT_TRUE(data.audioMs.empty());
    EXPECT_TRUE(data.skewMs.empty());
}

TEST(TimingDataTest, PassesOverAndCountsWhatIsNoTiming) {
    const std::string bad[] = {
        "no json",
        "[]",
        "{}",
        R"({"kind":"video","t":1e300,"shown":true})",
        R"({"kind":"video","t":1})",
        R"({"kind":"video","t":"1","shown":true})",
        R"({"kind":"buffers","t":1,"percent":7})",
        R"({"kind":"summary","t":1})",
        std::string(200'000, 'x'),
        std::string(5000, '['),
        std::string("{\"kind\":\"fault\0\"}", 17),
        "\xff\xfe",
    };
    std::string text;
    for (const std::string& line : bad) {
        text += line + "\n";
    }
    const TimingData none = dataOf(text);
    EXPECT_TRUE(none.isEmpty());
    EXPECT_EQ(none.badLines, std::size(bad));
    const TimingData some = dataOf(text + "\n\r\n" + TIMING);
    EXPECT_EQ(some.badLines, std::size(bad));
    EXPECT_EQ(some.lines, 14u);
    EXPECT_TRUE(dataOf("").isEmpty());
}

TEST(TimingPlotTest, LabelsGetRowsOfTheirOwn) {
    const auto placed = placeLabels({0, 10, 20, 60}, {50, 50, 50, 50}, 2);
    ASSERT_EQ(placed.size(), 3u);
    EXPECT_EQ(placed[0].row, 0);
    EXPECT_EQ(placed[1].row, 1);
    EXPECT_EQ(placed[2].fault, 3u);
    EXPECT_EQ(placed[2].row, 0);
}

class TimingPlotFileTest : public testing::Test {
protected:
    void TearDown() override { unlink(mPath.c_str()); }

    std::string plot(const TimingData& data, const std::string& ending) {
        mPath = testing::TempDir() + "orv-plot-" + std::to_string(getpid()) + ending;
        EXPECT_EQ(plotTiming(data, mPath), "");
        std::ifstream file(mPath, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::string mPath;
};

TEST_F(TimingPlotFileTest, DrawsAPng) {
    const std::string png = plot(dataOf(TIMING), ".png");
    ASSERT_GT(png.size(), 10'000u);
    EXPECT_EQ(png.substr(1, 3), "PNG");
    const auto numberAt = [&](size_t at) {
        int value = 0;
        for (size_t i = 0; i < 4; ++i) {
            value = value << 8 | static_cast<uint8_t>(png[at + i]);
        }
        return value;
    };
    EXPECT_EQ(numberAt(16), 1280);
    EXPECT_GT(numberAt(20), 700);
}

// Frames, curves, bars and marks are there: by how often their colours are.
TEST_F(TimingPlotFileTest, DrawsAnSvgWithAllPanels) {
    const std::string svg = plot(dataOf(TIMING), ".svg");
    const auto count = [&](const std::string& what) {
        size_t n = 0;
        for (size_t at = svg.find(what); at != std::string::npos; at = svg.find(what, at + 1)) {
            ++n;
        }
        return n;
    };
    EXPECT_EQ(count("<svg "), 1u);
    EXPECT_EQ(count("</svg>"), 1u);
    // Four frames and the first tick of the time.
    EXPECT_EQ(count("stroke:rgb(55%,55%,55%);stroke-opacity:1;stroke-miterlimit:10;\" d=\"M 78 "),
              4u + 1);
    EXPECT_GE(count("rgb(0%,44.7%,69.8%)"), 4u);       // skew, pictures, a buffer, drops
    EXPECT_GE(count("rgb(83.5%,36.9%,0%)"), 3u);       // sound, a buffer, drops
    EXPECT_GE(count("rgb(90.2%,62.4%,0%)"), 2u);       // the injected fault
    EXPECT_GE(count("rgb(80%,47.5%,65.5%)"), 3u * 2);  // the others
}

TEST_F(TimingPlotFileTest, TellsWhatCannotBeWritten) {
    EXPECT_NE(plotTiming(dataOf(TIMING), "/nowhere/at/all.png"), "");
    EXPECT_NE(plotTiming(dataOf(TIMING), "/nowhere/at/all.svg"), "");
    EXPECT_FALSE(canPlotTo("timing.jpeg"));
    EXPECT_FALSE(canPlotTo(".png"));
    // One line alone is a plot as well.
    EXPECT_GT(plot(dataOf(R"({"kind":"video","t":0,"shown":true})"), ".png").size(), 1000u);
}

}  // namespace
}  // namespace orvplot
