#include "common/Data.h"

#include <ui/GraphicBuffer.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

namespace OrvPlayer {

namespace {

// Collects lines in a fixed, zero-filled buffer; every piece is cut to the room that is left.
class TextForm {
public:
    __attribute__((format(printf, 2, 3))) TextForm& add(const char* format, ...) {
        va_list arguments;
        va_start(arguments, format);
        const size_t room = sizeof mText - strlen(mText);
        vsnprintf(mText + strlen(mText), room, format, arguments);
        va_end(arguments);
        return *this;
    }
    std::string text() const { return mText; }

private:
    char mText[256] = {};
};

// What the scanning formats share: type, size and time stamp, and how many fields converted.
struct ScannedHead {
    unsigned int type = 0;
    unsigned int size = 0;
    unsigned long long pts = 0;

    template <typename Record>
    void store(int converted, Record& record) const {
        if (converted >= 1) {
            record.mType = type;
        }
        if (converted >= 2) {
            record.mSize = size;
        }
        if (converted >= 3) {
            record.mPTS = pts;
        }
    }
};

}  // namespace

std::string PESData::toString() {
    return TextForm()
        .add("mType = %u\n", mType)
        .add("mSize = %u\n", mSize)
        .add("mPTS = %lu\n", mPTS)
        .add("mDTS = %lu\n", mDTS)
        .add("mOffsetES = %u\n", mOffsetES)
        .add("mSizeES = %u\n", mSizeES)
        .text();
}

bool PESData::fromString(char* text) {
    ScannedHead head;
    unsigned long long dts = 0;
    unsigned int offset = 0;
    unsigned int size = 0;
    const int converted = sscanf(text,
                                 "mType = %u\nmSize = %u\nmPTS = %llulu\nmDTS = %llulu\n"
                                 "mOffsetES = %u\nmSizeES = %u\n",
                                 &head.type, &head.size, &head.pts, &dts, &offset, &size);
    head.store(converted, *this);
    if (converted >= 4) {
        mDTS = dts;
    }
    if (converted >= 5) {
        mOffsetES = offset;
    }
    if (converted >= 6) {
        mSizeES = size;
    }
    return converted == 6;
}

void PESData::getRaw(unsigned char** data, unsigned int* size) {
    *data = reinterpret_cast<unsigned char*>(this) + FIXED_SIZE;
    *size = mSize - FIXED_SIZE;
}

std::string AudioFragmentData::toString() {
    return TextForm()
        .add("mType = %u\n", mType)
        .add("mSize = %u\n", mSize)
        .add("mPTS = %lu\n", mPTS)
        .add("mNumberChannels = %u\n", mNumberChannels)
        .add("mBitsPerSample = %u\n", mBitsPerSample)
        .add("mSamplingRate = %u\n", mSamplingRate)
        .text();
}

bool AudioFragmentData::fromString(char* text) {
    ScannedHead head;
    char channels = 0;
    char bits = 0;
    int rate = 0;
    const int converted = sscanf(text,
                                 "mType = %u\nmSize = %u\nmPTS = %llulu\nmNumberChannels = %c\n"
                                 "mBitsPerSample = %c\nmSamplingRate = %d\n",
                                 &head.type, &head.size, &head.pts, &channels, &bits, &rate);
    head.store(converted, *this);
    if (converted >= 4) {
        mNumberChannels = static_cast<uint8_t>(channels);
    }
    if (converted >= 5) {
        mBitsPerSample = static_cast<uint8_t>(bits);
    }
    if (converted >= 6) {
        mSamplingRate = static_cast<uint32_t>(rate);
    }
    return converted == 6;
}

void AudioFragmentData::getRaw(unsigned char** data, unsigned int* size) {
    *data = reinterpret_cast<unsigned char*>(this) + FIXED_SIZE;
    *size = mSize - FIXED_SIZE;
}

std::string VideoFrameData::toString() {
    return TextForm()
        .add("mType = %u\n", mType)
        .add("mSize = %u\n", mSize)
        .add("mPTS = %lu\n", mPTS)
        .text();
}

bool VideoFrameData::fromString(char* text) {
    ScannedHead head;
    const int converted =
        sscanf(text, "mType = %u\nmSize = %u\nmPTS = %llulu\n", &head.type, &head.size, &head.pts);
    head.store(converted, *this);
    return converted == 3;
}

void VideoFrameData::getRaw(unsigned char** data, unsigned int* size) {
    *data = nullptr;
    *size = 0;
    if (mGraphicBuffer == nullptr) {
        *data = reinterpret_cast<unsigned char*>(this) + FIXED_SIZE;
        *size = mSize - FIXED_SIZE;
        return;
    }
    void* pixels = nullptr;
    if (mGraphicBuffer->lock(android::GraphicBuffer::USAGE_SW_READ_OFTEN, &pixels) != 0) {
        return;
    }
    const size_t bytes = mGraphicBuffer->getByteSize();
    if (auto* copy = new (std::nothrow) unsigned char[bytes]; copy != nullptr) {
        memcpy(copy, pixels, bytes);
        *data = copy;
        *size = static_cast<unsigned int>(bytes);
    }
    mGraphicBuffer->unlock();
}

std::string ClosedCaptionFragmentData::toString() {
    return std::string();
}

void ClosedCaptionFragmentData::getRaw(unsigned char**, unsigned int*) {}

bool ClosedCaptionFragmentData::fromString(char*) {
    return true;
}

}  // namespace OrvPlayer
