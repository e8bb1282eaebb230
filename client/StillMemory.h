#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace orvclient {

// The pixels of one still, shared with the process that made it: mapped for reading alone as long
// as the object lives. Nothing of it changes; any thread.
class StillMemory {
public:
    // Null unless the descriptor is shared memory that holds all of that many pixels and can no
    // longer shrink: a peer that cut it later would kill this process with a bus error. The
    // descriptor stays the caller's and may be closed after the call.
    static std::shared_ptr<const StillMemory> map(int descriptor, int32_t width, int32_t height,
                                                  uint32_t bytesPerPixel);
    ~StillMemory();
    StillMemory(const StillMemory&) = delete;  // owns its mapping
    StillMemory& operator=(const StillMemory&) = delete;

    const uint8_t* pixels() const { return mPixels; }
    uint32_t width() const { return mWidth; }
    uint32_t height() const { return mHeight; }
    uint32_t bytesPerPixel() const { return mBytesPerPixel; }

private:
    StillMemory(const uint8_t* pixels, uint32_t width, uint32_t height, uint32_t bytesPerPixel);
    size_t byteSize() const { return size_t{mWidth} * mHeight * mBytesPerPixel; }

    const uint8_t* const mPixels;
    const uint32_t mWidth;
    const uint32_t mHeight;
    const uint32_t mBytesPerPixel;
};

}  // namespace orvclient
