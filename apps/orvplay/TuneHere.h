#pragma once

#include <dtv/TunerTypes.h>

#include <string>

namespace orvplay {

// Tunes the tuner of this process, for commands that need no player. A host's name is looked up.
orvhost::TuneResult tuneHere(const std::string& source, const orvhost::TuneOptions& options);

}  // namespace orvplay
