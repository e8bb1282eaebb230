#pragma once

#include <gtest/gtest.h>
#include <gui/Surface.h>
#include <ui/GraphicBufferMapper.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "graphics/BufferQueue.h"
#include "platform/graphics/Loopback.h"

enum class Place { LOCAL, REMOTE };

// A surface and a window at the two ends of one queue, within one process or as if in two. A
// picture is told by one number: its time stamp, and the low byte of it in every pixel.
class QueueFixture : public testing::Test {
protected:
    using QueueBufferInput = android::IGraphicBufferProducer::QueueBufferInput;
    static constexpr uint32_t WIDTH = 64;
    static constexpr uint32_t HEIGHT = 48;

    void makeQueue(Place place) {
        orvhost::BufferQueue::create(&mProducer, &mConsumer);
        if (place == Place::REMOTE) {
            mLoopback = std::make_unique<Loopback>();
            mQueue = android::IInterface::asBinder(mProducer);
            mProducer = newProxy();
        }
        mSurface = new android::Surface(mProducer);
        ASSERT_EQ(mSurface->connect(NATIVE_WINDOW_API_MEDIA), android::OK);
        settle();
    }

    // What the service makes of the binder that it gets.
    android::sp<android::IGraphicBufferProducer> newProxy() {
        return android::interface_cast<android::IGraphicBufferProducer>(
            mLoopback->proxyOf(Loopback::APPLICATION, mQueue));
    }

    void TearDown() override {
        if (mLoopback != nullptr) {
            mLoopback->cut();
            mLoopback->settle();
        }
        mSurface.clear();
        mProducer.clear();
        mConsumer.clear();
        mQueue.clear();
        mLoopback.reset();  // the last, since proxies know it
    }

    // Until either side knows what the other has said.
    void settle() {
        if (mLoopback != nullptr) {
            mLoopback->settle();
        }
    }

    android::status_t dequeue(android::sp<android::GraphicBuffer>* buffer, uint32_t width = WIDTH,
                              uint32_t height = HEIGHT) {
        return mSurface->dequeueBuffer(width, height, android::PIXEL_FORMAT_YCBCR_420_SP, buffer);
    }

    android::status_t present(int64_t number, uint32_t width = WIDTH, uint32_t height = HEIGHT) {
        const android::status_t status = draw(number, width, height);
        settle();
        return status;
    }

    // What a codec does for one picture.
    android::status_t draw(int64_t number, uint32_t width = WIDTH, uint32_t height = HEIGHT) {
        android::sp<android::GraphicBuffer> buffer;
        const android::status_t status = dequeue(&buffer, width, height);
        if (status != android::OK) {
            return status;
        }
        void* pixels = nullptr;
        buffer->lock(android::GraphicBuffer::USAGE_SW_WRITE_OFTEN, &pixels);
        memset(pixels, static_cast<int>(number & 0xFF), buffer->getByteSize());
        buffer->unlock();
        QueueBufferInput input;
        input.timestamp = number;
        return mSurface->queueBuffer(buffer, input);
    }

    // The number of the next picture, -1 when there is none or its pixels are another's.
    int64_t take(orvhost::AcquiredBuffer* picture) {
        if (mConsumer->acquire(picture, 0) != android::OK) {
            return -1;
        }
        const int64_t number = picture->input.timestamp;
        return shows(picture->buffer.get(), number) ? number : -1;
    }

    android::status_t release(int slot) {
        const android::status_t status = mConsumer->release(slot);
        settle();
        return status;
    }

    // Presents pictures first, first + 1, ... until the queue takes no more; how many it took.
    int fill(int64_t first, uint32_t width = WIDTH) {
        int count = 0;
        while (count < 100 && present(first + count, width) == android::OK) {
            ++count;
        }
        return count;
    }

    int64_t takeAndRelease() {
        orvhost::AcquiredBuffer picture;
        const int64_t number = take(&picture);
        mConsumer->release(picture.slot);
        settle();
        return number;
    }

    static bool shows(android::GraphicBuffer* buffer, int64_t number) {
        void* address = nullptr;
        buffer->lock(android::GraphicBuffer::USAGE_SW_READ_OFTEN, &address);
        const auto* pixels = static_cast<const uint8_t*>(address);
        const auto value = static_cast<uint8_t>(number & 0xFF);
        const bool same = std::all_of(pixels, pixels + buffer->getByteSize(),
                                      [value](uint8_t pixel) { return pixel == value; });
        buffer->unlock();
        return same;
    }

    // Borrows the picture presented last as a window's client does; null when refused.
    ANativeWindowBuffer* borrow() {
        ANativeWindowBuffer* buffer = nullptr;
        const int status = native_window_dequeue_buffer_and_wait(mSurface.get(), &buffer);
        EXPECT_EQ(status == android::OK, buffer != nullptr);
        settle();
        return buffer;
    }

    int giveBack(ANativeWindowBuffer* buffer) {
        ANativeWindow* window = mSurface.get();
        return window->queueBuffer(window, buffer, -1);
    }

    std::unique_ptr<Loopback> mLoopback;  // null: one process
    android::sp<android::IBinder> mQueue;
    android::sp<android::IGraphicBufferProducer> mProducer;
    android::sp<orvhost::BufferQueue::Consumer> mConsumer;
    android::sp<android::Surface> mSurface;
};

class PlacedQueueFixture : public QueueFixture, public testing::WithParamInterface<Place> {
protected:
    void SetUp() override { makeQueue(GetParam()); }
};
