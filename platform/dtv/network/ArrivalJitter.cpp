#include "dtv/network/ArrivalJitter.h"

#include <cstdlib>

#include "dtv/TsPacket.h"

namespace orvhost {

namespace {

// More than this between two PCRs, or off by it, is a jump of either clock.
constexpr int64_t JUMP_NS = 1'000'000'000;
constexpr int64_t GAIN = 16;  // RFC 3550: one part in so many of the new figure

}  // namespace

void ArrivalJitter::add(const uint8_t* packets, size_t count, int64_t arrivedNs) {
    for (const uint8_t* packet = packets; count > 0; --count, packet += TS_PACKET_BYTES) {
        if (!hasPcr(packet) || (mPid != PID_NONE && pidOf(packet) != mPid)) {
            continue;
        }
        mPid = pidOf(packet);
        const int64_t ticks = pcrOf(packet);
        const int64_t streamNs = mLastTicks < 0 ? JUMP_NS : pcrToNs(pcrDistance(mLastTicks, ticks));
        const int64_t deviationNs = std::abs(arrivedNs - mLastArrivedNs - streamNs);
        if (streamNs < JUMP_NS && deviationNs < JUMP_NS) {
            mJitterNs += (deviationNs - mJitterNs) / GAIN;
        }
        mLastTicks = ticks;
        mLastArrivedNs = arrivedNs;
    }
}

}  // namespace orvhost
