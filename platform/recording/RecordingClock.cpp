#include "recording/RecordingClock.h"

#include <algorithm>

#include "dtv/TsPacket.h"

namespace orvhost {

namespace {

constexpr int64_t TRUSTED_TICKS = PCR_HZ / 2;
constexpr int64_t LONGEST_GAP_TICKS = 60 * PCR_HZ;

// A picture is shown at most this long after its first byte was sent.
constexpr int64_t LONGEST_LEAD_TICKS = 10 * PCR_HZ;

// Before there is a rate: 12 Mbit/s. What comes quicker than a gigabit a second is a jump.
constexpr int64_t DEFAULT_TICKS_PER_BYTE = PCR_HZ * 8 / 12'000'000;
constexpr int64_t QUICKEST_BYTES_PER_TICK = 1'000'000'000 / 8 / PCR_HZ;

constexpr int64_t RATE_WINDOW_BYTES = 1 << 20;

// No rate below 60 kbit/s is believed, nor more than this of bytes at once: the sum stays far from
// the end of 64 bits.
constexpr int64_t MOST_TICKS_PER_BYTE = PCR_HZ * 8 / 60'000;
constexpr int64_t MOST_BYTES = int64_t{1} << 40;

}  // namespace

int64_t RecordingClock::atLastRate(int64_t bytes) const {
    bytes = std::min(bytes, MOST_BYTES);
    if (mRateBytes == 0) {
        return bytes * DEFAULT_TICKS_PER_BYTE;
    }
    const double perByte = static_cast<double>(mRateTicks) / static_cast<double>(mRateBytes);
    return static_cast<int64_t>(static_cast<double>(bytes) *
                                std::min(perByte, static_cast<double>(MOST_TICKS_PER_BYTE)));
}

void RecordingClock::learnRate(int64_t ticks, int64_t bytes) {
    mRateTicks += ticks;
    mRateBytes += bytes;
    if (mRateBytes > RATE_WINDOW_BYTES) {
        mRateTicks /= 2;
        mRateBytes /= 2;
    }
}

void RecordingClock::add(int64_t ticks, uint64_t offset, bool announcedJump) {
    if (isSet() && offset > mOffset) {
        const auto bytes = static_cast<int64_t>(offset - mOffset);
        const int64_t distance = pcrDistance(mTicks, ticks);
        const bool isTooQuick = distance < bytes / QUICKEST_BYTES_PER_TICK;
        if (announcedJump || isTooQuick || distance > LONGEST_GAP_TICKS) {
            mNow27M += atLastRate(bytes);
        } else {
            mNow27M += distance;
            if (distance <= TRUSTED_TICKS) {
                learnRate(distance, bytes);
            }
        }
    }
    mTicks = ticks;
    mOffset = offset;
}

void RecordingClock::resumeAt(const RandomAccessPoint& point) {
    mTicks = point.pcr27M;
    mOffset = point.offset;
    mNow27M = point.clock27M;
}

int64_t RecordingClock::timeOf(int64_t stampTicks) const {
    if (!isSet() || stampTicks < 0) {
        return mNow27M;
    }
    const int64_t lead = pcrDistance(mTicks, stampTicks % PCR_WRAP);
    return lead <= LONGEST_LEAD_TICKS ? mNow27M + lead : mNow27M;
}

}  // namespace orvhost
