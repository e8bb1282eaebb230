#pragma once

#include <orvclient/PictureQueue.h>

#include <memory>

#include "EventLog.h"
#include "ExitCode.h"
#include "Messages.h"
#include "Options.h"
#include "PlayerSession.h"
#include "RecordingControl.h"
#include "StreamSelection.h"

namespace orvplay {

// One run of `orvplay record SOURCE`. The player plays, for only what plays is recorded, without a
// window and a sound output.
class RecordRun {
public:
    explicit RecordRun(const RecordOptions& options);
    RecordRun(const RecordRun&) = delete;  // callbacks know it by address
    RecordRun& operator=(const RecordRun&) = delete;

    // The exit code; a failure was told in one line on standard error.
    int run();

private:
    int connect();
    int begin();
    // False when it is time to end; mExitCode says how then.
    bool mayGoOn();
    int finish();

    const RecordOptions mOptions;
    StreamSelection mSelection;
    EventLog mEvents;
    Messages mMessages;
    RecordingControl mRecording{mEvents, mMessages};
    orvclient::PictureQueue mQueue;
    std::unique_ptr<PlayerSession> mSession;
    int64_t mBeginNs = 0;
    int mExitCode = EXIT_OK;
};

}  // namespace orvplay
