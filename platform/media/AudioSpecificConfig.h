#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace orvhost {

// The head of an AudioSpecificConfig (ISO/IEC 14496-3, 1.6.2.1), as far as choosing and feeding a
// decoder needs it.
struct AudioSpecificConfig {
    unsigned objectType = 0;  // of the core: behind an explicit SBR or PS extension
    unsigned channelConfiguration = 0;
    unsigned sampleRateIndex = 0;  // of the core; 15: rate given as a number
    bool explicitExtension = false;
    size_t bytes = 0;  // what the configuration really takes

    // False when the bytes end too early. A configuration comes padded with zeros up to a fixed
    // size. To a decoder that looks for the backward compatible extension (0x2B7) behind the
    // configuration, or that reads a program_config_element, padding is content, so `bytes` leaves
    // it out: everything up to the last non-zero byte, but never less than the syntax takes.
    static bool parse(std::span<const uint8_t> data, AudioSpecificConfig* config);
};

}  // namespace orvhost
