#pragma once

#include "Options.h"

namespace orvplay {

// `orvplay play`: plays a source to its end, or until told to stop. Returns the exit code.
int playCommand(const PlayOptions& options);

}  // namespace orvplay
