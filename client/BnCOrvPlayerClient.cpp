#include "BnCOrvPlayerClient.h"

#include "Wire.h"

using android::BAD_VALUE;
using android::OK;
using android::Parcel;
using android::status_t;

namespace orvclient {

const android::String16& BnCOrvPlayerClient::getInterfaceDescriptor() const {
    return wire::clientDescriptor();
}

bool BnCOrvPlayerClient::isBrief(uint32_t code) const {
    return code != wire::CLOSED_CAPTION_TEXT;
}

status_t BnCOrvPlayerClient::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                        uint32_t flags) {
    if (code < wire::OPEN_URI_COMPLETE || code > wire::ON_SEEKED) {
        return BBinder::onTransact(code, data, reply, flags);
    }
    if (!data.enforceInterface(wire::clientDescriptor())) {
        return android::PERMISSION_DENIED;
    }
    switch (code) {
        case wire::CLOSED_CAPTION_TEXT:
            return onCaption(data);
        case wire::ON_CAPTURE_FRAME:
            return onStill(data);
        case wire::ON_SIGNAL_STATUS_CHANGED:
        case wire::ON_START_VIDEO_TASK:
            return onPair(code, data);
        case wire::ON_BUFFERING_BEGIN:
        case wire::ON_BUFFERING_END:
        case wire::ON_END_OF_CONTENT:
            return onEvent(code);
        default: {
            int32_t number = 0;
            return data.readInt32(&number) == OK ? onNumber(code, number) : BAD_VALUE;
        }
    }
}

status_t BnCOrvPlayerClient::onNumber(uint32_t code, int32_t number) {
    switch (code) {
        case wire::OPEN_URI_COMPLETE:
            openUriComplete(number);
            break;
        case wire::START_COMPLETE:
            startComplete(number);
            break;
        case wire::ON_STOP_COMPLETE:
            onStopComplete(number);
            break;
        case wire::ON_ERROR:
            onError(number);
            break;
        case wire::ON_BUFFERING:
            onBuffering(number);
            break;
        case wire::ON_AUDIO_SESSION_ID:
            onAudioSessionId(number);
            break;
        case wire::ON_TIME_UPDATE:
            onTimeUpdate(number);
            break;
        case wire::ON_RECORDER_STARTED:
            onRecorderStarted(number);
            break;
        case wire::ON_RECORDER_STOPPED:
            onRecorderStopped(number);
            break;
        case wire::ON_PAUSED:
            onPaused(number);
            break;
        case wire::ON_RESUMED:
            onResumed(number);
            break;
        case wire::ON_SEEKED:
            onSeeked(number);
            break;
        default:
            return android::UNKNOWN_TRANSACTION;
    }
    return OK;
}

status_t BnCOrvPlayerClient::onPair(uint32_t code, const Parcel& data) {
    int32_t first = 0;
    int32_t second = 0;
    if (data.readInt32(&first) != OK || data.readInt32(&second) != OK) {
        return BAD_VALUE;
    }
    if (code == wire::ON_START_VIDEO_TASK) {
        onStartVideoTask(first, second);
    } else {
        onSignalStatusChanged(static_cast<uint32_t>(first), static_cast<uint32_t>(second));
    }
    return OK;
}

status_t BnCOrvPlayerClient::onEvent(uint32_t code) {
    if (code == wire::ON_BUFFERING_BEGIN) {
        onBufferingBegin();
    } else if (code == wire::ON_BUFFERING_END) {
        onBufferingEnd();
    } else {
        onEndOfContent();
    }
    return OK;
}

// The length stands there twice.
status_t BnCOrvPlayerClient::onCaption(const Parcel& data) {
    int32_t length = -1;
    int32_t again = -1;
    if (data.readInt32(&length) != OK || data.readInt32(&again) != OK || length < 0 ||
        length != again) {
        return BAD_VALUE;
    }
    const auto bytes = static_cast<size_t>(length);
    const void* const text = data.readInplace(bytes);
    if (text == nullptr && bytes > 0) {
        return BAD_VALUE;
    }
    closedCaptionText(static_cast<const uint8_t*>(text), bytes);
    return OK;
}

status_t BnCOrvPlayerClient::onStill(const Parcel& data) {
    int32_t width = 0;
    int32_t height = 0;
    int32_t twoBytes = 0;
    if (data.readInt32(&width) != OK || data.readInt32(&height) != OK ||
        data.readInt32(&twoBytes) != OK) {
        return BAD_VALUE;
    }
    // The descriptor stays the parcel's; a mapping needs it no longer.
    auto still = StillMemory::map(data.readFileDescriptor(), width, height, twoBytes != 0 ? 2 : 4);
    if (still == nullptr) {
        return BAD_VALUE;
    }
    onCaptureFrame(std::move(still));
    return OK;
}

}  // namespace orvclient
