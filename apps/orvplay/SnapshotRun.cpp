#include "SnapshotRun.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <thread>

#include "Interrupt.h"
#include "MonotonicTime.h"
#include "ServiceChoice.h"
#include "StillWriter.h"
#include "client/PictureHalves.h"

using orvclient::Status;

namespace orvplay {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds LOOK{20};
constexpr int ROOM = 10;  // stills in memory at a time
constexpr int64_t NS_PER_MS = 1'000'000;
// The player opens its outputs after 17 s even where picture or sound is missing.
constexpr int64_t FIRST_PICTURE_NS = 20'000'000'000;
// A media file shows its first picture before the player tells that it plays.
constexpr int64_t FIRST_OF_FILE_NS = 3'000'000'000;
constexpr int64_t STALLED_NS = 3'000'000'000;   // without a still that is due: ask again
constexpr int64_t SILENCE_NS = 15'000'000'000;  // without a picture: the signal is gone
constexpr int SCRAMBLED = 0x21003;

}  // namespace

SnapshotRun::SnapshotRun(const SnapshotOptions& options)
    : mOptions(options), mPictures(mQueue.halves().consumer(), nullptr, mSync), mStills(ROOM) {}

int SnapshotRun::run() {
    if (connect() && tune() && open() && awaitPicture() && goToPosition()) {
        isMedia() ? collectShown() : collect();
    }
    mSession = nullptr;  // no still comes after this
    mPictures.stop();
    return mExitCode;
}

bool SnapshotRun::connect() {
    orvclient::Callbacks callbacks;
    callbacks.onError = [this](int code) { mScrambled = mScrambled || code == SCRAMBLED; };
    callbacks.onEnd = [this] { mEndOfContent = true; };
    callbacks.onStill = [this](const orvclient::StillView& still) { mStills.put(still); };
    ServiceOptions service = mOptions;
    service.media = isMediaFile(mOptions.source);
    mSession = std::make_unique<PlayerSession>(service, callbacks);
    std::string error;
    return mSession->connect(&error) || fail(EXIT_SERVICE, error);
}

bool SnapshotRun::tune() {
    if (isMediaFile(mOptions.source)) {
        mSource = mediaSource(mOptions.source);
        return true;
    }
    if (mOptions.atS > 0.0) {
        return fail(EXIT_USAGE, "live television cannot go elsewhere: --at goes with media files");
    }
    mExitCode = tuneTo(mSession->tuner(), mOptions, {}, &mSelection);
    if (mExitCode != EXIT_OK) {
        return false;  // what failed said why
    }
    return mSelection.videoPid != 0 ||
           fail(EXIT_NOT_FOUND,
                "the service has no picture; see: orvplay probe " + mOptions.source);
}

bool SnapshotRun::open() {
    mPictures.start();
    Status status = mSession->open(mSource, mSelection, &mQueue, false);
    if (status.ok()) {
        status = mSession->start();
    }
    if (isMedia() && status.code == Status::LOST) {
        return lookAtMedia();
    }
    return status.ok() || fail(status);
}

// False when it is time to end; the exit code is set then.
bool SnapshotRun::mayGoOn() {
    if (Interrupt::requested()) {
        mExitCode = EXIT_INTERRUPTED;
        return false;
    }
    if (isMedia()) {
        return lookAtMedia();
    }
    if (mSession->isLost()) {
        return fail(EXIT_SERVICE, mSession->lostMessage());
    }
    if (mScrambled) {
        return fail(EXIT_PLAYBACK, "the service is scrambled; choose a clear one (orvplay probe " +
                                       mOptions.source + ")");
    }
    mSession->look();
    if (mSourceEnd.drained(monotonicNs(), mSession->sourceEnded(),
                           mSession->figures().lastFrameTimedNs)) {
        return fail(EXIT_NO_DATA, endedEarly());
    }
    return true;
}

bool SnapshotRun::lookAtMedia() {
    mSession->look();
    if (mSession->isLost()) {
        return fail(mSession->hasMediaFailed() ? EXIT_SOURCE : EXIT_SERVICE,
                    mSession->mediaMessage(mOptions.source));
    }
    return !mEndOfContent || fail(EXIT_NO_DATA, endedEarly());
}

std::string SnapshotRun::endedEarly() const {
    return mOptions.source + ": ended after " + std::to_string(mSaved) + " of " +
           std::to_string(mOptions.count) + " stills";
}

