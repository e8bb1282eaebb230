#include "dtv/LivePacer.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace orvhost {

namespace {

constexpr int64_t MS = 1'000'000;

// The average is over so long, and what it says is made good in so long: a sender that is 200 ppm
// off shifts the cushion by 4 ms and there it stays.
constexpr int64_t AVERAGE_NS = 4000 * MS;
constexpr int64_t FOLLOW_NS = 20'000 * MS;

// When nothing has come for so long, and all was due that long ago, the sender has paused.
constexpr int64_t PAUSE_NS = 60 * MS;

// More packets than that are not kept, whatever their clock says: a quarter of a second at a
// gigabit a second.
constexpr size_t MOST_WAITING = 1 << 17;

}  // namespace

LivePacer::LivePacer() {
    mPacer.setKeepGaps(true);
    mPacer.setCatchesUp(true);
    mPacer.restart(-DELAY_NS);
}

void LivePacer::add(const uint8_t* packets, size_t count, int64_t nowNs) {
    const int64_t knownNs = mPacer.endNs(INT64_MAX);
    mPacer.add(packets, count);
    mWaiting += count;
    mLastCameNs = nowNs;
    const int64_t endNs = mPacer.endNs(INT64_MIN);
    if (endNs > knownNs) {
        follow(endNs - nowNs, nowNs);
    }
}

// The newest packet whose time is known is due, but for the delay, so long after it came.
void LivePacer::follow(int64_t offNs, int64_t nowNs) {
    if (offNs > MOST_AHEAD_NS || offNs < -MOST_BEHIND_NS) {
        ++mSteps;
        settle(offNs, nowNs);
        return;
    }
    const int64_t sinceNs = std::clamp<int64_t>(nowNs - mLastNs, 0, AVERAGE_NS);
    mLastNs = nowNs;
    mOffNs += (offNs - mOffNs) * (sinceNs / 1000) / (AVERAGE_NS / 1000);
    const int64_t shiftNs = mOffNs * (sinceNs / 1000) / (FOLLOW_NS / 1000);
    mPacer.shift(-shiftNs);
    mOffNs -= shiftNs;
}

void LivePacer::settle(int64_t offNs, int64_t nowNs) {
    mPacer.shift(-offNs);
    mOffNs = 0;
    mLastNs = nowNs;
}

// Everything there is, whenever it was due; what comes then begins anew.
size_t LivePacer::takeAll() {
    ++mSteps;
    mBegun = false;
    mPacer.clear();
    return std::exchange(mWaiting, 0);
}

bool LivePacer::hasPaused(int64_t nowNs) const {
    return mBegun && mPacer.bufferedNs() == 0 && nowNs - mLastCameNs > PAUSE_NS &&
           nowNs - mPacer.endNs(nowNs) - DELAY_NS > PAUSE_NS;
}

size_t LivePacer::takeDue(int64_t nowNs) {
    if (hasPaused(nowNs)) {
        return takeAll();
    }
    size_t due = mPacer.takeDue(nowNs);
    const int64_t endNs = mPacer.endNs(INT64_MIN);
    if (!mBegun && endNs != INT64_MIN) {
        mBegun = true;
        settle(endNs - nowNs, nowNs);
        due += mPacer.takeDue(nowNs);
    }
    if (mWaiting - due > MOST_WAITING) {
        return takeAll();
    }
    mWaiting -= due;
    return due;
}

}  // namespace orvhost
