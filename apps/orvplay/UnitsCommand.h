#pragma once

#include "Options.h"

namespace orvplay {

// Prints every access unit, or PES packet, that the player cuts out of a source, as fast as it can
// and without loss. Returns the exit code.
int unitsCommand(const UnitsOptions& options);

}  // namespace orvplay
