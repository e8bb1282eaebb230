#pragma once

#include "Options.h"

namespace orvplay {

// `orvplay record SOURCE`: records without a picture, until the source, the time or the user ends
// it. The exit code; standard output tells the recording.
int recordCommand(const RecordOptions& options);

// `orvplay record start` and `stop`: of what a running `orvplay play` of this user plays.
int recordSwitchCommand(const RecordSwitchOptions& options);

// `orvplay record list`, `show`, `rm` and `import`: the recordings that there are.
int recordingsCommand(const RecordingsOptions& options);

}  // namespace orvplay
