#pragma once

#include "Options.h"

namespace orvplay {

// `orvplay zap`: has a running player change its channel, and prints what it took; or prints what
// earlier changes took. Returns the exit code.
int zapCommand(const ZapOptions& options);

}  // namespace orvplay
