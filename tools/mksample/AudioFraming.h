// Wraps raw AAC access units in the transport framings of ISO/IEC 14496-3: LOAS (AudioSyncStream
// around LATM, clauses 1.7.2 and 1.7.3) and ADTS (clause 1.A.2).

#pragma once

#include <cstdint>
#include <vector>

namespace mksample {

// AAC-LC, one program, one layer, one access unit a frame; audioMuxVersion 0.
class LoasWriter {
public:
    // StreamMuxConfig stands in every configEvery-th frame, the others say useSameStreamMux.
    LoasWriter(int sampleRate, int channels, int configEvery);

    std::vector<uint8_t> frame(const std::vector<uint8_t>& accessUnit);

private:
    const int mRateIndex;
    const int mChannels;
    const int mConfigEvery;
    int mUntilConfig = 0;
};

// AAC-LC (or the core of HE-AAC), without CRC, one access unit a frame.
class AdtsWriter {
public:
    AdtsWriter(int sampleRate, int channels);

    std::vector<uint8_t> frame(const std::vector<uint8_t>& accessUnit) const;

private:
    const int mRateIndex;
    const int mChannels;
};

}  // namespace mksample
