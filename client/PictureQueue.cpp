#include <orvclient/PictureQueue.h>

#include "PictureHalves.h"

namespace orvclient {

namespace {

using android::GraphicBuffer;
using QueueInput = android::IGraphicBufferProducer::QueueBufferInput;

Colours coloursOf(android_dataspace dataSpace) {
    switch (dataSpace & HAL_DATASPACE_STANDARD_MASK) {
        case HAL_DATASPACE_STANDARD_BT709:
            return Colours::BT709;
        case HAL_DATASPACE_STANDARD_BT601_625:
        case HAL_DATASPACE_STANDARD_BT601_625_UNADJUSTED:
        case HAL_DATASPACE_STANDARD_BT601_525:
        case HAL_DATASPACE_STANDARD_BT601_525_UNADJUSTED:
        case HAL_DATASPACE_STANDARD_BT470M:
            return Colours::BT601;
        case HAL_DATASPACE_STANDARD_BT2020:
        case HAL_DATASPACE_STANDARD_BT2020_CONSTANT_LUMINANCE:
            return Colours::BT2020;
        default:
            return Colours::UNKNOWN;
    }
}

Picture describe(const QueueInput& input) {
    Picture picture;
    picture.ptsNs = input.timestamp;
    picture.left = input.crop.left;
    picture.top = input.crop.top;
    picture.right = input.crop.right;
    picture.bottom = input.crop.bottom;
    picture.interlaced = input.interlaced;
    picture.topFieldFirst = input.topFieldFirst;
    picture.sampleAspectWidth = input.sampleAspectWidth;
    picture.sampleAspectHeight = input.sampleAspectHeight;
    picture.colours = coloursOf(input.dataSpace);
    picture.fullRange = (input.dataSpace & HAL_DATASPACE_RANGE_MASK) == HAL_DATASPACE_RANGE_FULL;
    return picture;
}

}  // namespace

PictureQueue::Halves::Halves() {
    orvhost::BufferQueue::create(&mProducer, &mConsumer);
}

bool PictureQueue::Halves::acquire(Picture* picture, int timeoutMs) {
    orvhost::AcquiredBuffer acquired;
    if (mConsumer->acquire(&acquired, timeoutMs) != android::OK) {
        return false;
    }
    android_ycbcr planes{};
    if (acquired.buffer->lockYCbCr(GraphicBuffer::USAGE_SW_READ_OFTEN, &planes) != android::OK) {
        mConsumer->release(acquired.slot);
        return false;
    }
    *picture = describe(acquired.input);
    picture->slot = acquired.slot;
    picture->number = acquired.frameNumber;
    picture->luma = static_cast<const uint8_t*>(planes.y);
    picture->chroma = static_cast<const uint8_t*>(planes.cb);
    picture->stride = planes.ystride;
    picture->width = acquired.buffer->getWidth();
    picture->height = acquired.buffer->getHeight();
    std::lock_guard<std::mutex> guard(mLock);
    mOut[acquired.slot] = acquired;
    return true;
}

void PictureQueue::Halves::release(const Picture& picture) {
    orvhost::AcquiredBuffer acquired;
    {
        std::lock_guard<std::mutex> guard(mLock);
        const auto out = mOut.find(picture.slot);
        if (out == mOut.end() || out->second.frameNumber != picture.number) {
            return;
        }
        acquired = out->second;
        mOut.erase(out);
    }
    acquired.buffer->unlock();
    mConsumer->release(acquired.slot);
}

PictureQueue::PictureQueue() : mHalves(std::make_unique<Halves>()) {}

PictureQueue::~PictureQueue() {
    end();
}

bool PictureQueue::acquire(Picture* picture, int timeoutMs) {
    return mHalves->acquire(picture, timeoutMs);
}

void PictureQueue::release(const Picture& picture) {
    mHalves->release(picture);
}

Picture PictureQueue::lastStill() const {
    return describe(mHalves->consumer()->lastRead());
}

PictureQueue::Counters PictureQueue::counters() const {
    const auto counters = mHalves->consumer()->counters();
    return {counters.queued, counters.acquired, counters.dropped};
}

void PictureQueue::setDisplaySize(int width, int height) {
    mHalves->consumer()->setDisplaySize(width, height);
}

void PictureQueue::end() {
    mHalves->consumer()->abandon();
}

}  // namespace orvclient
