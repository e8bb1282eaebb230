#include "common/HandoffLock.h"

#include <ctime>
#include <limits>

namespace OrvPlayer {

namespace {

constexpr long NS_PER_MS = 1'000'000;
constexpr long NS_PER_S = 1'000'000'000;
// Waking a thread alone takes most of this.
constexpr long SHORT_SLEEP_NS = 60'000;

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
    timespec begin;
    clock_gettime(CLOCK_MONOTONIC, &begin);
    timespec deadline = begin;
    deadline.tv_nsec += static_cast<long>(timeoutMs % 1000) * NS_PER_MS;
    time_t seconds = static_cast<time_t>(timeoutMs / 1000);
    if (deadline.tv_nsec >= NS_PER_S) {
        deadline.tv_nsec -= NS_PER_S;
        ++seconds;
    }
    constexpr time_t LATEST = std::numeric_limits<time_t>::max();
    deadline.tv_sec = deadline.tv_sec > LATEST - seconds ? LATEST : deadline.tv_sec + seconds;
    pthread_cond_timedwait(&mCondition, &mMutex, &deadline);
    timespec end;
    clock_gettime(CLOCK_MONOTONIC, &end);
    return end.tv_sec - begin.tv_sec <= 1 &&
           (end.tv_sec - begin.tv_sec) * NS_PER_S + end.tv_nsec - begin.tv_nsec < SHORT_SLEEP_NS;
}

}  // namespace OrvPlayer
