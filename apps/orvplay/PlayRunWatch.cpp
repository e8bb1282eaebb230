// What a run of playback does while it plays: it looks at the pictures, the service and the user,
// ten times a second.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

#include "AsLive.h"
#include "HumanText.h"
#include "Interrupt.h"
#include "MonotonicTime.h"
#include "PlayRun.h"
#include "SourceChoice.h"
#include "TuneFailure.h"

namespace orvplay {

namespace {

constexpr int64_t LOOK_NS = 100'000'000;
constexpr int CHANGE_PASSES = 4;  // of the control socket: each lets one in, or hears those let in
constexpr double LONGEST_S = 1e9;
constexpr int64_t RESTART_NS = 10'000'000'000;
// Outputs that open at all open sooner, even where sound was announced with the wrong framing.
constexpr int64_t HINT_NS = 6'000'000'000;
constexpr int SCRAMBLED = 0x21003;
constexpr int RECORDING_UNREADABLE = 0x21001;
// The player tells the end of a recording itself; after so much more silence it is taken for
// granted.
constexpr int64_t LATE_END_NS = 5'000'000'000;

}  // namespace

void PlayRun::watch() {
    while ((mOutcome = look()) == Outcome::GO_ON) {
        awaitNextLook();
    }
    mMessages.line().clear();
}

// The first picture is told at once.
void PlayRun::awaitNextLook() {
    int64_t leftNs = LOOK_NS;
    if (!mFirstPictureReported) {
        mPictures->awaitFirst(std::chrono::nanoseconds(LOOK_NS));
        leftNs = 0;
    } else if (mEndNs != 0) {
        leftNs = std::clamp<int64_t>(mEndNs - monotonicNs(), 0, LOOK_NS);
    }
    const auto serve = [this](int connection, const nlohmann::json& request) {
        if (!mFleet->serve(connection, request) && !mZap->serve(connection, request)) {
            mServer.answer(connection, mControl->serve(request));
        }
    };
    pollfd desktop = mDesktop->watched();
    // Whoever asks for yet another channel is heard before this one is begun.
    for (int pass = 0; pass < CHANGE_PASSES && mZap->isBetween(); ++pass) {
        mServer.wait(0, serve);
    }
    mServer.wait(mZap->isBetween() ? 0 : leftNs, serve, {&desktop, 1});
    mFleet->look();
}

PlayRun::Outcome PlayRun::look() {
    askService(false);
    mTiming.look(mSession->player());
    if (mSource.asLive) {
        tellFaults(mSession->tuner(), mEvents, mTiming);
    }
    const PictureOutput::Figures figures = mPictures->figures();
    reportFirstPicture(figures);
    mControl->look(figures);
    mScreen->look(figures);
    mHooks.look({mScreen->state().name, std::to_string(mSelection.serviceId), mSource.path});
    updateStatus(figures);
    if (mSource.kind != SourceKind::MEDIA && !mHinted && !mControl->transport().isPaused() &&
        !outputsOpened(figures) && monotonicNs() - mEvents.beginNs() > HINT_NS) {
        hint(missingStream());
    }
    if (Interrupt::takeDumpRequest()) {
        mMessages.line().clear();
        mSession->player().dump(STDERR_FILENO);
    }
    if (Interrupt::requested()) {
        return Outcome::INTERRUPTED;
    }
    if (mPictures->quitRequested() || mDesktop->quitRequested() || mEvents.writeError() != 0) {
        return Outcome::FINISHED;
    }
    if (mEndNs != 0 && monotonicNs() >= mEndNs) {
        return Outcome::FINISHED;
    }
    return lookAtService();
}

void PlayRun::askService(bool urgent) {
    if (mSession->look(urgent)) {
        mSound.onFigures(mSession->figures());
    }
}

PlayRun::Outcome PlayRun::lookAtService() {
    if (mSession->isLost()) {
        return replaceService();
    }
    if (const Outcome outcome = lookAtErrors(); outcome != Outcome::GO_ON) {
        return outcome;
    }
    if (const Outcome outcome = outcomeOf(mControl->lookAtRequests(), "the player cannot go on");
        outcome != Outcome::GO_ON) {
        return outcome;
    }
    mDesktop->look();
    mZap->look(mPictures->figures());
    mRecording.look(mSession->player());
    return lookAtEnd();
}

// A broadcast ends with its source; a recording or a media file when the player says so.
PlayRun::Outcome PlayRun::lookAtEnd() {
    if (mEndOfContent) {
        return Outcome::FINISHED;
    }
    if (mControl->transport().isPaused() || mSource.kind == SourceKind::MEDIA) {
        return Outcome::GO_ON;
    }
    const bool isLive = mSource.kind == SourceKind::LIVE;
    if (mSourceEnd.drained(monotonicNs(), mSession->sourceEnded(),
                           mSession->figures().lastFrameTimedNs, isLive ? 0 : LATE_END_NS)) {
        mEvents.write("onEndOfContent");
        return Outcome::FINISHED;
    }
    if (mSourceEnd.seen()) {
        mStill.keepLatest(mSession->player());
    }
    return Outcome::GO_ON;
}

// Where that was asked for, another service goes on: at the beginning of a file, or where a pipe
// is.
PlayRun::Outcome PlayRun::replaceService() {
    const uint64_t frames = mSession->figures().framesTimed;
    const std::string message = mSession->lostMessage();
    askService(false);
    if (mSource.kind == SourceKind::MEDIA && mSession->hasMediaFailed()) {
        return giveUp(mediaFailed());
    }
    if (mFramesAtReplacement == frames || !mSession->replaceLost()) {
        return giveUp(mMessages.fail(EXIT_SERVICE, message));
    }
    mFramesAtReplacement = frames;
    mFigures->countServiceRestart();
    mHooks.onBegin();
    mMessages.say("the player service ended by itself; another one goes on");
    if (const orvhost::TuneResult tuned = tuneTo(*mSession, mSource, mOptions.keepGaps);
        !tuned.ok()) {
        return giveUp(mMessages.fail(exitCodeOf(tuned.status), tuned.message));
    }
    return outcomeOf(openAndStart(), "the player cannot go on");
}

// The service ends when its media player cannot go on.
int PlayRun::mediaFailed() {
    const bool hasPlayed =
        mPictures->figures().frames > 0 || mSession->player().elapsed().count() > 0;
    return mMessages.fail(hasPlayed ? EXIT_PLAYBACK : EXIT_SOURCE,
                          mSession->mediaMessage(mSource.path));
}

bool PlayRun::outputsOpened(const PictureOutput::Figures& figures) const {
    return figures.frames > 0 || mSession->figures().heard;
}

// What keeps the outputs shut: the player opens them once picture and sound have both come.
std::string PlayRun::missingStream() const {
    if (mSelection.audioPid == 0) {
        return "the service has no sound";
    }
    if (mSelection.videoPid == 0) {
        return "the service has no picture";
    }
    if (mSession->figures().framesTimed == 0) {
        return "no picture can be decoded from PID " + std::to_string(mSelection.videoPid);
    }
    return "no sound can be decoded from PID " + std::to_string(mSelection.audioPid);
}

void PlayRun::hint(const std::string& reason) {
    mHinted = true;
    const char* const wait = mSource.kind == SourceKind::RECORDING ? "10" : "17";
    mMessages.say(reason + "; playback begins " + wait + " s after the start");
}

// A scrambled picture stops the player's video. Bit errors look the same: after a stretch of good
// pictures it is started again.
PlayRun::Outcome PlayRun::lookAtErrors() {
    const int code = mError.exchange(0);
    if (code == RECORDING_UNREADABLE) {
        return giveUp(mMessages.fail(EXIT_PLAYBACK,
                                     mSource.path + ": the recording cannot be read on (code " +
                                         std::to_string(code) + "); see: orvplay record show " +
                                         std::to_string(mSource.number)));
    }
    if (code != SCRAMBLED) {
        return Outcome::GO_ON;
    }
    askService(true);
    const int64_t now = monotonicNs();
    const uint64_t frames = mSession->figures().framesTimed;
    if (frames == mFramesAtRestart || (mLastRestartNs != 0 && now - mLastRestartNs < RESTART_NS)) {
        const std::string message =
            "the service is scrambled; choose a clear one (orvplay probe " + mOptions.source + ")";
        if (!mZap->takeFailure({EXIT_PLAYBACK, message})) {
            return giveUp(mMessages.fail(EXIT_PLAYBACK, message));
        }
        mSession->player().stop();
        return Outcome::GO_ON;
    }
    mLastRestartNs = now;
    mFramesAtRestart = frames;
    mSession->player().stop();
    return outcomeOf(start(), "the player cannot start again");
}

void PlayRun::reportFirstPicture(const PictureOutput::Figures& figures) {
    // Of a media file there may be none; the player then tells the time alone.
    const bool isSoundAlone = figures.frames == 0 && mSource.kind == SourceKind::MEDIA &&
                              mSession->player().elapsed().count() > 0;
    if (mFirstPictureReported || (figures.frames == 0 && !isSoundAlone)) {
        return;
    }
    mFirstPictureReported = true;
    if (mOptions.durationS > 0.0) {
        const int64_t beginNs = isSoundAlone ? monotonicNs() : figures.firstFrameNs;
        mEndNs = beginNs + std::llround(std::min(mOptions.durationS, LONGEST_S) * 1e9);
    }
    askService(true);
    mSummary.outputsOpened(mSession->figures());
    if (mCaptionFile != nullptr) {
        const int64_t sinceNs = monotonicNs() - figures.firstFrameNs;
        mCaptionFile->setOrigin(mSession->player().streamTime90k() - sinceNs * 9 / 100'000);
    }
}

void PlayRun::updateStatus(const PictureOutput::Figures& figures) {
    // Of a media file buffering is told to begin, never to end.
    std::string state = mSource.kind != SourceKind::MEDIA ? mService.text() : "";
    if (mSession->player().isRecording()) {
        state += (state.empty() ? "" : "  ") + ("recording " + mRecording.lengthText());
    }
    if (const int percent = mSession->figures().indexPercent; percent >= 0) {
        state += (state.empty() ? "" : "  ") + ("indexing " + std::to_string(percent) + " %");
    }
    std::string time = mControl->transport().position();
    if (figures.frames == 0 && mSession->player().elapsed().count() == 0) {
        mMessages.line().show("waiting for the first picture ... " + state);
        return;
    }
    if (time.empty()) {
        time = timeText((figures.lastFrameNs - figures.firstFrameNs) / 1'000'000);
    }
    std::string text = time + (mControl->transport().isPaused() ? "  paused" : "");
    char part[96];
    if (figures.frames > 0) {
        snprintf(part, sizeof part, "  %dx%d%c  %llu pictures", figures.width, figures.height,
                 figures.interlaced ? 'i' : 'p', static_cast<unsigned long long>(figures.frames));
        text += part;
    }
    if (mSource.kind != SourceKind::MEDIA) {
        snprintf(part, sizeof part, "  skew %+.0f ms", mSync.skew().meanMs());
        text += part;
    }
    mMessages.line().show(text + (state.empty() ? "" : "  " + state));
}

}  // namespace orvplay
