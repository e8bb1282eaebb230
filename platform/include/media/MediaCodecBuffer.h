#pragma once

#include <utils/Errors.h>
#include <utils/RefBase.h>

#include <cstddef>
#include <cstdint>

namespace android {

// One input or output buffer of a codec: memory of a fixed capacity and the range in it that is
// in use. The codec says whose turn it is; the holder of the index may write memory and range.
//
// The memory is reserved address space: a page costs real memory from the first byte written to
// it, so a large capacity for the rare large unit is free until such a unit comes.
class MediaCodecBuffer : public RefBase {
public:
    // Null when there is no address space left. A capacity of 0 gives a buffer without memory:
    // what stands for a picture, which stays in the codec.
    static sp<MediaCodecBuffer> allocate(size_t capacity);

    MediaCodecBuffer(const MediaCodecBuffer&) = delete;  // owns a mapping
    MediaCodecBuffer& operator=(const MediaCodecBuffer&) = delete;

    uint8_t* base() { return mBase; }
    uint8_t* data() { return mBase != nullptr ? mBase + mRangeOffset : nullptr; }
    size_t capacity() const { return mCapacity; }
    size_t size() const { return mRangeLength; }
    size_t offset() const { return mRangeOffset; }

    // BAD_VALUE, and no change, when the range does not fit the capacity.
    status_t setRange(size_t offset, size_t size);

    // Bytes behind the capacity that belong to the codec: stream readers look past the end of a
    // unit, and what they meet there must be zero.
    static constexpr size_t TAIL_BYTES = 64;

protected:
    ~MediaCodecBuffer() override;

private:
    MediaCodecBuffer(uint8_t* base, size_t capacity) : mBase(base), mCapacity(capacity) {}

    uint8_t* const mBase;
    const size_t mCapacity;
    size_t mRangeOffset = 0;
    size_t mRangeLength = 0;
};

}  // namespace android
