#pragma once

#include <cstdint>
#include <ctime>

namespace orvplay {

// Nanoseconds of the monotonic clock, on which pictures and sound are timed.
inline int64_t monotonicNs() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

}  // namespace orvplay
