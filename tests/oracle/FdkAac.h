#pragma once

#include <cstdint>
#include <vector>

#include "support/AacFrames.h"

// libfdk-aac as a second opinion: an encoder with transport framing and a decoder of its own behind
// it. Its header names what the player's own transport header names, so nothing includes both.
namespace orvtest::fdk {

// Built with the library. Without it nothing below may be called.
bool isAvailable();

// What one access unit decodes to.
struct Block {
    int sampleRate;
    int channels;
    std::vector<int16_t> samples;  // interleaved

    bool operator==(const Block&) const = default;
};

enum class Framing { Adts, Loas };

// The decoder reads the framed stream by itself. Ends at the first unit that does not decode.
std::vector<Block> decodeFramed(Framing framing, Bytes stream);

// The decoder is given a configuration and access units.
std::vector<Block> decodeUnits(const Bytes& configuration, const std::vector<Bytes>& units);

// What the encoder calls its parameters; those at 0 stay at its default.
struct EncoderOptions {
    unsigned objectType = 2;  // 5: with SBR, 29: and PS
    unsigned sampleRate = 48000;
    unsigned channels = 2;
    unsigned bitRate = 96000;
    unsigned headerPeriod = 0;  // frames from one StreamMuxConfig to the next
    unsigned signalling = 0;    // of SBR: 1 implicit, 2 behind the core's configuration, 3 ahead
    unsigned subFrames = 1;     // access units a frame
    unsigned audioMuxVersion = 0;
    bool crc = false;  // ADTS
};

// A sweep, a little different in each channel.
Bytes encodeFramed(Framing framing, const EncoderOptions& options);

}  // namespace orvtest::fdk
