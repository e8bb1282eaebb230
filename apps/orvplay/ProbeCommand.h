#pragma once

#include "Options.h"

namespace orvplay {

// `orvplay probe`: says what is in a source and how to play it. Returns the exit code.
int probeCommand(const ProbeOptions& options);

}  // namespace orvplay
