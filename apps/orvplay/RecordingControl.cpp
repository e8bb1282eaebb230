#include "RecordingControl.h"

#include <utility>

#include "HumanText.h"
#include "MonotonicTime.h"

using orvclient::Player;
using orvclient::RecordingFailure;
using orvclient::RecordingLabels;
using orvclient::Status;

namespace orvplay {

void RecordingControl::subscribe(orvclient::Callbacks* callbacks) {
    callbacks->onRecordingStarted = [this](int number) {
        mNumber = number;
        mHasBegun = true;
        mEvents.write("onRecorderStarted", {{"number", number}});
    };
    callbacks->onRecordingStopped = [this](bool cleanly) {
        mHasBegun = false;
        mEvents.write("onRecorderStopped", {{"result", cleanly ? 1 : 0}});
    };
    callbacks->onRecordingFailed = [this](RecordingFailure failure) {
        if (mHasBegun) {  // else the command to begin tells it
            mFailure = static_cast<int>(failure);
        }
    };
}

Status RecordingControl::start(Player& player, const RecordingLabels& labels) {
    if (player.isRecording()) {
        return {Status::REFUSED, "recording " + std::to_string(mNumber) + " is under way already"};
    }
    int number = 0;
    const Status status = player.startRecording(labels, &number);
    if (status.ok()) {
        mBeginNs = monotonicNs();
        mNumber = number;
    }
    return status;
}

void RecordingControl::look(Player& player) {
    const int failure = mFailure.exchange(NO_FAILURE);
    if (failure == NO_FAILURE) {
        return;
    }
    const std::string number = std::to_string(mNumber);
    if (failure == static_cast<int>(RecordingFailure::NO_INPUT) && goesOn(player)) {
        if (std::exchange(mHoleToldOf, mNumber) != mNumber) {
            mMessages.say("recording " + number +
                          " goes on with packets missing: its storage is too slow");
        }
        return;
    }
    mHasFailed = true;
    player.stopRecording(true);
    orvhost::RecordingDetails details;
    const bool isKept = player.recordings().find(mNumber, &details).ok();
    mMessages.say("recording " + number + (isKept ? " ended and is kept: " : " is lost: ") +
                  orvclient::describe(static_cast<RecordingFailure>(failure)));
}

bool RecordingControl::goesOn(Player& player) const {
    orvhost::RecordingDetails details;
    return player.recordings().find(mNumber, &details).ok() &&
           details.state == orvhost::RecordingState::Recording;
}

int64_t RecordingControl::lengthMs() const {
    return (monotonicNs() - mBeginNs) / 1'000'000;
}

std::string RecordingControl::lengthText() const {
    return timeText(lengthMs());
}

std::string toLabel(const std::string& name) {
    std::string label = printable(name);
    for (char& byte : label) {
        byte = byte == ';' || byte == '#' ? ',' : byte;
    }
    return label;
}

}  // namespace orvplay
