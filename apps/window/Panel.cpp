#include "Panel.h"

#include <algorithm>
#include <cmath>

namespace orvplay {

namespace {

constexpr int SAFE_AREA_DIVISOR = 20;
constexpr int LINES_IN_HEIGHT = 27;
constexpr int SMALLEST_LINE = 14;         // pixels: the least that is read without effort
constexpr double CHARACTER_WIDTH = 0.49;  // of the height of the line, of sans-serif text
constexpr double BOLD_WIDTH = 0.54;

// From here on scripts are as wide as they are high.
bool isFullWidth(unsigned char firstByte) {
    return firstByte >= 0xE3;
}

}  // namespace

PanelSizes::PanelSizes(int width, int height) {
    const int marginX = (width + SAFE_AREA_DIVISOR - 1) / SAFE_AREA_DIVISOR;
    const int marginY = (height + SAFE_AREA_DIVISOR - 1) / SAFE_AREA_DIVISOR;
    safe = {marginX, marginY, std::max(width - 2 * marginX, 0), std::max(height - 2 * marginY, 0)};
    line = std::max(std::min(height / LINES_IN_HEIGHT, width / LINES_IN_HEIGHT), SMALLEST_LINE);
    padding = line / 2;
}

namespace panel {

std::string fitted(const PanelText& text) {
    const double character = (text.isBold ? BOLD_WIDTH : CHARACTER_WIDTH) * text.cell.height;
    const double room = text.cell.width / character;
    double used = 0.0;
    size_t cutAt = 0;  // where the ellipsis still fits
    for (size_t at = 0; at < text.utf8.size();) {
        const auto first = static_cast<unsigned char>(text.utf8[at]);
        size_t end = at + 1;
        while (end < text.utf8.size() &&
               (static_cast<unsigned char>(text.utf8[end]) & 0xC0) == 0x80) {
            ++end;
        }
        used += isFullWidth(first) ? 2.0 : 1.0;
        if (used > room) {
            return text.utf8.substr(0, cutAt) + "…";
        }
        if (used + 1.0 <= room) {
            cutAt = end;
        }
        at = end;
    }
    return text.utf8;
}

Panel on(const PanelRect& area) {
    Panel made;
    made.area = area;
    made.boxes.push_back({area, BACKGROUND, BACKGROUND_OPACITY});
    return made;
}

void addBar(const PanelRect& place, double share, Panel* panel) {
    PanelRect filled = place;
    filled.width = static_cast<int>(std::lround(place.width * std::clamp(share, 0.0, 1.0)));
    panel->boxes.push_back({place, TROUGH});
    panel->boxes.push_back({filled, ACCENT});
}

}  // namespace panel

}  // namespace orvplay
