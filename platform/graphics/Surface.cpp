#include <gui/Surface.h>

#include <cstdarg>

namespace android {

Surface::Surface(const sp<IGraphicBufferProducer>& producer, bool /*controlledByApp*/)
    : mProducer(producer) {
    ANativeWindow::query = hookQuery;
    ANativeWindow::perform = hookPerform;
    ANativeWindow::dequeueBuffer = hookDequeueBuffer;
    ANativeWindow::queueBuffer = hookQueueBuffer;
    ANativeWindow::cancelBuffer = hookCancelBuffer;
}

status_t Surface::connect(int api) {
    return mProducer == nullptr ? NO_INIT : mProducer->connect(api);
}

status_t Surface::disconnect(int api) {
    if (mProducer == nullptr) {
        return NO_INIT;
    }
    const status_t status = checkResult(mProducer->disconnect(api));
    if (status == OK) {
        std::lock_guard<std::mutex> lock(mLock);
        for (Slot& slot : mSlots) {
            slot = {};
        }
    }
    return status;
}

// Once the queue has ended its buffers are of no more use.
status_t Surface::checkResult(status_t status) {
    if (status == NO_INIT) {
        std::lock_guard<std::mutex> lock(mLock);
        for (Slot& slot : mSlots) {
            slot = {};
        }
    }
    return status;
}

// The buffer of a slot that was just dequeued; asks the queue for it when it is not known here.
status_t Surface::bufferOf(int slot, int dequeueResult, sp<GraphicBuffer>* buffer) {
    {
        std::lock_guard<std::mutex> lock(mLock);
        if ((dequeueResult & IGraphicBufferProducer::RELEASE_ALL_BUFFERS) != 0) {
            for (Slot& other : mSlots) {
                if (!other.held) {
                    other = {};
                }
            }
        }
        if ((dequeueResult & IGraphicBufferProducer::BUFFER_NEEDS_REALLOCATION) == 0 &&
            mSlots[slot].buffer != nullptr) {
            *buffer = mSlots[slot].buffer;
            return OK;
        }
    }
    sp<GraphicBuffer> fresh;
    const status_t status = mProducer->requestBuffer(slot, &fresh);
    if (status != OK) {
        return status;
    }
    if (fresh == nullptr || fresh->initCheck() != OK) {
        return NO_MEMORY;
    }
    std::lock_guard<std::mutex> lock(mLock);
    mSlots[slot].buffer = fresh;
    *buffer = fresh;
    return OK;
}

status_t Surface::dequeue(uint32_t bufferWidth, uint32_t bufferHeight, PixelFormat bufferFormat,
                          uint64_t bufferUsage, int* slot, sp<GraphicBuffer>* buffer) {
    if (mProducer == nullptr) {
        return NO_INIT;
    }
    const status_t result = checkResult(
        mProducer->dequeueBuffer(slot, bufferWidth, bufferHeight, bufferFormat, bufferUsage));
    if (result < 0) {
        return result;
    }
    // The queue may be another process's: its numbers are not to be trusted.
    if (*slot < 0 || *slot >= IGraphicBufferProducer::BUFFER_SLOTS) {
        return FAILED_TRANSACTION;
    }
    const status_t status = checkResult(bufferOf(*slot, result, buffer));
    if (status != OK) {
        mProducer->cancelBuffer(*slot);
    }
    return status;
}

status_t Surface::dequeueBuffer(uint32_t bufferWidth, uint32_t bufferHeight,
                                PixelFormat bufferFormat, sp<GraphicBuffer>* buffer) {
    int slot = -1;
    sp<GraphicBuffer> found;
    const status_t status = dequeue(bufferWidth, bufferHeight, bufferFormat,
                                    GraphicBuffer::USAGE_SW_WRITE_OFTEN, &slot, &found);
    if (status != OK) {
        return status;
    }
    if (found->getWidth() != bufferWidth || found->getHeight() != bufferHeight ||
        found->getPixelFormat() != bufferFormat) {
        mProducer->cancelBuffer(slot);
        return FAILED_TRANSACTION;
    }
    std::lock_guard<std::mutex> lock(mLock);
    mSlots[slot] = {found, true};
    *buffer = found;
    return OK;
}

int Surface::takeHeldSlot(const sp<GraphicBuffer>& buffer) {
    std::lock_guard<std::mutex> lock(mLock);
    for (int i = 0; i < IGraphicBufferProducer::BUFFER_SLOTS; ++i) {
        if (mSlots[i].held && mSlots[i].buffer == buffer) {
            mSlots[i].held = false;
            return i;
        }
    }
    return -1;
}

status_t Surface::queueBuffer(const sp<GraphicBuffer>& buffer,
                              const IGraphicBufferProducer::QueueBufferInput& input) {
    const int slot = takeHeldSlot(buffer);
    if (slot < 0) {
        return BAD_VALUE;
    }
    IGraphicBufferProducer::QueueBufferInput picture = input;
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mHasCrop) {
            picture.crop = mCrop;
        }
    }
    return checkResult(mProducer->queueBuffer(slot, picture));
}

