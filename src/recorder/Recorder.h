#pragma once

#include <utils/RefBase.h>

#include "common/IRecorderListener.h"
#include "common/Uri.h"

namespace OrvPlayer {

// Records the broadcast that is being watched: one object for one recording. The outcome of start()
// and everything that happens later arrive through the listener, on any thread.
class Recorder : public virtual android::RefBase {
public:
    // Not owned. Once setListener(nullptr) has returned no call runs and none comes.
    virtual void setListener(IRecorderListener* listener) = 0;

    // `audioFraming` is 0 for AAC in LATM, 1 for AAC in ADTS, 2 for MPEG audio.
    virtual void start(const Uri* target, int videoPid, int audioPid, int captionPid,
                       int audioFraming) = 0;
    // Above 0 keeps the recording, else it is discarded.
    virtual void stop(int save) = 0;
};

}  // namespace OrvPlayer
