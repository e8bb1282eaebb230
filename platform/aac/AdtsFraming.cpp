#include "aac/AdtsFraming.h"

namespace orvhost {

namespace {

constexpr size_t kHeaderBytes = 7;
constexpr size_t kCrcBytes = 2;
constexpr unsigned kIdProgramConfig = 5;  // id_syn_ele of a program_config_element

bool hasCrc(const uint8_t* frame) {
    return (frame[1] & 0x01) == 0;
}
unsigned extraBlocksOf(const uint8_t* frame) {
    return frame[6] & 0x03;
}

unsigned read16(const uint8_t* data) {
    return static_cast<unsigned>(data[0] << 8 | data[1]);
}

// Up to the first raw data block.
size_t headerBytesOf(const uint8_t* frame) {
    if (!hasCrc(frame)) {
        return kHeaderBytes;
    }
    return kHeaderBytes + 2 * extraBlocksOf(frame) + kCrcBytes;
}

// x^16 + x^15 + x^2 + 1 from all ones. Runs over a dozen header bytes: a table would not pay.
unsigned crc16(const uint8_t* data, size_t size) {
    unsigned crc = 0xFFFF;
    for (size_t i = 0; i < size; i++) {
        crc ^= static_cast<unsigned>(data[i]) << 8;
        for (int bit = 0; bit < 8; bit++) {
            crc = ((crc << 1) ^ ((crc & 0x8000) != 0 ? 0x8005u : 0u)) & 0xFFFF;
        }
    }
    return crc;
}

}  // namespace

bool AdtsFraming::startsFrame(const uint8_t* data, size_t size) const {
    // 12 bits of sync word and two of layer, which are 0.
    return data[0] == 0xFF && (size < 2 || (data[1] & 0xF6) == 0xF0);
}

bool AdtsFraming::follows(const uint8_t* frame, const uint8_t* next, size_t size) const {
    // Profile and sampling frequency stay as they are from frame to frame.
    return startsFrame(next, size) && (size < 3 || ((next[2] ^ frame[2]) & 0xFC) == 0);
}

size_t AdtsFraming::frameSize(const uint8_t* header) const {
    const bool isMpeg2 = (header[1] & 0x08) != 0;
    const unsigned profile = header[2] >> 6;
    const unsigned frequencyIndex = (header[2] >> 2) & 0x0F;
    if (frequencyIndex >= 13 || (isMpeg2 && profile == 3)) {
        return 0;  // reserved
    }
    const size_t size =
        static_cast<size_t>((header[3] & 0x03) << 11 | header[4] << 3 | header[5] >> 5);
    return size < headerBytesOf(header) ? 0 : size;
}

AacParse AdtsFraming::parse(const uint8_t* frame, size_t size) {
    mUnitCount = 0;
    const unsigned extraBlocks = extraBlocksOf(frame);
    if (hasCrc(frame) && extraBlocks != 0) {
        if (cutBlocks(frame, size, extraBlocks) != AacParse::Ok) {
            return AacParse::Breach;
        }
    } else {
        const size_t header = headerBytesOf(frame);
        addUnit(8 * header, 8 * (size - header));
    }
    readConfig(frame);
    return AacParse::Ok;
}

AacParse AdtsFraming::cutBlocks(const uint8_t* frame, size_t size, unsigned extraBlocks) {
    const size_t header = headerBytesOf(frame);
    if (crc16(frame, header - kCrcBytes) != read16(frame + header - kCrcBytes)) {
        return AacParse::Breach;
    }
    size_t begin = 0;
    for (unsigned block = 0; block <= extraBlocks; block++) {
        const size_t end =
            block < extraBlocks ? read16(frame + kHeaderBytes + 2 * block) : size - header;
        if (end < begin + kCrcBytes) {  // of the last block: a position past the frame
            return AacParse::Breach;
        }
        addUnit(8 * (header + begin), 8 * (end - kCrcBytes - begin));
        begin = end;
    }
    return AacParse::Ok;
}

void AdtsFraming::readConfig(const uint8_t* frame) {
    CSAudioSpecificConfig config;
    config.m_aot = static_cast<uint8_t>((frame[2] >> 6) + 1);
    config.m_samplingFrequencyIndex = (frame[2] >> 2) & 0x0F;
    config.m_samplingFrequency = samplingFrequencyOf(config.m_samplingFrequencyIndex);
    config.m_channelConfiguration = static_cast<uint8_t>((frame[2] & 0x01) << 2 | frame[3] >> 6);
    config.m_channelCount = static_cast<uint8_t>(channelCountOf(config.m_channelConfiguration));
    config.m_samplesPerFrame = 1024;
    if (config.m_channelConfiguration == 0 && mUnitCount != 0) {
        AacBitReader block(frame, unit(0).firstBit, unit(0).firstBit + unit(0).bitCount);
        if (block.read(3) == kIdProgramConfig) {
            config.m_channelCount = static_cast<uint8_t>(parseProgramConfigChannels(block));
        } else if (mConfig.m_channelConfiguration == 0) {
            config.m_channelCount = mConfig.m_channelCount;  // the element is not in every frame
        }
    }
    mConfig = config;
}

}  // namespace orvhost
