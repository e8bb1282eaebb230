#pragma once

#include <gui/Surface.h>

#include <cstring>

// A picture of a broadcast's size, told by a number as QueueFixture's are.
struct BigPicture {
    static constexpr uint32_t WIDTH = 1920;
    static constexpr uint32_t HEIGHT = 1080;

    static android::status_t draw(android::Surface& surface, int64_t number) {
        android::sp<android::GraphicBuffer> buffer;
        const android::status_t status =
            surface.dequeueBuffer(WIDTH, HEIGHT, android::PIXEL_FORMAT_YCBCR_420_SP, &buffer);
        if (status != android::OK) {
            return status;
        }
        void* pixels = nullptr;
        buffer->lock(android::GraphicBuffer::USAGE_SW_WRITE_OFTEN, &pixels);
        memset(pixels, static_cast<int>(number & 0xFF), buffer->getByteSize());
        buffer->unlock();
        android::IGraphicBufferProducer::QueueBufferInput input;
        input.timestamp = number;
        return surface.queueBuffer(buffer, input);
    }

    // Looks at one pixel of every few rows.
    static bool isIn(android::GraphicBuffer& buffer, int64_t number) {
        void* address = nullptr;
        if (buffer.getWidth() != WIDTH || buffer.getHeight() != HEIGHT ||
            buffer.lock(android::GraphicBuffer::USAGE_SW_READ_OFTEN, &address) != android::OK) {
            return false;
        }
        const auto* pixels = static_cast<const uint8_t*>(address);
        bool isRight = true;
        for (size_t at = 0; at < buffer.getByteSize(); at += 4099) {
            isRight = isRight && pixels[at] == static_cast<uint8_t>(number & 0xFF);
        }
        buffer.unlock();
        return isRight;
    }
};
