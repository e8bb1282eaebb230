#include "common/HandoffLock.h"

#include <chrono>
#include <ctime>

namespace OrvPlayer {

namespace {

// Waking a thread alone takes most of this.
constexpr std::chrono::microseconds SHORT_SLEEP{60};

}  // namespace

// From the first wait on the lock counts as waited for until it is free: only whoever releases it
// knows whether to wake, and one wake too many does no harm.
void HandoffLock::lockContended() {
    while (mState.exchange(HELD_WAITED, std::memory_order_acquire) != FREE) {
        mState.wait(HELD_WAITED, std::memory_order_relaxed);
    }
}

HandoffCondition::HandoffCondition() {
    pthread_mutex_init(&mMutex, nullptr);
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&mCondition, &attributes);
    pthread_condattr_destroy(&attributes);
}

HandoffCondition::~HandoffCondition() {
    pthread_cond_destroy(&mCondition);
    pthread_mutex_destroy(&mMutex);
}

void HandoffCondition::broadcast() {
    if (mWaiters.load(std::memory_order_seq_cst) == 0) {
        return;
    }
    // Once we had the mutex, whoever looked at its predicate too early is asleep. Waking it with
    // the mutex held would make it wait once more.
    pthread_mutex_lock(&mMutex);
    pthread_mutex_unlock(&mMutex);
    pthread_cond_broadcast(&mCondition);
}

bool HandoffCondition::sleep(unsigned int timeoutMs) {
    using std::chrono::milliseconds;
    using std::chrono::nanoseconds;
    using std::chrono::seconds;
    using std::chrono::steady_clock;

    const auto begin = steady_clock::now();  // CLOCK_MONOTONIC, as the condition's
    const nanoseconds end = begin.time_since_epoch() + milliseconds(timeoutMs);
    timespec deadline;
    deadline.tv_sec = static_cast<time_t>(end / seconds(1));
    deadline.tv_nsec = static_cast<long>((end % seconds(1)).count());
    pthread_cond_timedwait(&mCondition, &mMutex, &deadline);
    return steady_clock::now() - begin < SHORT_SLEEP;
}

}  // namespace OrvPlayer
