#pragma once

#include <aac/TransportDecoder.h>

#include "aac/AacBitReader.h"

namespace orvhost {

// How reading something from the stream ended.
enum class AacParse {
    Ok,
    Breach,      // the bits contradict the standard or end too early
    Unsupported  // well formed as far as it was read, but of a kind that is not handled
};

// AudioSpecificConfig (ISO/IEC 14496-3, 1.6.2.1) for the object types that GASpecificConfig
// describes, with SBR and PS signalled explicitly (object types 5 and 29) or, only where the
// configuration's length is known, behind the core's configuration (sync extensions 0x2B7 and
// 0x548).
//
// `lengthKnown`: the reader ends where the configuration ends. Otherwise it ends somewhere behind
// it and stands after the last field read on return. `config` is complete only on Ok.
AacParse parseAudioSpecificConfig(AacBitReader& reader, bool lengthKnown,
                                  CSAudioSpecificConfig* config);

// program_config_element (ISO/IEC 14496-3, 4.4.1.1) after its id: how many channels it describes.
// Its byte alignment counts from the first bit of `reader`. 0 when the element is cut short.
unsigned parseProgramConfigChannels(AacBitReader& reader);

// Hz for a samplingFrequencyIndex below 13, else 0.
uint32_t samplingFrequencyOf(unsigned index);

// Channels for a channelConfiguration other than 0; 0 when the value is reserved.
unsigned channelCountOf(unsigned channelConfiguration);

}  // namespace orvhost
