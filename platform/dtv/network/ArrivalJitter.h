#pragma once

#include <cstddef>
#include <cstdint>

#include "dtv/Services.h"

namespace orvhost {

// How unevenly packets arrive, against the clock that the stream itself carries: the smoothed
// deviation of RFC 3550 6.4.1, from the PCRs of the first PID that has some. One thread.
class ArrivalJitter {
public:
    // Packets of one datagram, and when it arrived; by which clock does not matter.
    void add(const uint8_t* packets, size_t count, int64_t arrivedNs);

    uint64_t jitterUs() const { return static_cast<uint64_t>(mJitterNs) / 1000; }

private:
    uint16_t mPid = PID_NONE;
    int64_t mLastTicks = -1;
    int64_t mLastArrivedNs = 0;
    int64_t mJitterNs = 0;
};

}  // namespace orvhost
