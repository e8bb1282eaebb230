#pragma once

#include <memory>
#include <string>

#include "Display.h"
#include "KeptErrors.h"

namespace orvplay {

// Standard input and output are a terminal.
bool isOnTerminal();

// Why no screen can be drawn on the terminal, in one line; empty when one can. To be called before
// threads run: it sets the locale of characters.
std::string terminalProblem();

// The terminal as a display, not opened yet, with messages from `errors`. Null, and one line in
// *error, when the terminal module is not where it was built or installed.
std::unique_ptr<Display> createTerminal(KeptErrors& errors, std::string* error);

}  // namespace orvplay
