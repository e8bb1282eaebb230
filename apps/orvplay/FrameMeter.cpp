#include "FrameMeter.h"

#include <algorithm>
#include <cmath>

namespace orvplay {

namespace {

constexpr double NEW_TIME_BASE_MS = 1000.0;

// The shorter way round the circle of 33 bits, in ticks of 90 kHz.
int64_t ptsDistance(uint64_t from, uint64_t to) {
    constexpr int64_t CIRCLE = int64_t{1} << 33;
    const auto forward = static_cast<int64_t>((to - from) & (CIRCLE - 1));
    return forward >= CIRCLE / 2 ? forward - CIRCLE : forward;
}

}  // namespace

void FrameMeter::onFrame(int64_t ptsNs, int64_t arrivalNs, std::optional<uint32_t> frameNumber) {
    const auto pts90k = static_cast<uint64_t>(std::llround(static_cast<double>(ptsNs) * 9e-5));
    if (mAnchored) {
        mExpectedNs += ptsDistance(mLastPts90k, pts90k) * 100'000 / 9;
        mLastMs = static_cast<double>(arrivalNs - mExpectedNs) * 1e-6;
        mAnchored = std::fabs(mLastMs) < NEW_TIME_BASE_MS;
    }
    if (!mAnchored) {
        mExpectedNs = arrivalNs;
        mLastMs = 0.0;
        mAnchored = true;
    }
    if (mLastArrivalNs != 0) {
        mLongestGapNs = std::max(mLongestGapNs, arrivalNs - mLastArrivalNs);
    }
    mLastArrivalNs = arrivalNs;
    mLastPts90k = pts90k;
    mJitter.add(mLastMs);
    if (frameNumber.has_value()) {
        countNumber(*frameNumber);
    }
}

void FrameMeter::onBreak() {
    mAnchored = false;
    mLastArrivalNs = 0;
    mNumbersBroken = true;
}

void FrameMeter::countNumber(uint32_t number) {
    if (mNumbers.read == 0) {
        mNumbers.first = number;
    } else if (mNumbersBroken) {
        // no successor
    } else if (number == mNumbers.last) {
        ++mNumbers.repeated;
    } else if (number < mNumbers.last) {
        ++mNumbers.backward;
    } else {
        mNumbers.missing += number - mNumbers.last - 1;
    }
    mNumbersBroken = false;
    mNumbers.last = number;
    ++mNumbers.read;
}

}  // namespace orvplay
