#include <ui/GraphicBuffer.h>
#include <ui/GraphicBufferMapper.h>

#include "graphics/BufferHandle.h"

namespace android {

namespace {

status_t checkLock(buffer_handle_t handle, uint32_t usage, const Rect& bounds) {
    constexpr uint32_t SOFTWARE =
        GraphicBuffer::USAGE_SW_READ_MASK | GraphicBuffer::USAGE_SW_WRITE_MASK;
    if (handle == nullptr || (usage & SOFTWARE) == 0) {
        return BAD_VALUE;
    }
    if (handle->base == nullptr) {
        return NO_INIT;
    }
    if ((usage & GraphicBuffer::USAGE_SW_WRITE_MASK) != 0 && !handle->writable) {
        return PERMISSION_DENIED;
    }
    const bool inside = bounds.left >= 0 && bounds.top >= 0 && bounds.left < bounds.right &&
                        bounds.top < bounds.bottom &&
                        static_cast<uint32_t>(bounds.right) <= handle->width &&
                        static_cast<uint32_t>(bounds.bottom) <= handle->height;
    return inside ? OK : BAD_VALUE;
}

}  // namespace

GraphicBufferMapper& GraphicBufferMapper::get() {
    static GraphicBufferMapper mapper;
    return mapper;
}

status_t GraphicBufferMapper::lock(buffer_handle_t handle, uint32_t usage, const Rect& bounds,
                                   void** address) {
    const status_t status = checkLock(handle, usage, bounds);
    if (status != OK) {
        return status;
    }
    handle->locks.fetch_add(1, std::memory_order_relaxed);
    *address = handle->base;
    return OK;
}

status_t GraphicBufferMapper::lockYCbCr(buffer_handle_t handle, uint32_t usage, const Rect& bounds,
                                        android_ycbcr* planes) {
    void* address = nullptr;
    const status_t status = lock(handle, usage, bounds, &address);
    if (status != OK) {
        return status;
    }
    uint8_t* chroma = handle->base + size_t{handle->stride} * handle->height;
    *planes = {};
    planes->y = address;
    planes->cb = chroma;
    planes->cr = chroma + 1;
    planes->ystride = handle->stride;
    planes->cstride = handle->stride;
    planes->chroma_step = 2;
    return OK;
}

status_t GraphicBufferMapper::unlock(buffer_handle_t handle) {
    if (handle == nullptr) {
        return BAD_VALUE;
    }
    int locks = handle->locks.load(std::memory_order_relaxed);
    do {
        if (locks == 0) {
            return INVALID_OPERATION;
        }
    } while (!handle->locks.compare_exchange_weak(locks, locks - 1, std::memory_order_relaxed));
    return OK;
}

}  // namespace android
