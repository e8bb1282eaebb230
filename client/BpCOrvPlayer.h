#pragma once

#include <binder/IBinder.h>
#include <binder/Parcel.h>

#include <cstdint>
#include <initializer_list>
#include <string>

#include "Wire.h"

namespace orvclient {

// The player service as this process sees it: one call per operation. Each returns how the call
// went (0, DEAD_OBJECT, TIMED_OUT, NOT_ENOUGH_DATA for an answer that is too short, ...); where
// the service answers with a number it goes to *result, which is as it was after a failure.
//
// Calls last as long as the service takes, bounded by the thread's orvhost::CallTimeout. Any
// thread, several at a time.
class BpCOrvPlayer {
public:
    explicit BpCOrvPlayer(const android::sp<android::IBinder>& remote) : mRemote(remote) {}

    android::status_t registerClient(const android::sp<android::IBinder>& client);
    android::status_t start() { return command(wire::START); }
    android::status_t stop() { return command(wire::STOP); }
    android::status_t pause() { return command(wire::PAUSE); }
    android::status_t resume() { return command(wire::RESUME); }
    android::status_t seek(int32_t positionMs) { return command(wire::SEEK, {positionMs}); }
    android::status_t openUri(wire::OpenType type, const std::string& uri);
    android::status_t close() { return command(wire::CLOSE); }
    android::status_t setSurface(const android::sp<android::IBinder>& producer, int32_t* result);
    android::status_t getFrame(int32_t count, int32_t everyMs) {
        return command(wire::GET_FRAME, {count, everyMs});
    }
    android::status_t setSoundEffect(int32_t option, int32_t* result) {
        return ask(wire::SET_SOUND_EFFECT, {0, option}, result);
    }
    android::status_t startRecorder(const std::string& uri, int32_t* result);
    android::status_t stopRecorder(int32_t keep, int32_t* result) {
        return ask(wire::STOP_RECORDER, {keep}, result);
    }
    // As the wire has it: AV_SYNC_BIAS_MS is for the caller to add.
    android::status_t setAVSync(int32_t value, int32_t* result) {
        return ask(wire::SET_AV_SYNC, {value}, result);
    }
    android::status_t setCaptionSync(int32_t value, int32_t* result) {
        return ask(wire::SET_CAPTION_SYNC, {value}, result);
    }
    android::status_t setCaptionLanguage(int32_t language) {
        return command(wire::SET_CAPTION_LANGUAGE, {language});
    }
    android::status_t setAudioEnable(int32_t on) { return command(wire::SET_AUDIO_ENABLE, {on}); }
    android::status_t setAudioPID(int32_t pid) { return command(wire::SET_AUDIO_PID, {pid}); }
    android::status_t setAudioPathForce(int32_t config) {
        return command(wire::SET_AUDIO_PATH_FORCE, {config});
    }
    android::status_t setCCPID(int32_t pid) { return command(wire::SET_CC_PID, {pid}); }
    android::status_t getFrameRate(int32_t* result) {
        return ask(wire::GET_FRAME_RATE, {}, result);
    }
    android::status_t getState(int32_t* result) { return ask(wire::GET_STATE, {}, result); }
    android::status_t setCropRect(int32_t left, int32_t top, int32_t right, int32_t bottom,
                                  int32_t useOriginal, int32_t* result) {
        return ask(wire::SET_CROP_RECT, {left, top, right, bottom, useOriginal}, result);
    }
    android::status_t setAudioOnlyMode(int32_t on, int32_t* result) {
        return ask(wire::SET_AUDIO_ONLY_MODE, {on}, result);
    }
    android::status_t getPCRValue(int64_t* result);
    android::status_t cancelCaptureFrame() { return command(wire::CANCEL_CAPTURE_FRAME); }

    const android::sp<android::IBinder>& binder() const { return mRemote; }

private:
    using Numbers = std::initializer_list<int32_t>;

    android::status_t command(wire::Transaction code, Numbers fields = {});
    android::status_t ask(wire::Transaction code, Numbers fields, int32_t* result);
    android::status_t transact(wire::Transaction code, const android::Parcel& data,
                               int32_t* result);

    const android::sp<android::IBinder> mRemote;
};

}  // namespace orvclient
