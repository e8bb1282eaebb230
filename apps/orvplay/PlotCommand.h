#pragma once

#include "Options.h"

namespace orvplay {

// `orvplay plot`: a picture of what `orvplay play --timing` wrote; the exit code.
int plotCommand(const PlotOptions& options);

}  // namespace orvplay
