#pragma once

#include <binder/IInterface.h>
#include <gui/Surface.h>

#include <cstdint>

#include "service/ICOrvPlayerClient.h"

namespace OrvPlayer {

// The player service as an application drives it, and the numbers of its calls.
//
// Operations return 0 for success unless they say otherwise. What takes time reports to the
// registered client: openUriComplete, startComplete, onPaused and so on, before the call returns.
class ICOrvPlayer : public android::IInterface {
public:
    DECLARE_META_INTERFACE(COrvPlayer)

    // Codes of the calls. 12, 15 and 16 are not assigned. After the interface token a request
    // holds the fields named here, in that order; a call with a reply answers one number.
    enum Transaction : uint32_t {
        REGISTER_CLIENT = 1,        // binder of an ICOrvPlayerClient
        START = 2,                  //
        STOP = 3,                   //
        PAUSE = 4,                  //
        RESUME = 5,                 //
        SEEK = 6,                   // int32 milliseconds
        OPEN_URI = 7,               // int32 open type, String16 URI
        CLOSE = 8,                  //
        SET_SURFACE = 9,            // String16, String16, int32, uint32: not used;
                                    // binder of an IGraphicBufferProducer or null -> int32
        GET_FRAME = 10,             // int32 count, int32 milliseconds between
        SET_SOUND_EFFECT = 11,      // int32 not used, int32 option -> int32
        START_RECORDER = 13,        // String16 URI -> int32
        STOP_RECORDER = 14,         // int32: 0 discards, else keeps -> int32
        SET_AV_SYNC = 17,           // int32 milliseconds + 200 -> int32
        SET_CAPTION_SYNC = 18,      // int32 -> int32
        SET_CAPTION_LANGUAGE = 19,  // int32
        SET_AUDIO_ENABLE = 20,      // int32
        SET_AUDIO_PID = 21,         // int32
        SET_AUDIO_PATH_FORCE = 22,  // int32
        SET_CC_PID = 23,            // int32
        GET_FRAME_RATE = 24,        // -> int32
        GET_STATE = 25,             // -> int32
        SET_CROP_RECT = 26,         // int32 left, top, right, bottom, use the original -> int32
        SET_AUDIO_ONLY_MODE = 27,   // int32 -> int32
        GET_PCR_VALUE = 28,         // -> int64
        CANCEL_CAPTURE_FRAME = 29,  //
    };

    // What openUri() takes, beside codes that it refuses.
    enum OpenType : int32_t {
        OPEN_MEDIA_FILE = 0,
        OPEN_URI_SOURCE = 5,
    };

    virtual int registerClient(const android::sp<ICOrvPlayerClient>& client) = 0;
    virtual int start() = 0;
    virtual int stop() = 0;
    virtual int getState() = 0;
    virtual int pause() = 0;
    virtual int resume() = 0;
    virtual int seek(int positionMs) = 0;
    virtual int openUri(const char* uri, int type) = 0;
    virtual int close() = 0;
    virtual int setSurface(const android::sp<android::Surface>& surface) = 0;
    virtual int getFrame(int count, int intervalMs) = 0;
    virtual int cancelCaptureFrame() = 0;
    virtual int setSoundEffect(int unused, int option) = 0;
    virtual int startRecorder(const char* uri) = 0;
    virtual int stopRecorder(int save) = 0;
    virtual int setAVSync(int value) = 0;
    virtual int setCaptionSync(int value) = 0;
    virtual int setAudioEnable(int on) = 0;
    virtual int setCaptionLanguage(int language) = 0;
    virtual int setAudioPID(int pid) = 0;
    virtual int setAudioPathForce(int config) = 0;
    virtual int setCCPID(int pid) = 0;
    virtual int getFrameRate() = 0;
    virtual int setCropRect(int left, int top, int right, int bottom, int useOriginal) = 0;
    virtual int setAudioOnlyMode(int on) = 0;
    virtual int64_t getPCRValue() = 0;
};

// The service's side: unpacks requests and calls the operations. A request is read as far as it
// goes: a number that is not there counts as 0, a text or binder as none (a text of over 65,536
// units as well). Requests without the interface's token are refused before anything is read.
class BnCOrvPlayer : public android::BnInterface<ICOrvPlayer> {
public:
    bool isBrief(uint32_t code) const override { return code == GET_STATE; }
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;

private:
    bool answer(uint32_t code, const android::Parcel& data, int32_t* result);
    void command(uint32_t code, const android::Parcel& data);
    void choose(uint32_t code, int32_t value);
    int32_t setSurfaceFrom(const android::Parcel& data);
    int32_t setCropRectFrom(const android::Parcel& data);
};

}  // namespace OrvPlayer
