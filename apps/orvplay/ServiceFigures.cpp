#include "ServiceFigures.h"

#include <algorithm>
#include <vector>

#include "MonotonicTime.h"

using orvclient::PlaybackFigures;

namespace orvplay {

namespace {

// Everything that only grows, one after the other.
template <typename Action>
void forEachCounter(Action action) {
    action(&PlaybackFigures::framesTimed);
    action(&PlaybackFigures::picturesReleasedUnseen);
    action(&PlaybackFigures::picturesDroppedAtWindow);
    action(&PlaybackFigures::audioFrames);
    action(&PlaybackFigures::audioEarlyCount);
    action(&PlaybackFigures::cpuSeconds);
    action(&PlaybackFigures::voluntarySwitches);
}

}  // namespace

void ServiceFigures::begin(const PlaybackFigures& now) {
    mBeginNs = monotonicNs();
    mBefore = now;
    mLast = now;
    mEnded = {};
    mTotals = {};
}

bool ServiceFigures::update(const PlaybackFigures& now) {
    if (now.pid == 0) {
        return false;
    }
    if (now.pid != mLast.pid) {
        forEachCounter([this](auto counter) {
            mEnded.*counter += mLast.*counter - mBefore.*counter;
            mBefore.*counter = 0;
        });
    }
    mLast = now;
    const int64_t maxRssKb = std::max(mTotals.maxRssKb, now.maxRssKb);
    mTotals = now;
    mTotals.maxRssKb = maxRssKb;
    forEachCounter(
        [this](auto counter) { mTotals.*counter += mEnded.*counter - mBefore.*counter; });
    // Those of an earlier playback are none of ours.
    std::erase_if(mTotals.beepsNs, [this](int64_t timeNs) { return timeNs < mBeginNs; });
    if (mTotals.lastFrameTimedNs < mBeginNs) {
        mTotals.lastFrameTimedNs = 0;
    }
    return true;
}

}  // namespace orvplay
