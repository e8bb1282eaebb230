// The sound of the sample broadcast: a quiet hum (so that a coder has something to do and silence
// is told from loss) and a beep that starts with every flash of the picture.

#pragma once

#include <cstdint>

#include "mksample/Options.h"

namespace mksample {

class TestSound {
public:
    // `pitch` multiplies the frequencies of the background sound: it tells languages apart.
    TestSound(FrameRate fps, int sampleRate, bool silent, int pitch)
        : mFps(fps), mSampleRate(sampleRate), mSilent(silent), mPitch(pitch) {}

    // Fills count stereo sample frames, interleaved, from the given position; position 0 is heard
    // with the first picture.
    void fill(int64_t position, int count, int16_t* out) const;

private:
    // Where the nth flash starts, in samples.
    int64_t onset(int64_t n) const;

    const FrameRate mFps;
    const int mSampleRate;
    const bool mSilent;
    const int mPitch;
};

}  // namespace mksample
