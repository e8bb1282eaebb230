#pragma once

#include <utils/RefBase.h>

#include "common/IRecorderListener.h"
#include "common/Uri.h"
#include "recorder/ListenerGuard.h"

namespace OrvPlayer {

// Records the broadcast that is being watched: one object for one recording. The recorder service
// does the work; this starts and stops it, labels what it makes, and turns its events, which are
// errors all of them, into calls of the listener.
//
//   start()  ->  onRecorderStarted(number)   or  onError(RECORDER_ERROR_START)
//                onError(...)                what happens later, from the service's thread
//   stop()   ->  onRecorderStopped(1)        0: the service could not end it as asked
//
// Commands come from one thread. The listener is called during a command as well. A recording that
// nobody stopped goes on when the object goes; nobody hears of it then.
class Recorder : public virtual android::RefBase {
public:
    enum Error : int {
        RECORDER_ERROR_STORAGE_FULL = 0x60001,
        RECORDER_ERROR_WRITE = 0x60002,
        RECORDER_ERROR_START = 0x60003,
        RECORDER_ERROR_INPUT = 0x60004,
    };

    Recorder();
    Recorder(const Recorder&) = delete;  // the service knows it by address
    Recorder& operator=(const Recorder&) = delete;

    // Not owned. Once setListener(nullptr) has returned no call runs and none comes.
    void setListener(IRecorderListener* listener);

    // The target's queries say where the recording goes ("storageType") and how it is called
    // ("channelName", "programName"). `audioFraming` is 0 for AAC in LATM, 1 for AAC in ADTS, 2 for
    // MPEG audio.
    void start(const Uri* target, int videoPid, int audioPid, int captionPid, int audioFraming);

    // Above 0 keeps the recording, else it is discarded.
    void stop(int save);

    // What the recorder service calls; `recorder` may be gone.
    static void recorderCallback(int event, void* recorder);

protected:
    ~Recorder() override;

private:
    // The number of the recording, 0 when the service does not tell.
    int labelRecording(const Uri* target, int storageType, int videoPid, int audioPid,
                       int audioFraming);

    ListenerGuard<IRecorderListener> mListener;
};

}  // namespace OrvPlayer
