#pragma once

#include <system/graphics.h>
#include <system/window.h>
#include <ui/Rect.h>
#include <utils/Thread.h>

#include <cstddef>
#include <cstdlib>
#include <memory>

#include "common/CaptureFrameListener.h"
#include "decoder/MediaCodecDecoder.h"

namespace OrvPlayer {

// Makes one still: the picture that the window shows, as words of colour, for one listener.
//
//   renderer's thread   copyFrameContents()   window buffer -> copy      at once
//   "CaptureThread"     threadLoop(), once    copy -> words -> listener
//
// The window buffer is given back, and may be drawn into, before copyFrameContents() returns: from
// then on the plane description is of the copy. Both arrays belong to this object alone, and the
// listener reads the words during its call only.
class MediaCodecDecoder::CaptureThread : public android::Thread {
public:
    // The narrowest picture taken. Chroma rows are rounded up to 16 bytes: below, they would not
    // fit into what the conversion reads, twice the luma.
    static constexpr int MIN_WIDTH = 16;

    // `window` is used by copyFrameContents() only.
    CaptureThread(VideoFrameData& frame, CaptureFrameListener* listener, ANativeWindow* window);

    // Takes the picture shown last. False, and told in the trace, when there is none, when somebody
    // else reads it for more than a few milliseconds, or when it is not of the frame's size; so for
    // a size that is odd or narrower than MIN_WIDTH.
    bool copyFrameContents();

private:
    struct Free {
        void operator()(void* memory) const { free(memory); }
    };

    bool threadLoop() override;
    bool readBuffer(const ANativeWindowBuffer& buffer);
    bool copyPlanes();

    VideoFrameData mFrame;
    CaptureFrameListener* const mListener;
    ANativeWindow* const mWindow;
    android_ycbcr mPlanes{};
    std::unique_ptr<unsigned char, Free> mPicture;
};

}  // namespace OrvPlayer
