#pragma once

#include <mpv/client.h>
#include <mpv/render.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "media/player/MediaEngine.h"

namespace orvhost {

// Takes decoded pictures from mpv, on a thread of its own, to the sink at their time.
//
// mpv lends each picture some 50 ms before its time. It is drawn and handed to the sink at once and
// presented when its time has come, so that what drawing takes makes nothing late. A picture that
// the sink has no room for is taken and not drawn: mpv's own clock never waits for anybody here.
class MpvPictures {
public:
    MpvPictures(mpv_handle* player, PictureSink& sink);
    ~MpvPictures();                            // before the player
    MpvPictures(const MpvPictures&) = delete;  // mpv knows it by address
    MpvPictures& operator=(const MpvPictures&) = delete;

    // False when mpv refuses. Before a file is loaded.
    [[nodiscard]] bool start();

    // How pictures come out of the filters; all but their pixels, fields and time.
    void setFormat(const MediaPicture& format);
    void setFields(bool isInterlaced, bool isTopFieldFirst);
    void setTime(int64_t us) { mTimeUs = us; }
    // While mpv goes elsewhere, the time that it tells is where it was sent: pictures wait for
    // settle(), which comes with the true one.
    void unsettle();
    void settle();
    void redraw();
    // Returns once nothing is left to draw, or after a while.
    void awaitIdle();

private:
    static void onUpdate(void* self);
    void run();
    void takePicture(bool isAskedFor);
    MediaPicture formatOfPicture();
    int64_t timeOf(int64_t playerTimeUs);
    bool draw(const MediaPicture& format);
    void skip();
    void waitUntil(int64_t playerTimeUs);
    bool awaitSettled();

    mpv_handle* const mPlayer;
    PictureSink& mSink;
    mpv_render_context* mContext = nullptr;
    std::thread mThread;

    std::mutex mLock;
    std::condition_variable mChanged;
    MediaPicture mFormat;  // without a size until mpv has told
    bool mUpdated = false;
    bool mRedraw = false;
    bool mAwaitsFormat = false;  // a picture came without
    bool mIsIdle = true;
    bool mIsSettled = true;
    std::optional<std::chrono::steady_clock::time_point> mSettledBy;  // of the first that waits
    bool mExit = false;

    std::atomic<int64_t> mTimeUs{0};  // where mpv is in the file

    // Thread of the pictures only.
    struct Free {
        void operator()(uint8_t* memory) const { free(memory); }
    };
    std::unique_ptr<uint8_t, Free> mPixels;
    size_t mPixelBytes = 0;
    bool mHasPicture = false;  // mpv draws black before the first
    int64_t mOffsetUs = 0;     // from mpv's clock to the time in the file
    int64_t mLastTimeUs = 0;
    int64_t mPeriodUs = 40'000;
};

}  // namespace orvhost
