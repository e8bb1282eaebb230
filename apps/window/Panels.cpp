#include "Panels.h"

#include <algorithm>

namespace orvplay {

namespace {

using Side = PanelText::Side;

// Loudness beyond 100 % is made by the sound server.
constexpr double LOUDEST_PERCENT = 150.0;

// In the middle of the upper edge, so many characters wide.
PanelRect topPlace(const PanelSizes& sizes, int characters, int lines10) {
    const int width = std::min(sizes.line * characters / 2 + 2 * sizes.padding, sizes.safe.width);
    return {sizes.safe.x + (sizes.safe.width - width) / 2, sizes.safe.y, width,
            sizes.line * lines10 / 10 + 2 * sizes.padding};
}

}  // namespace

Panel volumePanel(const ScreenState& state, int width, int height) {
    const PanelSizes sizes(width, height);
    const PanelRect area = topPlace(sizes, 24, 18);
    Panel made = panel::on(area);
    const PanelRect cell{area.x + sizes.padding, area.y + sizes.padding,
                         area.width - 2 * sizes.padding, sizes.line};
    const std::string percent = std::to_string(state.volumePercent) + " %";
    made.texts.push_back(
        {cell, state.isMuted ? "muted" : "volume", panel::TEXT, false, Side::LEFT});
    made.texts.push_back({cell, percent, panel::TEXT, false, Side::RIGHT});
    const PanelRect bar{cell.x, cell.y + sizes.line * 3 / 2, cell.width,
                        std::max(sizes.line / 5, 3)};
    panel::addBar(bar, state.isMuted ? 0.0 : state.volumePercent / LOUDEST_PERCENT, &made);
    // Where the broadcast is as loud as it was sent.
    made.boxes.push_back({{bar.x + static_cast<int>(bar.width * 100.0 / LOUDEST_PERCENT), bar.y,
                           std::max(sizes.line / 14, 1), bar.height},
                          panel::TEXT});
    return made;
}

Panel numberPanel(const std::string& digits, const std::string& name, int width, int height) {
    const PanelSizes sizes(width, height);
    const PanelRect area = topPlace(sizes, 24, 15);
    Panel made = panel::on(area);
    const PanelRect cell{area.x + sizes.padding, area.y + sizes.padding,
                         area.width - 2 * sizes.padding, sizes.line * 3 / 2};
    made.texts.push_back({cell, digits + "_  " + name, panel::TEXT, true, Side::LEFT});
    return made;
}

Panel pausePanel(int width, int height) {
    const PanelSizes sizes(width, height);
    const int side = sizes.line * 3;
    const PanelRect area{(width - side) / 2, (height - side) / 2, side, side};
    Panel made = panel::on(area);
    for (const int column : {3, 6}) {
        made.boxes.push_back(
            {{area.x + side * column / 10, area.y + side / 4, side / 8, side / 2}, panel::TEXT});
    }
    return made;
}

Panel helpPanel(int width, int height) {
    struct Line {
        const char* keys;
        const char* what;
    };
    static constexpr Line LINES[] = {
        {"PgUp PgDn", "next, previous channel"},
        {"up down", "the same; recordings: 1 min"},
        {"Backspace", "last channel"},
        {"1 ... 9", "number of a channel"},
        {"c Tab", "channel list"},
        {"i o Enter", "what plays"},
        {"9 0 m", "volume, mute"},
        {"space p", "pause"},
        {"left right", "5 s back, forward"},
        {"#  v", "next sound, captions"},
        {"r  s", "record, still picture"},
        {"A  d", "aspect ratio, deinterlacing"},
        {"f Esc", "full screen, or not"},
        {"q", "quit"},
    };
    const PanelSizes sizes(width, height);
    const int rows = static_cast<int>(std::size(LINES));
    // All of it must be read at once: in a small window with smaller lines.
    const int step = std::min(sizes.line * 5 / 4, (sizes.safe.height - sizes.padding) / rows);
    const int line = std::min(sizes.line, step);
    const int panelWidth = std::min(line * 22, sizes.safe.width);
    const int panelHeight = rows * step + 2 * (sizes.padding / 2);
    const PanelRect area{(width - panelWidth) / 2, (height - panelHeight) / 2, panelWidth,
                         panelHeight};
    Panel made = panel::on(area);
    int y = area.y + sizes.padding / 2;
    for (const Line& entry : LINES) {
        const int left = area.x + sizes.padding;
        const int keysWidth = line * 6;
        made.texts.push_back(
            {{left, y, keysWidth, line}, entry.keys, panel::ACCENT, true, Side::LEFT});
        made.texts.push_back(
            {{left + keysWidth, y, panelWidth - keysWidth - 2 * sizes.padding, line},
             entry.what,
             panel::TEXT,
             false,
             Side::LEFT});
        y += step;
    }
    return made;
}

}  // namespace orvplay
