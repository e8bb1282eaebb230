#pragma once

#include "Options.h"

namespace orvplay {

// Writes the captions of a source as text or subtitles, faster than real time. Returns the exit
// code.
int captionsCommand(const CaptionsOptions& options);

}  // namespace orvplay
