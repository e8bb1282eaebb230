#pragma once

#include <orvclient/PictureQueue.h>

#include <map>
#include <mutex>

#include "graphics/BufferQueue.h"

namespace orvclient {

// What a picture queue consists of: the producer's half, which the player gets, and the consumer's.
class PictureQueue::Halves {
public:
    Halves();

    bool acquire(Picture* picture, int timeoutMs);
    void release(const Picture& picture);

    const android::sp<android::IGraphicBufferProducer>& producer() const { return mProducer; }
    const android::sp<orvhost::BufferQueue::Consumer>& consumer() const { return mConsumer; }

private:
    android::sp<android::IGraphicBufferProducer> mProducer;  // both fixed once constructed
    android::sp<orvhost::BufferQueue::Consumer> mConsumer;
    std::mutex mLock;
    // By slot: keeps the memory of what is out.
    std::map<int, orvhost::AcquiredBuffer> mOut;
};

}  // namespace orvclient
