#include "mksample/TestSound.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "pattern/TestPattern.h"

namespace mksample {
namespace {

constexpr double kHumAmplitude = 500.0;
constexpr int kHumLeftHz = 220;
constexpr int kHumRightHz = 330;

double hum(int64_t position, int hz, int sampleRate) {
    // Both frequencies divide the rate's second, so the phase stays exact for ever.
    const double phase = static_cast<double>(position % sampleRate) * hz / sampleRate;
    return kHumAmplitude * std::sin(2.0 * std::numbers::pi * phase);
}

}  // namespace

int64_t TestSound::onset(int64_t n) const {
    const int64_t ticks = mFps.ticks90k(n * static_cast<int64_t>(mFps.nominal()));
    return (ticks * mSampleRate + 45000) / 90000;
}

void TestSound::fill(int64_t position, int count, int16_t* out) const {
    if (mSilent) {
        std::fill_n(out, 2 * count, int16_t{0});
        return;
    }
    // The last flash at or before the first sample; the estimate is at most one too high.
    const int64_t samplesNum = int64_t{mSampleRate} * mFps.den * mFps.nominal();
    int64_t flash = std::max<int64_t>(0, position * mFps.num / samplesNum - 1);
    while (onset(flash + 1) <= position) {
        ++flash;
    }
    for (int i = 0; i < count; ++i) {
        const int64_t at = position + i;
        if (onset(flash + 1) <= at) {
            ++flash;
        }
        const int beep = orvtest::beepSample(at - onset(flash), mSampleRate);
        out[2 * i] =
            static_cast<int16_t>(beep + std::lround(hum(at, mPitch * kHumLeftHz, mSampleRate)));
        out[2 * i + 1] =
            static_cast<int16_t>(beep + std::lround(hum(at, mPitch * kHumRightHz, mSampleRate)));
    }
}

}  // namespace mksample
