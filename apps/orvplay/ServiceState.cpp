#include "ServiceState.h"

using orvclient::Signal;

namespace orvplay {

namespace {

const char* signalWord(unsigned int status) {
    switch (static_cast<Signal>(status)) {
        case Signal::GOOD:
            return "good";
        case Signal::WEAK:
            return "weak";
        case Signal::LOST:
            return "lost";
    }
    return "unknown";
}

}  // namespace

void ServiceState::subscribe(orvclient::Callbacks* callbacks) {
    callbacks->onBufferingBegin = [this] {
        mProgress = 0;
        mBuffering = true;
        mEvents.write("onBufferingBegin");
    };
    callbacks->onBuffering = [this](int percent) {
        mProgress = percent;
        mBuffering = true;
        mEvents.write("onBuffering", {{"progress", percent}});
    };
    callbacks->onBufferingEnd = [this] {
        mBuffering = false;
        mEvents.write("onBufferingEnd");
    };
    callbacks->onStartVideo = [this](int width, int height) {
        mEvents.write("onStartVideoTask", {{"width", width}, {"height", height}});
    };
    callbacks->onSignal = [this](unsigned int previous, unsigned int current) {
        onSignal(previous, current);
    };
}

void ServiceState::onSignal(unsigned int previous, unsigned int current) {
    mSignal = static_cast<Signal>(current);
    mEvents.write("onSignalStatusChanged", {{"previous", previous},
                                            {"current", current},
                                            {"previousName", signalWord(previous)},
                                            {"currentName", signalWord(current)}});
}

const char* ServiceState::signalName() const {
    return signalWord(static_cast<unsigned int>(mSignal.load()));
}

void ServiceState::reset() {
    mSignal = Signal::GOOD;
    mBuffering = false;
    mProgress = 0;
}

std::string ServiceState::text() const {
    if (mSignal == Signal::LOST) {
        return "no signal";
    }
    if (mSignal == Signal::WEAK) {
        return "signal weak";
    }
    return mBuffering ? "buffering " + std::to_string(mProgress) + " %" : "";
}

}  // namespace orvplay