status_t Surface::cancelBuffer(const sp<GraphicBuffer>& buffer) {
    const int slot = takeHeldSlot(buffer);
    return slot < 0 ? BAD_VALUE : checkResult(mProducer->cancelBuffer(slot));
}

int Surface::query(int what, int* value) const {
    return mProducer == nullptr ? NO_INIT : mProducer->query(what, value);
}

status_t Surface::setCrop(const android_native_rect_t* crop) {
    std::lock_guard<std::mutex> lock(mLock);
    mHasCrop = crop != nullptr;
    if (mHasCrop) {
        mCrop = *crop;
    }
    return OK;
}

status_t Surface::lend(ANativeWindowBuffer** buffer) {
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mLentBuffer != nullptr) {
            return WOULD_BLOCK;
        }
    }
    int slot = -1;
    sp<GraphicBuffer> found;
    const status_t status =
        dequeue(0, 0, PIXEL_FORMAT_YCBCR_420_SP, GraphicBuffer::USAGE_SW_READ_OFTEN, &slot, &found);
    if (status != OK) {
        return status;
    }
    std::lock_guard<std::mutex> lock(mLock);
    mLentBuffer = found;
    mLentSlot = slot;
    *buffer = found.get();
    return OK;
}

status_t Surface::takeBack(const ANativeWindowBuffer* buffer) {
    sp<GraphicBuffer> lent;  // dropped after the queue has been told
    int slot = -1;
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (buffer == nullptr || mLentBuffer.get() != buffer) {
            return BAD_VALUE;
        }
        lent = mLentBuffer;
        mLentBuffer.clear();
        slot = mLentSlot;
    }
    return checkResult(mProducer->cancelBuffer(slot));
}

int Surface::hookQuery(const ANativeWindow* window, int what, int* value) {
    return static_cast<const Surface*>(window)->query(what, value);
}

int Surface::hookPerform(ANativeWindow* window, int operation, ...) {
    if (operation != NATIVE_WINDOW_SET_CROP) {
        return NAME_NOT_FOUND;
    }
    va_list arguments;
    va_start(arguments, operation);
    const auto* crop = va_arg(arguments, const android_native_rect_t*);
    va_end(arguments);
    return static_cast<Surface*>(window)->setCrop(crop);
}

int Surface::hookDequeueBuffer(ANativeWindow* window, ANativeWindowBuffer** buffer, int* fenceFd) {
    *fenceFd = -1;
    return static_cast<Surface*>(window)->lend(buffer);
}

int Surface::hookQueueBuffer(ANativeWindow* window, ANativeWindowBuffer* buffer, int /*fenceFd*/) {
    return static_cast<Surface*>(window)->takeBack(buffer);
}

int Surface::hookCancelBuffer(ANativeWindow* window, ANativeWindowBuffer* buffer, int /*fenceFd*/) {
    return static_cast<Surface*>(window)->takeBack(buffer);
}

}  // namespace android
