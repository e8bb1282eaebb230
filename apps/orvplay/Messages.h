#pragma once

#include <orvclient/Player.h>

#include <string>

#include "ExitCode.h"
#include "PlayerSession.h"
#include "StatusLine.h"

namespace orvplay {

// What the program tells its user on standard error, a line each, with the status line out of the
// way. What ends the program also says with which exit code.
class Messages {
public:
    StatusLine& line() { return mLine; }

    void say(const std::string& message);
    int fail(ExitCode code, const std::string& message);
    // A command failed: the player refused it, or the service ended or does not answer.
    int failed(const PlayerSession& session, const orvclient::Status& status,
               const std::string& what, const char* advice = "");

private:
    StatusLine mLine;
};

}  // namespace orvplay
