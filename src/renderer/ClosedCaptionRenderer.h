#pragma once

#include <utils/Thread.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "common/ClosedCaptionListener.h"
#include "common/Data.h"
#include "common/Module.h"
#include "common/Synchronization.h"
#include "common/Uint33.h"

namespace OrvPlayer {

// Hands captions to the listener when the presentation clock reaches their PTS.
//
// The input holds one ClosedCaptionFragmentData record a caption. Per caption:
//
//   wait = PTS - clock     1 ms to 3 s early: that long, plus the caption offset
//                          due, late, or 3 s early and more: presented at once
//                          no presentation time: presented at once
//
// A caption that waits is presented when the renderer is stopped. While the output is disabled
// captions pass unseen, each at its time.
//
// One worker. It holds the input's read lock while a caption waits, so that at most one is pending,
// and during the listener's call, which must not come back to the renderer. Setters may be called
// from any thread while it runs.
class ClosedCaptionRenderer : public Module {
public:
    explicit ClosedCaptionRenderer(android::sp<Synchronization> sync);
    ClosedCaptionRenderer(const ClosedCaptionRenderer&) = delete;  // its worker knows its address
    ClosedCaptionRenderer& operator=(const ClosedCaptionRenderer&) = delete;

    // 1 without an input, or without a thread; with a live worker it does nothing.
    int start() override;
    int stop() override;
    void requestExit() override;

    // One step of the worker: presents the next caption, or returns without one after 100 ms.
    void renderFrame();

    // Milliseconds added to every wait, of either sign.
    void setCaptionSync(int offsetMs);
    // The listener is not owned; null for none.
    void registerListener(ClosedCaptionListener* listener) { mCaptionListener = listener; }
    // Whether captions reach the listener; off at construction.
    void setOutputEnabled(bool enabled) { mOutputEnabled = enabled; }

protected:
    ~ClosedCaptionRenderer() override;

private:
    class WorkerThread;

    void join();
    int64_t waitTimeMs(Uint33 pts);
    void sleepUntilDue(int64_t waitMs);
    void note(Uint33 pts, int64_t waitMs, bool isShown);

    const android::sp<Synchronization> mSync;

    std::mutex mStartStopLock;  // start() against stop(); guards the pointer below
    android::sp<WorkerThread> mWorker;

    std::mutex mRenderLock;  // a leaf, for the sleep until a caption is due
    std::condition_variable mRenderCondition;
    bool mExitRequested = false;

    std::atomic<int32_t> mCaptionSyncOffset{0};  // ms
    std::atomic<ClosedCaptionListener*> mCaptionListener{nullptr};
    std::atomic<bool> mOutputEnabled{false};
};

}  // namespace OrvPlayer
