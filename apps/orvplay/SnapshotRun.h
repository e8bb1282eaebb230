#pragma once

#include <orvclient/PictureQueue.h>
#include <orvclient/Player.h>

#include <atomic>
#include <memory>
#include <string>

#include "ExitCode.h"
#include "Options.h"
#include "PictureOutput.h"
#include "PlaySource.h"
#include "PlayerSession.h"
#include "SourceEnd.h"
#include "Still.h"
#include "StreamSelection.h"
#include "SyncMeter.h"

namespace orvplay {

// One run of `orvplay snapshot`: connects to the player service, waits for the first picture, then
// asks the player for stills, as many at a time as there is room for, and writes them while the
// next ones come. Of a media file it copies what is shown. All of it on one thread.
class SnapshotRun {
public:
    explicit SnapshotRun(const SnapshotOptions& options);
    SnapshotRun(const SnapshotRun&) = delete;  // callbacks know it by address
    SnapshotRun& operator=(const SnapshotRun&) = delete;

    // The exit code; a failure was told in one line on standard error.
    int run();

private:
    bool connect();
    bool tune();
    bool open();
    bool awaitPicture();
    bool goToPosition();
    void collect();
    void collectShown();
    void request();
    bool save(const Still& still);
    bool mayGoOn();
    bool lookAtMedia();
    bool isMedia() const { return mSource.kind == SourceKind::MEDIA; }
    std::string endedEarly() const;
    bool fail(ExitCode code, const std::string& message);
    bool fail(const orvclient::Status& status);

    const SnapshotOptions mOptions;
    PlaySource mSource;
    StreamSelection mSelection;
    SyncMeter mSync;
    orvclient::PictureQueue mQueue;
    PictureOutput mPictures;
    StillTray mStills;
    std::unique_ptr<PlayerSession> mSession;
    SourceEnd mSourceEnd;

    int mExitCode = EXIT_OK;
    int mSaved = 0;
    int mRequested = 0;       // of the request that runs, those still to come
    int64_t mDueNs = 0;       // when the next request may begin
    int64_t mProgressNs = 0;  // of the last request or still
    std::atomic<bool> mScrambled{false};
    std::atomic<bool> mEndOfContent{false};
};

}  // namespace orvplay
