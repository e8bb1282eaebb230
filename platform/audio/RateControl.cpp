#include "audio/RateControl.h"

#include <algorithm>
#include <cmath>

namespace orvhost {
namespace {

constexpr double NS_PER_SECOND = 1e9;
constexpr int64_t WINDOW_NS = 1'000'000'000;
constexpr double PPM_PER_MS = 100;
constexpr double PPM_PER_MS_SECOND = 2.5;  // critical damping for the above
constexpr double MAX_PPM = 1000;

}  // namespace

void RateControl::restart() {
    mHasWindow = false;
}

uint32_t RateControl::update(int64_t nowNs, double aheadMs) {
    if (!mHasWindow) {
        mHasWindow = true;
        mWindowStartNs = nowNs;
        mSumMs = 0;
        mCount = 0;
    }
    mSumMs += aheadMs;
    mCount++;
    const int64_t windowNs = nowNs - mWindowStartNs;
    if (windowNs < WINDOW_NS) {
        return mRate;
    }
    mHasWindow = false;
    const double meanMs = mSumMs / mCount;
    const double seconds = std::min(static_cast<double>(windowNs) / NS_PER_SECOND, 2.0);
    mDriftPpm = std::clamp(mDriftPpm + PPM_PER_MS_SECOND * meanMs * seconds, -MAX_PPM, MAX_PPM);
    const double ppm = std::clamp(PPM_PER_MS * meanMs + mDriftPpm, -MAX_PPM, MAX_PPM);
    mRate = static_cast<uint32_t>(std::lround(mSampleRate * (1 - ppm * 1e-6)));
    return mRate;
}

}  // namespace orvhost
