// A source that is played as a recording: its begin at once, its end, pause and reposition.

#include <dtv/RecPlayerBinder.h>

#include <algorithm>
#include <utility>

#include "dtv/TunerSession.h"

namespace orvhost {

namespace {

constexpr size_t JUNK_BYTES = 4 << 20;  // so much without a packet is no recording any more

}  // namespace

// What a read says about the file. Its end may be one for now only.
void TunerSession::judgeRead(ssize_t got) {
    mJunkBytes =
        mWindow.freshCount() > 0 ? 0 : mJunkBytes + static_cast<size_t>(std::max<ssize_t>(got, 0));
    mAtPresentEnd = got == 0;
    mSourceEnded = got < 0 || mJunkBytes >= JUNK_BYTES || (got == 0 && mFinishing);
    mEndEvent = got < 0                    ? PLAYER_EVENT_READ_FAILED
                : mJunkBytes >= JUNK_BYTES ? PLAYER_EVENT_BAD_RECORDING
                                           : PLAYER_EVENT_END_OF_CONTENT;
}

bool TunerSession::isBurstDue() const {
    std::lock_guard lock(mMutex);
    return mBurst;
}

bool TunerSession::isPreview() const {
    std::lock_guard lock(mMutex);
    return mBurst && mPausedAtNs >= 0;
}

// The player's clock follows no reference by less than a second: it gets the last one alone.
void TunerSession::handBegin(size_t due, size_t most) {
    const size_t count = std::min(due, most);
    mHeldBack = due - count;
    mDemultiplexer.feedAtOnce(mWindow.packets(), count, mHeldBack);
    mWindow.release(count);
    mFedThisLap += count;
}

// The begin of the feed was handed over. A pause lasts from then on, if there is one.
void TunerSession::noteBegun(int64_t nowNs) {
    std::lock_guard lock(mMutex);
    mWasFed = true;
    if (mBurst && mPausedAtNs >= 0) {
        mPausedAtNs = nowNs;
    }
    mBurst = false;
}

void TunerSession::takePause() {
    std::lock_guard lock(mMutex);
    mPacer.shift(std::exchange(mPausedNs, 0));
}

// Everything was handed over; the end comes when its time has. Until then the file may grow.
bool TunerSession::waitsForEnd(int64_t nowNs) {
    const int64_t endNs = mPacer.endNs(nowNs);
    if (nowNs >= endNs) {
        return false;
    }
    sleepUntil(std::min(endNs, nowNs + LONGEST_SLEEP_NS));
    return true;
}

void TunerSession::finishFeeding() {
    if (!mSourceEnded) {
        mFinishing = true;
        fill(0);
        mFinishing = false;
        if (!mSourceEnded) {
            mPacer.add(mWindow.fresh(), mWindow.freshCount());
            return;
        }
        hand(mWindow.count());  // what could not be told from half a packet
    }
    reachEnd();
}

bool TunerSession::setPaused(bool paused) {
    if (!mOptions.recorded) {
        return false;
    }
    {
        std::lock_guard lock(mMutex);
        const int64_t nowNs = mClock.nowNs();
        if (paused && mPausedAtNs < 0) {
            mPausedAtNs = nowNs;
        } else if (!paused && mPausedAtNs >= 0) {
            mPausedNs += nowNs - mPausedAtNs;
            mPausedAtNs = -1;
        }
    }
    mFeederWake.notify_all();
    if (paused) {
        std::lock_guard feeding(mFeedMutex);  // a batch that is under way is the last one
    }
    return true;
}

bool TunerSession::wasFed() const {
    std::lock_guard lock(mMutex);
    return mWasFed;
}

}  // namespace orvhost
