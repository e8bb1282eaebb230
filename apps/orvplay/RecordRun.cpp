#include "RecordRun.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <thread>

#include "HumanText.h"
#include "Interrupt.h"
#include "MonotonicTime.h"
#include "RecordingFailure.h"
#include "RecordingText.h"
#include "ServiceChoice.h"

using orvclient::Status;

namespace orvplay {

namespace {

constexpr auto LOOK = std::chrono::milliseconds(50);
constexpr double LONGEST_S = 1e9;

}  // namespace

RecordRun::RecordRun(const RecordOptions& options) : mOptions(options), mEvents(options.json) {}

int RecordRun::run() {
    if (const int code = connect(); code != EXIT_OK) {
        return code;
    }
    if (const int code = tuneTo(mSession->tuner(), mOptions, {}, &mSelection); code != EXIT_OK) {
        return code;
    }
    if (const int code = begin(); code != EXIT_OK) {
        return code;
    }
    while (mayGoOn()) {
        std::this_thread::sleep_for(LOOK);
    }
    mMessages.line().clear();
    return finish();
}

int RecordRun::connect() {
    orvclient::Callbacks callbacks;
    mRecording.subscribe(&callbacks);
    callbacks.onError = [this](int code) { mEvents.write("onError", {{"code", code}}); };
    mSession = std::make_unique<PlayerSession>(mOptions, callbacks);
    std::string error;
    return mSession->connect(&error) ? EXIT_OK : mMessages.fail(EXIT_SERVICE, error);
}

// The player is set up and not started: the recorder keeps the source going, nothing is decoded.
int RecordRun::begin() {
    mEvents.begin();
    Status status = mSession->open({}, mSelection, &mQueue, false);
    if (!status.ok()) {
        return mMessages.failed(*mSession, status, "the player cannot set up these streams");
    }
    status = mRecording.start(mSession->player(),
                              {toLabel(mSelection.serviceName), mOptions.name, mOptions.storage});
    if (!status.ok()) {
        return status.code == Status::LOST
                   ? mMessages.failed(*mSession, status, "nothing is recorded")
                   : mMessages.fail(EXIT_RECORDING, status.message);
    }
    mBeginNs = monotonicNs();
    return EXIT_OK;
}

bool RecordRun::mayGoOn() {
    if (mSession->isLost()) {
        mExitCode = mMessages.fail(EXIT_SERVICE, mSession->lostMessage());
        return false;
    }
    mSession->look();
    mRecording.look(mSession->player());
    if (mRecording.hasFailed()) {
        mExitCode = EXIT_RECORDING;
        return false;
    }
    if (Interrupt::requested()) {
        mExitCode = EXIT_INTERRUPTED;
        return false;
    }
    const auto lengthNs =
        static_cast<int64_t>(std::llround(std::min(mOptions.durationS, LONGEST_S) * 1e9));
    if (mSession->sourceEnded() || (lengthNs > 0 && monotonicNs() - mBeginNs >= lengthNs)) {
        return false;
    }
    mMessages.line().show("recording " + std::to_string(mRecording.number()) + "  " +
                          mRecording.lengthText());
    return true;
}

int RecordRun::finish() {
    if (mSession->isLost()) {
        return mExitCode;
    }
    orvclient::Player& player = mSession->player();
    if (player.isRecording()) {
        if (const Status status = player.stopRecording(true); !status.ok()) {
            mExitCode = mMessages.fail(EXIT_RECORDING, status.message);
        }
    }
    orvhost::RecordingDetails details;
    const auto found = player.recordings().find(mRecording.number(), &details);
    mSession = nullptr;  // no event comes after this
    if (!found.ok()) {
        return mExitCode != EXIT_OK ? mExitCode
                                    : mMessages.fail(exitCodeOf(found.status), found.message);
    }
    mEvents.writeLine(toJson(details));
    if (!mEvents.enabled()) {
        printf("Recording %d: %s, %s, %s\n", details.number, titleOf(details).c_str(),
               timeText(details.durationMs).c_str(), sizeText(details.sizeBytes).c_str());
    }
    return mExitCode;
}

}  // namespace orvplay
