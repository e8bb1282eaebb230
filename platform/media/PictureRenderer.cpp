#include "media/PictureRenderer.h"

#include <system/graphics.h>

#include <algorithm>
#include <limits>

#include "trace/HostLog.h"

namespace orvhost {

using android::GraphicBuffer;
using android::IGraphicBufferProducer;
using android::sp;

namespace {

// The codes of ITU-T H.264, tables E-3 to E-5, as far as broadcasts use them.
android_dataspace dataSpaceOf(const AVFrame& picture) {
    uint32_t space = 0;
    switch (picture.colorspace) {
        case AVCOL_SPC_BT709:
            space = HAL_DATASPACE_STANDARD_BT709;
            break;
        case AVCOL_SPC_BT470BG:
            space = HAL_DATASPACE_STANDARD_BT601_625;
            break;
        case AVCOL_SPC_SMPTE170M:
            space = HAL_DATASPACE_STANDARD_BT601_525;
            break;
        case AVCOL_SPC_BT2020_NCL:
            space = HAL_DATASPACE_STANDARD_BT2020;
            break;
        default:
            return HAL_DATASPACE_UNKNOWN;
    }
    space |= HAL_DATASPACE_TRANSFER_SMPTE_170M;  // the curve of all of them
    space |= picture.color_range == AVCOL_RANGE_JPEG ? HAL_DATASPACE_RANGE_FULL
                                                     : HAL_DATASPACE_RANGE_LIMITED;
    return static_cast<android_dataspace>(space);
}

IGraphicBufferProducer::QueueBufferInput describe(const AVFrame& picture, int64_t timeUs) {
    IGraphicBufferProducer::QueueBufferInput input;
    // The time is the stream's, so any number. Bounded, it can be told in nanoseconds, and whoever
    // takes the distance of two pictures stays in range as well.
    constexpr int64_t LATEST_US = std::numeric_limits<int64_t>::max() / 2 / 1000;
    input.timestamp = std::clamp(timeUs, -LATEST_US, LATEST_US) * 1000;
    input.crop = {0, 0, picture.width - 1, picture.height - 1};
    input.interlaced = picture.interlaced_frame != 0;
    input.topFieldFirst = picture.top_field_first != 0;
    if (picture.sample_aspect_ratio.num > 0 && picture.sample_aspect_ratio.den > 0) {
        input.sampleAspectWidth = static_cast<uint32_t>(picture.sample_aspect_ratio.num);
        input.sampleAspectHeight = static_cast<uint32_t>(picture.sample_aspect_ratio.den);
    }
    input.dataSpace = dataSpaceOf(picture);
    return input;
}

// The range goes with the picture: the copy must not convert it.
AVPixelFormat plainFormat(int format) {
    switch (format) {
        case AV_PIX_FMT_YUVJ420P:
            return AV_PIX_FMT_YUV420P;
        case AV_PIX_FMT_YUVJ422P:
            return AV_PIX_FMT_YUV422P;
        case AV_PIX_FMT_YUVJ444P:
            return AV_PIX_FMT_YUV444P;
        default:
            return static_cast<AVPixelFormat>(format);
    }
}

}  // namespace

android::status_t PictureRenderer::connect() {
    std::lock_guard guard(mLock);
    const android::status_t result = mSurface->connect(NATIVE_WINDOW_API_MEDIA);
    mConnected = result == android::OK;
    return result;
}

void PictureRenderer::disconnect() {
    std::lock_guard guard(mLock);
    if (mConnected) {
        mConnected = false;
        mSurface->disconnect(NATIVE_WINDOW_API_MEDIA);
    }
}

bool PictureRenderer::render(const AVFrame& picture, int64_t timeUs) {
    std::lock_guard guard(mLock);
    if (!mConnected) {
        return false;
    }
    sp<GraphicBuffer> buffer;
    if (mSurface->dequeueBuffer(static_cast<uint32_t>(picture.width),
                                static_cast<uint32_t>(picture.height),
                                android::PIXEL_FORMAT_YCBCR_420_SP, &buffer) != android::OK) {
        return false;
    }
    android_ycbcr planes = {};
    if (buffer->lockYCbCr(GraphicBuffer::USAGE_SW_WRITE_OFTEN, &planes) != android::OK) {
        mSurface->cancelBuffer(buffer);
        return false;
    }
    const bool copied = copy(picture, planes);
    buffer->unlock();
    if (!copied) {
        mSurface->cancelBuffer(buffer);
        return false;
    }
    return mSurface->queueBuffer(buffer, describe(picture, timeUs)) == android::OK;
}

bool PictureRenderer::copy(const AVFrame& picture, const android_ycbcr& planes) {
    const int source[3] = {picture.width, picture.height, picture.format};
    if (mScaler == nullptr || !std::equal(source, source + 3, mScalerSource)) {
        mScaler.reset(sws_getContext(picture.width, picture.height, plainFormat(picture.format),
                                     picture.width, picture.height, AV_PIX_FMT_NV12, SWS_POINT,
                                     nullptr, nullptr, nullptr));
        if (mScaler == nullptr) {
            HOST_LOGE("%s: no conversion of %dx%d pictures in format %d", __func__, picture.width,
                      picture.height, picture.format);
            return false;
        }
        std::copy(source, source + 3, mScalerSource);
    }
    uint8_t* const out[4] = {static_cast<uint8_t*>(planes.y), static_cast<uint8_t*>(planes.cb),
                             nullptr, nullptr};
    const int strides[4] = {static_cast<int>(planes.ystride), static_cast<int>(planes.cstride), 0,
                            0};
    return sws_scale(mScaler.get(), picture.data, picture.linesize, 0, picture.height, out,
                     strides) == picture.height;
}

}  // namespace orvhost
