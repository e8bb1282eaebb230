#pragma once

#include <string>

namespace orvplay {

// What terminfo knows of the terminal on standard output. Apart from CursesTerminal, because the
// header for it makes macros of hundreds of words.

// Why no screen can be drawn on a terminal of this type, in one line; empty when one can.
std::string terminalTypeProblem();

// What has to be written to a terminal to end the screen on it. While ncurses has it open.
std::string endOfScreen();

}  // namespace orvplay
