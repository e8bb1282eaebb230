#pragma once

#include <cstdint>

#include "Panel.h"
#include "ScreenState.h"

namespace orvplay {

// What plays, at the bottom of the window:
//
//   6.1  ORV TV                                20:17
//   20:00-21:00  Notícias
//   ======----------------------------------------
//   21:00-22:00  Cinema
//   signal good   1920x1080i   volume 80 %    ● 0:12
//
// Of a recording or a media file: its name, how far it is, of how much, and the bar, on which a
// click goes elsewhere.
struct Banner {
    Banner() = default;
    // `nowNs`: monotonic, what the clock and the position went on to.
    Banner(const ScreenState& state, int width, int height, int64_t nowNs);

    Panel panel;
    PanelRect bar;  // empty without one

    // Where a click on the bar leads, in milliseconds; -1: it is none, or leads nowhere.
    int64_t positionAt(const ScreenState& state, int x, int y) const;
};

}  // namespace orvplay
