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
        int free = FREE;
        if (!mState.compare_exchange_strong(free, HELD, std::memory_order_acquire,
                                            std::memory_order_relaxed)) {
            lockContended();
        }
    }

    // A momentary value, for reports.
    bool isHeld() const { return mState.load(std::memory_order_relaxed) != FREE; }

    // One exchange, and a system call only when a thread may be waiting.
    void unlock() {
        if (mState.exchange(FREE, std::memory_order_seq_cst) == HELD_WAITED) {
            mState.notify_one();
        }
    }

private:
    static constexpr int FREE = 0;
    static constexpr int HELD = 1;
    static constexpr int HELD_WAITED = 2;  // and there may be threads that wait for it

    void lockContended();

    std::atomic<int> mState{FREE};
};

// A condition that threads holding a HandoffLock wait on, timed on the monotonic clock.
//
// broadcast() needs no lock and costs one load while nobody waits. No wake-up is lost: a waiter
// announces itself and looks at its predicate again before it sleeps, so whoever makes the
// predicate true and then broadcasts is either seen by that look or sees the waiter. For that the
// predicate must be made of sequentially consistent atomics.
//
// Sleeping and waking take longer than the other side needs for a record when both run at full
// speed. A thread whose last wait was short therefore looks at its predicate for about 50 us
// before it sleeps; at the pace of a broadcast waits are long and nobody does.
class HandoffCondition {
public:
    HandoffCondition();
    ~HandoffCondition();
    HandoffCondition(const HandoffCondition&) = delete;  // threads wait on its address
    HandoffCondition& operator=(const HandoffCondition&) = delete;

    // Releases `lock`, sleeps until a broadcast or until `timeoutMs` have passed, takes `lock`
    // again. Sleeps once: the caller looks at its predicate afterwards. Does not sleep at all when
    // `ready()` holds. The caller holds `lock` before and after; all callers use the same one.
    template <typename Ready>
    void waitOnce(HandoffLock& lock, unsigned int timeoutMs, Ready ready) {
        if (mLookFirst && lookForAWhile(ready)) {
            return;
        }
        pthread_mutex_lock(&mMutex);
        mWaiters.fetch_add(1, std::memory_order_seq_cst);
        if (!ready()) {
            lock.unlock();
            const bool wasShort = sleep(timeoutMs);
            mWaiters.fetch_sub(1, std::memory_order_relaxed);
            pthread_mutex_unlock(&mMutex);
            lock.lock();
            mLookFirst = wasShort;
            return;
        }
        mWaiters.fetch_sub(1, std::memory_order_relaxed);
        pthread_mutex_unlock(&mMutex);
    }

    // Wakes every waiter.
    void broadcast();

private:
    // The counters that the predicate reads change hands between processors with each look, so
    // looks are spaced out.
    static constexpr int LOOKS = 32;
    static constexpr int PAUSES_PER_LOOK = 64;

    template <typename Ready>
    static bool lookForAWhile(Ready ready) {
        for (int look = 0; look < LOOKS; ++look) {
            for (int i = 0; i < PAUSES_PER_LOOK; ++i) {
                pause();
            }
            if (ready()) {
                return true;
            }
        }
        return false;
    }

    // Tells the processor that this is a waiting loop.
    static void pause() {
#if defined(__x86_64__) || defined(__i386__)
        __builtin_ia32_pause();
#elif defined(__aarch64__)
        asm volatile("yield");
#endif
    }

    // True when it took so short that looking on would have been better.
    bool sleep(unsigned int timeoutMs);

    std::atomic<uint32_t> mWaiters{0};
    bool mLookFirst = false;  // under the callers' lock
    pthread_mutex_t mMutex;   // held only to begin a sleep, to end it and to wake
    pthread_cond_t mCondition;
};

}  // namespace OrvPlayer
