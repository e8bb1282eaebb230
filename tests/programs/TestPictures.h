#pragma once

#include <ui/GraphicBuffer.h>

#include <cstdint>
#include <functional>

#include "PictureView.h"

namespace orvplay {

// A picture as the queue would hand it over, all of it to be shown, that tests draw into.
class TestPicture {
public:
    TestPicture(int width, int height) {
        mAcquired.buffer = new android::GraphicBuffer(
            static_cast<uint32_t>(width), static_cast<uint32_t>(height),
            android::PIXEL_FORMAT_YCBCR_420_SP, android::GraphicBuffer::USAGE_SW_READ_OFTEN);
        mAcquired.input.crop = {0, 0, width - 1, height - 1};
        mAcquired.buffer->lockYCbCr(android::GraphicBuffer::USAGE_SW_WRITE_OFTEN, &mPlanes);
        fillChroma(128, 128);
    }
    ~TestPicture() { mAcquired.buffer->unlock(); }
    TestPicture(const TestPicture&) = delete;
    TestPicture& operator=(const TestPicture&) = delete;

    int width() const { return static_cast<int>(mAcquired.buffer->getWidth()); }
    int height() const { return static_cast<int>(mAcquired.buffer->getHeight()); }
    int stride() const { return static_cast<int>(mPlanes.ystride); }
    uint8_t* luma() { return static_cast<uint8_t*>(mPlanes.y); }
    uint8_t& luma(int x, int y) { return luma()[y * stride() + x]; }
    // The Cb sample of a pixel; Cr follows it.
    uint8_t* chroma(int x, int y) {
        return static_cast<uint8_t*>(mPlanes.cb) + y / 2 * static_cast<int>(mPlanes.cstride) +
               x / 2 * 2;
    }

    void drawLuma(const std::function<int(int x, int y)>& value) {
        for (int y = 0; y < height(); ++y) {
            for (int x = 0; x < width(); ++x) {
                luma(x, y) = static_cast<uint8_t>(value(x, y));
            }
        }
    }
    void fillChroma(int cb, int cr) {
        for (int y = 0; y < height(); y += 2) {
            for (int x = 0; x < width(); x += 2) {
                chroma(x, y)[0] = static_cast<uint8_t>(cb);
                chroma(x, y)[1] = static_cast<uint8_t>(cr);
            }
        }
    }

    android::IGraphicBufferProducer::QueueBufferInput& input() { return mAcquired.input; }
    const orvhost::AcquiredBuffer& acquired() const { return mAcquired; }

private:
    orvhost::AcquiredBuffer mAcquired;
    android_ycbcr mPlanes{};
};

}  // namespace orvplay
