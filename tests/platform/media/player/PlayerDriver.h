#pragma once

#include <media/mediaplayer.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "graphics/BufferQueue.h"

namespace orvtest {

// What a window saw.
struct SeenPicture {
    int number = -1;  // -1 when it carries none that can be read
    int width = 0;
    int height = 0;
    android::IGraphicBufferProducer::QueueBufferInput input;
    int left[3] = {};  // luma, Cb, Cr in the middle of the left half
    int right[3] = {};
};

// A window that looks at every picture, until it is told to keep them or to go away.
class TestWindow {
public:
    TestWindow();
    ~TestWindow();
    TestWindow(const TestWindow&) = delete;  // its thread knows it by address
    TestWindow& operator=(const TestWindow&) = delete;

    void freeze() { mFrozen = true; }  // takes no picture any more
    void abandon() { mConsumer->abandon(); }

    android::sp<android::IGraphicBufferProducer> producer() const { return mProducer; }
    std::vector<SeenPicture> pictures() const;
    size_t count() const { return pictures().size(); }
    bool awaitCount(size_t count) const;
    int lastNumber() const;
    // The same, once it is this one or too long has passed.
    int awaitLast(int number) const;

private:
    void run();

    android::sp<android::IGraphicBufferProducer> mProducer;
    android::sp<orvhost::BufferQueue::Consumer> mConsumer;
    std::atomic<bool> mFrozen{false};
    std::atomic<bool> mExit{false};
    mutable std::mutex mLock;
    std::vector<SeenPicture> mPictures;
    std::thread mThread;
};

// Takes down what a player tells, as "complete", "size 160x120", "start", "error -1004", ...
// Buffering is left out: it comes as the machine pleases.
class NotificationLog : public android::MediaPlayerListener {
public:
    void notify(int msg, int ext1, int ext2, const android::Parcel* obj) override;

    std::vector<std::string> events() const;
    size_t count(const std::string& event) const;
    bool await(const std::string& event, size_t times = 1) const;

private:
    mutable std::mutex mLock;
    std::vector<std::string> mEvents;
};

}  // namespace orvtest
