#include "graphics/BufferQueueCore.h"

#include <algorithm>
#include <chrono>

namespace orvhost {

using android::BAD_VALUE;
using android::GraphicBuffer;
using android::INVALID_OPERATION;
using android::NO_INIT;
using android::OK;
using android::sp;
using android::status_t;
using android::WOULD_BLOCK;

namespace {

constexpr auto PRODUCER_WAIT = std::chrono::milliseconds(5);

bool isForReading(uint64_t usage) {
    return (usage & GraphicBuffer::USAGE_SW_READ_MASK) != 0 &&
           (usage & GraphicBuffer::USAGE_SW_WRITE_MASK) == 0;
}

// The part of a crop that the buffer has; all of the buffer when there is none.
android_native_rect_t clip(const android_native_rect_t& crop, const GraphicBuffer& buffer) {
    const android_native_rect_t clipped = {std::max(crop.left, 0), std::max(crop.top, 0),
                                           std::min(crop.right, buffer.width - 1),
                                           std::min(crop.bottom, buffer.height - 1)};
    if (clipped.left > clipped.right || clipped.top > clipped.bottom) {
        return {0, 0, buffer.width - 1, buffer.height - 1};
    }
    return clipped;
}

}  // namespace

// Nobody uses the slot's memory and nobody may ask to read it.
bool BufferQueueCore::isIdle(int slot) const {
    return mSlots[slot].state == State::FREE && !mSlots[slot].lent && slot != mLatest;
}

bool BufferQueueCore::isOfCurrentSize(const Slot& slot) const {
    return slot.buffer != nullptr && slot.buffer->getWidth() == mWidth &&
           slot.buffer->getHeight() == mHeight;
}

// A slot whose buffer can be used as it is goes first, so that no more memory is taken than the
// consumer's pace needs.
int BufferQueueCore::findWritable() const {
    int found = -1;
    for (int i = 0; i < BUFFER_SLOTS; ++i) {
        if (!isIdle(i)) {
            continue;
        }
        if (isOfCurrentSize(mSlots[i])) {
            return i;
        }
        if (found < 0) {
            found = i;
        }
    }
    return found;
}

int BufferQueueCore::findOldestQueued() const {
    int found = -1;
    for (int i = 0; i < BUFFER_SLOTS; ++i) {
        if (mSlots[i].state == State::QUEUED &&
            (found < 0 || mSlots[i].frameNumber < mSlots[found].frameNumber)) {
            found = i;
        }
    }
    return found;
}

int BufferQueueCore::countAcquired() const {
    return static_cast<int>(
        std::count_if(std::begin(mSlots), std::end(mSlots),
                      [](const Slot& slot) { return slot.state == State::ACQUIRED; }));
}

bool BufferQueueCore::isAnyLent() const {
    return std::any_of(std::begin(mSlots), std::end(mSlots),
                       [](const Slot& slot) { return slot.lent; });
}

void BufferQueueCore::dropIfOutdated(int slot) {
    if (slot >= 0 && isIdle(slot) && (mAbandoned || !isOfCurrentSize(mSlots[slot]))) {
        mSlots[slot].buffer.clear();
        mSlots[slot].requested = false;
    }
}

// Returns whether that is a change.
bool BufferQueueCore::setSize(uint32_t width, uint32_t height) {
    if (width == mWidth && height == mHeight) {
        return false;
    }
    mWidth = width;
    mHeight = height;
    for (int i = 0; i < BUFFER_SLOTS; ++i) {
        dropIfOutdated(i);
    }
    return true;
}

// What the producer held of this slot, writing or reading, is over.
void BufferQueueCore::takeBack(int slot) {
    if (mSlots[slot].state == State::DEQUEUED) {
        mSlots[slot].state = State::FREE;
    }
    mSlots[slot].lent = false;
    dropIfOutdated(slot);
    mSlotFreed.notify_all();
}

status_t BufferQueueCore::waitForProducerSlot(Lock& lock, const std::function<bool()>& isReady) {
    const uint64_t session = mSession;
    const auto isOver = [&] { return mAbandoned || mConnectedApi == 0 || mSession != session; };
    const auto deadline = std::chrono::steady_clock::now() + PRODUCER_WAIT;
    const bool isWoken =
        mSlotFreed.wait_until(lock, deadline, [&] { return isOver() || isReady(); });
    if (isOver()) {
        return NO_INIT;
    }
    return isWoken ? OK : WOULD_BLOCK;
}

status_t BufferQueueCore::dequeueBuffer(int* slot, uint32_t width, uint32_t height,
                                        android::PixelFormat format, uint64_t usage) {
    Lock lock(mLock);
    if (mAbandoned || mConnectedApi == 0) {
        return NO_INIT;
    }
    if (isForReading(usage)) {
        return dequeueForReading(lock, slot);
    }
    if (GraphicBuffer::byteSizeOf(width, height, format) == 0) {
        return BAD_VALUE;
    }
    const status_t status = waitForProducerSlot(lock, [this] { return findWritable() >= 0; });
    if (status != OK) {
        if (status == WOULD_BLOCK) {
            ++mCounters.dropped;
        }
        return status;
    }
    return takeWritable(slot, width, height, format, usage);
}

status_t BufferQueueCore::tryDequeueBuffer(int* slot, uint32_t width, uint32_t height,
                                           android::PixelFormat format, uint64_t usage) {
    Lock lock(mLock);
    if (mAbandoned || mConnectedApi == 0) {
        return NO_INIT;
    }
    if (GraphicBuffer::byteSizeOf(width, height, format) == 0) {
        return BAD_VALUE;
    }
    return findWritable() < 0 ? WOULD_BLOCK : takeWritable(slot, width, height, format, usage);
}

// There is a writable slot.
status_t BufferQueueCore::takeWritable(int* slot, uint32_t width, uint32_t height,
                                       android::PixelFormat format, uint64_t usage) {
    const status_t flags = setSize(width, height) ? RELEASE_ALL_BUFFERS : 0;
    *slot = findWritable();
    const status_t allocated = allocate(mSlots[*slot], format, usage);
    if (allocated != OK) {
        return allocated;
    }
    mSlots[*slot].state = State::DEQUEUED;
    return flags | (mSlots[*slot].requested ? 0 : BUFFER_NEEDS_REALLOCATION);
}

status_t BufferQueueCore::dequeueForReading(Lock& lock, int* slot) {
    if (mLatest < 0) {
        return WOULD_BLOCK;  // nothing was ever shown, and waiting seldom changes that in time
    }
    const status_t status = waitForProducerSlot(lock, [this] { return !isAnyLent(); });
    if (status != OK) {
        return status;
    }
    mSlots[mLatest].lent = true;
    mLastRead = mSlots[mLatest].input;
    *slot = mLatest;
    return mSlots[mLatest].requested ? 0 : BUFFER_NEEDS_REALLOCATION;
}

// Gives the slot a buffer of the current size unless it has one.
status_t BufferQueueCore::allocate(Slot& slot, android::PixelFormat format, uint64_t usage) {
    if (isOfCurrentSize(slot)) {
        return OK;
    }
    slot.requested = false;
    slot.buffer =
        new GraphicBuffer(mWidth, mHeight, format, usage | GraphicBuffer::USAGE_SW_READ_OFTEN);
    const status_t status = slot.buffer->initCheck();
    if (status != OK) {
        slot.buffer.clear();
    }
    return status;
}

status_t BufferQueueCore::requestBuffer(int slot, sp<GraphicBuffer>* buffer) {
    Lock lock(mLock);
    if (mAbandoned || mConnectedApi == 0) {
        return NO_INIT;
    }
    if (slot < 0 || slot >= BUFFER_SLOTS ||
        !(mSlots[slot].lent || mSlots[slot].state == State::DEQUEUED)) {
        return BAD_VALUE;
    }
    mSlots[slot].requested = true;
    *buffer = mSlots[slot].buffer;
    return OK;
}

status_t BufferQueueCore::queueBuffer(int slot, const QueueBufferInput& input) {
    {
        Lock lock(mLock);
        if (mAbandoned || mConnectedApi == 0) {
            return NO_INIT;
        }
        if (slot < 0 || slot >= BUFFER_SLOTS) {
            return BAD_VALUE;
        }
        Slot& picture = mSlots[slot];
        if (picture.state != State::DEQUEUED) {
            return BAD_VALUE;
        }
        picture.state = State::QUEUED;
        picture.frameNumber = ++mLastFrameNumber;
        picture.input = input;
        picture.input.crop = clip(input.crop, *picture.buffer);
        const int before = mLatest;
        mLatest = slot;
        dropIfOutdated(before);
        ++mCounters.queued;
    }
    mSlotFreed.notify_all();  // the slot of the picture before may be idle now
    mPictureQueued.notify_all();
    std::lock_guard<std::mutex> listenerLock(mListenerLock);
    if (mListener) {
        mListener();
    }
    return OK;
}

status_t BufferQueueCore::cancelBuffer(int slot) {
    Lock lock(mLock);
    if (mAbandoned || mConnectedApi == 0) {
        return NO_INIT;
    }
    if (slot < 0 || slot >= BUFFER_SLOTS ||
        !(mSlots[slot].lent || mSlots[slot].state == State::DEQUEUED)) {
        return BAD_VALUE;
    }
    takeBack(slot);
    return OK;
}

status_t BufferQueueCore::query(int what, int* value) {
    Lock lock(mLock);
    if (mAbandoned) {
        return NO_INIT;
    }
    return answerQuery(what, mDisplayWidth, mDisplayHeight, value);
}

status_t BufferQueueCore::answerQuery(int what, int displayWidth, int displayHeight, int* value) {
    switch (what) {
        case NATIVE_WINDOW_WIDTH:
            *value = displayWidth;
            return OK;
        case NATIVE_WINDOW_HEIGHT:
            *value = displayHeight;
            return OK;
        case NATIVE_WINDOW_FORMAT:
            *value = android::PIXEL_FORMAT_YCBCR_420_SP;
            return OK;
        case NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS:
            *value = BufferQueue::MAX_ACQUIRED;
            return OK;
        default:
            return BAD_VALUE;
    }
}

status_t BufferQueueCore::connect(int api) {
    Lock lock(mLock);
    if (mAbandoned) {
        return NO_INIT;
    }
    if (mConnectedApi != 0 || (api != NATIVE_WINDOW_API_MEDIA && api != NATIVE_WINDOW_API_CPU)) {
        return BAD_VALUE;
    }
    mConnectedApi = api;
    ++mSession;
    for (Slot& slot : mSlots) {
        slot.requested = false;
    }
    return OK;
}

status_t BufferQueueCore::disconnect(int api) {
    Lock lock(mLock);
    if (mAbandoned) {
        return NO_INIT;
    }
    if (mConnectedApi == 0 || api != mConnectedApi) {
        return BAD_VALUE;
    }
    mConnectedApi = 0;
    for (int i = 0; i < BUFFER_SLOTS; ++i) {
        takeBack(i);
    }
    return OK;
}

status_t BufferQueueCore::acquire(AcquiredBuffer* picture, int timeoutMs) {
    Lock lock(mLock);
    const auto isReady = [this] { return mAbandoned || findOldestQueued() >= 0; };
    if (!mAbandoned && countAcquired() >= BufferQueue::MAX_ACQUIRED) {
        return INVALID_OPERATION;
    }
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(std::max(timeoutMs, 0));
    if (!mPictureQueued.wait_until(lock, deadline, isReady)) {
        return WOULD_BLOCK;
    }
    if (mAbandoned) {
        return NO_INIT;
    }
    const int slot = findOldestQueued();
    if (countAcquired() >= BufferQueue::MAX_ACQUIRED) {
        return INVALID_OPERATION;  // another thread of the consumer took the last one meanwhile
    }
    mSlots[slot].state = State::ACQUIRED;
    ++mCounters.acquired;
    picture->slot = slot;
    picture->buffer = mSlots[slot].buffer;
    picture->frameNumber = mSlots[slot].frameNumber;
    picture->input = mSlots[slot].input;
    return OK;
}

status_t BufferQueueCore::release(int slot) {
    Lock lock(mLock);
    if (slot < 0 || slot >= BUFFER_SLOTS || mSlots[slot].state != State::ACQUIRED) {
        return BAD_VALUE;
    }
    mSlots[slot].state = State::FREE;
    dropIfOutdated(slot);
    lock.unlock();
    mSlotFreed.notify_all();
    tellProducer();
    return OK;
}

void BufferQueueCore::countDropped(uint32_t pictures) {
    Lock lock(mLock);
    mCounters.dropped += pictures;
}

void BufferQueueCore::noteRead(int slot) {
    Lock lock(mLock);
    if (slot >= 0 && slot < BUFFER_SLOTS) {
        mLastRead = mSlots[slot].input;
    }
}

void BufferQueueCore::setProducerListener(const android::wp<ProducerListener>& listener) {
    Lock lock(mLock);
    mProducerListener = listener;
}

void BufferQueueCore::tellProducer() {
    sp<ProducerListener> listener;
    {
        Lock lock(mLock);
        listener = mProducerListener.promote();
    }
    if (listener != nullptr) {
        listener->onConsumerNews();
    }
}

void BufferQueueCore::setFrameAvailableListener(std::function<void()> listener) {
    std::lock_guard<std::mutex> lock(mListenerLock);
    mListener = std::move(listener);
}

void BufferQueueCore::setDisplaySize(int width, int height) {
    {
        Lock lock(mLock);
        mDisplayWidth = std::max(width, 0);
        mDisplayHeight = std::max(height, 0);
    }
    tellProducer();
}

bool BufferQueueCore::isAbandoned() const {
    Lock lock(mLock);
    return mAbandoned;
}

void BufferQueueCore::abandon() {
    Lock lock(mLock);
    mAbandoned = true;
    mConnectedApi = 0;
    mLatest = -1;
    for (int i = 0; i < BUFFER_SLOTS; ++i) {
        if (mSlots[i].state == State::QUEUED) {
            mSlots[i].state = State::FREE;
        }
        takeBack(i);
    }
    mPictureQueued.notify_all();
    lock.unlock();
    tellProducer();
}

android::IGraphicBufferProducer::QueueBufferInput BufferQueueCore::lastRead() const {
    Lock lock(mLock);
    return mLastRead;
}

BufferQueue::Counters BufferQueueCore::counters() const {
    Lock lock(mLock);
    return mCounters;
}

}  // namespace orvhost
