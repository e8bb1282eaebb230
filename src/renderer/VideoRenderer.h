#pragma once

#include <utils/Thread.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "common/CaptureFrameListener.h"
#include "common/Data.h"
#include "common/Module.h"
#include "common/PresentationLog.h"
#include "common/Synchronization.h"
#include "common/Uint33.h"

namespace OrvPlayer {

// Presents decoded frames when the presentation clock reaches their PTS.
//
// The input holds one VideoFrameData record a frame; the pixels stay with the decoder, to which
// each frame is handed back, displayed or not. Per frame:
//
//   wait = PTS - clock     under a second late: shown at once
//                          a second late or more, or over 10 s early: dropped
//                          over 10 s either way: dropped, and the clock starts afresh
//   PTS steps              a forward jump of 25 frame periods or more drops frames until the next
//                          IDR frame, or for one second of stream time
//
// Setters may be called from any thread while it runs.
class VideoRenderer : public Module {
public:
    static constexpr int ERR_FRAME_TYPE = 0x41003;

    class FrameRenderedListener {
    public:
        // A frame was handed to the surface (or, with the output off, passed its time).
        virtual void onFrameRendered(int /*width*/, int /*height*/, Uint33 /*pts*/) {}
        virtual void onFirstFrameRendered(int /*width*/, int /*height*/) {}
        virtual ~FrameRenderedListener() = default;
    };

    explicit VideoRenderer(android::sp<Synchronization>& sync);

    // 1 without an input, or without a thread.
    int start() override;
    int stop() override;
    void requestExit() override;

    // Asks for `count` still frames, one every `intervalMs`. Ignored while an earlier request has
    // frames to go. Returns 0.
    int getFrame(int count, int intervalMs);
    int cancelCaptureFrame();

    void setCaptureFrameListener(CaptureFrameListener* listener) {
        mCaptureFrameListener = listener;
    }
    void setFrameRenderedListener(FrameRenderedListener* listener) {
        mFrameRenderedListener = listener;
    }
    // Milliseconds added to every frame's wait.
    void setAVSyncOffset(int offsetMs) { mAVSyncOffset = offsetMs; }
    // Whether frames are shown on the surface; off at construction.
    void setOutputEnabled(bool enabled) { mOutputEnabled = enabled; }

protected:
    ~VideoRenderer() override;

private:
    static constexpr uint64_t NONE = ~uint64_t{0};

    class RenderThread;

    void join();
    void render();
    bool takeFrame(VideoFrameData* frame);
    int waitTimeMs(Uint33 pts);
    void checkDeltaPTSError(const VideoFrameData& frame);
    void enterPTSError(int64_t delta);
    void waitForIDR(const VideoFrameData& frame);
    bool discardBadFrame(VideoFrameData& frame, int waitMs);
    bool sleepUntilDue(int waitMs);
    void note(const VideoFrameData& frame, int waitMs, PresentationRecord::Outcome outcome);
    void capture(VideoFrameData& frame);
    void countCapture();

    const android::sp<Synchronization> mSync;

    std::mutex mStartStopLock;  // start() against stop(); guards the two below
    android::sp<RenderThread> mRenderThread;
    uint32_t mState = 0;  // 0 constructed, 1 stopped, 2 started

    std::mutex mSleepLock;  // a leaf, for the sleep until a frame is due
    std::condition_variable mSleepEnd;
    bool mStopRequested = false;

    std::atomic<bool> mOutputEnabled{false};
    std::atomic<int32_t> mAVSyncOffset{0};
    std::atomic<FrameRenderedListener*> mFrameRenderedListener{nullptr};

    std::atomic<CaptureFrameListener*> mCaptureFrameListener{nullptr};
    std::atomic<uint32_t> mCaptureCount{0};  // frames still to capture
    std::atomic<int32_t> mCaptureRetries{0};
    std::atomic<int32_t> mCaptureInterval{0};   // ms
    std::atomic<uint64_t> mNextCaptureTime{0};  // monotonic ms

    // Render thread only; set afresh by start().
    uint64_t mLastPTS = NONE;
    bool mPTSError = false;
    uint64_t mIDRWaitStartPTS = NONE;
    uint64_t mDetectedDeltaPTS = NONE;  // smallest positive step seen
};

}  // namespace OrvPlayer
