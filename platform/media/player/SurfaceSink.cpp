#include "media/player/SurfaceSink.h"

#include <system/graphics.h>

#include <utility>

#include "media/player/MediaFileState.h"
#include "trace/HostLog.h"

namespace orvhost {

using android::GraphicBuffer;
using android::IGraphicBufferProducer;
using android::sp;
using android::status_t;
using android::Surface;

namespace {

constexpr int LARGEST_ASPECT_NUMBER = 255;  // what ITU-T H.264 has room for, and enough

android_dataspace dataSpaceOf(const MediaPicture& picture) {
    const uint32_t standard = picture.matrix == ColorMatrix::BT2020  ? HAL_DATASPACE_STANDARD_BT2020
                              : picture.matrix == ColorMatrix::BT709 ? HAL_DATASPACE_STANDARD_BT709
                              : picture.height == 576 ? HAL_DATASPACE_STANDARD_BT601_625
                                                      : HAL_DATASPACE_STANDARD_BT601_525;
    const uint32_t range =
        picture.isFullRange ? HAL_DATASPACE_RANGE_FULL : HAL_DATASPACE_RANGE_LIMITED;
    return static_cast<android_dataspace>(standard | HAL_DATASPACE_TRANSFER_SMPTE_170M | range);
}

IGraphicBufferProducer::QueueBufferInput describe(const MediaPicture& picture) {
    IGraphicBufferProducer::QueueBufferInput input;
    input.crop = {0, 0, picture.width - 1, picture.height - 1};
    input.dataSpace = dataSpaceOf(picture);
    input.interlaced = picture.isInterlaced;
    input.topFieldFirst = picture.isTopFieldFirst;
    const AVRational aspect = av_d2q(picture.sampleAspect, LARGEST_ASPECT_NUMBER);
    if (aspect.num > 0 && aspect.den > 0) {
        input.sampleAspectWidth = static_cast<uint32_t>(aspect.num);
        input.sampleAspectHeight = static_cast<uint32_t>(aspect.den);
    }
    return input;
}

const int* coefficientsOf(ColorMatrix matrix) {
    switch (matrix) {
        case ColorMatrix::BT709:
            return sws_getCoefficients(SWS_CS_ITU709);
        case ColorMatrix::BT2020:
            return sws_getCoefficients(SWS_CS_BT2020);
        default:
            return sws_getCoefficients(SWS_CS_ITU601);
    }
}

}  // namespace

status_t SurfaceSink::setProducer(const sp<IGraphicBufferProducer>& producer) {
    const std::lock_guard guard(mLock);
    giveBack();
    if (mSurface != nullptr) {
        mSurface->disconnect(NATIVE_WINDOW_API_MEDIA);
        mSurface = nullptr;
    }
    if (producer == nullptr) {
        return android::OK;
    }
    const sp<Surface> surface = new Surface(producer);
    const status_t result = surface->connect(NATIVE_WINDOW_API_MEDIA);
    if (result == android::OK) {
        mSurface = surface;
    }
    return result;
}

void SurfaceSink::expectFirstPicture() {
    const std::lock_guard guard(mLock);
    mIsFirst = true;
}

bool SurfaceSink::reserve(int width, int height) {
    const std::lock_guard guard(mLock);
    giveBack();
    if (mSurface == nullptr || width <= 0 || height <= 0) {
        return false;
    }
    if (mSurface->dequeueBuffer(static_cast<uint32_t>(width), static_cast<uint32_t>(height),
                                android::PIXEL_FORMAT_YCBCR_420_SP, &mBuffer) != android::OK) {
        ++mediaPicturesDropped();
        return false;
    }
    return true;
}

bool SurfaceSink::prepare(const MediaPicture& picture) {
    const std::lock_guard guard(mLock);
    if (mBuffer == nullptr) {
        return false;  // the surface was exchanged
    }
    if (!fill(picture)) {
        giveBack();
        return false;
    }
    mInput = describe(picture);
    return true;
}

void SurfaceSink::present(int64_t timeUs) {
    bool isFirst = false;
    {
        const std::lock_guard guard(mLock);
        if (mBuffer == nullptr) {
            return;
        }
        mInput.timestamp = timeUs * 1000;
        const sp<GraphicBuffer> buffer = std::exchange(mBuffer, nullptr);
        if (mSurface->queueBuffer(buffer, mInput) == android::OK) {
            isFirst = std::exchange(mIsFirst, false);
        }
    }
    if (isFirst) {
        mOnFirstPicture();
    }
}

void SurfaceSink::giveBack() {
    if (mBuffer != nullptr) {
        mSurface->cancelBuffer(std::exchange(mBuffer, nullptr));
    }
}

bool SurfaceSink::fill(const MediaPicture& picture) {
    android_ycbcr planes = {};
    if (!prepareScaler(picture) || picture.width != static_cast<int>(mBuffer->getWidth()) ||
        picture.height != static_cast<int>(mBuffer->getHeight()) ||
        mBuffer->lockYCbCr(GraphicBuffer::USAGE_SW_WRITE_OFTEN, &planes) != android::OK) {
        return false;
    }
    const uint8_t* const in[4] = {picture.pixels, nullptr, nullptr, nullptr};
    const int inStrides[4] = {picture.strideBytes, 0, 0, 0};
    uint8_t* const out[4] = {static_cast<uint8_t*>(planes.y), static_cast<uint8_t*>(planes.cb),
                             nullptr, nullptr};
    const int outStrides[4] = {static_cast<int>(planes.ystride), static_cast<int>(planes.cstride),
                               0, 0};
    const int rows = sws_scale(mScaler.get(), in, inStrides, 0, picture.height, out, outStrides);
    mBuffer->unlock();
    return rows == picture.height;
}

bool SurfaceSink::prepareScaler(const MediaPicture& picture) {
    const MediaPicture& known = mScalerSource;
    if (mScaler != nullptr && picture.width == known.width && picture.height == known.height &&
        picture.matrix == known.matrix && picture.isFullRange == known.isFullRange) {
        return true;
    }
    mScaler.reset(sws_getContext(picture.width, picture.height, AV_PIX_FMT_BGR0, picture.width,
                                 picture.height, AV_PIX_FMT_NV12, SWS_POINT, nullptr, nullptr,
                                 nullptr));
    if (mScaler == nullptr) {
        HOST_LOGE("%s: no conversion of %dx%d pictures", __func__, picture.width, picture.height);
        return false;
    }
    constexpr int UNCHANGED = 1 << 16;
    const int* coefficients = coefficientsOf(picture.matrix);
    sws_setColorspaceDetails(mScaler.get(), coefficients, 1, coefficients,
                             picture.isFullRange ? 1 : 0, 0, UNCHANGED, UNCHANGED);
    mScalerSource = picture;
    return true;
}

}  // namespace orvhost
