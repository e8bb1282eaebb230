#include "PlayRun.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <utility>

#include "HumanText.h"
#include "Interrupt.h"
#include "MonotonicTime.h"
#include "ServiceChoice.h"
#include "SourceChoice.h"
#include "TuneFailure.h"
#include "WindowLoader.h"
#include "client/PictureHalves.h"

using orvclient::Status;

namespace orvplay {

namespace {

constexpr int64_t LOOK_NS = 100'000'000;
constexpr double LONGEST_S = 1e9;
constexpr std::chrono::seconds ANSWER_TOLD{2};  // it came already
constexpr int64_t RESTART_NS = 10'000'000'000;
// Outputs that open at all open sooner, even where sound was announced with the wrong framing.
constexpr int64_t HINT_NS = 6'000'000'000;
constexpr int SCRAMBLED = 0x21003;
constexpr int RECORDING_UNREADABLE = 0x21001;
// The player tells the end of a recording itself; after so much more silence it is taken for
// granted.
constexpr int64_t LATE_END_NS = 5'000'000'000;

}  // namespace

PlayRun::PlayRun(const PlayOptions& options)
    : mOptions(options), mEvents(options.json), mStill(options.snapshot) {}

int PlayRun::run() {
    mSession = std::make_unique<PlayerSession>(mOptions, callbacks());
    std::string error;
    if (!mSession->connect(&error)) {
        return mMessages.fail(EXIT_SERVICE, error);
    }
    if (const int code = tune(); code != EXIT_OK) {
        return code;
    }
    if (!mServer.open(&error)) {
        mMessages.say(error + "; other commands cannot reach this player");
    }
    if (!openCaptionFile() || !openOutputs()) {
        return EXIT_FAILED;  // what failed said why
    }
    if (const int code = play(); code != EXIT_OK) {
        return code;
    }
    if (mSource.kind != SourceKind::MEDIA &&
        (mSelection.videoPid == 0 || mSelection.audioPid == 0)) {
        hint(missingStream());
    }
    watch();
    return finish();
}

orvclient::Callbacks PlayRun::callbacks() {
    orvclient::Callbacks callbacks;
    mService.subscribe(&callbacks);
    mStill.subscribe(&callbacks);
    mRecording.subscribe(&callbacks);
    callbacks.onOpened = [this](int result) {
        mEvents.write("openUriComplete", {{"result", result}});
        mAnswers.release();
    };
    callbacks.onStarted = [this](int result) {
        mEvents.write("startComplete", {{"result", result}});
        mAnswers.release();
    };
    callbacks.onError = [this](int code) {
        mEvents.write("onError", {{"code", code}});
        mError = code;
    };
    // Of a media file each second is told several times.
    callbacks.onTime = [this, last = -1](int seconds) mutable {
        if (std::exchange(last, seconds) != seconds) {
            mEvents.write("onTimeUpdate", {{"seconds", seconds}});
        }
    };
    callbacks.onEnd = [this] {
        mEvents.write("onEndOfContent");
        mEndOfContent = true;
    };
    callbacks.onAudioSession = [this](int id) { mEvents.write("onAudioSessionId", {{"id", id}}); };
    callbacks.onCaption = [this](const std::string& utf8, int64_t pcr90k) {
        onCaption(utf8, pcr90k);
    };
    return callbacks;
}

int PlayRun::tune() {
    if (const int code = findSource(*mSession, mOptions.source, mMessages, &mSource);
        code != EXIT_OK) {
        return code;
    }
    const orvhost::TuneResult tuned = tuneTo(*mSession, mSource, mOptions.keepGaps);
    if (!tuned.ok()) {
        return mMessages.fail(exitCodeOf(tuned.status), tuned.message);
    }
    return mSource.kind == SourceKind::MEDIA
               ? EXIT_OK
               : findStreams(mSession->tuner(), mOptions, &mSelection);
}

bool PlayRun::openOutputs() {
    std::unique_ptr<Display> display;
    if (!mOptions.headless) {
        const std::string name = !mSource.title.empty()            ? mSource.title
                                 : !mSelection.serviceName.empty() ? mSelection.serviceName
                                                                   : mOptions.source;
        std::string error;
        display = createWindow(name + " - OrvPlayer", &error);
        if (display == nullptr) {
            fprintf(stderr, "orvplay: %s\n", error.c_str());
            return false;
        }
    }
    mPictures =
        std::make_unique<PictureOutput>(mQueue.halves().consumer(), std::move(display), mSync);
    const PlayParts parts{*mSession,
                          *mPictures,
                          mEvents,
                          mSummary,
                          mMessages,
                          [this] { askService(true); },
                          [this] { return playAgain(); }};
    mControl.emplace(parts, mSource, mSelection, mRecording, mOptions.storage);
    return mPictures->start();
}

int PlayRun::play() {
    if (const Status status = open(); !status.ok()) {
        return mMessages.failed(*mSession, status, "the player cannot set up these streams",
                                "; ORV_TRACE=info shows why");
    }
    mEvents.begin();
    mSummary.begin();
    if (const Status status = start(); !status.ok()) {
        return mSource.kind == SourceKind::MEDIA && status.code == Status::LOST
                   ? mediaFailed()
                   : mMessages.failed(*mSession, status, "the player cannot start");
    }
    if (!mOptions.record.empty()) {
        const std::string name = mOptions.record != "-" ? mOptions.record : "";
        if (const Status status = mControl->startRecording(name, mOptions.storage); !status.ok()) {
            mFailure = mMessages.fail(EXIT_RECORDING, "nothing is recorded: " + status.message);
        }
    }
    return EXIT_OK;
}

Status PlayRun::open() {
    mIsOpen = true;
    const Status status = mSession->open(mSource, mSelection, &mQueue, mOptions.audio);
    awaitAnswer(status);
    return status;
}

Status PlayRun::start() {
    const Status status = mSession->start();
    awaitAnswer(status);
    return status;
}

Status PlayRun::playAgain() {
    const Status status = open();
    return status.ok() ? start() : status;
}

// What the player answered is told as an event, in its place among the others, before anything is
// made of it.
void PlayRun::awaitAnswer(const Status& status) {
    if (status.code >= 0) {
        mAnswers.try_acquire_for(ANSWER_TOLD);
    }
}

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
    mServer.wait(leftNs, [this](int connection, const nlohmann::json& request) {
        mServer.answer(connection, mControl->serve(request));
    });
}