bool SnapshotRun::awaitPicture() {
    const int64_t beganNs = monotonicNs();
    const int64_t longestNs = isMedia() ? FIRST_OF_FILE_NS : FIRST_PICTURE_NS;
    while (mPictures.figures().frames == 0) {
        if (!mayGoOn()) {
            return false;
        }
        if (monotonicNs() - beganNs > longestNs) {
            if (isMedia()) {
                return fail(EXIT_NOT_FOUND, mOptions.source + ": has no picture");
            }
            return fail(EXIT_NO_DATA, "no picture came from PID " +
                                          std::to_string(mSelection.videoPid) +
                                          "; see: orvplay probe " + mOptions.source);
        }
        std::this_thread::sleep_for(LOOK);
    }
    return true;
}

// The player goes to a picture before, which can be decoded alone, and plays on from there.
bool SnapshotRun::goToPosition() {
    if (mOptions.atS <= 0.0) {
        return true;
    }
    const int64_t atNs = std::llround(mOptions.atS * 1e9);
    if (const Status status = mSession->player().seek(milliseconds(atNs / NS_PER_MS));
        !status.ok()) {
        return status.code == Status::LOST
                   ? lookAtMedia()
                   : fail(EXIT_PLAYBACK, mOptions.source + ": " + status.message);
    }
    while (mPictures.figures().lastTimestampNs < atNs) {
        if (!mayGoOn()) {
            return false;
        }
        std::this_thread::sleep_for(LOOK);
    }
    return true;
}

// The first one may be the last picture of a file that is over.
void SnapshotRun::collectShown() {
    while (mSaved < mOptions.count && (mSaved == 0 || mayGoOn())) {
        Still still;
        if (monotonicNs() < mDueNs) {
            std::this_thread::sleep_for(LOOK);
        } else if (!mPictures.takeStill(&still)) {
            fail(EXIT_FAILED, "the picture cannot be converted");
            return;
        } else {
            mDueNs = monotonicNs() + mOptions.everyMs * NS_PER_MS;
            if (!save(still)) {
                return;
            }
        }
    }
}

void SnapshotRun::request() {
    mRequested = std::min(mOptions.count - mSaved, ROOM);
    mSession->player().requestStills(mRequested, milliseconds(mOptions.everyMs));
    mProgressNs = monotonicNs();
}

void SnapshotRun::collect() {
    const int64_t everyNs = mOptions.everyMs * NS_PER_MS;
    while (mSaved < mOptions.count && mayGoOn()) {
        const int64_t now = monotonicNs();
        if (mRequested == 0 && now >= mDueNs) {
            request();
        }
        Still still;
        if (mStills.take(&still, LOOK)) {
            mProgressNs = monotonicNs();
            mDueNs = mProgressNs + everyNs;
            mRequested = std::max(mRequested - 1, 0);
            if (!save(still)) {
                return;
            }
        } else if (mRequested > 0 && now - mProgressNs > everyNs + STALLED_NS) {
            // The player gave some up; or there are no pictures, and the request goes on with them.
            mSession->player().cancelStills();
            mRequested = 0;
            const int64_t silentNs = now - mSession->figures().lastFrameTimedNs;
            if (silentNs > SILENCE_NS) {
                fail(EXIT_NO_DATA, "no signal for " + std::to_string(silentNs / 1'000'000'000) +
                                       " s, after " + std::to_string(mSaved) + " of " +
                                       std::to_string(mOptions.count) + " stills");
                return;
            }
        }
    }
}

bool SnapshotRun::save(const Still& still) {
    const StillLabels labels = {isMedia() ? mSource.title : mSelection.serviceName,
                                mSelection.serviceId};
    std::string error;
    if (mOptions.out == "-") {
        if (!writeStill(still, labels, STDOUT_FILENO, &error)) {
            return fail(EXIT_FAILED, "standard output cannot be written: " + error);
        }
    } else {
        const std::string wanted =
            mOptions.out.empty() ? stillName(labels.service, still.takenAt) : mOptions.out;
        const std::string path = writeStill(still, labels, wanted, &error);
        if (path.empty()) {
            return fail(EXIT_FAILED, error);
        }
        printf("%s\n", path.c_str());
        fflush(stdout);
    }
    ++mSaved;
    return true;
}

// A command failed.
bool SnapshotRun::fail(const Status& status) {
    if (status.code == Status::LOST) {
        return fail(EXIT_SERVICE, mSession->lostMessage(status.message));
    }
    if (status.code == Status::TIMEOUT) {
        return fail(EXIT_SERVICE, status.message);
    }
    return fail(EXIT_PLAYBACK, "the player cannot play these streams (code " +
                                   std::to_string(status.code) + "); ORV_TRACE=info shows why");
}

bool SnapshotRun::fail(ExitCode code, const std::string& message) {
    fprintf(stderr, "orvplay: %s\n", message.c_str());
    mExitCode = code;
    return false;
}

}  // namespace orvplay
