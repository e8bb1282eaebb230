#include "PictureView.h"

namespace orvplay {

using android::GraphicBuffer;

EvenCrop evenCropOf(const PictureView& view) {
    const android_native_rect_t& crop = view.input.crop;
    EvenCrop area;
    area.insetX = crop.left & 1;
    area.insetY = crop.top & 1;
    area.x = crop.left - area.insetX;
    area.y = crop.top - area.insetY;
    area.width = crop.right + 1 - area.x;
    area.height = crop.bottom + 1 - area.y;
    return area;
}

ColourMatrix colourMatrixOf(const PictureView& view) {
    switch (view.input.dataSpace & HAL_DATASPACE_STANDARD_MASK) {
        case HAL_DATASPACE_STANDARD_BT709:
            return ColourMatrix::BT709;
        case HAL_DATASPACE_STANDARD_BT601_625:
        case HAL_DATASPACE_STANDARD_BT601_625_UNADJUSTED:
        case HAL_DATASPACE_STANDARD_BT601_525:
        case HAL_DATASPACE_STANDARD_BT601_525_UNADJUSTED:
        case HAL_DATASPACE_STANDARD_BT470M:
            return ColourMatrix::BT601;
        case HAL_DATASPACE_STANDARD_BT2020:
        case HAL_DATASPACE_STANDARD_BT2020_CONSTANT_LUMINANCE:
            return ColourMatrix::BT2020;
        default:
            break;
    }
    constexpr int TALLEST_STANDARD_DEFINITION = 576;
    const int height = view.input.crop.bottom + 1 - view.input.crop.top;
    return height > TALLEST_STANDARD_DEFINITION ? ColourMatrix::BT709 : ColourMatrix::BT601;
}

bool hasFullRange(const PictureView& view) {
    return (view.input.dataSpace & HAL_DATASPACE_RANGE_MASK) == HAL_DATASPACE_RANGE_FULL;
}

LockedPicture::LockedPicture(const orvhost::AcquiredBuffer& picture) : mBuffer(picture.buffer) {
    android_ycbcr planes{};
    if (mBuffer == nullptr ||
        mBuffer->lockYCbCr(GraphicBuffer::USAGE_SW_READ_OFTEN, &planes) != android::OK) {
        return;
    }
    mView.luma = static_cast<const uint8_t*>(planes.y);
    mView.chroma = static_cast<const uint8_t*>(planes.cb);
    mView.lumaStride = static_cast<int>(planes.ystride);
    mView.chromaStride = static_cast<int>(planes.cstride);
    mView.width = static_cast<int>(mBuffer->getWidth());
    mView.height = static_cast<int>(mBuffer->getHeight());
    mView.input = picture.input;
}

LockedPicture::~LockedPicture() {
    if (isValid()) {
        mBuffer->unlock();
    }
}

}  // namespace orvplay
