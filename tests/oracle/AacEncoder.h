#pragma once

#include <aac/TransportDecoder.h>

#include <vector>

#include "support/AacFrames.h"

namespace orvtest {

struct EncodedAac {
    std::vector<Bytes> units;  // as the encoder made them
    Bytes framed;              // as the muxer put them into frames
};

struct AacFormat {
    const char* muxer;  // "latm" or "adts"
    int sampleRate = 48000;
    int channels = 2;
    bool programConfig = false;  // channels described by a program_config_element
    const char* muxerOption = nullptr;
    const char* muxerValue = nullptr;
};

// A hundred blocks by libavcodec's encoder in frames of libavformat's muxer. A sweep, a little
// different in each channel, so that unit sizes vary.
EncodedAac encodeAac(const AacFormat& format);

}  // namespace orvtest
