#pragma once

#include <memory>
#include <string>

#include "Display.h"

namespace orvplay {

// Whether the environment names a display; it may still refuse to open.
bool isDisplayAvailable();

// A window with that title, not opened yet. Null, and one line in *error, when the window module is
// not where it was built or installed: beside this program's folder, in ../lib.
std::unique_ptr<Display> createWindow(const std::string& title, std::string* error);

}  // namespace orvplay
