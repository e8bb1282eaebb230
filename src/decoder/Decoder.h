#pragma once

#include <gui/Surface.h>
#include <utils/StrongPointer.h>

namespace OrvPlayer {

// What the controller asks of a decoder beside being a module.
class Decoder {
public:
    enum codingType_t : int { H264 = 0, AAC_LATM = 1, AAC_ADTS = 2, MPEG_AUDIO = 3 };

    // The answer of an operation that a decoder does not implement.
    static constexpr int ERR_NOT_IMPLEMENTED = 0x31008;

    class DecoderInfoListener {
    public:
        // The cropped picture size of a new sequence parameter set. Input thread of the decoder.
        virtual void onVideoResolution(int /*width*/, int /*height*/) {}
        virtual ~DecoderInfoListener() = default;
    };

    virtual ~Decoder() = default;
    virtual int configure(codingType_t type) = 0;
    virtual int setSurface(android::sp<android::Surface>& surface) = 0;
    virtual android::sp<android::Surface> getSurface() = 0;
    virtual int setCropRect(int left, int top, int right, int bottom, int useOriginal) = 0;
    virtual int getResolution(int* /*width*/, int* /*height*/) { return ERR_NOT_IMPLEMENTED; }
    virtual int setAudioOnlyMode(int /*on*/) { return ERR_NOT_IMPLEMENTED; }
    virtual void setDecoderInfoListenerListener(DecoderInfoListener* listener) = 0;
};

}  // namespace OrvPlayer
