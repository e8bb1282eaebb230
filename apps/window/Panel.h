#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orvplay {

// What the player draws over the picture, as plain values: boxes first, then texts, everything cut
// off at the area. Pixels of the window; colours are 0xRRGGBB.

struct PanelRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;

    bool contains(int px, int py) const {
        return px >= x && py >= y && px < x + width && py < y + height;
    }
    bool operator==(const PanelRect&) const = default;
};

struct PanelBox {
    PanelRect place;
    uint32_t colour = 0;
    uint8_t opacity = 255;

    bool operator==(const PanelBox&) const = default;
};

// One line, whose cell it does not leave: what is too long for it ends in an ellipsis.
struct PanelText {
    enum class Side { LEFT, RIGHT, CENTRE };

    PanelRect cell;  // as high as the line
    std::string utf8;
    uint32_t colour = 0xFFFFFF;
    bool isBold = false;
    Side side = Side::LEFT;

    bool operator==(const PanelText&) const = default;
};

struct Panel {
    PanelRect area;
    std::vector<PanelBox> boxes;
    std::vector<PanelText> texts;

    bool isEmpty() const { return area.width <= 0 || area.height <= 0; }
    bool operator==(const Panel&) const = default;
};

// Sizes that go with a window: the title-safe area leaves out a twentieth of it on each side, and
// lines are as high as can be read from where one sits, or up close in a small window.
struct PanelSizes {
    PanelSizes(int width, int height);

    PanelRect safe;
    int line = 0;
    int padding = 0;
};

namespace panel {

constexpr uint32_t BACKGROUND = 0x10141C;
constexpr uint8_t BACKGROUND_OPACITY = 228;
constexpr uint32_t TEXT = 0xFFFFFF;
constexpr uint32_t FAINT = 0xB4BECC;
constexpr uint32_t ACCENT = 0x3D9BF0;
constexpr uint32_t TROUGH = 0x4A5464;
constexpr uint32_t RECORDING = 0xFF5A4D;

// The text as it fits into its cell, by what characters are wide on average: a full-width one as
// two.
std::string fitted(const PanelText& text);

// A panel of that area, with its background.
Panel on(const PanelRect& area);

// A bar filled from the left to so much of it.
void addBar(const PanelRect& place, double share, Panel* panel);

}  // namespace panel

}  // namespace orvplay
