#include "decoder/CaptureThread.h"

#include <ui/GraphicBufferMapper.h>

#include <cstring>
#include <new>

#include "common/Trace.h"

using android::GraphicBufferMapper;
using android::sp;

namespace OrvPlayer {

namespace {

constexpr uint32_t USAGE_SW_READ_OFTEN = 3;
constexpr int32_t PRIORITY = 1;

// Rows of `width` bytes, `fromStride` apart, to where they are `toStride` apart.
void copyRows(const void* from, size_t fromStride, unsigned char* to, size_t toStride, size_t width,
              size_t rows) {
    const auto* row = static_cast<const unsigned char*>(from);
    for (size_t i = 0; i < rows; ++i, row += fromStride, to += toStride) {
        memcpy(to, row, width);
    }
}

}  // namespace

MediaCodecDecoder::CaptureThread::CaptureThread(VideoFrameData& frame,
                                                CaptureFrameListener* listener,
                                                ANativeWindow* window)
    : Thread(false), mFrame(frame), mListener(listener), mWindow(window) {}

bool MediaCodecDecoder::CaptureThread::copyFrameContents() {
    ANativeWindowBuffer* buffer = nullptr;
    if (const int status = native_window_dequeue_buffer_and_wait(mWindow, &buffer); status != 0) {
        ORV_LOGI("Surface::dequeueBuffer returned error %d", status);
        return false;
    }
    const bool copied = readBuffer(*buffer);
    if (const int status = mWindow->queueBuffer(mWindow, buffer, -1); status != 0) {
        ORV_LOGE("%s Surface::queueBuffer returned error %d", __func__, status);
    }
    return copied;
}

bool MediaCodecDecoder::CaptureThread::readBuffer(const ANativeWindowBuffer& buffer) {
    const int width = mFrame.mWidth;
    const int height = mFrame.mHeight;
    if (buffer.width != width || buffer.height != height || width < MIN_WIDTH || height < 2 ||
        width % 2 != 0 || height % 2 != 0) {
        ORV_LOGE("copyFrameContents: no still of %d x %d from a buffer of %d x %d", width, height,
                 buffer.width, buffer.height);
        return false;
    }
    GraphicBufferMapper& mapper = GraphicBufferMapper::get();
    if (const int status = mapper.lockYCbCr(buffer.handle, USAGE_SW_READ_OFTEN,
                                            android::Rect(width, height), &mPlanes);
        status != 0) {
        ORV_LOGE("mapper.lockYCbCr error %d", status);
        return false;
    }
    const bool copied = copyPlanes();
    mapper.unlock(buffer.handle);
    return copied;
}

// A luma plane, and behind it the chroma plane as the conversion looks for it: rows of pairs, each
// rounded up to 16 bytes.
bool MediaCodecDecoder::CaptureThread::copyPlanes() {
    const auto width = static_cast<size_t>(mFrame.mWidth);
    const auto height = static_cast<size_t>(mFrame.mHeight);
    const size_t chromaStride = (width + 15) / 16 * 16;
    // Large zeroed memory costs nothing until it is touched; no format reads past it.
    mPicture.reset(static_cast<unsigned char*>(calloc(2, width * height)));
    if (mPicture == nullptr) {
        return false;
    }
    unsigned char* chroma = mPicture.get() + width * height;
    copyRows(mPlanes.y, mPlanes.ystride, mPicture.get(), width, width, height);
    copyRows(mPlanes.cb, mPlanes.cstride, chroma, chromaStride, width, height / 2);
    mPlanes.y = mPicture.get();
    mPlanes.cb = chroma;
    mPlanes.cr = chroma + 1;
    mPlanes.ystride = width;
    mPlanes.cstride = chromaStride;
    return true;
}

bool MediaCodecDecoder::CaptureThread::threadLoop() {
    const auto width = static_cast<unsigned int>(mFrame.mWidth);
    const auto height = static_cast<unsigned int>(mFrame.mHeight);
    const std::unique_ptr<int[]> pixels(new (std::nothrow) int[size_t{width} * height]);
    if (pixels == nullptr || VideoFrameData::convertFrameFromYvuToRgba(
                                 mPicture.get(), pixels.get(), width, height,
                                 static_cast<int>(mFrame.mColorFormat), width) != 0) {
        ORV_LOGE("%s: Error converting frame", __func__);
    } else {
        mListener->onCaptureFrame(reinterpret_cast<unsigned char*>(pixels.get()), width, height,
                                  false);
    }
    mPicture = nullptr;
    return false;
}

bool MediaCodecDecoder::captureFrame(VideoFrameData& frame, CaptureFrameListener* listener) {
    const sp<android::Surface> surface = getSurface();
    std::lock_guard<std::mutex> guard(mCaptureLock);
    if (mCaptureThread != nullptr && mCaptureThread->isRunning()) {
        ORV_LOGE("%s: Capture is in progress", __func__);
        return false;
    }
    if (surface == nullptr) {
        ORV_LOGE("%s: m_pSurface is null fail to capture", __func__);
        return false;
    }
    mCaptureThread = new CaptureThread(frame, listener, surface.get());
    if (!mCaptureThread->copyFrameContents()) {
        ORV_LOGE("%s: Failed to copy frame contents to convert color format", __func__);
        return false;
    }
    return mCaptureThread->run("CaptureThread", PRIORITY) == android::OK;
}

// The listener is not called after this.
void MediaCodecDecoder::joinCapture() {
    std::lock_guard<std::mutex> guard(mCaptureLock);
    if (mCaptureThread != nullptr) {
        mCaptureThread->requestExitAndWait();
        mCaptureThread = nullptr;
    }
}

}  // namespace OrvPlayer
