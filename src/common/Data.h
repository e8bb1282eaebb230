#pragma once

#include <cstdint>
#include <string>

namespace android {
class GraphicBuffer;
}

namespace OrvPlayer {

class CaptureFrameListener;

// The media records that travel through ring buffers.
//
// A producer constructs a record in place at the pointer that RingBuffer::write returned, fills it,
// appends the payload right behind the fixed part and commits mSize bytes. A consumer uses it in
// place until its readAdvance. Records are never destroyed, only overwritten. Ring buffers keep
// records aligned to 4 bytes only, hence the packing.
#pragma pack(push, 4)

class Data {
public:
    enum Type : uint32_t { PES = 0, AUDIO_FRAGMENT = 1, VIDEO_FRAME = 2, CLOSED_CAPTION = 3 };

    uint32_t mType = 0;
    uint32_t mSize = 0;  // the whole record, fixed part and payload, in bytes

    // The fields as text, one "name = value" line each.
    virtual std::string toString() = 0;
    // Reads the text form back; true only when every field converts.
    virtual bool fromString(char* text) = 0;
    // The payload and its size.
    virtual void getRaw(unsigned char** data, unsigned int* size) = 0;
    virtual ~Data() = default;
};

// A PES packet as received, header included; its elementary-stream bytes are the last mSizeES.
class PESData : public Data {
public:
    static constexpr uint32_t FIXED_SIZE = 40;

    uint64_t mPTS = 0;       // 33 bits, 90 kHz
    uint64_t mDTS = 0;       // 33 bits, 90 kHz
    uint32_t mOffsetES = 0;  // of the elementary-stream bytes, from the start of the record
    uint32_t mSizeES = 0;    // bytes

    std::string toString() override;
    // Deliberate: the scanning format expects letters behind 64-bit numbers that toString never
    // writes, so this answers false to its own text. See DataTest.TextForms.
    bool fromString(char* text) override;
    void getRaw(unsigned char** data, unsigned int* size) override;
};

// Decoded sound: interleaved PCM samples follow.
class AudioFragmentData : public Data {
public:
    static constexpr uint32_t FIXED_SIZE = 32;

    uint64_t mPTS = 0;  // 33 bits, 90 kHz
    uint8_t mNumberChannels = 0;
    uint8_t mBitsPerSample = 0;
    uint32_t mSamplingRate = 0;  // Hz

    std::string toString() override;
    // Deliberate: as PESData, and the two counts are scanned as characters.
    bool fromString(char* text) override;
    void getRaw(unsigned char** data, unsigned int* size) override;
};

// A decoded picture. As a rule the pixels stay in the codec's output buffer mBufferIndex and are
// presented or dropped through mListener.
class VideoFrameData : public Data {
public:
    static constexpr uint32_t FIXED_SIZE = 80;
    static constexpr uint8_t FLAG_IDR = 0x02;  // tested by the renderer, never set by the decoder

    // The owner of the codec buffer.
    class VideoListener {
    public:
        virtual ~VideoListener() = default;
        // Gives the frame's buffer back: presented on the surface when `render`, else dropped.
        virtual bool renderFrame(bool render, VideoFrameData& frame) = 0;
        // Copies the picture to the listener; true on success. The frame stays with the caller.
        virtual bool captureFrame(VideoFrameData& frame, CaptureFrameListener* listener) = 0;
    };

    uint64_t mPTS = 0;  // 33 bits, 90 kHz
    uint32_t mColorFormat = 0;
    uint32_t mBufferIndex = 0;
    android::GraphicBuffer* mGraphicBuffer = nullptr;  // null while the picture is in the codec
    VideoListener* mListener = nullptr;
    uint8_t mFlags = 0;
    uint8_t mPadding[7] = {};
    uint64_t mReserved = 0;
    int32_t mWidth = 0;
    int32_t mHeight = 0;
    uint64_t mReserved2 = 0;

    std::string toString() override;
    bool fromString(char* text) override;
    // With a graphic buffer: a copy of its bytes, freed by the caller with array delete.
    void getRaw(unsigned char** data, unsigned int* size) override;

    // Converts a 4:2:0 picture to width * height words 0xAA332211: 11 is the channel that Cb
    // drives (blue), 22 green, 33 that of Cr (red), AA 255. Luma rows are `stride` bytes apart and
    // chroma follows the last of them:
    //
    //   0x105, 0x121   pairs Cb Cr, rows of `stride` rounded up to 16 bytes
    //   "YV12"         all of Cr, then all of Cb, rows of `stride` / 2 rounded up to 16 bytes
    //
    // No level is stretched: a luma of 16 stays 16. 0; 1, and nothing is written, for any other
    // format and for an odd width or height. `dst` must not overlap `src`.
    static int convertFrameFromYvuToRgba(unsigned char* src, int* dst, unsigned int width,
                                         unsigned int height, int colorFormat, unsigned int stride);
};

// Caption text, as the caption decoder built it.
class ClosedCaptionFragmentData : public virtual Data {
public:
    static constexpr uint32_t FIXED_SIZE = 32;

    uint64_t mPTS = 0;  // 33 bits, 90 kHz

    std::string toString() override;
    void getRaw(unsigned char** data, unsigned int* size) override;  // leaves both untouched
    bool fromString(char* text) override;                            // always true
};

#pragma pack(pop)

static_assert(sizeof(PESData) == PESData::FIXED_SIZE && alignof(PESData) == 4);
static_assert(sizeof(AudioFragmentData) == AudioFragmentData::FIXED_SIZE);
static_assert(sizeof(VideoFrameData) == VideoFrameData::FIXED_SIZE && alignof(VideoFrameData) == 4);
static_assert(sizeof(ClosedCaptionFragmentData) == ClosedCaptionFragmentData::FIXED_SIZE);

}  // namespace OrvPlayer