PlayRun::Outcome PlayRun::look() {
    askService(false);
    const PictureOutput::Figures figures = mPictures->figures();
    reportFirstPicture(figures);
    mControl->look(figures);
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
    if (mPictures->quitRequested() || mEvents.writeError() != 0) {
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
    if (const Outcome outcome = outcomeOf(mControl->lookAtKeys(), "the player cannot go on");
        outcome != Outcome::GO_ON) {
        return outcome;
    }
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
    if (mSource.kind == SourceKind::MEDIA) {
        return giveUp(mediaFailed());
    }
    if (mFramesAtReplacement == frames || !mSession->replaceLost()) {
        return giveUp(mMessages.fail(EXIT_SERVICE, message));
    }
    mFramesAtReplacement = frames;
    mMessages.say("the player service ended by itself; another one goes on");
    if (const orvhost::TuneResult tuned = tuneTo(*mSession, mSource, mOptions.keepGaps);
        !tuned.ok()) {
        return giveUp(mMessages.fail(exitCodeOf(tuned.status), tuned.message));
    }
    return outcomeOf(playAgain(), "the player cannot go on");
}

// The service ends when its media player cannot go on.
int PlayRun::mediaFailed() {
    const bool hasPlayed =
        mPictures->figures().frames > 0 || mSession->player().elapsed().count() > 0;
    return mMessages.fail(
        hasPlayed ? EXIT_PLAYBACK : EXIT_SOURCE,
        mSource.path + ": the media player cannot play this; is it a media file, and whole?");
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
        return giveUp(mMessages.fail(
            EXIT_PLAYBACK, "the service is scrambled; choose a clear one (orvplay probe " +
                               mOptions.source + ")"));
    }
    mLastRestartNs = now;
    mFramesAtRestart = frames;
    mSession->player().stop();
    return outcomeOf(start(), "the player cannot start again");
}

