#include "recorder/Recorder.h"

#include <dtv/RecPlayerBinder.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "common/Trace.h"

namespace OrvPlayer {

namespace {

struct Free {
    void operator()(void* memory) const { free(memory); }
};

// The outcome of a call of the recorder service, traced.
bool succeeded(const char* operation, const char* function, unsigned char result) {
    if (result == 1) {
        ORV_LOGI("%s %s succeeded!", operation, function);
    } else {
        ORV_LOGE("%s %s failed", operation, function);
    }
    return result == 1;
}

std::string queryOf(const Uri* target, const char* key) {
    if (target == nullptr) {
        return "";
    }
    const auto found = target->mQueries.find(key);
    return found != target->mQueries.end() ? found->second : "";
}

// The service copies the text while it has the record.
void setName(const std::string& name, char** text, uint32_t* length) {
    *text = name.empty() ? nullptr : const_cast<char*>(name.c_str());
    *length = static_cast<uint32_t>(name.size());
}

void traceFound(const recDetails& details) {
    constexpr const char* START = "start";
    ORV_LOGV("%s recDetails->fileNumName: %d", START, details.fileNumName);
    if (details.stationName != nullptr) {
        ORV_LOGV("%s recDetails->stationName: %s", START, details.stationName);
    }
    if (details.prgName != nullptr) {
        ORV_LOGV("%s recDetails->prgName: %s", START, details.prgName);
    }
    ORV_LOGV("%s recDetails->stationNameLength: %u", START, details.stationNameLength);
    ORV_LOGV("%s recDetails->prgNameLength: %u", START, details.prgNameLength);
    ORV_LOGV("%s recDetails->creationTime: %u", START, details.creationTime);
    ORV_LOGV("%s recDetails->durationOfRec: %u", START, details.durationOfRec);
    ORV_LOGV("%s recDetails->sizeOfRec: %u", START, details.sizeOfRec);
}

void traceSet(const recDetails& details) {
    constexpr const char* START = "start";
    ORV_LOGV("%s recDetails->recMode: %d", START, details.recMode);
    ORV_LOGV("%s recDetails->recLocation: %d", START, details.recLocation);
    ORV_LOGV("%s recDetails->bCanPlay: %u", START, details.bCanPlay);
    ORV_LOGV("%s recDetails->playbackDuration: %u", START, details.playbackDuration);
    ORV_LOGV("%s recDetails->recStartTime: %u", START, details.recStartTime);
    ORV_LOGV("%s recDetails->recEndTime: %u", START, details.recEndTime);
    ORV_LOGV("%s recDetails->iV_PID: %d", START, details.iV_PID);
    ORV_LOGV("%s recDetails->iA_PID: %d", START, details.iA_PID);
    ORV_LOGV("%s recDetails->isLATM: %d", START, details.isLATM);
}

}  // namespace

Recorder::Recorder() {
    mListener.publish(this);
}

Recorder::~Recorder() = default;

void Recorder::setListener(IRecorderListener* listener) {
    mListener.set(listener);
}

void Recorder::start(const Uri* target, int videoPid, int audioPid, int /*captionPid*/,
                     int audioFraming) {
    const int storageType = atoi(queryOf(target, "storageType").c_str());
    succeeded(__func__, "RecPlayerBinder_CreateTSRecorder",
              RecPlayerBinder_CreateTSRecorder(0, storageType, videoPid, audioPid, audioFraming,
                                               recorderCallback, this));
    succeeded(__func__, "RecPlayerBinder_AnyMoreRecordings", RecPlayerBinder_AnyMoreRecordings());
    if (!succeeded(__func__, "RecPlayerBinder_StartTSRecorder",
                   RecPlayerBinder_StartTSRecorder())) {
        RecPlayerBinder_DeleteTSRecorder();
        const auto tell = [](IRecorderListener& listener) {
            listener.onError(RECORDER_ERROR_START);
        };
        if (mListener.call(tell)) {
            return;
        }
        // Deliberate: with nobody to tell it goes on as if it had started. See
        // RecorderTest.GoesOnWithoutAListener.
    }
    const int number = labelRecording(target, storageType, videoPid, audioPid, audioFraming);
    if (!mListener.call(
            [number](IRecorderListener& listener) { listener.onRecorderStarted(number); })) {
        ORV_LOGE("%s: no IRecorderListener set!", __func__);
    }
}

int Recorder::labelRecording(const Uri* target, int storageType, int videoPid, int audioPid,
                             int audioFraming) {
    const std::unique_ptr<recDetails, Free> found(RecPlayerBinder_GetCurrTSRecDetails());
    if (found == nullptr) {
        ORV_LOGE("%s: recDetails == null!", "start");
        return 0;
    }
    traceFound(*found);
    recDetails details = *found;
    details.recMode = 0;
    details.recLocation = storageType;
    details.bCanPlay = 1;
    details.playbackDuration = 0;
    details.iV_PID = videoPid;
    details.iA_PID = audioPid;
    details.isLATM = audioFraming;
    traceSet(details);
    const std::string channel = queryOf(target, "channelName");
    const std::string programme = queryOf(target, "programName");
    setName(channel, &details.stationName, &details.stationNameLength);
    setName(programme, &details.prgName, &details.prgNameLength);
    succeeded("start", "RecPlayerBinder_SetCurrTSRecDetails",
              RecPlayerBinder_SetCurrTSRecDetails(&details));
    return details.fileNumName;
}

void Recorder::stop(int save) {
    const char* function = nullptr;
    unsigned char result = 0;
    if (save >= 1) {
        function = "RecPlayerBinder_StopTSRecorder";
        result = RecPlayerBinder_StopTSRecorder();
    } else {
        function = "RecPlayerBinder_CancelTSRecorder";
        result = RecPlayerBinder_CancelTSRecorder();
    }
    succeeded(__func__, function, result);
    if (result != 0) {  // deliberate: an answer that is neither success nor failure counts
        result = RecPlayerBinder_DeleteTSRecorder();
        succeeded(__func__, "RecPlayerBinder_DeleteTSRecorder", result);
    }
    if (!mListener.call(
            [result](IRecorderListener& listener) { listener.onRecorderStopped(result); })) {
        ORV_LOGE("%s: no IRecorderListener set!", __func__);
    }
}

void Recorder::recorderCallback(int event, void* recorder) {
    static constexpr int ERRORS[] = {RECORDER_ERROR_START, RECORDER_ERROR_WRITE,
                                     RECORDER_ERROR_STORAGE_FULL, RECORDER_ERROR_INPUT};
    static constexpr int COUNT = sizeof ERRORS / sizeof *ERRORS;
    ORV_LOGI("%s event received: %d", __func__, event);
    if (recorder == nullptr) {
        ORV_LOGE("%s: userData is null!", __func__);
        return;
    }
    const auto tell = [event](IRecorderListener& listener) {
        if (event >= 0 && event < COUNT) {
            listener.onError(ERRORS[event]);
        }
    };
    if (!ListenerGuard<IRecorderListener>::callAt(recorder, tell)) {
        ORV_LOGE("%s: no IRecorderListener set!", __func__);
    }
}

}  // namespace OrvPlayer
