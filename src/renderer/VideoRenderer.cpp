#include "renderer/VideoRenderer.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "common/Trace.h"

namespace OrvPlayer {

namespace {

constexpr int PRIORITY_DISPLAY = -4;
constexpr int NO_CLOCK_WAIT_MS = -1000;
constexpr unsigned int BAD_WAIT_MS = 10000;  // and, being unsigned, a second of lateness
constexpr int64_t RESYNC_WAIT_MS = 10001;
constexpr int64_t TICKS_PER_SECOND = 90000;
constexpr int64_t ERROR_PERIODS = 25;
constexpr int CAPTURE_TRIES = 3;
constexpr uint64_t BIT_32 = uint64_t{1} << 32;
// Deliberate: without the low four bits. See
// VideoRendererTest.SkipsForOneSecondWithoutIDR.
constexpr uint64_t IDR_WAIT_MASK = 0x1FFFFFFF0;

bool captureClockMs(const char* caller, uint64_t* nowMs) {
    timespec now;
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
        ORV_LOGE("%s: Error getting time: %s (%d)\n", caller, strerror(errno), errno);
        return false;
    }
    *nowMs = static_cast<uint64_t>(now.tv_sec) * 1000 +
             static_cast<uint64_t>(static_cast<double>(now.tv_nsec) * 1e-6);
    return true;
}

}  // namespace

class VideoRenderer::RenderThread : public android::Thread {
public:
    explicit RenderThread(VideoRenderer* renderer) : mRenderer(renderer) {}

private:
    bool threadLoop() override {
        if (exitPending()) {
            return false;
        }
        mRenderer->render();
        return true;
    }

    VideoRenderer* const mRenderer;
};

VideoRenderer::VideoRenderer(android::sp<Synchronization>& sync)
    : Module("VideoRenderer"), mSync(sync) {}

VideoRenderer::~VideoRenderer() {
    VideoRenderer::stop();
}

int VideoRenderer::start() {
    std::lock_guard<std::mutex> guard(mStartStopLock);
    if (mRenderThread != nullptr && !mStopRequested) {
        return 0;
    }
    join();
    if (mInput == nullptr) {
        return 1;
    }
    mPTSError = false;
    mStopRequested = false;
    mLastPTS = NONE;
    mIDRWaitStartPTS = NONE;
    mDetectedDeltaPTS = NONE;
    mState = 2;
    mRenderThread = new RenderThread(this);
    if (mRenderThread->run("VideoRenderer", PRIORITY_DISPLAY) != android::OK) {
        ORV_LOGE("%s unable to start rendering thread\n", __func__);
        mRenderThread = nullptr;
        return 1;
    }
    return 0;
}

int VideoRenderer::stop() {
    requestExit();
    std::lock_guard<std::mutex> guard(mStartStopLock);
    join();
    mState = 1;
    return 0;
}

void VideoRenderer::requestExit() {
    std::lock_guard<std::mutex> guard(mStartStopLock);
    if (mRenderThread == nullptr) {
        return;
    }
    // Before the sleep is ended: each frame that is taken after that would be kept.
    mRenderThread->requestExit();
    {
        std::lock_guard<std::mutex> sleeping(mSleepLock);
        mStopRequested = true;
    }
    mSleepEnd.notify_all();
    mInput->wakeReaders();
    mInput->wakeWriters();
}

// After requestExit(), with mStartStopLock held.
void VideoRenderer::join() {
    if (mRenderThread != nullptr) {
        mRenderThread->requestExitAndWait();
        mRenderThread = nullptr;
    }
}

int VideoRenderer::getFrame(int count, int intervalMs) {
    if (mCaptureCount != 0) {
        return 0;
    }
    uint64_t now = 0;
    if (captureClockMs(__func__, &now)) {
        mCaptureInterval = intervalMs;
        mCaptureRetries = CAPTURE_TRIES;
        mNextCaptureTime = now;
        mCaptureCount = static_cast<uint32_t>(count);
    }
    return 0;
}

