#pragma once

#include <binder/IInterface.h>
#include <system/graphics.h>
#include <system/window.h>
#include <ui/GraphicBuffer.h>
#include <ui/PixelFormat.h>
#include <utils/Errors.h>
#include <utils/String16.h>
#include <utils/StrongPointer.h>

#include <cstdint>

namespace android {

// The producer's half of a buffer queue, and all that a producer ever sees of its consumer. The
// queue may be another process's: its owner passes asBinder(producer) along, whoever gets that
// binder draws into the queue through
//
//   sp<Surface> surface = new Surface(interface_cast<IGraphicBufferProducer>(binder));
//
// Pixels are never copied on the way, and no call waits for the other process beyond the bounds
// told here, whatever that process does.
//
// Buffers are told apart by slot numbers. A producer keeps the buffer of each slot that it asked
// for with requestBuffer() until dequeueBuffer() tells it otherwise:
//
//   connect
//     dequeueBuffer -> slot [-> requestBuffer]  write  queueBuffer | cancelBuffer   ...
//   disconnect
//
// Every call may be made from any thread. Once the consumer is gone all of them answer NO_INIT,
// calls that are waiting at that moment included. Before connect() and after disconnect() the
// buffer calls answer NO_INIT as well.
class IGraphicBufferProducer : public IInterface {
public:
    static const String16 descriptor;

    // The queue itself where it lives in this process, else a proxy; null for null.
    static sp<IGraphicBufferProducer> asInterface(const sp<IBinder>& binder);

    static constexpr int BUFFER_SLOTS = 6;

    // What goes with a picture. Plain data.
    struct QueueBufferInput {
        int64_t timestamp = 0;  // ns, presentation time on the stream's time line
        // Part of the buffer to show, clipped to the buffer by the queue.
        android_native_rect_t crop = {0, 0, -1, -1};
        bool interlaced = false;  // both fields in one frame, line by line
        bool topFieldFirst = false;
        // Sample aspect ratio (ITU-T H.264, sar_width and sar_height); 0 : 0 when unknown.
        uint32_t sampleAspectWidth = 0;
        uint32_t sampleAspectHeight = 0;
        // Colour matrix, transfer and range as the stream tells them.
        android_dataspace dataSpace = HAL_DATASPACE_UNKNOWN;
    };

    // Bits of a dequeueBuffer() result that is not negative.
    enum {
        // The buffer of this slot is new to the producer: requestBuffer() before use.
        BUFFER_NEEDS_REALLOCATION = 0x1,
        // Buffers of all slots not in the producer's hands are out of date: drop them.
        RELEASE_ALL_BUFFERS = 0x2,
    };

    // The buffer of a slot that the producer has dequeued; BAD_VALUE for any other.
    virtual status_t requestBuffer(int slot, sp<GraphicBuffer>* buffer) = 0;

    // Takes a buffer of exactly this size and format; BAD_VALUE when GraphicBuffer refuses it. All
    // sizes are of pixels. Waits up to 5 ms for the consumer to give one back, then answers
    // WOULD_BLOCK: the caller drops its picture. The first buffers of a size that another process
    // has to make are waited for up to 100 ms, once until it answers.
    //
    // With a software read flag and no write flag in `usage` it lends the picture queued last
    // instead, of whatever size it is, to be read: for one reader at a time, and at no cost to
    // those who write. WOULD_BLOCK when there is none.
    virtual status_t dequeueBuffer(int* slot, uint32_t width, uint32_t height, PixelFormat format,
                                   uint64_t usage) = 0;

    // Hands a written picture to the consumer. BAD_VALUE when the producer does not hold the slot
    // for writing. FAILED_TRANSACTION when the other process takes no more messages: the picture
    // is dropped, its buffer free again.
    virtual status_t queueBuffer(int slot, const QueueBufferInput& input) = 0;

    // Gives a slot back without showing it; a lent picture goes back only this way. BAD_VALUE when
    // the producer does not hold the slot.
    virtual status_t cancelBuffer(int slot) = 0;

    // Answers a NATIVE_WINDOW_ question; BAD_VALUE for an unknown one. Needs no connection, but
    // the size of another process's display is 0 until the first one.
    virtual status_t query(int what, int* value) = 0;

    // Begins a producer's session; BAD_VALUE while there is one. `api` is NATIVE_WINDOW_API_MEDIA
    // or NATIVE_WINDOW_API_CPU. That another process has one shows later: the buffer calls answer
    // NO_INIT then.
    virtual status_t connect(int api) = 0;

    // Ends it; `api` as given to connect(), else BAD_VALUE. The queue takes every slot back that
    // the producer holds; pictures queued before are still shown.
    virtual status_t disconnect(int api) = 0;

protected:
    ~IGraphicBufferProducer() override = default;
    // Null for a producer that cannot be passed to another process.
    IBinder* onAsBinder() override { return nullptr; }
};

}  // namespace android
