#pragma once

#include <orvclient/PictureQueue.h>
#include <orvclient/Player.h>

#include <atomic>
#include <memory>
#include <optional>
#include <semaphore>
#include <string>

#include "CaptionFile.h"
#include "ControlSocket.h"
#include "DesktopControl.h"
#include "EndStill.h"
#include "EventLog.h"
#include "ExitCode.h"
#include "FleetControl.h"
#include "KeptErrors.h"
#include "Messages.h"
#include "Options.h"
#include "PictureOutput.h"
#include "PlayControl.h"
#include "PlaySource.h"
#include "PlayerFigures.h"
#include "PlayerSession.h"
#include "RecordingControl.h"
#include "RunSummary.h"
#include "ScreenStateSource.h"
#include "ServiceState.h"
#include "SignalHooks.h"
#include "SoundMeter.h"
#include "SourceEnd.h"
#include "StreamSelection.h"
#include "SyncMeter.h"
#include "TimingLog.h"
#include "ZapControl.h"

namespace orvplay {

// One run of `orvplay play`, from the connection to the player service to the summary.
class PlayRun {
public:
    explicit PlayRun(const PlayOptions& options);
    PlayRun(const PlayRun&) = delete;  // callbacks know it by address
    PlayRun& operator=(const PlayRun&) = delete;

    // The exit code; a failure was told in one line on standard error.
    int run();

private:
    enum class Outcome { GO_ON, FINISHED, INTERRUPTED, FAILED };

    orvclient::Callbacks callbacks();
    int tune();
    bool openOutputs();
    std::unique_ptr<Display> createDisplay(std::string* error);
    int play();
    orvclient::Status open();
    orvclient::Status start();
    orvclient::Status openAndStart();
    orvclient::Status playAgain();
    void awaitAnswer(const orvclient::Status& status);
    void leaveChannel();
    ZapControl::Failure enterChannel(const Channel& channel, ZapTimes* times);
    ZapControl::Failure tuneChannel(const std::string& source);
    void forgetEvents();
    void showChannels(std::vector<ChannelRow> rows, int playing);
    void watch();
    void awaitNextLook();
    Outcome look();
    void askService(bool urgent);
    Outcome lookAtService();
    Outcome lookAtErrors();
    Outcome lookAtEnd();
    Outcome replaceService();
    void reportFirstPicture(const PictureOutput::Figures& figures);
    void updateStatus(const PictureOutput::Figures& figures);
    bool outputsOpened(const PictureOutput::Figures& figures) const;
    int mediaFailed();
    std::string missingStream() const;
    void hint(const std::string& reason);
    void takeStill();
    StillLabels labels() const;
    int finish();
    int exitCode(bool nothingCame, const std::string& missing, bool filesSaved);
    bool openCaptionFile();
    bool openTiming();
    bool finishTiming();
    void onCaption(const std::string& utf8, int64_t pcr90k);
    bool finishCaptionFile();
    Outcome outcomeOf(const orvclient::Status& status, const std::string& what);
    Outcome giveUp(int code);

    PlayOptions mOptions;  // with the source and the service that play
    KeptErrors mErrors;    // while a screen is on the terminal; first, for what the others say
    PlaySource mSource;
    StreamSelection mSelection;  // what is played: keys change it
    EventLog mEvents;
    Messages mMessages;
    ServiceState mService{mEvents};
    SignalHooks mHooks{{mOptions.onSignalLost, mOptions.onSignalBack}, mMessages};
    SyncMeter mSync;
    SoundMeter mSound{mSync};
    RunSummary mSummary;
    TimingLog mTiming;  // outlives what tells it
    orvclient::PictureQueue mQueue;
    std::unique_ptr<PictureOutput> mPictures;
    std::unique_ptr<CaptionFile> mCaptionFile;  // null when none was asked for
    EndStill mStill;
    RecordingControl mRecording{mEvents, mMessages};
    ControlServer mServer;
    std::unique_ptr<PlayerSession> mSession;
    std::optional<PlayControl> mControl;  // while it plays; the next too
    std::optional<ScreenStateSource> mScreen;
    std::optional<PlayerFigures> mFigures;
    std::optional<FleetControl> mFleet;
    std::optional<DesktopControl> mDesktop;
    std::optional<ZapControl> mZap;
    SourceEnd mSourceEnd;

    Outcome mOutcome = Outcome::GO_ON;
    int mFailure = EXIT_OK;
    bool mFirstPictureReported = false;
    bool mIsTuned = true;        // once it plays; not where a change of channel failed
    bool mHinted = false;        // the user was told why nothing is shown
    int64_t mEndNs = 0;          // of the duration asked for; 0: none, or no picture yet
    int64_t mLastRestartNs = 0;  // of the player, after it gave up on a scrambled stream
    uint64_t mFramesAtRestart = 0;
    std::optional<uint64_t> mFramesAtReplacement;  // of the service by another one
    std::atomic<bool> mIsOpen{false};              // captions before that are none of ours
    std::counting_semaphore<> mAnswers{0};         // of open and start, told as events
    std::atomic<int> mError{0};                    // the last code reported; 0 once looked at
    std::atomic<bool> mEndOfContent{false};
};

}  // namespace orvplay