int VideoRenderer::cancelCaptureFrame() {
    mCaptureCount = 0;
    return 0;
}

void VideoRenderer::render() {
    VideoFrameData frame;
    if (!takeFrame(&frame)) {
        return;
    }
    // Unsigned, because the offset is any number and overflow is to be harmless.
    const int foundMs = static_cast<int>(static_cast<unsigned int>(waitTimeMs(frame.mPTS)) +
                                         static_cast<unsigned int>(mAVSyncOffset.load()));
    // Late by less than a second: shown at once.
    const int waitMs = foundMs >= -999 && foundMs <= -1 ? 0 : foundMs;
    checkDeltaPTSError(frame);
    if (discardBadFrame(frame, waitMs)) {
        return;
    }
    if (waitMs >= 1 && !sleepUntilDue(waitMs)) {
        note(frame, foundMs, PresentationRecord::FLUSHED);
        return;  // stopped: the frame stays out, the decoder reclaims it
    }
    capture(frame);
    const bool isShown = mOutputEnabled;
    frame.mListener->renderFrame(isShown, frame);
    note(frame, foundMs, isShown ? PresentationRecord::SHOWN : PresentationRecord::SHUT);
    if (FrameRenderedListener* listener = mFrameRenderedListener; listener != nullptr) {
        listener->onFrameRendered(frame.mWidth, frame.mHeight, frame.mPTS);
    }
}

// Copies the next record out of the ring buffer and consumes it; false when there is none.
bool VideoRenderer::takeFrame(VideoFrameData* frame) {
    unsigned char* block = mInput->read(VideoFrameData::FIXED_SIZE, RingBuffer::BLOCKING);
    if (block == nullptr) {
        return false;
    }
    const auto* record = reinterpret_cast<const VideoFrameData*>(block);
    if (record->mType != Data::VIDEO_FRAME) {
        ORV_LOGE("%s: frame is not a video format", "render");
        onError(ERR_FRAME_TYPE);
        mInput->readAdvance(record->mSize);
        return false;
    }
    *frame = *record;
    mInput->readAdvance(frame->mSize);
    return true;
}

int VideoRenderer::waitTimeMs(Uint33 pts) {
    Uint33 now = 0;
    if (!mSync->getActualDefinedPCR(&now)) {
        return NO_CLOCK_WAIT_MS;
    }
    return static_cast<int>(uint33Difference(pts, now) / 90);
}

// Hands the frame back undisplayed when its time is absurd or frames are being skipped.
bool VideoRenderer::discardBadFrame(VideoFrameData& frame, int waitMs) {
    const bool badTime = static_cast<unsigned int>(waitMs) > BAD_WAIT_MS;
    if (badTime) {
        ORV_LOGW("%s: discarding frame due to bad rendering time: %d", "render", waitMs);
        if (std::abs(static_cast<int64_t>(waitMs)) >= RESYNC_WAIT_MS) {
            ORV_LOGW(
                "%s: PCR resynchronization forced due to huge difference in wait interaval: %d\n",
                "render", waitMs);
            mSync->resetPCR();
        }
    }
    if (mPTSError) {
        ORV_LOGW("%s: discarding frame due to (delta) PTS Error", "render");
    }
    if (!badTime && !mPTSError) {
        return false;
    }
    note(frame, waitMs,
         !badTime      ? PresentationRecord::SKIPPED
         : waitMs >= 0 ? PresentationRecord::EARLY
                       : PresentationRecord::LATE);
    frame.mListener->renderFrame(false, frame);
    return true;
}

void VideoRenderer::note(const VideoFrameData& frame, int waitMs,
                         PresentationRecord::Outcome outcome) {
    PresentationLog& log = PresentationLog::instance();
    if (!log.isOn()) {
        return;
    }
    PresentationRecord record;
    record.kind = PresentationRecord::VIDEO;
    record.outcome = outcome;
    record.pts = frame.mPTS;
    record.waitMs = waitMs;
    if (!mSync->getActualDefinedPCR(&record.clock) && outcome == PresentationRecord::LATE) {
        record.outcome = PresentationRecord::NO_CLOCK;
    }
    log.add(record);
}

