#include "support/MonotonicClock.h"

#include <atomic>
#include <ctime>

namespace {

std::atomic<bool> gTaken{false};
std::atomic<bool> gFails{false};
std::atomic<uint64_t> gNowMs{0};
std::atomic<uint64_t> gStepMs{0};

}  // namespace

extern "C" {

int __real_clock_gettime(clockid_t clock, timespec* time);

int __wrap_clock_gettime(clockid_t clock, timespec* time) {
    if (!gTaken || clock != CLOCK_MONOTONIC) {
        return __real_clock_gettime(clock, time);
    }
    if (gFails) {
        return -1;
    }
    const uint64_t now = gNowMs.fetch_add(gStepMs);
    time->tv_sec = static_cast<time_t>(now / 1000);
    time->tv_nsec = static_cast<long>(now % 1000) * 1'000'000;
    return 0;
}

}  // extern "C"

namespace orvtest {

MonotonicClock::MonotonicClock(uint64_t nowMs) {
    gNowMs = nowMs;
    gStepMs = 0;
    gFails = false;
    gTaken = true;
}

MonotonicClock::~MonotonicClock() {
    gTaken = false;
}

void MonotonicClock::advance(uint64_t ms) {
    gNowMs += ms;
}

void MonotonicClock::advanceAtEachReading(uint64_t ms) {
    gStepMs = ms;
}

void MonotonicClock::fail() {
    gFails = true;
}

}  // namespace orvtest
