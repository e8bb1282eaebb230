#include "decoder/ASCParser.h"

#include "decoder/BitInterface.h"

namespace OrvPlayer {

namespace {

constexpr uint8_t AOT_SBR = 5;
constexpr uint8_t AOT_ESCAPE = 31;
constexpr uint8_t FREQUENCY_WRITTEN_OUT = 15;

}  // namespace

int ASCParser::createASC(unsigned char** out, unsigned int* size) {
    if (out == nullptr) {
        return 1;
    }
    *out = new unsigned char[ASC_SIZE]();
    *size = ASC_SIZE;
    WriteBitInterface writer(*out, ASC_SIZE);
    const bool hasSbr = extensionAudioObjectType == AOT_SBR;
    writeAOT(&writer, hasSbr ? AOT_SBR : audioObjectType);
    writeFrequency(&writer, samplingFrequencyIndex, samplingFrequency);
    writer.writeBits(channelConfiguration, 4);
    if (hasSbr) {
        writeFrequency(&writer, extensionSamplingFrequencyIndex, extensionSamplingFrequency);
        writeAOT(&writer, audioObjectType);
    }
    return 0;
}

void ASCParser::writeAOT(WriteBitInterface* writer, unsigned char aot) {
    if (aot < 32) {
        writer->writeBits(aot, 5);
        return;
    }
    writer->writeBits(AOT_ESCAPE, 5);
    writer->writeBits(aot - 32u, 6);
}

void ASCParser::writeFrequency(WriteBitInterface* writer, uint8_t index, uint32_t frequency) {
    writer->writeBits(index, 4);
    if (index == FREQUENCY_WRITTEN_OUT) {
        writer->writeBits(frequency, 24);
    }
}

}  // namespace OrvPlayer
