#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Display.h"
#include "FrameMeter.h"
#include "Mailbox.h"
#include "Still.h"
#include "SyncMeter.h"
#include "graphics/BufferQueue.h"

namespace orvplay {

// Takes the pictures that the player presents: counts them, reads the marks that a test broadcast
// carries, and shows them where there is a display.
//
// With a display it runs a thread of its own from start() to stop(). Without one, or with one that
// takes no pictures, they are taken on the thread that brings them. The figures may be read at any
// time.
class PictureOutput {
public:
    struct Figures {
        uint64_t frames = 0;
        int64_t firstFrameNs = 0;  // monotonic time of the first picture, 0 before
        int64_t lastFrameNs = 0;
        int64_t breakEndNs = 0;       // of the first picture after the last break; 0: not yet
        int64_t lastTimestampNs = 0;  // of the last picture, on the time line of its source
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

    // Hears of every picture, by its time on its source's time line, on the thread that takes it.
    // Before start().
    void setPictureListener(std::function<void(int64_t timestampNs)> listener) {
        mPictureListener = std::move(listener);
    }
    // To be called before pictures come. Opens the display, when there is one; false, and nothing
    // runs, when that fails.
    bool start();
    // Ends the thread and the display; the queue ends with it.
    void stop();

    // Shows a caption where there is a display, until the next one; empty: none. Any thread, and
    // never waits: the thread of the display fetches it within 20 ms.
    void showCaption(std::string utf8);
    // Hidden, none is shown, not even one that comes at this moment. Any thread.
    void setCaptionsVisible(bool visible) { mCaptionsVisible = visible; }

    // A line in the corner, see Display::showStatus(). Any thread.
    void showStatus(std::string utf8, bool stays);
    // See Display. Any thread; of what was not fetched yet the newest is shown.
    void showState(const ScreenState& state);
    void showChannels(const ChannelRows& channels);
    void showBanner() { mBannerWanted = true; }
    // The next picture is no successor of the last one: playback was paused, or went elsewhere.
    // Any thread.
    void expectBreak();

    Figures figures() const;
    // Waits for the first picture, at most so long.
    void awaitFirst(std::chrono::nanoseconds timeout) const;
    // A still of the picture that is shown. False when there is none. Any thread; the next picture
    // waits until it is copied.
    bool takeStill(Still* still) const;
    // The user closed the window or asked to quit.
    bool quitRequested() const { return mQuitRequested; }
    // What the user asked for since the last call, in order; to quit is told above alone.
    std::vector<UserRequest> takeRequests();
    // As if the user had asked for it at the display; also without one. One that finds many before
    // it is dropped. Any thread.
    void request(UserRequest request);

private:
    void run(std::function<void(bool)> opened);
    void takePicture(int timeoutMs);
    void passCaption();
    void passTexts();
    void onPicture(const orvhost::AcquiredBuffer& picture);
    void keepLast(const orvhost::AcquiredBuffer& picture);

    const android::sp<orvhost::BufferQueue::Consumer> mConsumer;
    const bool mHasDisplay;
    const bool mShowsPictures;
    std::unique_ptr<Display> mDisplay;  // output thread, once it runs
    SyncMeter& mSync;
    std::function<void(int64_t)> mPictureListener;
    std::thread mThread;
    std::atomic<bool> mStopRequested{false};
    std::atomic<bool> mQuitRequested{false};
    std::atomic<bool> mCaptionsVisible{true};
    std::atomic<bool> mBreakExpected{false};
    struct Status {
        std::string text;
        bool stays;
    };
    Mailbox<std::string> mCaption;
    Mailbox<Status> mStatus;
    Mailbox<ScreenState> mState;
    Mailbox<ChannelRows> mChannels;
    std::atomic<bool> mBannerWanted{false};

    std::mutex mRequestLock;
    std::vector<UserRequest> mRequests;

    mutable std::mutex mLock;  // the three below
    mutable std::condition_variable mFirst;
    FrameMeter mMeter;
    Figures mFigures;

    // Whichever thread takes the pictures.
    bool mFlashOn = false;
    bool mCaptionShown = false;
    mutable std::mutex mLastLock;  // who is not that thread, or changes it
    orvhost::AcquiredBuffer mLast;
};

}  // namespace orvplay
