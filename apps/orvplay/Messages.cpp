#include "Messages.h"

#include <cstdio>

using orvclient::Status;

namespace orvplay {

void Messages::say(const std::string& message) {
    mLine.clear();
    fprintf(stderr, "orvplay: %s\n", message.c_str());
}

int Messages::fail(ExitCode code, const std::string& message) {
    say(message);
    return code;
}

int Messages::failed(const PlayerSession& session, const Status& status, const std::string& what,
                     const char* advice) {
    if (status.code == Status::LOST) {
        return fail(EXIT_SERVICE, session.lostMessage(status.message));
    }
    if (status.code == Status::TIMEOUT) {
        return fail(EXIT_SERVICE, status.message);
    }
    if (status.code == Status::REFUSED) {
        return fail(EXIT_PLAYBACK, what + ": " + status.message);
    }
    return fail(EXIT_PLAYBACK, what + " (code " + std::to_string(status.code) + ")" + advice);
}

}  // namespace orvplay
