#pragma once

#include <cstdint>

namespace orvhost {

// Keeps a sound card's clock from pulling sound away from the monotonic clock: measures how far
// ahead of its time sound is and answers with the sample rate to declare for the stream, so that
// the server's resampler makes up for the drift.
//
// A slow PI loop (time constant about 20 s) on one-second means: the measurements jitter by
// milliseconds while the drift is some 50 millionths. The correction stays within a thousandth,
// which nobody hears. Not thread-safe.
class RateControl {
public:
    explicit RateControl(uint32_t sampleRate) : mSampleRate(sampleRate), mRate(sampleRate) {}

    // Sound starts anew; what was learnt about the drift is kept.
    void restart();

    // `aheadMs`: how much earlier than due the next frame would be heard. Returns the rate in Hz.
    uint32_t update(int64_t nowNs, double aheadMs);

private:
    const uint32_t mSampleRate;
    uint32_t mRate;
    double mDriftPpm = 0;  // the integral part
    bool mHasWindow = false;
    int64_t mWindowStartNs = 0;
    double mSumMs = 0;
    int mCount = 0;
};

}  // namespace orvhost
