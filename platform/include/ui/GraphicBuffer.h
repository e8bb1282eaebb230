#pragma once

#include <system/graphics.h>
#include <system/window.h>
#include <ui/PixelFormat.h>
#include <ui/Rect.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace android {

// One picture in shared memory that can cross a process border as a descriptor.
//
//   stride = width, rounded up to even
//   +------------------------+ 0
//   | luma, height rows      |
//   +------------------------+ stride * height
//   | Cb Cr Cb Cr ...        |
//   | (height + 1) / 2 rows  |
//   +------------------------+ getByteSize()
//
// The memory is mapped as long as the object lives, so locking costs nothing and any number of
// readers may lock at a time. Who may write is a matter of the buffer queue: only the producer
// that dequeued the buffer, until it queues it.
class GraphicBuffer : public ANativeWindowBuffer, public RefBase {
public:
    enum {
        USAGE_SW_READ_RARELY = 0x00000002,
        USAGE_SW_READ_OFTEN = 0x00000003,
        USAGE_SW_READ_MASK = 0x0000000F,
        USAGE_SW_WRITE_RARELY = 0x00000020,
        USAGE_SW_WRITE_OFTEN = 0x00000030,
        USAGE_SW_WRITE_MASK = 0x000000F0,
    };

    // Width and height come from a stream; anything outside 1 to this is refused.
    static constexpr uint32_t MAX_EXTENT = 8192;

    // Allocates the memory, all zero. initCheck() tells how that went.
    GraphicBuffer(uint32_t width, uint32_t height, PixelFormat format, uint64_t usage);

    // Maps a picture that another process allocated. Takes the descriptor, on failure too. It is
    // refused unless it is shared memory of the right length that can no longer shrink: a peer
    // that cut it later would kill this process with a bus error.
    GraphicBuffer(uint32_t width, uint32_t height, PixelFormat format, uint64_t usage,
                  int descriptor);

    GraphicBuffer(const GraphicBuffer&) = delete;  // owns its mapping
    GraphicBuffer& operator=(const GraphicBuffer&) = delete;

    // 0; BAD_VALUE for a size, format or descriptor that is refused; NO_MEMORY.
    status_t initCheck() const { return mInitCheck; }

    uint32_t getWidth() const { return static_cast<uint32_t>(width); }
    uint32_t getHeight() const { return static_cast<uint32_t>(height); }
    uint32_t getStride() const { return static_cast<uint32_t>(stride); }
    uint64_t getUsage() const { return usage; }
    PixelFormat getPixelFormat() const { return format; }
    size_t getByteSize() const;

    // The shared memory, to be passed to another process; stays the buffer's own.
    int getDescriptor() const;

    // The first byte of the luma plane. `inUsage` is made of the USAGE_SW_ flags and must not be
    // 0. Each successful lock wants one unlock; they may nest.
    status_t lock(uint32_t inUsage, void** address);
    status_t lockYCbCr(uint32_t inUsage, android_ycbcr* planes);
    // INVALID_OPERATION when the buffer is not locked.
    status_t unlock();

    // The buffer behind what a native window handed out.
    static sp<GraphicBuffer> from(ANativeWindowBuffer* buffer) {
        return sp<GraphicBuffer>(static_cast<GraphicBuffer*>(buffer));
    }

    // Bytes of such a picture, 0 when the size or format is refused.
    static size_t byteSizeOf(uint32_t width, uint32_t height, PixelFormat format);

protected:
    ~GraphicBuffer() override;

private:
    status_t map(int descriptor);

    std::unique_ptr<orv_buffer_handle> mMemory;  // what `handle` points at
    status_t mInitCheck = NO_INIT;
};

}  // namespace android
