#include "common/HandoffLock.h"

#include <ctime>
#include <limits>

namespace OrvPlayer {

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
    pthread_mutex_lock(&mMutex);
    pthread_cond_broadcast(&mCondition);
    pthread_mutex_unlock(&mMutex);
}

void HandoffCondition::sleep(unsigned int timeoutMs) {
    timespec deadline;
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_nsec += static_cast<long>(timeoutMs % 1000) * 1'000'000;
    time_t seconds = static_cast<time_t>(timeoutMs / 1000);
    if (deadline.tv_nsec >= 1'000'000'000) {
        deadline.tv_nsec -= 1'000'000'000;
        ++seconds;
    }
    constexpr time_t LATEST = std::numeric_limits<time_t>::max();
    deadline.tv_sec = deadline.tv_sec > LATEST - seconds ? LATEST : deadline.tv_sec + seconds;
    pthread_cond_timedwait(&mCondition, &mMutex, &deadline);
}

}  // namespace OrvPlayer
