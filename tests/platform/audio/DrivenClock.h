#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include "audio/AudioClock.h"

// A waiter finds the time moved on to what it waits for: whole playbacks run in no time, on one
// thread.
class JumpingClock : public orvhost::AudioClock {
public:
    int64_t nowNs() override { return mNowNs; }
    void waitUntil(std::unique_lock<std::mutex>& /*lock*/, std::condition_variable& /*wake*/,
                   int64_t deadlineNs) override {
        mNowNs = deadlineNs > mNowNs ? deadlineNs : mNowNs;
    }
    void advance(int64_t ns) { mNowNs += ns; }

private:
    int64_t mNowNs = 5'000'000'000;
};

// Time moves only by advance(); waiters on other threads really wait.
class StandingClock : public orvhost::AudioClock {
public:
    int64_t nowNs() override {
        const std::lock_guard<std::mutex> guard(mLock);
        return mNowNs;
    }

    void waitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& wake,
                   int64_t deadlineNs) override {
        {
            const std::lock_guard<std::mutex> guard(mLock);
            if (mNowNs >= deadlineNs) {
                return;
            }
            mWaiters.push_back({lock.mutex(), &wake});
            mArrived.notify_all();
        }
        wake.wait(lock);
        const std::lock_guard<std::mutex> guard(mLock);
        std::erase_if(mWaiters, [&wake](const Waiter& waiter) { return waiter.pWake == &wake; });
    }

    // True when a thread waits, which it then does in earnest as soon as its lock can be had.
    bool awaitWaiter() {
        std::unique_lock<std::mutex> lock(mLock);
        return mArrived.wait_for(lock, std::chrono::seconds(20),
                                 [this] { return !mWaiters.empty(); });
    }

    void advance(int64_t ns) {
        std::vector<Waiter> waiters;
        {
            const std::lock_guard<std::mutex> guard(mLock);
            mNowNs += ns;
            waiters = mWaiters;
        }
        for (const Waiter& waiter : waiters) {
            const std::lock_guard<std::mutex> guard(*waiter.pLock);
            waiter.pWake->notify_all();
        }
    }

private:
    struct Waiter {
        std::mutex* pLock;
        std::condition_variable* pWake;
    };

    std::mutex mLock;
    std::condition_variable mArrived;
    int64_t mNowNs = 5'000'000'000;
    std::vector<Waiter> mWaiters;
};
