#include "service/ICOrvPlayer.h"

#include <binder/Parcel.h>
#include <gui/IGraphicBufferProducer.h>
#include <utils/String8.h>

#include "common/Trace.h"

using android::BBinder;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String8;
using android::Surface;

namespace OrvPlayer {

IMPLEMENT_META_INTERFACE_WITHOUT_PROXY(COrvPlayer, "OrvPlayer")

namespace {

constexpr size_t MAX_TEXT_UNITS = 65536;

// In UTF-8. A text out of all proportion counts as none: its queries would take a hundred times the
// memory.
String8 readText(const Parcel& data) {
    size_t length = 0;
    const char16_t* const text = data.readString16Inplace(&length);
    return text != nullptr && length <= MAX_TEXT_UNITS ? String8(text, length) : String8();
}

bool isAssigned(uint32_t code) {
    return code >= ICOrvPlayer::REGISTER_CLIENT && code <= ICOrvPlayer::CANCEL_CAPTURE_FRAME &&
           code != 12 && code != 15 && code != 16;
}

}  // namespace

status_t BnCOrvPlayer::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                  uint32_t flags) {
    if (!isAssigned(code)) {
        return BBinder::onTransact(code, data, reply, flags);
    }
    if (!data.enforceInterface(ICOrvPlayer::descriptor)) {
        ORV_LOGE("Call incorrectly routed to ICOrvPlayer");
        return android::PERMISSION_DENIED;
    }
    int32_t result = 0;
    if (code == GET_PCR_VALUE) {
        reply->writeInt64(getPCRValue());
    } else if (answer(code, data, &result)) {
        reply->writeInt32(result);
    } else {
        command(code, data);
    }
    return android::OK;
}

// The calls that answer a number; false for all others. Fields are read one statement each:
// arguments of a call are evaluated in any order.
bool BnCOrvPlayer::answer(uint32_t code, const Parcel& data, int32_t* result) {
    switch (code) {
        case SET_SURFACE:
            *result = setSurfaceFrom(data);
            return true;
        case SET_SOUND_EFFECT: {
            const int32_t unused = data.readInt32();
            *result = setSoundEffect(unused, data.readInt32());
            return true;
        }
        case START_RECORDER:
            *result = startRecorder(readText(data).string());
            return true;
        case STOP_RECORDER:
            *result = stopRecorder(data.readInt32());
            return true;
        case SET_AV_SYNC:
            *result = setAVSync(data.readInt32());
            return true;
        case SET_CAPTION_SYNC:
            *result = setCaptionSync(data.readInt32());
            return true;
        case GET_FRAME_RATE:
            *result = getFrameRate();
            return true;
        case GET_STATE:
            *result = getState();
            return true;
        case SET_CROP_RECT:
            *result = setCropRectFrom(data);
            return true;
        case SET_AUDIO_ONLY_MODE:
            *result = setAudioOnlyMode(data.readInt32());
            return true;
        default:
            return false;
    }
}

// The calls that answer nothing: they report to the client, or not at all.
void BnCOrvPlayer::command(uint32_t code, const Parcel& data) {
    switch (code) {
        case REGISTER_CLIENT:
            registerClient(ICOrvPlayerClient::asInterface(data.readStrongBinder()));
            break;
        case START:
            start();
            break;
        case STOP:
            stop();
            break;
        case PAUSE:
            pause();
            break;
        case RESUME:
            resume();
            break;
        case SEEK:
            seek(data.readInt32());
            break;
        case OPEN_URI: {
            const int32_t type = data.readInt32();
            openUri(readText(data).string(), type);
            break;
        }
        case CLOSE:
            close();
            break;
        case GET_FRAME: {
            const int32_t count = data.readInt32();
            getFrame(count, data.readInt32());
            break;
        }
        case CANCEL_CAPTURE_FRAME:
            cancelCaptureFrame();
            break;
        default:
            choose(code, data.readInt32());
            break;
    }
}

void BnCOrvPlayer::choose(uint32_t code, int32_t value) {
    switch (code) {
        case SET_CAPTION_LANGUAGE:
            setCaptionLanguage(value);
            break;
        case SET_AUDIO_ENABLE:
            setAudioEnable(value);
            break;
        case SET_AUDIO_PID:
            setAudioPID(value);
            break;
        case SET_AUDIO_PATH_FORCE:
            setAudioPathForce(value);
            break;
        case SET_CC_PID:
            setCCPID(value);
            break;
        default:
            break;
    }
}

// What is no window of the application's counts as none.
int32_t BnCOrvPlayer::setSurfaceFrom(const Parcel& data) {
    data.readString16();
    data.readString16();
    data.readInt32();
    data.readUint32();
    const sp<android::IGraphicBufferProducer> producer =
        android::interface_cast<android::IGraphicBufferProducer>(data.readStrongBinder());
    sp<Surface> surface;
    if (producer != nullptr) {
        surface = new Surface(producer, false);
    }
    return setSurface(surface);
}

int32_t BnCOrvPlayer::setCropRectFrom(const Parcel& data) {
    const int32_t left = data.readInt32();
    const int32_t top = data.readInt32();
    const int32_t right = data.readInt32();
    const int32_t bottom = data.readInt32();
    return setCropRect(left, top, right, bottom, data.readInt32());
}

}  // namespace OrvPlayer
