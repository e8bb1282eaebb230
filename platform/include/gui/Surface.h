#pragma once

#include <gui/IGraphicBufferProducer.h>
#include <system/window.h>
#include <ui/GraphicBuffer.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

#include <mutex>

namespace android {

// A window to draw into, over the producer's half of a buffer queue. It keeps the buffers of the
// queue's slots, so that a picture costs two calls to the queue and no mapping.
//
// A codec connects, then for every picture takes a buffer, writes it and queues it:
//
//   sp<GraphicBuffer> buffer;
//   if (surface->dequeueBuffer(1920, 1080, PIXEL_FORMAT_YCBCR_420_SP, &buffer) == OK) {
//       ... fill ...
//       surface->queueBuffer(buffer, input);
//   }  // else WOULD_BLOCK: the application lags, drop the picture
//
// Everybody else uses it as an ANativeWindow; its dequeueBuffer lends the picture presented last
// for reading. Any thread; no call waits longer for the application than IGraphicBufferProducer
// says: 5 ms, and for the first buffer of a size 100 ms.
class Surface : public ANativeWindow, public RefBase {
public:
    explicit Surface(const sp<IGraphicBufferProducer>& producer, bool controlledByApp = false);

    Surface(const Surface&) = delete;  // clients know it as a window by its address
    Surface& operator=(const Surface&) = delete;

    sp<IGraphicBufferProducer> getIGraphicBufferProducer() const { return mProducer; }
    static bool isValid(const sp<Surface>& surface) {
        return surface != nullptr && surface->mProducer != nullptr;
    }

    // As IGraphicBufferProducer. Disconnecting also drops the buffers kept here.
    status_t connect(int api);
    status_t disconnect(int api);

    // Takes a buffer to write to: 0, WOULD_BLOCK when none became free in time, BAD_VALUE for a
    // size or format that is refused, NO_INIT without a connection or a consumer, NO_MEMORY.
    status_t dequeueBuffer(uint32_t bufferWidth, uint32_t bufferHeight, PixelFormat bufferFormat,
                           sp<GraphicBuffer>* buffer);

    // Presents a buffer taken from here. The crop of the window, once one is set, replaces that of
    // `input`. Whatever the result, the buffer is no longer the caller's.
    status_t queueBuffer(const sp<GraphicBuffer>& buffer,
                         const IGraphicBufferProducer::QueueBufferInput& input);

    // Gives it back unseen.
    status_t cancelBuffer(const sp<GraphicBuffer>& buffer);

    int query(int what, int* value) const;

    // Crop of all pictures queued from now on; null shows each as its producer says.
    status_t setCrop(const android_native_rect_t* crop);

protected:
    ~Surface() override = default;

private:
    struct Slot {
        sp<GraphicBuffer> buffer;
        bool held = false;  // by a writer, between dequeue and queue or cancel
    };

    static int hookQuery(const ANativeWindow* window, int what, int* value);
    static int hookPerform(ANativeWindow* window, int operation, ...);
    static int hookDequeueBuffer(ANativeWindow* window, ANativeWindowBuffer** buffer, int* fenceFd);
    static int hookQueueBuffer(ANativeWindow* window, ANativeWindowBuffer* buffer, int fenceFd);
    static int hookCancelBuffer(ANativeWindow* window, ANativeWindowBuffer* buffer, int fenceFd);

    status_t dequeue(uint32_t bufferWidth, uint32_t bufferHeight, PixelFormat bufferFormat,
                     uint64_t bufferUsage, int* slot, sp<GraphicBuffer>* buffer);
    status_t bufferOf(int slot, int dequeueResult, sp<GraphicBuffer>* buffer);
    status_t checkResult(status_t status);
    int takeHeldSlot(const sp<GraphicBuffer>& buffer);
    status_t lend(ANativeWindowBuffer** buffer);
    status_t takeBack(const ANativeWindowBuffer* buffer);

    const sp<IGraphicBufferProducer> mProducer;

    std::mutex mLock;  // a leaf: never held across a call to the producer
    Slot mSlots[IGraphicBufferProducer::BUFFER_SLOTS];
    sp<GraphicBuffer> mLentBuffer;  // kept over a disconnect: its reader has no reference
    int mLentSlot = -1;
    bool mHasCrop = false;
    android_native_rect_t mCrop = {0, 0, -1, -1};
};

}  // namespace android
