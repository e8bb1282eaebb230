#pragma once

#include <string>

#include "Panel.h"
#include "ScreenState.h"

namespace orvplay {

// The smaller panels, laid out for a window of that size.

// "Volume 80 %" with a bar, at the top.
Panel volumePanel(const ScreenState& state, int width, int height);
// The number that is being typed, and the channel that it stands for, at the top.
Panel numberPanel(const std::string& digits, const std::string& name, int width, int height);
// The sign of a pause, in the middle.
Panel pausePanel(int width, int height);
// What the keys do.
Panel helpPanel(int width, int height);

}  // namespace orvplay
