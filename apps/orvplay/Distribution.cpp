#include "Distribution.h"

#include <algorithm>
#include <cmath>

namespace orvplay {

void Distribution::add(double ms) {
    const double magnitude = std::fabs(ms);
    const auto bin = static_cast<size_t>(std::min(magnitude / BIN_MS, double{BINS - 1}));
    ++mBins[bin];
    ++mCount;
    mSumMs += ms;
    mMaxMs = std::max(mMaxMs, magnitude);
}

double Distribution::quantileMs(double quantile) const {
    if (mCount == 0) {
        return 0.0;
    }
    const auto wanted = static_cast<uint64_t>(std::ceil(quantile * static_cast<double>(mCount)));
    uint64_t seen = 0;
    for (size_t bin = 0; bin < BINS; ++bin) {
        seen += mBins[bin];
        if (seen >= std::max<uint64_t>(wanted, 1)) {
            return std::min(static_cast<double>(bin + 1) * BIN_MS, mMaxMs);
        }
    }
    return mMaxMs;
}

}  // namespace orvplay
