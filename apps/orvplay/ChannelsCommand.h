#pragma once

#include "Options.h"

namespace orvplay {

// `orvplay channels`: the user's channels, listed, searched, taken in and given out. The exit code.
int channelsCommand(const ChannelsOptions& options);

// `orvplay scan`: finds the channels of a source and adds them to the user's. The exit code.
int scanCommand(const ScanOptions& options);

}  // namespace orvplay
