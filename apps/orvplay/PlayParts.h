#pragma once

#include <functional>

#include "EventLog.h"
#include "Messages.h"
#include "PictureOutput.h"
#include "PlayerSession.h"
#include "RunSummary.h"

namespace orvplay {

// What of a run of playback those need who do something to it while it plays; all of it outlives
// them.
struct PlayParts {
    PlayerSession& session;
    PictureOutput& pictures;
    EventLog& events;
    RunSummary& summary;
    Messages& messages;
    std::function<void()> askService;              // for its figures, at once
    std::function<orvclient::Status()> playAgain;  // from opening on: what plays was stopped
};

}  // namespace orvplay
