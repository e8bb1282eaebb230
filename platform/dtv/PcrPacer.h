#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>

#include "dtv/StreamClock.h"

namespace orvhost {

// Says when each packet of a recorded stream is due, from its programme clock reference or, where
// the first packets have none, from the time stamps of one PID.
//
//   packets   x x x P x x x x x x P x x x x P        P: tells the clock
//             \pre/ \-- 40 ms ---/ \ 40 ms /         a segment: so many packets in so much time
//
// Inside a segment packets are spread evenly. A jump of the clock (either way, announced or not)
// carries on at the rate of the segment before it, and so does a stretch without clock. The first
// packets, before there is any rate, get the first rate found. Not thread-safe; knows no clock:
// times are handed in.
class PcrPacer {
public:
    // The PID whose PCR counts; PID_NONE takes the first PID that carries one. Also what happens
    // when the chosen PID brings none for a long stretch.
    void setPcrPid(uint16_t pid);
    uint16_t pcrPid() const { return mClock.pcrPid(); }

    // The PID whose time stamps pace a stream without PCR, best that of the video; PID_NONE, or a
    // PID without any, takes the first with some. Without effect once packets were added.
    void setStampPid(uint16_t pid) { mClock.setStampPid(pid); }

    // A jump ahead by 0.5 to 60 s that is not announced becomes silence of that length: packets are
    // missing there, as on air while the signal was gone. Otherwise the pace carries on.
    void setKeepGaps(bool keep) { mKeepGaps = keep; }

    // However late, everything that is due goes out: for what comes at a pace of its own.
    void setCatchesUp(bool catchesUp) { mCatchesUp = catchesUp; }

    // Adds `count` packets behind those that are not due yet.
    void add(const uint8_t* packets, size_t count);

    // No more packets will come: those that wait for their segment's end get the last rate.
    void finish();

    // How many more packets are due at nowNs; they are done with. The first call after restart()
    // that finds a packet sets its time. More than MAX_LATE_NS behind, the pace shifts instead of
    // bursting.
    size_t takeDue(int64_t nowNs);

    // How many packets the next takeDue() takes of so much stream time, the first one after
    // restart().
    size_t packetsWithin(int64_t streamNs) const;

    // When the next packet is due; `unknown` when that is not known yet.
    int64_t nextDueNs(int64_t unknown) const;

    // The next packet is due at the next takeDue(), and what the next leadNs of the stream bring
    // with it: from then on the feed is so much ahead.
    void restart(int64_t leadNs = 0) {
        mStarted = false;
        mLeadNs = leadNs;
    }

    // After a pause of that length.
    void shift(int64_t pauseNs) { mStartNs += pauseNs; }

    // When the stream time of the last packet that is known has come: when it was due, but for the
    // lead. `unknown` before the first takeDue() that found a packet.
    int64_t endNs(int64_t unknown) const;

    // After a jump in the source: forgets all packets, not the rate.
    void clear();

    // Stream time that is known and not due yet.
    int64_t bufferedNs() const { return mBufferedNs; }

    static constexpr int64_t MAX_LATE_NS = 500'000'000;

private:
    struct Segment {
        size_t packets;  // 0: silence
        int64_t durationNs;
    };

    bool waitedLongEnough(int64_t nowNs);
    void learnRate(int64_t durationNs);
    void onSample(int64_t ticks, bool announcedJump);
    void close(int64_t durationNs);
    void closeAtLastRate();
    bool isGap(int64_t durationNs) const;
    void closeBeforeGap(int64_t durationNs);
    int64_t progressNs(const Segment& segment) const;
    bool isPlausible(int64_t durationNs) const;
    int64_t durationAtLastRate(size_t packets) const;

    StreamClock mClock;
    bool mKeepGaps = false;
    bool mCatchesUp = false;
    int64_t mLastTicks = -1;  // -1: none to measure from
    size_t mOpen = 0;         // packets of the segment that no sample has closed yet
    size_t mUnrated = 0;      // packets before them that wait for the first rate
    // Over the good segments of late: the rate.
    int64_t mRatePackets = 0;
    int64_t mRateNs = 0;

    std::deque<Segment> mSegments;
    size_t mTaken = 0;     // packets of the first segment that are done with
    int64_t mStartNs = 0;  // when the first segment began
    int64_t mBufferedNs = 0;
    int64_t mLeadNs = 0;
    bool mStarted = false;
    int64_t mWaitingSinceNs = -1;  // first asked while only packets of unknown time were there
};

}  // namespace orvhost
