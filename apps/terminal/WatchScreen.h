#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ScreenRow.h"
#include "ScreenState.h"

namespace orvplay {

// What the terminal shows while it plays.
//
//   channel                          recording, clock
//   what is on, how far it is, and what comes next
//                     captions
//   signal, picture, sound: figures in one or two columns
//   message, or the most used keys
//
// On a small terminal the least important rows are left out, and then the ends of the others.
struct WatchView {
    ScreenState state;
    std::string caption;    // UTF-8 rows; empty: none
    std::string message;    // empty: none
    bool hasBlocks = true;  // block signs can be shown
};

// As many rows as the screen has, from the top. `nowNs` is monotonic: clock and position went on
// since the state was made.
std::vector<ScreenRow> watchRows(const WatchView& view, int columns, int rows, int64_t nowNs);

}  // namespace orvplay