void PlayRun::reportFirstPicture(const PictureOutput::Figures& figures) {
    if (mFirstPictureReported || figures.frames == 0) {
        return;
    }
    mFirstPictureReported = true;
    if (mOptions.durationS > 0.0) {
        mEndNs = figures.firstFrameNs + std::llround(std::min(mOptions.durationS, LONGEST_S) * 1e9);
    }
    askService(true);
    mSummary.outputsOpened(mSession->figures());
    if (mCaptionFile != nullptr) {
        const int64_t sinceNs = monotonicNs() - figures.firstFrameNs;
        mCaptionFile->setOrigin(mSession->player().streamTime90k() - sinceNs * 9 / 100'000);
    }
}

void PlayRun::updateStatus(const PictureOutput::Figures& figures) {
    std::string state = mService.text();
    if (mSession->player().isRecording()) {
        state += (state.empty() ? "" : "  ") + ("recording " + mRecording.lengthText());
    }
    std::string time = mControl->transport().position();
    if (figures.frames == 0 && mSession->player().elapsed().count() == 0) {
        mMessages.line().show("waiting for the first picture ... " + state);
        return;
    }
    if (time.empty()) {
        time = timeText((figures.lastFrameNs - figures.firstFrameNs) / 1'000'000);
    }
    char text[160];
    snprintf(text, sizeof text, "%s%s  %dx%d%c  %llu pictures  skew %+.0f ms", time.c_str(),
             mControl->transport().isPaused() ? "  paused" : "", figures.width, figures.height,
             figures.interlaced ? 'i' : 'p', static_cast<unsigned long long>(figures.frames),
             mSync.skew().meanMs());
    mMessages.line().show(std::string(text) + (state.empty() ? "" : "  " + state));
}

int PlayRun::finish() {
    askService(true);
    mSummary.end(mSession->figures());
    const bool canAsk = mPictures->figures().frames > 0 && mOutcome != Outcome::FAILED;
    mStill.take(canAsk ? &mSession->player() : nullptr);
    if (!mSession->isLost()) {
        const bool isRecording = mSession->player().isRecording();
        const Status kept = isRecording ? mControl->stopRecording(true) : Status();
        if (!kept.ok()) {
            mFailure = mMessages.fail(EXIT_RECORDING, kept.message);
        }
        const Status status = mSession->player().stop();
        if (!status.ok() && mOutcome != Outcome::FAILED) {
            mFailure = mMessages.failed(*mSession, status, "the player did not stop cleanly");
        }
    }
    const bool nothingCame = mSourceEnd.seen() && !outputsOpened(mPictures->figures());
    const std::string missing = missingStream();
    mControl.reset();
    mSession = nullptr;  // no event comes after this: the summary is the last line
    mPictures->stop();
    const PictureOutput::Figures figures = mPictures->figures();
    bool filesSaved = finishCaptionFile();
    filesSaved = mStill.save({mSelection.serviceName, mSelection.serviceId}, mEvents) && filesSaved;
    mEvents.writeLine(mSummary.toJson(figures, mSync));
    if (!mEvents.enabled()) {
        fputs(mSummary.toText(figures, mSync).c_str(), stdout);
    }
    return exitCode(nothingCame, missing, filesSaved);
}

int PlayRun::exitCode(bool nothingCame, const std::string& missing, bool filesSaved) {
    if (mOutcome == Outcome::FAILED) {
        return mFailure;
    }
    if (mRecording.hasFailed()) {
        return EXIT_RECORDING;
    }
    if (mOutcome == Outcome::INTERRUPTED) {
        return EXIT_INTERRUPTED;
    }
    if (nothingCame) {
        return mMessages.fail(EXIT_NO_DATA, mOptions.source +
                                                ": ended before playback began: " + missing +
                                                "; see: orvplay probe " + mOptions.source);
    }
    if (const int error = mEvents.writeError(); error != 0 && error != EPIPE) {
        return mMessages.fail(EXIT_FAILED,
                              std::string("standard output cannot be written: ") + strerror(error));
    }
    return mFailure != EXIT_OK ? mFailure : filesSaved ? EXIT_OK : EXIT_FAILED;
}

bool PlayRun::openCaptionFile() {
    if (mOptions.captionsOut.empty()) {
        return true;
    }
    mCaptionFile = std::make_unique<CaptionFile>(*captionFormatOf(mOptions.captionsOut));
    const int error = mCaptionFile->open(mOptions.captionsOut);
    if (error != 0) {
        mMessages.fail(EXIT_FAILED,
                       mOptions.captionsOut + ": cannot be written: " + strerror(error));
    }
    return error == 0;
}

// When the caption is due.
void PlayRun::onCaption(const std::string& utf8, int64_t pcr90k) {
    if (!mIsOpen) {
        return;
    }
    mSummary.countCaption();
    mEvents.write("closedCaptionText", {{"text", utf8}, {"pcr", pcr90k}});
    mPictures->showCaption(utf8);
    if (mCaptionFile == nullptr) {
        return;
    }
    if (mSelection.videoPid == 0) {
        mCaptionFile->setOrigin(pcr90k);  // there is no first picture to wait for
    }
    mCaptionFile->add(pcr90k, utf8);
}

bool PlayRun::finishCaptionFile() {
    const int error = mCaptionFile != nullptr ? mCaptionFile->finish() : 0;
    if (error != 0) {
        mMessages.fail(EXIT_FAILED,
                       mOptions.captionsOut + ": cannot be written: " + strerror(error));
    }
    return error == 0;
}

// A command while playing. That the service ended is for the next look.
PlayRun::Outcome PlayRun::outcomeOf(const Status& status, const std::string& what) {
    return status.ok() || status.code == Status::LOST
               ? Outcome::GO_ON
               : giveUp(mMessages.failed(*mSession, status, what));
}

PlayRun::Outcome PlayRun::giveUp(int code) {
    mFailure = code;
    return Outcome::FAILED;
}

}  // namespace orvplay
