#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace orvplay {

// Collects times and tells their quantiles, in memory that does not grow: a histogram with bins of
// 0.1 ms up to a second; what is longer counts as a second, but for the maximum. Signs are kept:
// the quantiles are those of the magnitudes. Not thread-safe.
class Distribution {
public:
    void add(double ms);
    uint64_t count() const { return mCount; }
    // The magnitude under which the share `quantile` (0 to 1) of the values lies; 0 when empty.
    double quantileMs(double quantile) const;
    double maxMs() const { return mMaxMs; }
    // The mean with signs.
    double meanMs() const { return mCount > 0 ? mSumMs / static_cast<double>(mCount) : 0.0; }

private:
    static constexpr double BIN_MS = 0.1;
    static constexpr size_t BINS = 10'000;

    std::vector<uint32_t> mBins = std::vector<uint32_t>(BINS, 0);
    uint64_t mCount = 0;
    double mSumMs = 0.0;
    double mMaxMs = 0.0;
};

}  // namespace orvplay
