#pragma once

#include <condition_variable>
#include <mutex>

#include "graphics/BufferQueue.h"

namespace orvhost {

// The state of one queue, shared by its two halves. The producer holds it as an
// IGraphicBufferProducer and sees no more than that; the consumer holds it through
// BufferQueue::Consumer. All operations may be called from any thread; the contracts are those of
// the two interfaces.
//
// A producer that must never wait (the stand-in for one in another process) takes its buffers with
// tryDequeueBuffer() and is told by a ProducerListener when that may be worth a try.
class BufferQueueCore : public android::IGraphicBufferProducer {
public:
    class ProducerListener : public virtual android::RefBase {
    public:
        // The consumer released a slot, told another display size, or abandoned the queue. On the
        // thread that did so, which holds no lock of the queue; several may come at a time.
        virtual void onConsumerNews() = 0;
    };

    BufferQueueCore() = default;
    BufferQueueCore(const BufferQueueCore&) = delete;  // both halves refer to it
    BufferQueueCore& operator=(const BufferQueueCore&) = delete;

    // The producer's half.
    android::status_t requestBuffer(int slot, android::sp<android::GraphicBuffer>* buffer) override;
    android::status_t dequeueBuffer(int* slot, uint32_t width, uint32_t height,
                                    android::PixelFormat format, uint64_t usage) override;
    android::status_t queueBuffer(int slot, const QueueBufferInput& input) override;
    android::status_t cancelBuffer(int slot) override;
    android::status_t query(int what, int* value) override;
    android::status_t connect(int api) override;
    android::status_t disconnect(int api) override;

    // As dequeueBuffer() for writing, but WOULD_BLOCK at once, and then counts no dropped picture.
    android::status_t tryDequeueBuffer(int* slot, uint32_t width, uint32_t height,
                                       android::PixelFormat format, uint64_t usage);
    // What a producer that keeps its own copy of the slots has done without the queue: dropped
    // pictures, read the picture that it queued last from this slot.
    void countDropped(uint32_t pictures);
    void noteRead(int slot);
    void setProducerListener(const android::wp<ProducerListener>& listener);
    bool isAbandoned() const;
    // query() of a queue whose display is so large.
    static android::status_t answerQuery(int what, int displayWidth, int displayHeight, int* value);

    // The consumer's half.
    android::status_t acquire(AcquiredBuffer* picture, int timeoutMs);
    android::status_t release(int slot);
    void setFrameAvailableListener(std::function<void()> listener);
    void setDisplaySize(int width, int height);
    void abandon();
    QueueBufferInput lastRead() const;
    BufferQueue::Counters counters() const;

protected:
    ~BufferQueueCore() override = default;

private:
    enum class State { FREE, DEQUEUED, QUEUED, ACQUIRED };

    struct Slot {
        State state = State::FREE;
        bool lent = false;       // to a reader; goes with any state but DEQUEUED
        bool requested = false;  // the producer knows this buffer
        android::sp<android::GraphicBuffer> buffer;
        uint64_t frameNumber = 0;
        QueueBufferInput input;
    };

    using Lock = std::unique_lock<std::mutex>;

    void tellProducer();  // without mLock

    // All of these are called with mLock held.
    bool isIdle(int slot) const;
    bool isOfCurrentSize(const Slot& slot) const;
    int findWritable() const;
    int findOldestQueued() const;
    int countAcquired() const;
    bool isAnyLent() const;
    bool setSize(uint32_t width, uint32_t height);
    void dropIfOutdated(int slot);
    void takeBack(int slot);
    android::status_t waitForProducerSlot(Lock& lock, const std::function<bool()>& isReady);
    android::status_t dequeueForReading(Lock& lock, int* slot);
    android::status_t takeWritable(int* slot, uint32_t width, uint32_t height,
                                   android::PixelFormat format, uint64_t usage);
    android::status_t allocate(Slot& slot, android::PixelFormat format, uint64_t usage);

    mutable std::mutex mLock;
    std::condition_variable mSlotFreed;      // a slot came back, or a session or the queue ended
    std::condition_variable mPictureQueued;  // or the queue ended

    Slot mSlots[BUFFER_SLOTS];
    int mLatest = -1;  // slot of the picture queued last; not written to while it is that
    uint64_t mLastFrameNumber = 0;
    QueueBufferInput mLastRead;
    uint32_t mWidth = 0;  // what the producer asked for last
    uint32_t mHeight = 0;
    int mConnectedApi = 0;  // 0: no producer
    uint64_t mSession = 0;  // counts connections
    bool mAbandoned = false;
    int mDisplayWidth = 0;
    int mDisplayHeight = 0;
    BufferQueue::Counters mCounters;
    android::wp<ProducerListener> mProducerListener;

    // Held while the listener runs; taken without mLock.
    std::mutex mListenerLock;
    std::function<void()> mListener;
};

}  // namespace orvhost
