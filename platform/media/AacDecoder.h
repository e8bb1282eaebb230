#pragma once

#include <memory>
#include <vector>

#include "media/StreamDecoder.h"

namespace orvhost {

// AAC: raw units behind an AudioSpecificConfig, or ADTS frames as long as no configuration came.
// Chooses the library for the configuration at hand and keeps its input to what each understands.
class AacDecoder : public StreamDecoder {
public:
    // `adts`: without a configuration, units are ADTS frames.
    explicit AacDecoder(bool adts) : mAdts(adts) {}

    // The same configuration again does not disturb the sound.
    Status open(std::span<const uint8_t> configuration) override;
    Status feed(AVPacket* packet) override;
    Status take(DecodedOutput& output) override;
    void writePcm(uint8_t* out) override;

private:
    Status openAdts();
    Status feedBehindHeader(const AVPacket& packet);

    const bool mAdts;
    std::unique_ptr<StreamDecoder> mDecoder;  // null until it is known what comes
    std::vector<uint8_t> mConfiguration;
    // Channel configuration 0 leaves the channels to an element inside the units, and the
    // configuration at hand may lack it: such units get an ADTS header in front, for which the
    // decoders look into the unit.
    bool mAddHeader = false;
    unsigned mObjectType = 0;
    unsigned mSampleRateIndex = 0;
    AvPacket mFramed;
};

}  // namespace orvhost
