#include "ServiceState.h"

using OrvPlayer::ServiceController;

namespace orvplay {

namespace {

const char* signalWord(unsigned int status) {
    switch (status) {
        case ServiceController::SIGNAL_GOOD:
            return "good";
        case ServiceController::SIGNAL_WEAK:
            return "weak";
        case ServiceController::SIGNAL_LOST:
            return "lost";
        default:
            return "unknown";
    }
}

}  // namespace

void ServiceState::onEvent(Event event, unsigned int value1, unsigned int value2) {
    switch (event) {
        case ServiceController::SIGNAL_UPDATE_EVENT:
            mSignal = value2;
            mEvents.write("onSignalStatusChanged", {{"previous", value1},
                                                    {"current", value2},
                                                    {"previousName", signalWord(value1)},
                                                    {"currentName", signalWord(value2)}});
            break;
        case ServiceController::BUFFERING_BEGIN_EVENT:
            mProgress = 0;
            mBuffering = true;
            mEvents.write("onBufferingBegin");
            break;
        case ServiceController::BUFFERING_END_EVENT:
            mBuffering = false;
            mEvents.write("onBufferingEnd");
            break;
        case ServiceController::BUFFERING_EVENT:
            mProgress = value1;
            mBuffering = true;
            mEvents.write("onBuffering", {{"progress", value1}});
            break;
        case ServiceController::START_VIDEO_TASK_EVENT:
            mEvents.write("onStartVideoTask", {{"width", value1}, {"height", value2}});
            break;
        case ServiceController::EOC_EVENT:
            break;  // of recorded sources, whose player tells it
    }
}

std::string ServiceState::text() const {
    if (mSignal == ServiceController::SIGNAL_LOST) {
        return "no signal";
    }
    if (mSignal == ServiceController::SIGNAL_WEAK) {
        return "signal weak";
    }
    return mBuffering ? "buffering " + std::to_string(mProgress) + " %" : "";
}

}  // namespace orvplay
