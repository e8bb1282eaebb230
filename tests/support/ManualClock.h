#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <utility>

#include "dtv/HostClock.h"

namespace orvtest {

// A clock that stands until the test moves it.
class ManualClock : public orvhost::HostClock {
public:
    int64_t nowNs() override {
        std::lock_guard lock(mMutex);
        return mNowNs;
    }

    void waitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& wake,
                   int64_t deadlineNs) override {
        {
            std::lock_guard own(mMutex);
            if (mNowNs >= deadlineNs) {
                return;
            }
            mSleeper = lock.mutex();
            mWake = &wake;
            mDeadlineNs = deadlineNs;
            mChanged.notify_all();
        }
        wake.wait(lock);
        std::lock_guard own(mMutex);
        mWake = nullptr;
    }

    // Waits until somebody sleeps on this clock: what it had to do before is done.
    bool waitForSleeper(std::chrono::milliseconds most = std::chrono::seconds(5)) {
        std::unique_lock lock(mMutex);
        return mChanged.wait_for(lock, most,
                                 [this] { return mWake != nullptr && mDeadlineNs > mNowNs; });
    }

    // Moves to the end of the present sleep and wakes the sleeper. Only after waitForSleeper().
    void step() {
        std::mutex* sleeper = nullptr;
        std::condition_variable* wake = nullptr;
        {
            std::lock_guard lock(mMutex);
            mNowNs = mDeadlineNs;
            sleeper = mSleeper;
            wake = std::exchange(mWake, nullptr);
        }
        std::lock_guard asleep(*sleeper);  // it waits once we have this
        wake->notify_all();
    }

    // Moves on whether somebody sleeps or not.
    void advance(int64_t ns) {
        std::mutex* sleeper = nullptr;
        std::condition_variable* wake = nullptr;
        {
            std::lock_guard lock(mMutex);
            mNowNs += ns;
            if (mWake != nullptr && mNowNs >= mDeadlineNs) {
                sleeper = mSleeper;
                wake = std::exchange(mWake, nullptr);
            }
        }
        if (wake != nullptr) {
            std::lock_guard asleep(*sleeper);
            wake->notify_all();
        }
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    int64_t mNowNs = 1'000'000'000;
    int64_t mDeadlineNs = 0;
    std::mutex* mSleeper = nullptr;
    std::condition_variable* mWake = nullptr;
};

}  // namespace orvtest
