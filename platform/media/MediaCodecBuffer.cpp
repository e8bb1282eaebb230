#include <media/MediaCodecBuffer.h>
#include <sys/mman.h>

namespace android {

sp<MediaCodecBuffer> MediaCodecBuffer::allocate(size_t capacity) {
    if (capacity == 0) {
        return new MediaCodecBuffer(nullptr, 0);
    }
    if (capacity > SIZE_MAX - TAIL_BYTES) {
        return nullptr;
    }
    void* memory = mmap(nullptr, capacity + TAIL_BYTES, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) {
        return nullptr;
    }
    return new MediaCodecBuffer(static_cast<uint8_t*>(memory), capacity);
}

MediaCodecBuffer::~MediaCodecBuffer() {
    if (mBase != nullptr) {
        munmap(mBase, mCapacity + TAIL_BYTES);
    }
}

status_t MediaCodecBuffer::setRange(size_t offset, size_t size) {
    if (offset > mCapacity || size > mCapacity - offset) {
        return BAD_VALUE;
    }
    mRangeOffset = offset;
    mRangeLength = size;
    return OK;
}

}  // namespace android
