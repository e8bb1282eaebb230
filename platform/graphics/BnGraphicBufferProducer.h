#pragma once

#include <binder/IInterface.h>
#include <gui/IGraphicBufferProducer.h>
#include <sys/types.h>

#include <memory>
#include <mutex>

#include "graphics/BufferQueueCore.h"

namespace android {

// The producer's half of a queue, as its owner's process has it: an ordinary producer for those
// who draw from within the process, and the binder object that a producer in another process
// calls (see graphics/ProducerWire.h). For that one it takes every slot that becomes free from the
// queue and passes it along as a credit.
//
// Of both kinds one is connected at a time. Another process's producer that is gone, or whose
// process connects once more, gives way.
//
// Calls of the other process come one at a time, news of the consumer on any thread. None of this
// waits: all that is said to the other process is one-way, by one thread at a time and with no
// lock held; whoever finds that thread at work leaves it the rest.
class BnGraphicBufferProducer : public BnInterface<IGraphicBufferProducer>,
                                public orvhost::BufferQueueCore::ProducerListener {
public:
    explicit BnGraphicBufferProducer(const sp<orvhost::BufferQueueCore>& core);
    BnGraphicBufferProducer(const BnGraphicBufferProducer&) = delete;  // an object that others call
    BnGraphicBufferProducer& operator=(const BnGraphicBufferProducer&) = delete;

    status_t requestBuffer(int slot, sp<GraphicBuffer>* buffer) override;
    status_t dequeueBuffer(int* slot, uint32_t width, uint32_t height, PixelFormat format,
                           uint64_t usage) override;
    status_t queueBuffer(int slot, const QueueBufferInput& input) override;
    status_t cancelBuffer(int slot) override;
    status_t query(int what, int* value) override;
    status_t connect(int api) override;
    status_t disconnect(int api) override;

    // Even a picture: who listens for it must not wait.
    bool isBrief(uint32_t /*code*/) const override { return true; }

    void onConsumerNews() override;

protected:
    ~BnGraphicBufferProducer() override;
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override;

private:
    class LinkDeath;
    struct Session;
    struct Credit;
    struct Message;

    status_t onConnect(const Parcel& data);
    status_t onRequestBuffers(const Parcel& data);
    status_t onQueue(const Parcel& data);
    status_t onPictureRead(const Parcel& data);
    status_t onDisconnect(const Parcel& data);
    void endSession(int64_t id);
    void tell();

    // These with mLock held.
    bool isSession(int64_t id) const;
    bool givesWay(const sp<IBinder>& link, pid_t pid) const;
    std::unique_ptr<Session> takeSession();
    bool nextMessage(Message* message);
    bool nextCredits(Message* message);
    bool nextCredit(Credit* credit);
    void undo(const Message& message);

    static status_t send(const Message& message);
    static void forget(std::unique_ptr<Session> session);

    const sp<orvhost::BufferQueueCore> mCore;

    std::mutex mLock;  // never held while the other process is called; the queue's own goes inside
    std::unique_ptr<Session> mSession;  // null: no producer of another process
    bool mIsTelling = false;            // a thread is at work
    bool mIsNews = false;               // since that thread looked
};

}  // namespace android
