#include "LoadGuard.h"

#include <algorithm>

namespace orvplay {

namespace {

constexpr double TOO_MUCH = 0.7;
constexpr double TO_SPARE = 0.3;  // twice this is still not too much
constexpr double WEIGHT = 0.15;   // of the newest picture
constexpr int SETTLING_PICTURES = 8;

}  // namespace

void LoadGuard::onPicture(double costMs, double periodMs) {
    if (periodMs <= 0.0) {
        return;
    }
    // One picture that took very long (a window being moved) is not load.
    const double share = std::min(costMs / periodMs, 2.0);
    mShare = mPictures == 0 ? std::min(share, TOO_MUCH) : mShare + WEIGHT * (share - mShare);
    ++mPictures;
    if (mPictures > SETTLING_PICTURES && mShare > TOO_MUCH && mLevel > 0) {
        mCalmNeeded = mTrying ? std::min(2 * mCalmNeeded, CALM_PICTURES_MAX) : CALM_PICTURES;
        mTrying = false;
        change(mLevel - 1);
        return;
    }
    mCalm = mShare < TO_SPARE ? mCalm + 1 : 0;
    if (mTrying && mPictures > mCalmNeeded) {
        mTrying = false;
    }
    if (mCalm >= mCalmNeeded && mLevel < mHighest) {
        mTrying = true;
        change(mLevel + 1);
    }
}

void LoadGuard::change(int level) {
    mLevel = level;
    mPictures = 0;
    mCalm = 0;
}

}  // namespace orvplay
