#pragma once

#include "Options.h"

namespace orvplay {

// `orvplay snapshot`: plays a source without a window and saves stills of it. Returns the exit
// code.
int snapshotCommand(const SnapshotOptions& options);

}  // namespace orvplay
