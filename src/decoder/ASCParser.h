#pragma once

#include <cstdint>

namespace OrvPlayer {

class WriteBitInterface;

// Writes the AudioSpecificConfig of ISO/IEC 14496-3, 1.6.2.1, that a codec is configured with, out
// of the values that the transport framing found. With SBR signalled it is written explicitly: the
// extension's object type first, the core coder's behind it.
class ASCParser {
public:
    static constexpr unsigned int ASC_SIZE = 10;  // always: the longest form has 76 bits

    uint8_t audioObjectType = 0;  // of the core coder
    uint8_t samplingFrequencyIndex = 0;
    uint32_t samplingFrequency = 0;  // Hz, written out for index 15
    uint8_t channelConfiguration = 0;
    uint8_t extensionSamplingFrequencyIndex = 0;
    uint32_t extensionSamplingFrequency = 0;  // Hz, written out for index 15
    uint8_t extensionAudioObjectType = 0;     // 5: SBR is signalled

    // Gives `*out` a new array of `*size` = ASC_SIZE bytes, which the caller frees with array
    // delete. The zeros behind the fields stand for the codec-specific flags. Returns 0, or 1 when
    // `out` is null.
    int createASC(unsigned char** out, unsigned int* size);

    // An audio object type: five bits, or from 32 on the escape and six bits more.
    void writeAOT(WriteBitInterface* writer, unsigned char aot);

private:
    void writeFrequency(WriteBitInterface* writer, uint8_t index, uint32_t frequency);
};

}  // namespace OrvPlayer
