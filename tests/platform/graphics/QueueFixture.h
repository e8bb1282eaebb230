#pragma once

#include <gtest/gtest.h>
#include <gui/Surface.h>
#include <ui/GraphicBufferMapper.h>

#include <algorithm>
#include <cstring>

#include "graphics/BufferQueue.h"

// A surface and a window at the two ends of one queue. A picture is told by one number: its time
// stamp, and the low byte of it in every pixel.
class QueueFixture : public testing::Test {
protected:
    using QueueBufferInput = android::IGraphicBufferProducer::QueueBufferInput;
    static constexpr uint32_t WIDTH = 64;
    static constexpr uint32_t HEIGHT = 48;

    void SetUp() override {
        orvhost::BufferQueue::create(&mProducer, &mConsumer);
        mSurface = new android::Surface(mProducer);
        ASSERT_EQ(mSurface->connect(NATIVE_WINDOW_API_MEDIA), android::OK);
    }

    android::status_t dequeue(android::sp<android::GraphicBuffer>* buffer, uint32_t width = WIDTH,
                              uint32_t height = HEIGHT) {
        return mSurface->dequeueBuffer(width, height, android::PIXEL_FORMAT_YCBCR_420_SP, buffer);
    }

    // What a codec does for one picture.
    android::status_t present(int64_t number, uint32_t width = WIDTH, uint32_t height = HEIGHT) {
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

    int64_t takeAndRelease() {
        orvhost::AcquiredBuffer picture;
        const int64_t number = take(&picture);
        mConsumer->release(picture.slot);
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
        return buffer;
    }

    int giveBack(ANativeWindowBuffer* buffer) {
        ANativeWindow* window = mSurface.get();
        return window->queueBuffer(window, buffer, -1);
    }

    android::sp<android::IGraphicBufferProducer> mProducer;
    android::sp<orvhost::BufferQueue::Consumer> mConsumer;
    android::sp<android::Surface> mSurface;
};
