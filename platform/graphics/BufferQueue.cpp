#include "graphics/BufferQueue.h"

#include <utility>

#include "graphics/BnGraphicBufferProducer.h"
#include "graphics/BufferQueueCore.h"

namespace orvhost {

void BufferQueue::create(android::sp<android::IGraphicBufferProducer>* producer,
                         android::sp<Consumer>* consumer) {
    const android::sp<BufferQueueCore> core = new BufferQueueCore;
    *producer = new android::BnGraphicBufferProducer(core);
    *consumer = new Consumer(core);
}

BufferQueue::Consumer::Consumer(const android::sp<BufferQueueCore>& core) : mCore(core) {}

BufferQueue::Consumer::~Consumer() {
    mCore->abandon();
    mCore->setFrameAvailableListener({});
}

android::status_t BufferQueue::Consumer::acquire(AcquiredBuffer* picture, int timeoutMs) {
    return mCore->acquire(picture, timeoutMs);
}

android::status_t BufferQueue::Consumer::release(int slot) {
    return mCore->release(slot);
}

void BufferQueue::Consumer::setFrameAvailableListener(std::function<void()> listener) {
    mCore->setFrameAvailableListener(std::move(listener));
}

void BufferQueue::Consumer::setDisplaySize(int width, int height) {
    mCore->setDisplaySize(width, height);
}

void BufferQueue::Consumer::abandon() {
    mCore->abandon();
}

android::IGraphicBufferProducer::QueueBufferInput BufferQueue::Consumer::lastRead() const {
    return mCore->lastRead();
}

BufferQueue::Counters BufferQueue::Consumer::counters() const {
    return mCore->counters();
}

}  // namespace orvhost
