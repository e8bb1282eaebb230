#include "PlayRun.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <thread>

#include "Interrupt.h"
#include "MonotonicTime.h"
#include "StillWriter.h"
#include "WindowLoader.h"
#include "dtv/Tuner.h"

namespace orvplay {

namespace {

constexpr int64_t LOOK_NS = 100'000'000;
constexpr int64_t FIRST_LOOK_NS = 20'000'000;  // until the first picture, which is told at once
constexpr double LONGEST_S = 1e9;
constexpr std::chrono::seconds STILL_WAIT{2};
constexpr int64_t RESTART_NS = 10'000'000'000;
// Outputs that open at all open sooner, even where sound was announced with the wrong framing.
constexpr int64_t HINT_NS = 6'000'000'000;
constexpr unsigned int SCRAMBLED = 0x21003;

nlohmann::ordered_json result(int code) {
    return {{"result", code}};
}

}  // namespace

PlayRun::PlayRun(const PlayOptions& options, const StreamSelection& selection)
    : mOptions(options),
      mSelection(selection),
      mEvents(options.json),
      mCaptionsShown(selection.captionPid != 0) {}

int PlayRun::run() {
    if (!openCaptionFile() || !openOutputs()) {
        return EXIT_FAILED;  // what failed said why
    }
    if (const int status = open(); status != 0) {
        return fail(EXIT_PLAYBACK, "the player cannot set up these streams (code " +
                                       std::to_string(status) + "); ORV_TRACE=info shows why");
    }
    if (const int status = start(); status != 0) {
        return fail(EXIT_PLAYBACK, "the player cannot start (code " + std::to_string(status) + ")");
    }
    if (mSelection.videoPid == 0 || mSelection.audioPid == 0) {
        hint(missingStream());
    }
    watch();
    return finish();
}

bool PlayRun::openOutputs() {
    android::sp<android::IGraphicBufferProducer> producer;
    orvhost::BufferQueue::create(&producer, &mConsumer);
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
    mPictures = std::make_unique<PictureOutput>(mConsumer, std::move(display), mSync);
    if (!mPictures->start()) {
        return false;
    }
    PlayerSession::Events events;
    events.onError = [this](unsigned int code, const std::string& module) {
        mEvents.write("onError", {{"code", code}, {"module", module}});
        mError = code;
    };
    events.onAudioSessionId = [this](int id) { mEvents.write("onAudioSessionId", {{"id", id}}); };
    events.onAudioReady = [this](long earlyMs) { mSound.onAudioReady(earlyMs); };
    events.onCaption = [this](const std::string& utf8, int64_t pcr90k) { onCaption(utf8, pcr90k); };
    events.onServiceEvent = [this](auto... event) { mService.onEvent(event...); };
    if (!mOptions.snapshot.empty()) {
        mStills = std::make_unique<StillTray>(mConsumer, 1);
        events.onStill = [this](const unsigned char* pixels, unsigned int width,
                                unsigned int height) { mStills->put(pixels, width, height); };
    }
    mSession = std::make_unique<PlayerSession>(producer, std::move(events));
    return true;
}

int PlayRun::open() {
    const int status = buildPlayer();
    if (status == 0) {
        mService.onEvent(ServiceState::Event::BUFFERING_BEGIN_EVENT, 0, 0);
    }
    mEvents.write("openUriComplete", result(status));
    return status;
}

int PlayRun::buildPlayer() {
    const int status = mSession->open(mSelection.configuration());
    if (status == 0 && !mOptions.audio) {
        mSession->setAudioEnabled(false);
    }
    return status;
}

int PlayRun::start() {
    mEvents.begin();
    mSummary.begin();
    const int status = mSession->start();
    mEvents.write("startComplete", result(status));
    return status;
}

void PlayRun::watch() {
    while ((mOutcome = look()) == Outcome::GO_ON) {
        std::this_thread::sleep_for(std::chrono::nanoseconds(untilNextLookNs()));
    }
    mStatus.clear();
}

int64_t PlayRun::untilNextLookNs() const {
    if (!mFirstPictureReported) {
        return FIRST_LOOK_NS;
    }
    return mEndNs == 0 ? LOOK_NS : std::clamp<int64_t>(mEndNs - monotonicNs(), 0, LOOK_NS);
}

PlayRun::Outcome PlayRun::look() {
    const PictureOutput::Figures figures = mPictures->figures();
    reportFirstPicture(figures);
    updateStatus(figures);
    if (!mHinted && !outputsOpened(figures) && monotonicNs() - mEvents.beginNs() > HINT_NS) {
        hint(missingStream());
    }
    if (Interrupt::takeDumpRequest()) {
        mStatus.clear();
        mSession->dump(stderr);
    }
    if (Interrupt::requested()) {
        return Outcome::INTERRUPTED;
    }
    if (mPictures->quitRequested() || mEvents.writeError() != 0) {
        return Outcome::FINISHED;
    }
    const int64_t now = monotonicNs();
    if (mEndNs != 0 && now >= mEndNs) {
        return Outcome::FINISHED;
    }
    if (const Outcome outcome = lookAtErrors(); outcome != Outcome::GO_ON) {
        return outcome;
    }
    if (const Outcome outcome = lookAtKeys(); outcome != Outcome::GO_ON) {
        return outcome;
    }
    if (mSourceEnd.drained(now, mSession->lastFrameTimedNs())) {
        mEvents.write("onEndOfContent");
        return Outcome::FINISHED;
    }
    // With the last picture the chance of a still has gone: from here on one replaces another.
    if (mStills != nullptr && mSourceEnd.seen()) {
        mSession->requestStills(1, 0);
    }
    return Outcome::GO_ON;
}

bool PlayRun::outputsOpened(const PictureOutput::Figures& figures) const {
    return figures.frames > 0 || mSound.heard();
}

// What keeps the outputs shut: the player opens them once picture and sound have both come.
std::string PlayRun::missingStream() const {
    if (mSelection.audioPid == 0) {
        return "the service has no sound";
    }
    if (mSelection.videoPid == 0) {
        return "the service has no picture";
    }
    if (mSession->framesTimed() == 0) {
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
    const unsigned int code = mError.exchange(0);
    if (code != SCRAMBLED) {
        return Outcome::GO_ON;
    }
    const int64_t now = monotonicNs();
    const uint64_t frames = mSession->framesTimed();
    if (frames == mFramesAtRestart || (mLastRestartNs != 0 && now - mLastRestartNs < RESTART_NS)) {
        mStatus.clear();
        fprintf(stderr,
                "orvplay: the service is scrambled; choose a clear one (orvplay probe %s)\n",
                mOptions.source.c_str());
        mFailure = EXIT_PLAYBACK;
        return Outcome::FAILED;
    }
    mLastRestartNs = now;
    mFramesAtRestart = frames;
    mSession->stop();
    if (const int status = mSession->start(); status != 0) {
        mFailure = EXIT_PLAYBACK;
        fprintf(stderr, "orvplay: the player cannot start again (code %d)\n", status);
        return Outcome::FAILED;
    }
    return Outcome::GO_ON;
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
        if (mSession->setCaptionPid(next->pid) != 0) {
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
    if (sameCoding && mSession->setAudioPid(next->pid) == 0) {
        mSelection.audioPid = next->pid;
    } else {
        mSession->stop();
        mSelection.audioPid = next->pid;
        mSelection.audioKind = next->kind;
        int status = buildPlayer();
        if (status == 0) {
            status = mSession->start();
        }
        if (status != 0) {
            mFailure = EXIT_PLAYBACK;
            say("the player cannot change to the sound, " + describe(*next) + " (code " +
                std::to_string(status) + ")");
            return Outcome::FAILED;
        }
    }
    say("sound: " + describe(*next));
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
    mSummary.outputsOpened();
    if (mCaptionFile != nullptr) {
        const int64_t sinceNs = monotonicNs() - figures.firstFrameNs;
        mCaptionFile->setOrigin(mSession->streamTime90k() - sinceNs * 9 / 100'000);
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
    mSummary.end();
    Still still;
    const bool hasStill = mStills != nullptr && takeStill(&still);
    if (const int status = mSession->stop(); status != 0 && mFailure == EXIT_OK) {
        fprintf(stderr, "orvplay: the player did not stop cleanly (code %d)\n", status);
        mFailure = EXIT_PLAYBACK;
    }
    const std::string missing = missingStream();
    mSession = nullptr;  // no event comes after this: the summary is the last line
    mPictures->stop();
    const PictureOutput::Figures figures = mPictures->figures();
    bool filesSaved = finishCaptionFile();
    if (mStills != nullptr) {
        filesSaved = saveStill(hasStill ? &still : nullptr) && filesSaved;
    }
    mEvents.writeLine(mSummary.toJson(figures, mSound, mSync));
    if (!mEvents.enabled()) {
        fputs(mSummary.toText(figures, mSound, mSync).c_str(), stdout);
    }
    if (mOutcome == Outcome::FAILED) {
        return mFailure;
    }
    if (mOutcome == Outcome::INTERRUPTED) {
        return EXIT_INTERRUPTED;
    }
    if (mSourceEnd.seen() && !outputsOpened(figures)) {
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

// On the thread of the player's caption renderer, when the caption is due.
void PlayRun::onCaption(const std::string& utf8, int64_t pcr90k) {
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

// What is on the screen now; where no picture comes any more, what was there last.
bool PlayRun::takeStill(Still* still) {
    if (mStills->take(still, std::chrono::seconds(0))) {
        return true;
    }
    if (mPictures->figures().frames == 0 || mOutcome == Outcome::FAILED) {
        return false;
    }
    mSession->requestStills(1, 0);
    return mStills->take(still, STILL_WAIT);
}

bool PlayRun::saveStill(const Still* still) {
    std::string error = "there was no picture";
    std::string path;
    if (still != nullptr) {
        path = writeStill(*still, {mSelection.serviceName, mSelection.serviceId}, mOptions.snapshot,
                          &error);
    }
    if (path.empty()) {
        fprintf(stderr, "orvplay: no still in %s: %s\n", mOptions.snapshot.c_str(), error.c_str());
        return false;
    }
    mEvents.write("snapshot", {{"path", path}});
    if (!mEvents.enabled()) {
        printf("Still:    %s\n", path.c_str());
    }
    return true;
}

int PlayRun::fail(ExitCode code, const std::string& message) {
    say(message);
    return code;
}

}  // namespace orvplay
