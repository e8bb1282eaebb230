#include "SyncMeter.h"

#include <cstdlib>

namespace orvplay {

namespace {

constexpr int64_t PARTNER_NS = 500'000'000;

}  // namespace

void SyncMeter::onFlash(int64_t timeNs) {
    std::lock_guard<std::mutex> guard(mLock);
    mFlashes.push_back(timeNs);
    match();
}

void SyncMeter::onBeep(int64_t timeNs) {
    std::lock_guard<std::mutex> guard(mLock);
    mBeeps.push_back(timeNs);
    match();
}

void SyncMeter::onBreak() {
    std::lock_guard<std::mutex> guard(mLock);
    mFlashes.clear();
    mBeeps.clear();
}

void SyncMeter::onTimeStamps(double skewMs) {
    std::lock_guard<std::mutex> guard(mLock);
    mByTimeStamps.add(skewMs);
}

void SyncMeter::match() {
    while (!mFlashes.empty() && !mBeeps.empty()) {
        const int64_t skewNs = mBeeps.front() - mFlashes.front();
        if (std::llabs(skewNs) <= PARTNER_NS) {
            mByMarks.add(static_cast<double>(skewNs) * 1e-6);
            mFlashes.pop_front();
            mBeeps.pop_front();
        } else if (skewNs > 0) {
            mFlashes.pop_front();  // its beep was never heard
        } else {
            mBeeps.pop_front();
        }
    }
    // One kind alone: a stream with flashes and no beeps must not collect them for ever.
    constexpr size_t KEPT = 16;
    if (mFlashes.size() > KEPT) {
        mFlashes.pop_front();
    }
    if (mBeeps.size() > KEPT) {
        mBeeps.pop_front();
    }
}

Distribution SyncMeter::skew() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mByMarks.count() > 0 ? mByMarks : mByTimeStamps;
}

bool SyncMeter::measuredByMarks() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mByMarks.count() > 0;
}

}  // namespace orvplay
