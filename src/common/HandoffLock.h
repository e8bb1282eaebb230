#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

namespace OrvPlayer {

// A lock that may be released by another thread than the one that took it, and released when it
// is free (which does nothing).
//
// A ring buffer's reader keeps its lock from the look at a record until the record is consumed,
// across calls and across the end of its thread: the module's stop() then releases it from the
// controller's thread, whether it was left held or not. A mutex makes that undefined.
class HandoffLock {
public:
    HandoffLock() = default;
    HandoffLock(const HandoffLock&) = delete;  // threads wait on its address
    HandoffLock& operator=(const HandoffLock&) = delete;

    void lock() {
        while (!tryLock()) {
            mHeld.wait(HELD, std::memory_order_relaxed);
        }
    }

    bool tryLock() { return mHeld.exchange(HELD, std::memory_order_acquire) == FREE; }

    // A momentary value, for reports.
    bool isHeld() const { return mHeld.load(std::memory_order_relaxed) == HELD; }

    void unlock() {
        mHeld.store(FREE, std::memory_order_release);
        mHeld.notify_one();
    }

private:
    static constexpr int FREE = 0;
    static constexpr int HELD = 1;

    std::atomic<int> mHeld{FREE};
};

// A condition that threads holding a HandoffLock wait on, timed on the monotonic clock.
//
// broadcast() needs no lock and costs one load while nobody waits. No wake-up is lost: a waiter
// announces itself and looks at its predicate again before it sleeps, so whoever makes the
// predicate true and then broadcasts is either seen by that look or sees the waiter. For that the
// predicate must be made of sequentially consistent atomics.
class HandoffCondition {
public:
    HandoffCondition();
    ~HandoffCondition();
    HandoffCondition(const HandoffCondition&) = delete;  // threads wait on its address
    HandoffCondition& operator=(const HandoffCondition&) = delete;

    // Releases `lock`, sleeps until a broadcast or until `timeoutMs` have passed, takes `lock`
    // again. Sleeps once: the caller looks at its predicate afterwards. Does not sleep at all when
    // `ready()` holds. The caller holds `lock` before and after.
    template <typename Ready>
    void waitOnce(HandoffLock& lock, unsigned int timeoutMs, Ready ready) {
        pthread_mutex_lock(&mMutex);
        mWaiters.fetch_add(1, std::memory_order_seq_cst);
        if (!ready()) {
            lock.unlock();
            sleep(timeoutMs);
            mWaiters.fetch_sub(1, std::memory_order_relaxed);
            pthread_mutex_unlock(&mMutex);
            lock.lock();
            return;
        }
        mWaiters.fetch_sub(1, std::memory_order_relaxed);
        pthread_mutex_unlock(&mMutex);
    }

    // Wakes every waiter.
    void broadcast();

private:
    void sleep(unsigned int timeoutMs);

    pthread_mutex_t mMutex;  // held only to begin a sleep, to end it and to wake
    pthread_cond_t mCondition;
    std::atomic<uint32_t> mWaiters{0};
};

}  // namespace OrvPlayer
