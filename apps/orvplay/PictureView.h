#pragma once

#include <cstdint>

#include "graphics/BufferQueue.h"

namespace orvplay {

// The pixels of one NV12 picture and what the queue says about it; whoever hands it out says how
// long it may be read.
struct PictureView {
    const uint8_t* luma = nullptr;
    const uint8_t* chroma = nullptr;  // Cb, Cr pairs, (height + 1) / 2 rows
    int lumaStride = 0;
    int chromaStride = 0;
    int width = 0;
    int height = 0;
    // The crop never leaves the picture; its edges are inside.
    android::IGraphicBufferProducer::QueueBufferInput input;
};

// Part of a picture that can be cut out of 4:2:0 planes exactly: the crop, grown on its left and
// top to even numbers, and how far the crop is inside of it.
struct EvenCrop {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
    int insetX = 0;  // 0 or 1
    int insetY = 0;

    int cropWidth() const { return width - insetX; }
    int cropHeight() const { return height - insetY; }
};

EvenCrop evenCropOf(const PictureView& view);

// The matrix and range of a picture's colours (ITU-T H.264, matrix_coefficients). Where the stream
// does not say, pictures of high definition are BT.709 and all others BT.601.
enum class ColourMatrix { BT601, BT709, BT2020 };
ColourMatrix colourMatrixOf(const PictureView& view);
bool hasFullRange(const PictureView& view);

// Keeps a picture of the queue locked for reading; not valid when it cannot be.
class LockedPicture {
public:
    explicit LockedPicture(const orvhost::AcquiredBuffer& picture);
    ~LockedPicture();
    LockedPicture(const LockedPicture&) = delete;  // one unlock for one lock
    LockedPicture& operator=(const LockedPicture&) = delete;

    bool isValid() const { return mView.luma != nullptr; }
    // To be read as long as this object lives.
    const PictureView& view() const { return mView; }

private:
    const android::sp<android::GraphicBuffer> mBuffer;
    PictureView mView;
};

}  // namespace orvplay
