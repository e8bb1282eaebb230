#pragma once

#include <orvclient/Tuner.h>

#include "Options.h"
#include "StreamSelection.h"

namespace orvplay {

// Finds the streams of the tuned source that are to be played; the exit code, as below.
int findStreams(orvclient::Tuner& tuner, const StreamOptions& options, StreamSelection* selection);
// The same, with the line in *error. A service that is wanted by its number is waited for, not the
// other tables.
int findStreams(orvclient::Tuner& tuner, const StreamOptions& options, StreamSelection* selection,
                std::string* error);

// Opens the source at a tuner and finds the streams that are to be played in its
// tables; without tables the PIDs that the user gave must do. EXIT_OK, with the tuner tuned; or the
// exit code, with one line on standard error and the tuner free.
int tuneTo(orvclient::Tuner& tuner, const StreamOptions& options,
           const orvhost::TuneOptions& tuning, StreamSelection* selection);

}  // namespace orvplay
