#pragma once

#include "Messages.h"
#include "PlaySource.h"
#include "PlayerSession.h"

namespace orvplay {

// What stands behind a SOURCE; a recording is looked up at the service. EXIT_OK, or the exit code
// after one line on standard error.
int findSource(PlayerSession& session, const std::string& source, Messages& messages,
               PlaySource* found);

// Opens it at the tuner, which media files have no need of.
orvhost::TuneResult tuneTo(PlayerSession& session, const PlaySource& source, bool keepGaps);

}  // namespace orvplay
