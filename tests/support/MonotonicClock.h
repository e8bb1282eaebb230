#pragma once

#include <cstdint>

namespace orvtest {

// Takes over the monotonic clock of the test program while it lives. The program is linked with
// --wrap=clock_gettime and MonotonicClock.cpp; only calls from its own objects are taken over, not
// those inside shared libraries. One at a time.
class MonotonicClock {
public:
    explicit MonotonicClock(uint64_t nowMs);
    MonotonicClock(const MonotonicClock&) = delete;  // there is one clock
    MonotonicClock& operator=(const MonotonicClock&) = delete;
    ~MonotonicClock();

    void advance(uint64_t ms);
    // Every reading moves the clock on by this much.
    void advanceAtEachReading(uint64_t ms);
    // Readings fail.
    void fail();
};

}  // namespace orvtest
