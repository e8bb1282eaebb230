#pragma once

#include <cstdint>
#include <optional>

#include "Distribution.h"

namespace orvplay {

// What the frame numbers in the picture say: was each shown once, and in order?
struct FrameNumbers {
    uint64_t read = 0;
    uint32_t first = 0;
    uint32_t last = 0;
    uint64_t missing = 0;
    uint64_t repeated = 0;
    uint64_t backward = 0;
};

// Measures when pictures arrive at the output against their time stamps.
//
// Jitter is the arrival minus where the PTS puts it, counted from the first picture. When the
// stream's time base jumps, so that a picture is over a second away from its place, counting
// starts again with that picture. Not thread-safe.
class FrameMeter {
public:
    // ptsNs is on the stream's time line of 33 bits; it may wrap.
    void onFrame(int64_t ptsNs, int64_t arrivalNs, std::optional<uint32_t> frameNumber);

    // The next picture is no successor of the last one: times, gaps and numbers count from it.
    void onBreak();

    const Distribution& jitter() const { return mJitter; }
    const FrameNumbers& numbers() const { return mNumbers; }
    // Jitter of the last picture.
    double lastMs() const { return mLastMs; }
    // The longest time that a picture stood, whatever the reason.
    int64_t longestGapNs() const { return mLongestGapNs; }

private:
    void countNumber(uint32_t number);

    Distribution mJitter;
    FrameNumbers mNumbers;
    bool mAnchored = false;
    bool mNumbersBroken = false;  // the next number follows none
    int64_t mExpectedNs = 0;      // arrival of the previous picture by its PTS
    int64_t mLastArrivalNs = 0;
    int64_t mLongestGapNs = 0;
    uint64_t mLastPts90k = 0;
    double mLastMs = 0.0;
};

}  // namespace orvplay
