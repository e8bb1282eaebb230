#include <cutils/ashmem.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/statfs.h>
#include <ui/GraphicBuffer.h>
#include <ui/GraphicBufferMapper.h>
#include <unistd.h>

#include "graphics/BufferHandle.h"

namespace android {

namespace {

constexpr uint32_t strideOf(uint32_t width) {
    return (width + 1) & ~1u;
}

// Whether the region can be relied on to keep all its pages. (One of huge pages cannot: there may
// be none left when a hole in it is touched.)
bool holdsForGood(int descriptor, size_t byteSize) {
    struct statfs system = {};
    if (fstatfs(descriptor, &system) != 0 || system.f_type != TMPFS_MAGIC) {
        return false;
    }
    const int seals = fcntl(descriptor, F_GET_SEALS);
    const int regionSize = ashmem_get_size_region(descriptor);
    return seals >= 0 && (seals & F_SEAL_SHRINK) != 0 && regionSize >= 0 &&
           static_cast<size_t>(regionSize) >= byteSize;
}

}  // namespace

size_t GraphicBuffer::byteSizeOf(uint32_t width, uint32_t height, PixelFormat format) {
    if (format != PIXEL_FORMAT_YCBCR_420_SP || width < 1 || height < 1 || width > MAX_EXTENT ||
        height > MAX_EXTENT) {
        return 0;
    }
    return size_t{strideOf(width)} * (size_t{height} + (height + 1) / 2);
}

GraphicBuffer::GraphicBuffer(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                             uint64_t inUsage)
    : GraphicBuffer(inWidth, inHeight, inFormat, inUsage, -1) {
    if (mMemory->byteSize == 0) {
        return;  // refused
    }
    const int descriptor = ashmem_create_region("GraphicBuffer", mMemory->byteSize);
    if (descriptor < 0) {
        mInitCheck = NO_MEMORY;
        return;
    }
    mMemory->writable = true;
    mInitCheck = map(descriptor);
}

GraphicBuffer::GraphicBuffer(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                             uint64_t inUsage, int descriptor)
    : mMemory(std::make_unique<orv_buffer_handle>()), mInitCheck(BAD_VALUE) {
    handle = mMemory.get();
    mMemory->byteSize = byteSizeOf(inWidth, inHeight, inFormat);
    if (mMemory->byteSize != 0) {
        mMemory->width = inWidth;
        mMemory->height = inHeight;
        mMemory->stride = strideOf(inWidth);
        width = static_cast<int>(inWidth);
        height = static_cast<int>(inHeight);
        stride = static_cast<int>(mMemory->stride);
        format = inFormat;
        usage = inUsage;
        mMemory->writable = (inUsage & USAGE_SW_WRITE_MASK) != 0;
        if (descriptor >= 0 && holdsForGood(descriptor, mMemory->byteSize)) {
            mInitCheck = map(descriptor);
            return;
        }
    }
    if (descriptor >= 0) {
        close(descriptor);
    }
}

GraphicBuffer::~GraphicBuffer() {
    if (mMemory->base != nullptr) {
        munmap(mMemory->base, mMemory->byteSize);
    }
    if (mMemory->descriptor >= 0) {
        close(mMemory->descriptor);
    }
}

// Takes the descriptor, on failure too.
status_t GraphicBuffer::map(int descriptor) {
    const int protection = mMemory->writable ? PROT_READ | PROT_WRITE : PROT_READ;
    void* base = mmap(nullptr, mMemory->byteSize, protection, MAP_SHARED, descriptor, 0);
    if (base == MAP_FAILED) {
        const status_t status = errno == ENOMEM ? NO_MEMORY : BAD_VALUE;
        close(descriptor);
        return status;
    }
    mMemory->base = static_cast<uint8_t*>(base);
    mMemory->descriptor = descriptor;
    return OK;
}

size_t GraphicBuffer::getByteSize() const {
    return mMemory->byteSize;
}

int GraphicBuffer::getDescriptor() const {
    return mMemory->descriptor;
}

status_t GraphicBuffer::lock(uint32_t inUsage, void** address) {
    return GraphicBufferMapper::get().lock(handle, inUsage, Rect(width, height), address);
}

status_t GraphicBuffer::lockYCbCr(uint32_t inUsage, android_ycbcr* planes) {
    return GraphicBufferMapper::get().lockYCbCr(handle, inUsage, Rect(width, height), planes);
}

status_t GraphicBuffer::unlock() {
    return GraphicBufferMapper::get().unlock(handle);
}

}  // namespace android
