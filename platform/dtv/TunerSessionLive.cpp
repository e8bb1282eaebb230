// A source that comes at its sender's pace: read all the time, and fed a moment after it came.

#include <algorithm>
#include <chrono>
#include <utility>

#include "dtv/TunerSession.h"

namespace orvhost {

namespace {

constexpr int64_t MS = 1'000'000;

constexpr int64_t TICK_NS = 20 * MS;
constexpr int SILENT_READ_MS = 100;
constexpr int READS_PER_TICK = 16;  // then what has come is handed over, whatever is left
constexpr int64_t JUST_NOW_NS = 500 * MS;

}  // namespace

bool TunerSession::isLiveFor(const std::string& name, const TuneOptions& options) const {
    return isLive() && name == mName && options.paced && options.follow == mOptions.follow &&
           options.pcrPid == mOptions.pcrPid;
}

TuneResult TunerSession::waitForMore(int timeoutMs) {
    std::unique_lock lock(mMutex);
    const uint64_t before = mBytes;
    if (!mOpened || mClock.nowNs() - mLastDataNs > JUST_NOW_NS) {
        mMoreWanted = true;
        mCallerWake.wait_for(lock, std::chrono::milliseconds(std::max(timeoutMs, 0)),
                             [&] { return mBytes != before || isCancelled(); });
        if (mBytes == before && !isCancelled()) {
            return {TuneStatus::NoData, mName + ": " + mSource->silence()};
        }
    }
    return isCancelled() ? TuneResult{TuneStatus::Cancelled, mName + ": given up"} : TuneResult{};
}

// False when the session is over. Nobody can go back in what is live.
bool TunerSession::isWantedLive() {
    {
        std::lock_guard lock(mMutex);
        if (isCancelled() || (mOpened && !mOpening.ok())) {
            return false;
        }
        mRewindResult = false;
        if (!std::exchange(mRewindWanted, false)) {
            return true;
        }
    }
    mCallerWake.notify_all();
    return true;
}

void TunerSession::runLive() {
    {
        std::lock_guard lock(mMutex);
        mFeeding = true;  // who waits for tables may hope
    }
    mNextTickNs = mClock.nowNs();
    while (isWantedLive()) {
        std::lock_guard feeding(mFeedMutex);
        receiveLive();
        if (const size_t due = mLivePacer.takeDue(mClock.nowNs()); due > 0) {
            hand(due);
        }
        if (mLivePacer.isEmpty()) {
            continue;  // the next read waits
        }
        mNextTickNs = std::max(mNextTickNs + TICK_NS, mClock.nowNs());
        std::unique_lock lock(mMutex);
        while (!isCancelled() && !mRewindWanted && mClock.nowNs() < mNextTickNs) {
            mClock.waitUntil(lock, mFeederWake, mNextTickNs);
        }
    }
}

// Everything that has come.
void TunerSession::receiveLive() {
    ssize_t got = fill(mLivePacer.isEmpty() ? SILENT_READ_MS : 0);
    for (int reads = 0; got > 0 && reads < READS_PER_TICK; ++reads) {
        mLivePacer.add(mWindow.fresh(), mWindow.freshCount(), mClock.nowNs());
        settleOpening(got);
        got = fill(0);
    }
    if (!mPaceChosen) {
        choosePace();
    }
}

// As soon as the tables tell whose clock it is. Until then any is good.
void TunerSession::choosePace() {
    {
        std::lock_guard lock(mMutex);
        mHeadDone = mTables.isComplete();
        mPaceChosen = mHeadDone;
    }
    if (mOptions.pcrPid != PID_NONE) {
        mLivePacer.setPcrPid(mOptions.pcrPid);
    } else if (mPaceChosen) {
        mLivePacer.setPcrPid(
            choosePid(DEMUX_FILTER_PCR, [](const Service& service) { return service.pcrPid; }));
    }
}

}  // namespace orvhost
