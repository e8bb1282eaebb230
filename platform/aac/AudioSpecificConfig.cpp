#include "aac/AudioSpecificConfig.h"

#include <initializer_list>

namespace orvhost {

namespace {

constexpr unsigned kAotSbr = 5;
constexpr unsigned kAotPs = 29;
constexpr unsigned kAotErTwinVq = 21;
constexpr unsigned kAotErBsac = 22;
constexpr unsigned kAotErLd = 23;
constexpr unsigned kFrequencyWrittenOut = 15;
constexpr unsigned kSyncExtensionSbr = 0x2B7;
constexpr unsigned kSyncExtensionPs = 0x548;

unsigned readObjectType(AacBitReader& reader) {
    const unsigned type = reader.read(5);
    return type == 31 ? 32 + reader.read(6) : type;
}

// False for the two reserved indices.
bool readFrequency(AacBitReader& reader, uint8_t* index, uint32_t* frequency) {
    *index = static_cast<uint8_t>(reader.read(4));
    *frequency = *index == kFrequencyWrittenOut ? reader.read(24) : samplingFrequencyOf(*index);
    return *index < 13 || *index == kFrequencyWrittenOut;
}

bool isGeneralAudio(unsigned type) {
    return (type >= 1 && type <= 4) || type == 6 || type == 7 || type == 17 ||
           (type >= 19 && type <= 23);
}

bool isErrorResilient(unsigned type) {
    return type >= 17;
}

bool hasResilienceFlags(unsigned type) {
    return isErrorResilient(type) && type != kAotErTwinVq && type != kAotErBsac;
}

bool isScalable(unsigned type) {
    return type == 6 || type == 20;
}

// GASpecificConfig (4.4.1). `reader` began with the whole configuration.
AacParse parseGeneralAudio(AacBitReader& reader, CSAudioSpecificConfig* config) {
    const bool shortFrame = reader.read(1) != 0;  // frameLengthFlag
    if (config->m_aot == kAotErLd) {
        config->m_samplesPerFrame = shortFrame ? 480 : 512;
    } else {
        config->m_samplesPerFrame = shortFrame ? 960 : 1024;
    }
    if (reader.read(1) != 0) {  // dependsOnCoreCoder
        reader.skip(14);        // coreCoderDelay
    }
    const bool extension = reader.read(1) != 0;
    if (config->m_channelConfiguration == 0) {
        config->m_channelCount = static_cast<uint8_t>(parseProgramConfigChannels(reader));
    }
    if (isScalable(config->m_aot)) {
        reader.skip(3);  // layerNr
    }
    if (extension) {
        if (config->m_aot == kAotErBsac) {
            reader.skip(5 + 11);  // numOfSubFrame, layer_length
        }
        if (hasResilienceFlags(config->m_aot)) {
            reader.skip(3);
        }
        reader.skip(1);  // extensionFlag3
    }
    return reader.overrun() ? AacParse::Breach : AacParse::Ok;
}

// The signalling that old receivers do not see because it follows what they read. Bits that are
// something else are left to the caller as padding.
AacParse parseSyncExtension(AacBitReader& reader, CSAudioSpecificConfig* config) {
    if (reader.bitsLeft() < 16 || reader.read(11) != kSyncExtensionSbr) {
        return AacParse::Ok;
    }
    if (readObjectType(reader) != kAotSbr || reader.read(1) == 0) {
        return AacParse::Ok;  // another tool's extension, or SBR signalled as absent
    }
    if (!readFrequency(reader, &config->m_extensionSamplingFrequencyIndex,
                       &config->m_extensionSamplingFrequency)) {
        return AacParse::Breach;
    }
    config->m_extensionAudioObjectType = kAotSbr;
    config->m_sbrPresentFlag = true;
    if (reader.bitsLeft() >= 12 && reader.read(11) == kSyncExtensionPs) {
        config->m_psPresentFlag = reader.read(1) != 0;
    }
    return reader.overrun() ? AacParse::Breach : AacParse::Ok;
}

}  // namespace

uint32_t samplingFrequencyOf(unsigned index) {
    static constexpr uint32_t kFrequencies[13] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                                  22050, 16000, 12000, 11025, 8000,  7350};
    return index < 13 ? kFrequencies[index] : 0;
}

unsigned channelCountOf(unsigned channelConfiguration) {
    static constexpr uint8_t kChannels[16] = {0, 1, 2, 3, 4, 5, 6, 8, 0, 0, 0, 7, 8, 24, 8, 0};
    return channelConfiguration < 16 ? kChannels[channelConfiguration] : 0;
}

unsigned parseProgramConfigChannels(AacBitReader& reader) {
    reader.skip(4 + 2 + 4);  // element_instance_tag, object_type, sampling_frequency_index
    const unsigned front = reader.read(4);
    const unsigned side = reader.read(4);
    const unsigned back = reader.read(4);
    const unsigned lfe = reader.read(2);
    const unsigned associatedData = reader.read(3);
    const unsigned coupling = reader.read(4);
    for (const unsigned mixdownBits : {4u, 4u, 3u}) {  // mono, stereo, matrix
        if (reader.read(1) != 0) {
            reader.skip(mixdownBits);
        }
    }
    unsigned channels = lfe;
    for (unsigned i = 0; i < front + side + back; i++) {
        channels += reader.read(1) != 0 ? 2 : 1;  // is_cpe
        reader.skip(4);                           // element_tag_select
    }
    reader.skip(4 * lfe + 4 * associatedData + 5 * coupling);
    reader.align();
    reader.skip(8 * size_t{reader.read(8)});  // comment_field_data
    return reader.overrun() ? 0 : channels;
}

AacParse parseAudioSpecificConfig(AacBitReader& reader, bool lengthKnown,
                                  CSAudioSpecificConfig* config) {
    *config = CSAudioSpecificConfig();
    unsigned type = readObjectType(reader);
    if (!readFrequency(reader, &config->m_samplingFrequencyIndex, &config->m_samplingFrequency)) {
        return AacParse::Breach;
    }
    config->m_channelConfiguration = static_cast<uint8_t>(reader.read(4));
    config->m_channelCount = static_cast<uint8_t>(channelCountOf(config->m_channelConfiguration));
    if (type == 0 || (config->m_channelConfiguration != 0 && config->m_channelCount == 0)) {
        return AacParse::Breach;
    }
    if (type == kAotSbr || type == kAotPs) {
        config->m_psPresentFlag = type == kAotPs;
        config->m_sbrPresentFlag = true;
        config->m_extensionAudioObjectType = kAotSbr;
        if (!readFrequency(reader, &config->m_extensionSamplingFrequencyIndex,
                           &config->m_extensionSamplingFrequency)) {
            return AacParse::Breach;
        }
        type = readObjectType(reader);
        if (type == kAotErBsac) {
            reader.skip(4);  // extensionChannelConfiguration
        }
    }
    if (reader.overrun()) {
        return AacParse::Breach;
    }
    if (!isGeneralAudio(type)) {
        return AacParse::Unsupported;
    }
    config->m_aot = static_cast<uint8_t>(type);
    if (parseGeneralAudio(reader, config) != AacParse::Ok) {
        return AacParse::Breach;
    }
    if (isErrorResilient(type) && reader.read(2) > 1) {
        return AacParse::Unsupported;  // epConfig 2 and 3: error protection wraps the payload
    }
    if (reader.overrun()) {
        return AacParse::Breach;
    }
    if (lengthKnown && !config->m_sbrPresentFlag) {
        return parseSyncExtension(reader, config);
    }
    return AacParse::Ok;
}

}  // namespace orvhost
