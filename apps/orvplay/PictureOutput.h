#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "Display.h"
#include "FrameMeter.h"
#include "SyncMeter.h"
#include "graphics/BufferQueue.h"

namespace orvplay {

// Takes the pictures that the player presents: counts them, reads the marks that a test broadcast
// carries, shows them where there is a display, and keeps the last one for a still.
//
// Runs a thread of its own from start() to stop(). The figures may be read at any time.
class PictureOutput {
public:
    struct Figures {
        uint64_t frames = 0;
        int64_t firstFrameNs = 0;  // monotonic time of the first picture, 0 before
        int64_t lastFrameNs = 0;
        int width = 0;
        int height = 0;
        bool interlaced = false;
        double jitterP50Ms = 0.0;
        double jitterP99Ms = 0.0;
        double jitterMaxMs = 0.0;
        double longestGapMs = 0.0;  // between two pictures
        FrameNumbers numbers;
    };

    // `display` may be null: headless. `sync` must outlive the output.
    PictureOutput(const android::sp<orvhost::BufferQueue::Consumer>& consumer,
                  std::unique_ptr<Display> display, SyncMeter& sync);
    ~PictureOutput();
    PictureOutput(const PictureOutput&) = delete;  // a thread points at it
    PictureOutput& operator=(const PictureOutput&) = delete;

    // Opens the display, when there is one. False, and nothing runs, when that fails.
    bool start();
    // Ends the thread and the display; the queue ends with it.
    void stop();

    Figures figures() const;
    // The user closed the window or asked to quit.
    bool quitRequested() const { return mQuitRequested; }
    // The picture shown last; its buffer is null when there was none. After stop() only.
    const orvhost::AcquiredBuffer& lastPicture() const { return mLast; }

private:
    void run(std::function<void(bool)> opened);
    void onPicture(const orvhost::AcquiredBuffer& picture);
    void keepLast(const orvhost::AcquiredBuffer& picture);

    const android::sp<orvhost::BufferQueue::Consumer> mConsumer;
    std::unique_ptr<Display> mDisplay;
    SyncMeter& mSync;
    std::thread mThread;
    std::atomic<bool> mStopRequested{false};
    std::atomic<bool> mQuitRequested{false};

    mutable std::mutex mLock;  // the two below
    FrameMeter mMeter;
    Figures mFigures;

    // Output thread.
    bool mFlashOn = false;
    orvhost::AcquiredBuffer mLast;
};

}  // namespace orvplay
