#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "CaptionFile.h"
#include "EventLog.h"
#include "ExitCode.h"
#include "Options.h"
#include "PictureOutput.h"
#include "PlayerSession.h"
#include "RunSummary.h"
#include "ServiceState.h"
#include "SoundMeter.h"
#include "SourceEnd.h"
#include "StatusLine.h"
#include "Still.h"
#include "StreamSelection.h"
#include "SyncMeter.h"

namespace orvplay {

// One run of `orvplay play`, from the selected streams to the summary.
class PlayRun {
public:
    PlayRun(const PlayOptions& options, const StreamSelection& selection);
    PlayRun(const PlayRun&) = delete;  // the player's threads call it
    PlayRun& operator=(const PlayRun&) = delete;

    int run();

private:
    enum class Outcome { GO_ON, FINISHED, INTERRUPTED, FAILED };

    bool openOutputs();
    int open();
    int buildPlayer();
    int start();
    void watch();
    int64_t untilNextLookNs() const;
    Outcome look();
    Outcome lookAtErrors();
    Outcome lookAtKeys();
    Outcome changeSound();
    void changeCaptions();
    void reportFirstPicture(const PictureOutput::Figures& figures);
    void updateStatus(const PictureOutput::Figures& figures);
    bool outputsOpened(const PictureOutput::Figures& figures) const;
    std::string missingStream() const;
    void hint(const std::string& reason);
    void say(const std::string& message);
    int finish();
    bool openCaptionFile();
    void onCaption(const std::string& utf8, int64_t pcr90k);
    bool finishCaptionFile();
    bool takeStill(Still* still);
    bool saveStill(const Still* still);
    int fail(ExitCode code, const std::string& message);

    const PlayOptions mOptions;
    StreamSelection mSelection;  // what is played: keys change it
    EventLog mEvents;
    ServiceState mService{mEvents};
    SyncMeter mSync;
    SoundMeter mSound{mSync};
    RunSummary mSummary;
    StatusLine mStatus;
    android::sp<orvhost::BufferQueue::Consumer> mConsumer;
    std::unique_ptr<PictureOutput> mPictures;
    std::unique_ptr<CaptionFile> mCaptionFile;  // null when none was asked for
    std::unique_ptr<StillTray> mStills;         // null when none is wanted
    std::unique_ptr<PlayerSession> mSession;
    SourceEnd mSourceEnd;

    Outcome mOutcome = Outcome::GO_ON;
    ExitCode mFailure = EXIT_OK;
    bool mFirstPictureReported = false;
    bool mCaptionsShown = false;
    bool mHinted = false;        // the user was told why nothing is shown
    int64_t mEndNs = 0;          // of the duration asked for; 0: none, or no picture yet
    int64_t mLastRestartNs = 0;  // of the player, after it gave up on a scrambled stream
    uint64_t mFramesAtRestart = 0;
    std::atomic<unsigned int> mError{0};  // the last code reported by a module; 0 once looked at
};

}  // namespace orvplay
