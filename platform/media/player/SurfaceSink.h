#pragma once

#include <gui/IGraphicBufferProducer.h>
#include <gui/Surface.h>
#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

#include <functional>
#include <mutex>

#include "media/Av.h"
#include "media/player/MediaEngine.h"

namespace orvhost {

// Brings the engine's pictures into the buffers of a surface, which can be exchanged at any time.
//
// The buffer is taken before the picture is made, so that nothing is made for a surface that has
// none free, and filled before the picture's time. Pictures come on one thread, everything else
// from any.
class SurfaceSink : public PictureSink {
public:
    explicit SurfaceSink(std::function<void()> onFirstPicture)
        : mOnFirstPicture(std::move(onFirstPicture)) {}
    ~SurfaceSink() override { setProducer(nullptr); }
    SurfaceSink(const SurfaceSink&) = delete;  // holds the surface's connection
    SurfaceSink& operator=(const SurfaceSink&) = delete;

    // Null for none. On an error there is none either. Waits for a picture that is being
    // converted (milliseconds).
    android::status_t setProducer(const android::sp<android::IGraphicBufferProducer>& producer);

    // The next picture that is presented is a first one.
    void expectFirstPicture();

    bool reserve(int width, int height) override;
    bool prepare(const MediaPicture& picture) override;
    void present(int64_t timeUs) override;

private:
    void giveBack();
    bool fill(const MediaPicture& picture);
    bool prepareScaler(const MediaPicture& picture);

    const std::function<void()> mOnFirstPicture;

    std::mutex mLock;
    android::sp<android::Surface> mSurface;       // connected
    android::sp<android::GraphicBuffer> mBuffer;  // reserved, until it is presented
    android::IGraphicBufferProducer::QueueBufferInput mInput;
    bool mIsFirst = false;
    Scaler mScaler;
    MediaPicture mScalerSource;
};

}  // namespace orvhost
