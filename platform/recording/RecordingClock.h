#pragma once

#include <cstdint>

#include "recording/RecordingIndex.h"

namespace orvhost {

// The time of a recording, from the clock of its programme: continuous from the first sample on.
//
// Up to half a second from one sample to the next is believed; more, up to a minute, is a gap in
// reception and counts as time. Anything else is a jump of the time base: it lasts as long as its
// bytes do at the rate before it.
class RecordingClock {
public:
    // A sample of 27 MHz ticks at this byte of the recording.
    void add(int64_t ticks, uint64_t offset, bool announcedJump);

    // As if the last sample had been that of this point.
    void resumeAt(const RandomAccessPoint& point);

    bool isSet() const { return mTicks >= 0; }
    int64_t ticks() const { return mTicks; }  // the last sample as it was sent, -1 without one
    int64_t now27M() const { return mNow27M; }

    // Where a time stamp of the programme, in ticks, lies; now27M() for one that makes no sense.
    int64_t timeOf(int64_t stampTicks) const;

private:
    int64_t atLastRate(int64_t bytes) const;
    void learnRate(int64_t ticks, int64_t bytes);

    int64_t mTicks = -1;
    uint64_t mOffset = 0;
    int64_t mNow27M = 0;
    // Over the good intervals of late: the rate.
    int64_t mRateTicks = 0;
    int64_t mRateBytes = 0;
};

}  // namespace orvhost
