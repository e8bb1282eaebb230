#include "PlayRun.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <thread>

#include "Interrupt.h"
#include "MonotonicTime.h"
#include "ServiceChoice.h"
#include "TuneFailure.h"
#include "WindowLoader.h"
#include "client/PictureHalves.h"

using orvclient::Status;

namespace orvplay {

namespace {

constexpr std::chrono::milliseconds LOOK{100};
constexpr double LONGEST_S = 1e9;
constexpr std::chrono::seconds ANSWER_TOLD{2};  // it came already
constexpr int64_t RESTART_NS = 10'000'000'000;
// Outputs that open at all open sooner, even where sound was announced with the wrong framing.
constexpr int64_t HINT_NS = 6'000'000'000;
constexpr int SCRAMBLED = 0x21003;

}  // namespace

PlayRun::PlayRun(const PlayOptions& options)
    : mOptions(options), mEvents(options.json), mStill(options.snapshot) {}

int PlayRun::run() {
    mSession = std::make_unique<PlayerSession>(mOptions, callbacks());
    std::string error;
    if (!mSession->connect(&error)) {
        return fail(EXIT_SERVICE, error);
    }
    if (const int code = tune(); code != EXIT_OK) {
        return code;
    }
    if (!openCaptionFile() || !openOutputs()) {
        return EXIT_FAILED;  // what failed said why
    }
    if (const int code = play(); code != EXIT_OK) {
        return code;
    }
    if (mSelection.videoPid == 0 || mSelection.audioPid == 0) {
        hint(missingStream());
    }
    watch();
    return finish();
}

orvclient::Callbacks PlayRun::callbacks() {
    orvclient::Callbacks callbacks;
    mService.subscribe(&callbacks);
    mStill.subscribe(&callbacks);
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
    callbacks.onAudioSession = [this](int id) { mEvents.write("onAudioSessionId", {{"id", id}}); };
    callbacks.onCaption = [this](const std::string& utf8, int64_t pcr90k) {
        onCaption(utf8, pcr90k);
    };
    return callbacks;
}

orvhost::TuneOptions PlayRun::tuning() const {
    orvhost::TuneOptions tuning;
    tuning.keepGaps = mOptions.keepGaps;
    return tuning;
}

int PlayRun::tune() {
    const int code = tuneTo(mSession->tuner(), mOptions, tuning(), &mSelection);
    mCaptionsShown = mSelection.captionPid != 0;
    return code;
}

bool PlayRun::openOutputs() {
    std::unique_ptr<Display> display;
    if (!mOptions.headless) {
        const std::string name =
            mSelection.serviceName.empty() ? mOptions.source : mSelection.serviceName;
        std::string error;
        display = createWindow(name + " - OrvPlayer", &error);
        if (display == nullptr) {
            fprintf(stderr, "orvplay: %s\n", error.c_str());
            return false;
        }
    }
    mPictures =
        std::make_unique<PictureOutput>(mQueue.halves().consumer(), std::move(display), mSync);
    return mPictures->start();
}

int PlayRun::play() {
    if (const Status status = open(); !status.ok()) {
        return failed(status, "the player cannot set up these streams",
                      "; ORV_TRACE=info shows why");
    }
    mEvents.begin();
    mSummary.begin();
    if (const Status status = start(); !status.ok()) {
        return failed(status, "the player cannot start");
    }
    return EXIT_OK;
}

Status PlayRun::open() {
    mIsOpen = true;
    const Status status = mSession->open(mSelection, &mQueue, mOptions.audio);
    awaitAnswer(status);
    return status;
}

Status PlayRun::start() {
    const Status status = mSession->start();
    awaitAnswer(status);
    return status;
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
    mStatus.clear();
}

// The first picture is told at once.
void PlayRun::awaitNextLook() const {
    if (!mFirstPictureReported) {
        mPictures->awaitFirst(LOOK);
        return;
    }
    const std::chrono::nanoseconds left(mEndNs != 0 ? mEndNs - monotonicNs() : INT64_MAX);
    std::this_thread::sleep_for(std::min<std::chrono::nanoseconds>(left, LOOK));
}

PlayRun::Outcome PlayRun::look() {
    askService(false);
    const PictureOutput::Figures figures = mPictures->figures();
    reportFirstPicture(figures);
    updateStatus(figures);
    if (!mHinted && !outputsOpened(figures) && monotonicNs() - mEvents.beginNs() > HINT_NS) {
        hint(missingStream());
    }
    if (Interrupt::takeDumpRequest()) {
        mStatus.clear();
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
    if (const Outcome outcome = lookAtKeys(); outcome != Outcome::GO_ON) {
        return outcome;
    }
    if (mSourceEnd.drained(monotonicNs(), mSession->sourceEnded(),
                           mSession->figures().lastFrameTimedNs)) {
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
    if (mFramesAtReplacement == frames || !mSession->replaceLost()) {
        return giveUp(fail(EXIT_SERVICE, message));
    }
    mFramesAtReplacement = frames;
    say("the player service ended by itself; another one goes on");
    const orvhost::TuneResult tuned = mSession->tuner().tune(mOptions.source, tuning());
    if (!tuned.ok()) {
        return giveUp(fail(exitCodeOf(tuned.status), tuned.message));
    }
    Status status = open();
    if (status.ok()) {
        status = start();
    }
    return outcomeOf(status, "the player cannot go on");
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
    say(reason + "; playback begins 17 s after the start");
}

void PlayRun::say(const std::string& message) {
    mStatus.clear();
    fprintf(stderr, "orvplay: %s\n", message.c_str());
}

// A scrambled picture stops the player's video. Bit errors look the same: after a stretch of good
// pictures it is started again.
PlayRun::Outcome PlayRun::lookAtErrors() {
    const int code = mError.exchange(0);
    if (code != SCRAMBLED) {
        return Outcome::GO_ON;
    }
    askService(true);
    const int64_t now = monotonicNs();
    const uint64_t frames = mSession->figures().framesTimed;
    if (frames == mFramesAtRestart || (mLastRestartNs != 0 && now - mLastRestartNs < RESTART_NS)) {
        return giveUp(
            fail(EXIT_PLAYBACK, "the service is scrambled; choose a clear one (orvplay probe " +
                                    mOptions.source + ")"));
    }
    mLastRestartNs = now;
    mFramesAtRestart = frames;
    mSession->player().stop();
    return outcomeOf(start(), "the player cannot start again");
}

PlayRun::Outcome PlayRun::lookAtKeys() {
    Outcome outcome = Outcome::GO_ON;
    for (int left = mPictures->takeAudioRequests(); left > 0 && outcome == Outcome::GO_ON; --left) {
        outcome = changeSound();
    }
    for (int left = mPictures->takeCaptionRequests(); left > 0; --left) {
        changeCaptions();
    }
    return outcome;
}

void PlayRun::changeCaptions() {
    const Track* next = mSelection.nextCaptions(mCaptionsShown);
    if (next != nullptr && next->pid != mSelection.captionPid) {
        if (!mSession->player().setCaptionPid(next->pid).ok()) {
            say("the captions cannot be changed to " + describe(*next));
            return;
        }
        mSelection.captionPid = next->pid;
        mPictures->showCaption("");
    }
    mCaptionsShown = next != nullptr;
    mPictures->setCaptionsVisible(mCaptionsShown);
    say(next != nullptr               ? "captions: " + describe(*next)
        : mSelection.captions.empty() ? "the service has no captions"
                                      : "captions: off");
}

// The decoder keeps the coding that it was made for: sound of another coding needs another player.
PlayRun::Outcome PlayRun::changeSound() {
    const Track* next = mSelection.nextSound();
    if (next == nullptr) {
        say("the service has no other sound");
        return Outcome::GO_ON;
    }
    const bool sameCoding = mSelection.audioPid != 0 && next->kind == mSelection.audioKind;
    const Track track = *next;
    if (sameCoding && mSession->player().setAudioPid(track.pid).ok()) {
        mSelection.audioPid = track.pid;
    } else {
        mSession->player().stop();
        mSelection.audioPid = track.pid;
        mSelection.audioKind = track.kind;
        Status status = open();
        if (status.ok()) {
            status = start();
        }
        if (!status.ok()) {
            return outcomeOf(status, "the player cannot change to the sound, " + describe(track));
        }
    }
    say("sound: " + describe(track));
    return Outcome::GO_ON;
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
    const std::string state = mService.text();
    if (figures.frames == 0) {
        mStatus.show("waiting for the first picture ... " + state);
        return;
    }
    const auto seconds =
        static_cast<int>((figures.lastFrameNs - figures.firstFrameNs) / 1'000'000'000);
    char text[160];
    snprintf(text, sizeof text, "%02d:%02d:%02d  %dx%d%c  %llu pictures  skew %+.0f ms",
             seconds / 3600, seconds / 60 % 60, seconds % 60, figures.width, figures.height,
             figures.interlaced ? 'i' : 'p', static_cast<unsigned long long>(figures.frames),
             mSync.skew().meanMs());
    mStatus.show(std::string(text) + (state.empty() ? "" : "  " + state));
}

int PlayRun::finish() {
    askService(true);
    mSummary.end(mSession->figures());
    const bool canAsk = mPictures->figures().frames > 0 && mOutcome != Outcome::FAILED;
    mStill.take(canAsk ? &mSession->player() : nullptr);
    if (!mSession->isLost()) {
        const Status status = mSession->player().stop();
        if (!status.ok() && mOutcome != Outcome::FAILED) {
            mFailure = failed(status, "the player did not stop cleanly");
        }
    }
    const bool nothingCame = mSourceEnd.seen() && !outputsOpened(mPictures->figures());
    const std::string missing = missingStream();
    mSession = nullptr;  // no event comes after this: the summary is the last line
    mPictures->stop();
    const PictureOutput::Figures figures = mPictures->figures();
    bool filesSaved = finishCaptionFile();
    filesSaved = mStill.save({mSelection.serviceName, mSelection.serviceId}, mEvents) && filesSaved;
    mEvents.writeLine(mSummary.toJson(figures, mSync));
    if (!mEvents.enabled()) {
        fputs(mSummary.toText(figures, mSync).c_str(), stdout);
    }
    if (mOutcome == Outcome::FAILED) {
        return mFailure;
    }
    if (mOutcome == Outcome::INTERRUPTED) {
        return EXIT_INTERRUPTED;
    }
    if (nothingCame) {
        return fail(EXIT_NO_DATA, mOptions.source + ": ended before playback began: " + missing +
                                      "; see: orvplay probe " + mOptions.source);
    }
    if (const int error = mEvents.writeError(); error != 0 && error != EPIPE) {
        return fail(EXIT_FAILED,
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
        fail(EXIT_FAILED, mOptions.captionsOut + ": cannot be written: " + strerror(error));
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
        fail(EXIT_FAILED, mOptions.captionsOut + ": cannot be written: " + strerror(error));
    }
    return error == 0;
}

int PlayRun::fail(ExitCode code, const std::string& message) {
    say(message);
    return code;
}

// A command failed: the player refused it, or the service ended or does not answer.
int PlayRun::failed(const Status& status, const std::string& what, const char* advice) {
    if (status.code == Status::LOST) {
        return fail(EXIT_SERVICE, mSession->lostMessage(status.message));
    }
    if (status.code == Status::TIMEOUT) {
        return fail(EXIT_SERVICE, status.message);
    }
    return fail(EXIT_PLAYBACK, what + " (code " + std::to_string(status.code) + ")" + advice);
}

// The same while playing. That the service ended is for the next look.
PlayRun::Outcome PlayRun::outcomeOf(const Status& status, const std::string& what) {
    return status.ok() || status.code == Status::LOST ? Outcome::GO_ON
                                                      : giveUp(failed(status, what));
}

PlayRun::Outcome PlayRun::giveUp(int code) {
    mFailure = code;
    return Outcome::FAILED;
}

}  // namespace orvplay
