#pragma once

#include <binder/IInterface.h>
#include <gui/IGraphicBufferProducer.h>

#include <chrono>
#include <mutex>

#include "graphics/ProducerLink.h"

namespace android {

// The producer of a queue that lives in another process: its ProducerLink keeps the slots, this
// one tells the queue what is done with them (see graphics/ProducerWire.h). Every message is
// one-way. One that the transport does not take, because the other process takes none, is sent
// again with a later picture; a picture that is not taken is a picture dropped.
//
// Of the proxies of one queue in this process one is connected at a time; the queue itself sees
// to it that other processes' are not.
class BpGraphicBufferProducer : public BpInterface<IGraphicBufferProducer> {
public:
    static sp<IGraphicBufferProducer> create(const sp<IBinder>& queue);

    status_t requestBuffer(int slot, sp<GraphicBuffer>* buffer) override;
    status_t dequeueBuffer(int* slot, uint32_t width, uint32_t height, PixelFormat format,
                           uint64_t usage) override;
    status_t queueBuffer(int slot, const QueueBufferInput& input) override;
    status_t cancelBuffer(int slot) override;
    status_t query(int what, int* value) override;
    status_t connect(int api) override;
    status_t disconnect(int api) override;

protected:
    explicit BpGraphicBufferProducer(const sp<IBinder>& queue);
    ~BpGraphicBufferProducer() override;

private:
    status_t dequeueForReading(int* slot);

    // These with mSendLock held.
    status_t send(uint32_t code, const Parcel& data);
    status_t tell();
    status_t tellConnection();
    status_t tellRequest();
    void tellEnd(int64_t session);

    const sp<orvhost::ProducerLink> mLink;

    // Held across a change of the slots and the message about it, so that the queue hears of
    // changes in their order. Only callers of this interface take it: the transport's threads,
    // which bring the credits, never do.
    std::mutex mSendLock;
    int mApi = 0;  // 0: not connected
    int64_t mSession = 0;
    bool mConnectionTold = false;
    bool mRequestTold = false;
    std::chrono::steady_clock::time_point mRequestTime;
    bool mReadTold = false;  // that the picture queued last is, or was, being read
    uint32_t mDropped = 0;   // pictures, since the last one queued
};

}  // namespace android