void VideoRenderer::checkDeltaPTSError(const VideoFrameData& frame) {
    const uint64_t pts = frame.mPTS;
    if (mLastPTS != NONE) {
        const uint64_t difference = pts - mLastPTS;
        const auto delta = static_cast<int64_t>(
            (difference & BIT_32) == 0 ? difference & UINT33_MASK : difference);
        if (delta >= 1) {
            if (static_cast<uint64_t>(delta) < mDetectedDeltaPTS) {
                ORV_LOGI("%s: Minimum delta detected: %lld old value: %llu\n", __func__,
                         static_cast<long long>(delta),
                         static_cast<unsigned long long>(mDetectedDeltaPTS));
                mDetectedDeltaPTS = static_cast<uint64_t>(delta);
            }
            if (delta >= ERROR_PERIODS * static_cast<int64_t>(mDetectedDeltaPTS)) {
                enterPTSError(delta);
            }
        }
    }
    if (mPTSError) {
        waitForIDR(frame);
    }
    mLastPTS = pts;
}

void VideoRenderer::enterPTSError(int64_t delta) {
    ORV_LOGW("%s: error detected - delta PTS = %lld; mDetectedDeltaPTS = %llu",
             "checkDeltaPTSError", static_cast<long long>(delta),
             static_cast<unsigned long long>(mDetectedDeltaPTS));
    mPTSError = true;
    mIDRWaitStartPTS = NONE;
    mDetectedDeltaPTS = NONE;
}

void VideoRenderer::waitForIDR(const VideoFrameData& frame) {
    if (frame.mFlags & VideoFrameData::FLAG_IDR) {
        mPTSError = false;
        ORV_LOGI("%s: detected IDR frame; recovering from PTS error", "checkDeltaPTSError");
        return;
    }
    if (mIDRWaitStartPTS == NONE) {
        mIDRWaitStartPTS = frame.mPTS;
        return;
    }
    const auto waited = static_cast<int64_t>((frame.mPTS - mIDRWaitStartPTS) & IDR_WAIT_MASK);
    if (waited >= TICKS_PER_SECOND) {
        ORV_LOGI("%s: waited too much for IDR frame (%llds); rendering available frames)",
                 "checkDeltaPTSError", static_cast<long long>(waited / TICKS_PER_SECOND));
        mPTSError = false;
        mIDRWaitStartPTS = NONE;
        return;
    }
    ORV_LOGI("%s: skip frame; waiting for next IDR frame", "checkDeltaPTSError");
}

// False when the renderer is stopped meanwhile.
bool VideoRenderer::sleepUntilDue(int waitMs) {
    std::unique_lock<std::mutex> guard(mSleepLock);
    return !mSleepEnd.wait_for(guard, std::chrono::milliseconds(waitMs),
                               [this] { return mStopRequested; });
}

void VideoRenderer::capture(VideoFrameData& frame) {
    CaptureFrameListener* listener = mCaptureFrameListener;
    if (listener == nullptr || mCaptureCount == 0) {
        return;
    }
    uint64_t now = 0;
    if (!captureClockMs("render", &now) || now < mNextCaptureTime) {
        return;
    }
    if (frame.mListener->captureFrame(frame, listener)) {
        countCapture();
    } else if (--mCaptureRetries == 0) {
        countCapture();
        mCaptureRetries = CAPTURE_TRIES;
    }
    mNextCaptureTime += static_cast<uint64_t>(static_cast<int64_t>(mCaptureInterval));
}

void VideoRenderer::countCapture() {
    // cancelCaptureFrame() may clear the count meanwhile.
    uint32_t count = mCaptureCount;
    while (count > 0 && !mCaptureCount.compare_exchange_weak(count, count - 1)) {
    }
}

}  // namespace OrvPlayer
