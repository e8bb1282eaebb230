#include "PlayRun.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <utility>

#include "ServiceChoice.h"
#include "SourceChoice.h"
#include "TerminalLoader.h"
#include "TuneFailure.h"
#include "WindowLoader.h"
#include "client/PictureHalves.h"
#include "dtv/SourceUri.h"

using orvclient::Status;

namespace orvplay {

namespace {

constexpr std::chrono::seconds ANSWER_TOLD{2};  // it came already

}  // namespace

PlayRun::PlayRun(const PlayOptions& options)
    : mOptions(options),
      mErrors(options.terminal),
      mEvents(options.json),
      mStill(options.snapshot) {}

int PlayRun::run() {
    ServiceOptions service = mOptions;
    service.media = isMediaFile(mOptions.source);
    mSession = std::make_unique<PlayerSession>(service, callbacks());
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
    if (!openCaptionFile() || !openTiming() || !openOutputs()) {
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
    mHooks.subscribe(&callbacks);
    mStill.subscribe(&callbacks);
    mRecording.subscribe(&callbacks);
    callbacks.onOpened = [this](int result) {
        mEvents.write("openUriComplete", {{"result", result}});
        mIsOpen = true;
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
    mTiming.subscribe(&callbacks);
    return callbacks;
}

int PlayRun::tune() {
    if (const int code = findSource(*mSession, mOptions.source, mMessages, &mSource);
        code != EXIT_OK) {
        return code;
    }
    mSource.asLive = !mOptions.asLive.empty();
    mSource.faults = mOptions.faults;
    const orvhost::TuneResult tuned = tuneTo(*mSession, mSource, mOptions.keepGaps);
    if (!tuned.ok()) {
        return mMessages.fail(exitCodeOf(tuned.status), tuned.message);
    }
    if (mOptions.resume && mSource.kind != SourceKind::RECORDING) {
        return mMessages.fail(EXIT_USAGE,
                              "--resume: only of a recording it is known where playback "
                              "stopped; see: orvplay record list");
    }
    if (mSource.kind == SourceKind::MEDIA) {
        mSummary.leaveOutSound();
        return EXIT_OK;
    }
    return findStreams(mSession->tuner(), mOptions, &mSelection);
}

std::unique_ptr<Display> PlayRun::createDisplay(std::string* error) {
    if (mOptions.terminal) {
        return createTerminal(mErrors, error);
    }
    const std::string name = !mSource.title.empty()            ? mSource.title
                             : !mSelection.serviceName.empty() ? mSelection.serviceName
                                                               : mOptions.source;
    return createWindow(name + " - OrvPlayer", error);
}

bool PlayRun::openOutputs() {
    std::unique_ptr<Display> display;
    if (!mOptions.headless) {
        std::string error;
        display = createDisplay(&error);
        if (display == nullptr) {
            fprintf(stderr, "orvplay: %s\n", error.c_str());
            return false;
        }
    }
    mPictures =
        std::make_unique<PictureOutput>(mQueue.halves().consumer(), std::move(display), mSync);
    if (mSource.kind == SourceKind::MEDIA) {
        mPictures->setPictureListener([this](int64_t timeNs) { mTiming.onPicture(timeNs); });
    }
    const PlayParts parts{*mSession,
                          *mPictures,
                          mEvents,
                          mSummary,
                          mMessages,
                          [this] { askService(true); },
                          [this] { return playAgain(); }};
    mZap.emplace(parts, mServer,
                 ZapControl::Steps{[this] { leaveChannel(); },
                                   [this](const Channel& channel, ZapTimes* times) {
                                       return enterChannel(channel, times);
                                   },
                                   [this](std::vector<ChannelRow> rows, int playing) {
                                       showChannels(std::move(rows), playing);
                                   }});
    mControl.emplace(parts, mSource, mSelection, mRecording, *mZap, mOptions.storage);
    mScreen.emplace(parts, ScreenStateSource::Sources{mSource, mSelection, mService, mRecording,
                                                      mControl->transport(), mSync});
    mFigures.emplace(PlayerFigures::Sources{*mSession, *mPictures, mSummary, mSync, mService,
                                            mSource, mSelection, mEvents});
    mFleet.emplace(mServer, parts, *mFigures, mScreen->state());
    mDesktop.emplace(*mControl, *mScreen, mSource);
    return mPictures->start();
}

int PlayRun::play() {
    if (const Status status = open(); !status.ok()) {
        return mMessages.failed(*mSession, status, "the player cannot set up these streams",
                                "; ORV_TRACE=info shows why");
    }
    mEvents.begin();
    mSummary.begin();
    if (!mOptions.timing.empty()) {
        mTiming.begin(mSession->player(), mOptions.source, mEvents.beginNs(),
                      mSource.asLive || orvhost::SourceUri::isUri(mOptions.source));
    }
    if (const Status status = start(); !status.ok()) {
        askService(false);
        const bool isLost = status.code == Status::LOST;
        return mSource.kind == SourceKind::MEDIA && isLost && mSession->hasMediaFailed()
                   ? mediaFailed()
                   : mMessages.failed(*mSession, status, "the player cannot start");
    }
    if (const Status status = mControl->resume(mOptions.resume); !status.ok()) {
        mMessages.say("it plays from its beginning: " + status.message);
    }
    if (mSource.kind == SourceKind::LIVE) {
        mZap->begin(mSource.path, mSelection.serviceId);
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
    const Status status = mSession->open(mSource, mSelection, &mQueue, mOptions.audio);
    awaitAnswer(status);
    return status;
}

Status PlayRun::start() {
    const Status status = mSession->start();
    awaitAnswer(status);
    return status;
}

Status PlayRun::openAndStart() {
    const Status status = open();
    return status.ok() ? start() : status;
}

// What was stopped, where it was. A player that is made anew counts a recording from its beginning:
// so does the tuner once it is tuned anew.
Status PlayRun::playAgain() {
    if (mSource.kind != SourceKind::RECORDING) {
        return openAndStart();
    }
    const int64_t elapsedMs = mSession->player().elapsed().count();
    if (const auto tuned = tuneTo(*mSession, mSource, mOptions.keepGaps); !tuned.ok()) {
        return {Status::REFUSED, tuned.message};
    }
    const Status status = openAndStart();
    return status.ok() && elapsedMs > 0 ? mControl->seekTo(elapsedMs) : status;
}

// What the player answered is told as an event, in its place among the others, before anything is
// made of it.
void PlayRun::awaitAnswer(const Status& status) {
    if (status.code >= 0) {
        mAnswers.try_acquire_for(ANSWER_TOLD);
    }
}

void PlayRun::takeStill() {
    if (mSource.kind == SourceKind::MEDIA) {
        mStill.take(*mPictures);
        return;
    }
    const bool canAsk = mPictures->figures().frames > 0 && mOutcome != Outcome::FAILED;
    mStill.take(canAsk ? &mSession->player() : nullptr);
}

StillLabels PlayRun::labels() const {
    return {mSource.kind == SourceKind::MEDIA ? mSource.title : mSelection.serviceName,
            mSelection.serviceId};
}

int PlayRun::finish() {
    askService(true);
    mSummary.end(mSession->figures());
    if (!mSession->isLost()) {
        mSummary.setReception(mSession->tuner().signal());
    }
    takeStill();
    if (!mSession->isLost()) {
        const bool isRecording = mSession->player().isRecording();
        const Status kept = isRecording ? mControl->stopRecording(true) : Status();
        if (!kept.ok()) {
            mFailure = mMessages.fail(EXIT_RECORDING, kept.message);
        }
        mControl->keepPosition();
        const Status status = mSession->player().stop();
        mTiming.lookAtEnd(mSession->player());
        if (!status.ok() && mOutcome != Outcome::FAILED) {
            mFailure = mMessages.failed(*mSession, status, "the player did not stop cleanly");
        }
    }
    const bool nothingCame = mSourceEnd.seen() && !outputsOpened(mPictures->figures());
    const std::string missing = missingStream();
    mDesktop.reset();
    mScreen.reset();
    mControl.reset();
    mZap.reset();
    mSession = nullptr;  // no event comes after this: the summary is the last line
    mPictures->stop();
    const PictureOutput::Figures figures = mPictures->figures();
    bool filesSaved = finishCaptionFile();
    filesSaved = finishTiming() && filesSaved;
    if (mSource.kind == SourceKind::MEDIA && mFailure == EXIT_SOURCE) {
        return mFailure;  // nothing played
    }
    filesSaved = mStill.save(labels(), mEvents) && filesSaved;
    mEvents.writeLine(mSummary.toJson(figures, mSync));
    mFleet->finish();
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
    mTiming.onCaption(utf8);
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

bool PlayRun::openTiming() {
    if (mOptions.timing.empty()) {
        return true;
    }
    const int error = mTiming.open(mOptions.timing);
    if (error != 0) {
        mMessages.fail(EXIT_FAILED, mOptions.timing + ": cannot be written: " + strerror(error));
    }
    return error == 0;
}

bool PlayRun::finishTiming() {
    const int error = mTiming.finish();
    if (error != 0) {
        mMessages.fail(EXIT_FAILED, mOptions.timing + ": cannot be written: " + strerror(error));
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
