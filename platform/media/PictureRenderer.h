#pragma once

#include <gui/Surface.h>
#include <utils/StrongPointer.h>

#include <mutex>

#include "media/Av.h"

namespace orvhost {

// Brings decoded pictures into the buffers of a surface: one pass over the pixels, from the
// decoder's planes to the semi-planar buffer that the window's process maps.
//
// Any thread; pictures are rendered one after the other.
class PictureRenderer {
public:
    explicit PictureRenderer(const android::sp<android::Surface>& surface) : mSurface(surface) {}
    PictureRenderer(const PictureRenderer&) = delete;  // holds the surface's connection
    PictureRenderer& operator=(const PictureRenderer&) = delete;
    ~PictureRenderer() { disconnect(); }

    // Becomes the surface's one producer, or the surface's error.
    [[nodiscard]] android::status_t connect();

    // Waits for a picture in progress (milliseconds); later ones are dropped.
    void disconnect();

    // Waits for a window buffer as long as the surface does: 5 ms, for the first of a size 100 ms.
    // False: the picture was dropped.
    bool render(const AVFrame& picture, int64_t timeUs);

private:
    bool copy(const AVFrame& picture, const android_ycbcr& planes);

    const android::sp<android::Surface> mSurface;
    std::mutex mLock;
    bool mConnected = false;
    Scaler mScaler;
    int mScalerSource[3] = {-1, -1, -1};  // width, height, pixel format
};

}  // namespace orvhost
