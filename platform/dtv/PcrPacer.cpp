#include "dtv/PcrPacer.h"

#include <algorithm>

#include "dtv/TsPacket.h"

namespace orvhost {

namespace {

// ISO/IEC 13818-1 allows 100 ms between PCRs; some streams take more, and a lost stretch looks the
// same. Above this an interval must agree with the rate before it.
constexpr int64_t TRUSTED_INTERVAL_NS = 500'000'000;
constexpr int64_t LONGEST_INTERVAL_NS = 5'000'000'000;

// A gap in reception is kept up to this length; a larger step is taken for a cut.
constexpr int64_t LONGEST_GAP_NS = 60'000'000'000;

// So much without a clock is paced by the last rate: half a second at 12 Mbit/s.
constexpr size_t MAX_OPEN_PACKETS = 4096;

// How long the end of a known stretch may lie back before the open packets behind it go out.
constexpr int64_t STARVED_NS = 100'000'000;

// For a stream that brings neither PCR nor time stamps: 12 Mbit/s.
constexpr int64_t DEFAULT_PACKET_NS = 188LL * 8 * 1'000'000'000 / 12'000'000;

// No interval above a gigabit a second is believed: it would be a burst.
constexpr int64_t QUICKEST_PACKET_NS = 188 * 8;

// No rate below 60 kbit/s is believed where there is only a rate to go by.
constexpr int64_t SLOWEST_PACKET_NS = 188LL * 8 * 1'000'000'000 / 60'000;

constexpr int64_t RATE_WINDOW_PACKETS = 8192;

}  // namespace

void PcrPacer::setPcrPid(uint16_t pid) {
    if (mClock.setPcrPid(pid)) {
        mLastTicks = -1;
    }
}

int64_t PcrPacer::durationAtLastRate(size_t packets) const {
    const int64_t packetNs =
        mRatePackets == 0 ? DEFAULT_PACKET_NS : std::min(mRateNs / mRatePackets, SLOWEST_PACKET_NS);
    return static_cast<int64_t>(packets) * packetNs;
}

void PcrPacer::close(int64_t durationNs) {
    if (mOpen == 0) {
        return;
    }
    mSegments.push_back({mOpen, durationNs});
    mBufferedNs += durationNs;
    mOpen = 0;
}

void PcrPacer::closeAtLastRate() {
    mOpen += mUnrated;
    mUnrated = 0;
    close(durationAtLastRate(mOpen));
}

bool PcrPacer::isPlausible(int64_t durationNs) const {
    const int64_t quickest = static_cast<int64_t>(mOpen) * QUICKEST_PACKET_NS;
    if (durationNs < quickest || durationNs > LONGEST_INTERVAL_NS) {
        return false;
    }
    if (durationNs <= TRUSTED_INTERVAL_NS) {
        return true;
    }
    const int64_t expected = durationAtLastRate(mOpen);
    return mRatePackets != 0 && durationNs > expected / 2 && durationNs < expected * 2;
}

bool PcrPacer::isGap(int64_t durationNs) const {
    return mKeepGaps && mRatePackets != 0 && durationNs > TRUSTED_INTERVAL_NS &&
           durationNs <= LONGEST_GAP_NS && durationNs > durationAtLastRate(mOpen);
}

// The packets since the last sample keep their rate, the rest of the time is silent.
void PcrPacer::closeBeforeGap(int64_t durationNs) {
    const int64_t silenceNs = durationNs - durationAtLastRate(mOpen);
    closeAtLastRate();
    mSegments.push_back({0, silenceNs});
    mBufferedNs += silenceNs;
}

// An average that fades: one odd interval must not set the pace of what follows.
void PcrPacer::learnRate(int64_t durationNs) {
    mRatePackets += static_cast<int64_t>(mOpen);
    mRateNs += durationNs;
    if (mRatePackets > RATE_WINDOW_PACKETS) {
        mRatePackets /= 2;
        mRateNs /= 2;
    }
}

void PcrPacer::onSample(int64_t ticks, bool announcedJump) {
    const bool measurable = mLastTicks >= 0 && mOpen > 0 && !announcedJump;
    const int64_t duration = measurable ? pcrToNs(pcrDistance(mLastTicks, ticks)) : 0;
    mLastTicks = ticks;
    if (measurable && isPlausible(duration)) {
        learnRate(duration);
        if (mUnrated > 0) {
            const size_t open = mOpen;
            mOpen = mUnrated;
            mUnrated = 0;
            close(durationAtLastRate(mOpen));
            mOpen = open;
        }
        close(duration);
    } else if (measurable && isGap(duration)) {
        closeBeforeGap(duration);
    } else if (mRatePackets != 0) {
        close(durationAtLastRate(mOpen));
    } else {
        mUnrated += mOpen;
        mOpen = 0;
    }
}

void PcrPacer::add(const uint8_t* packets, size_t count) {
    mClock.choose(packets, count);
    for (size_t i = 0; i < count; ++i) {
        const uint8_t* packet = packets + i * TS_PACKET_BYTES;
        const int64_t ticks = mClock.sampleOf(packet);
        if (ticks >= 0) {
            onSample(ticks, hasDiscontinuityIndicator(packet));
        }
        ++mOpen;
        if (mOpen + mUnrated >= MAX_OPEN_PACKETS) {
            closeAtLastRate();
            mLastTicks = -1;
            mClock.takeAnyPid();
        }
    }
}

void PcrPacer::finish() {
    closeAtLastRate();
    mLastTicks = -1;
}

bool PcrPacer::waitedLongEnough(int64_t nowNs) {
    if (mOpen + mUnrated == 0) {
        return false;
    }
    if (mWaitingSinceNs < 0) {
        mWaitingSinceNs = nowNs;
    }
    return nowNs - mWaitingSinceNs > STARVED_NS;
}

size_t PcrPacer::takeDue(int64_t nowNs) {
    const bool begins = !mStarted;
    if (begins) {
        if (mSegments.empty()) {
            if (!waitedLongEnough(nowNs)) {
                return 0;  // the pace begins with the first packet whose time is known
            }
            closeAtLastRate();
            mLastTicks = -1;
        }
        mWaitingSinceNs = -1;
        mStarted = true;
        mStartNs = nowNs - progressNs(mSegments.front()) - mLeadNs;
    }
    if (mSegments.empty() && mOpen + mUnrated > 0 && nowNs - mStartNs > STARVED_NS) {
        closeAtLastRate();
        mLastTicks = -1;
    }
    const int64_t lateNs = nowNs - nextDueNs(nowNs);
    if (lateNs > MAX_LATE_NS && !begins && !mCatchesUp) {
        mStartNs += lateNs;
    }
    size_t due = 0;
    while (!mSegments.empty() && mStartNs <= nowNs) {
        const Segment& segment = mSegments.front();
        const int64_t elapsed = nowNs - mStartNs;
        if (elapsed < segment.durationNs) {
            const auto packets = static_cast<int64_t>(segment.packets);
            const auto target =
                static_cast<size_t>(std::min(elapsed * packets / segment.durationNs + 1, packets));
            if (target > mTaken) {
                due += target - mTaken;
                mTaken = target;
            }
            break;
        }
        due += segment.packets - mTaken;
        mTaken = 0;
        mStartNs += segment.durationNs;
        mBufferedNs -= segment.durationNs;
        mSegments.pop_front();
    }
    return due;
}

size_t PcrPacer::packetsWithin(int64_t streamNs) const {
    size_t packets = 0;
    for (const Segment& segment : mSegments) {
        if (segment.durationNs > streamNs) {
            const auto part =
                static_cast<double>(streamNs) / static_cast<double>(segment.durationNs);
            return packets + static_cast<size_t>(static_cast<double>(segment.packets) * part);
        }
        packets += segment.packets;
        streamNs -= segment.durationNs;
    }
    return packets;
}

int64_t PcrPacer::endNs(int64_t unknown) const {
    return mStarted ? mStartNs + mBufferedNs + mLeadNs : unknown;
}

int64_t PcrPacer::nextDueNs(int64_t unknown) const {
    if (!mStarted || mSegments.empty()) {
        return unknown;
    }
    // The first packet that is due after the ones taken; at the segment's end, the next segment.
    const Segment& first = mSegments.front();
    return mStartNs + (first.packets == 0 ? first.durationNs : progressNs(first));
}

// How far into the segment its first packet is that was not taken.
int64_t PcrPacer::progressNs(const Segment& segment) const {
    return segment.packets == 0 ? 0
                                : segment.durationNs * static_cast<int64_t>(mTaken) /
                                      static_cast<int64_t>(segment.packets);
}

void PcrPacer::clear() {
    mSegments.clear();
    mClock.forgetStamp();
    mLastTicks = -1;
    mOpen = 0;
    mUnrated = 0;
    mTaken = 0;
    mBufferedNs = 0;
    mStarted = false;
}

}  // namespace orvhost
