#include <dtv/RecPlayerBinder.h>

#include "dtv/Tuner.h"
#include "recording/Catalogue.h"
#include "recording/RecordingStorages.h"
#include "recording/TsRecorder.h"

namespace {

orvhost::TsRecorder& recorder() {
    // Never destroyed: its thread may run until the process is gone.
    static auto* const recorder = new orvhost::TsRecorder(
        orvhost::Tuner::instance(), [] { return orvhost::Catalogue::instance(); },
        orvhost::RecordingStorages::ofHost());
    return *recorder;
}

}  // namespace

unsigned char RecPlayerBinder_CreateTSRecorder(int mode, int storageType, int videoPid,
                                               int audioPid, int audioFraming,
                                               RecPlayerBinder_EventCallback callback,
                                               void* userData) {
    orvhost::NewRecording recording;
    recording.mode = mode;
    recording.storageType = storageType;
    recording.videoPid = videoPid;
    recording.audioPid = audioPid;
    recording.audioFraming = audioFraming;
    return recorder().create(recording, callback, userData) ? 1 : 0;
}

unsigned char RecPlayerBinder_AnyMoreRecordings() {
    return recorder().hasRoom() ? 1 : 0;
}

unsigned char RecPlayerBinder_StartTSRecorder() {
    return recorder().start() ? 1 : 0;
}

recDetails* RecPlayerBinder_GetCurrTSRecDetails() {
    return recorder().details();
}

unsigned char RecPlayerBinder_SetCurrTSRecDetails(const recDetails* details) {
    return details != nullptr && recorder().setDetails(*details) ? 1 : 0;
}

unsigned char RecPlayerBinder_StopTSRecorder() {
    return recorder().stop(true) ? 1 : 0;
}

unsigned char RecPlayerBinder_CancelTSRecorder() {
    return recorder().stop(false) ? 1 : 0;
}

unsigned char RecPlayerBinder_DeleteTSRecorder() {
    return recorder().remove() ? 1 : 0;
}
