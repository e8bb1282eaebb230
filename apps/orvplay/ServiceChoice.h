#pragma once

#include "Options.h"
#include "StreamSelection.h"
#include "dtv/Tuner.h"

namespace orvplay {

// Opens the source and finds the streams that are to be played in its
// tables; without tables the PIDs that the user gave must do. EXIT_OK, with the tuner tuned; or the
// exit code, with one line on standard error and the tuner free.
int tuneTo(const StreamOptions& options, const orvhost::TuneOptions& tuning,
           StreamSelection* selection);

}  // namespace orvplay
