#pragma once

#include <gui/IGraphicBufferProducer.h>
#include <ui/GraphicBuffer.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

#include <cstdint>
#include <functional>

namespace orvhost {

class BufferQueueCore;

// A picture in the consumer's hands. It may be read until its slot is released.
struct AcquiredBuffer {
    int slot = -1;
    android::sp<android::GraphicBuffer> buffer;
    uint64_t frameNumber = 0;  // 1, 2, 3 ... in the order of presentation
    // Time stamp, picture flags and the crop, which is never empty and lies inside the buffer.
    android::IGraphicBufferProducer::QueueBufferInput input;
};

// The queue of pictures between a codec and a window.
//
//   producer:  free -> dequeued -> queued          consumer:  queued -> acquired -> free
//
// Pictures keep their order and none that was queued is lost. The bound is the number of slots: a
// consumer that lags keeps slots, the producer finds none, and after 5 ms drops what it was about
// to show. No pixel is copied. The picture queued last keeps its memory until a newer one takes
// its place, so that it can be lent for reading (a still) at any time; one slot beyond those that
// consumer and writer need pays for that.
//
// Buffers are allocated when they are first needed and when the size changes; those of the old
// size go as they come back. Both halves are thread-safe and neither knows the other.
class BufferQueue {
public:
    // Pictures that a consumer may keep at a time: a deinterlacer looks at three.
    static constexpr int MAX_ACQUIRED = 3;

    struct Counters {
        uint64_t queued = 0;    // pictures presented
        uint64_t acquired = 0;  // pictures the consumer took
        // Pictures the producer had no buffer for; one in another process tells them with the next
        // that it presents.
        uint64_t dropped = 0;
    };

    class Consumer : public android::RefBase {
    public:
        explicit Consumer(const android::sp<BufferQueueCore>& core);

        // The oldest picture that waits. Waits up to `timeoutMs` (0: not at all) for one, then
        // answers WOULD_BLOCK. INVALID_OPERATION when MAX_ACQUIRED are out. NO_INIT, at once, when
        // the queue is abandoned.
        android::status_t acquire(AcquiredBuffer* picture, int timeoutMs);

        // Gives a slot back; BAD_VALUE when it is not acquired, so also a second time. Still does
        // so after abandon(). The picture's buffer stays mapped while an AcquiredBuffer names it,
        // but is then written to.
        android::status_t release(int slot);

        // Called after each picture queued, on the thread that queued it: it must not wait,
        // set the listener or drop the last reference to the consumer. An empty function ends it:
        // when this returns, no call is running. Calls to this queue are fine.
        void setFrameAvailableListener(std::function<void()> listener);

        // What the window's NATIVE_WINDOW_WIDTH and _HEIGHT answer, in pixels; 0 until then.
        void setDisplaySize(int width, int height);

        // Ends the queue for good: wakes everyone, every later call answers NO_INIT, waiting
        // pictures are dropped. Destroying the consumer does the same.
        void abandon();

        // What went with the picture that the producer read last, or is reading; nothing before
        // the first. So whoever made a still can be asked which picture it is.
        android::IGraphicBufferProducer::QueueBufferInput lastRead() const;

        Counters counters() const;

    protected:
        ~Consumer() override;

    private:
        const android::sp<BufferQueueCore> mCore;
    };

    // IInterface::asBinder(*producer) is what a producer of another process needs.
    static void create(android::sp<android::IGraphicBufferProducer>* producer,
                       android::sp<Consumer>* consumer);
};

}  // namespace orvhost
