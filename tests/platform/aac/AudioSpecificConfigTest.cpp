#include "aac/AudioSpecificConfig.h"

#include <gtest/gtest.h>

#include "support/AacFrames.h"

namespace {

using namespace orvtest;
using orvhost::AacBitReader;
using orvhost::AacParse;

// The bits start three bits into a byte, as they do inside a StreamMuxConfig.
AacParse parse(const BitWriter& asc, CSAudioSpecificConfig* config, bool lengthKnown = true) {
    const BitWriter shifted = BitWriter().put(5, 3).put(asc);
    const Bytes bytes = shifted.bytes();
    AacBitReader reader(bytes.data(), 3, shifted.bits());
    const AacParse result = orvhost::parseAudioSpecificConfig(reader, lengthKnown, config);
    if (result == AacParse::Ok && !lengthKnown) {
        EXPECT_EQ(reader.bitsLeft(), 0u);
    }
    return result;
}

struct Case {
    const char* name;
    BitWriter asc;
    CSAudioSpecificConfig expected;
};

CSAudioSpecificConfig core(unsigned aot, unsigned index, unsigned hz, unsigned channelConfig,
                           unsigned channels, unsigned samples = 1024) {
    CSAudioSpecificConfig config;
    config.m_aot = static_cast<uint8_t>(aot);
    config.m_samplingFrequencyIndex = static_cast<uint8_t>(index);
    config.m_samplingFrequency = hz;
    config.m_channelConfiguration = static_cast<uint8_t>(channelConfig);
    config.m_channelCount = static_cast<uint8_t>(channels);
    config.m_samplesPerFrame = samples;
    return config;
}

CSAudioSpecificConfig withSbr(CSAudioSpecificConfig config, unsigned index, unsigned hz,
                              bool ps = false) {
    config.m_extensionAudioObjectType = 5;
    config.m_extensionSamplingFrequencyIndex = static_cast<uint8_t>(index);
    config.m_extensionSamplingFrequency = hz;
    config.m_sbrPresentFlag = true;
    config.m_psPresentFlag = ps;
    return config;
}

std::vector<Case> cases() {
    BitWriter pce = plainAsc(2, 3, 0);
    putPairAndLfe(pce, 0);
    const BitWriter he = BitWriter().put(5, 5).put(6, 4).put(2, 4).put(3, 4).put(2, 5).put(0, 3);
    const BitWriter hePs =
        BitWriter().put(29, 5).put(6, 4).put(1, 4).put(15, 4).put(50000, 24).put(2, 5).put(0, 3);
    const BitWriter erLc = BitWriter().put(17, 5).put(3, 4).put(2, 4).put(1, 3).put(0, 3 + 1 + 2);
    const BitWriter erTwinVq = BitWriter().put(21, 5).put(3, 4).put(2, 4).put(1, 3).put(0, 1 + 2);
    const BitWriter erLd = BitWriter().put(23, 5).put(3, 4).put(2, 4).put(4, 3).put(0, 2);
    return {
        {"aac-lc", plainAsc(), core(2, 3, 48000, 2, 2)},
        {"written frequency", BitWriter().put(2, 5).put(15, 4).put(0, 24).put(7, 4).put(0, 3),
         core(2, 15, 0, 7, 8)},
        {"960 samples, core coder delay",
         BitWriter().put(2, 5).put(3, 4).put(2, 4).put(3, 2).put(0x3FFF, 14).put(0, 1),
         core(2, 3, 48000, 2, 2, 960)},
        {"program config element", pce, core(2, 3, 48000, 0, 3)},
        {"explicit sbr", he, withSbr(core(2, 6, 24000, 2, 2), 3, 48000)},
        {"explicit ps, written", hePs, withSbr(core(2, 6, 24000, 1, 1), 15, 50000, true)},
        {"er lc with resilience flags", erLc, core(17, 3, 48000, 2, 2)},
        {"er twinvq has none", erTwinVq, core(21, 3, 48000, 2, 2)},
        {"er ld", erLd, core(23, 3, 48000, 2, 2, 480)},
    };
}

TEST(AudioSpecificConfigTest, ReadsEveryFieldAndExactlyItsBits) {
    for (const Case& c : cases()) {
        CSAudioSpecificConfig config;
        EXPECT_EQ(parse(c.asc, &config, false), AacParse::Ok) << c.name;
        EXPECT_EQ(config, c.expected) << c.name;
        EXPECT_EQ(parse(c.asc, &config), AacParse::Ok) << c.name;
    }
}

// Signalling behind the core's configuration counts only where its length is known.
TEST(AudioSpecificConfigTest, ReadsSyncExtensionsOfAKnownLength) {
    const auto sbr = [](bool present) {
        BitWriter bits = plainAsc(2, 6, 1).put(0x2B7, 11).put(5, 5).put(present, 1);
        return present ? bits.put(3, 4) : bits;
    };
    CSAudioSpecificConfig config;
    ASSERT_EQ(parse(sbr(true), &config), AacParse::Ok);
    EXPECT_EQ(config, withSbr(core(2, 6, 24000, 1, 1), 3, 48000));
    ASSERT_EQ(parse(sbr(true).put(0x548, 11).put(1, 1), &config), AacParse::Ok);
    EXPECT_EQ(config, withSbr(core(2, 6, 24000, 1, 1), 3, 48000, true));
    ASSERT_EQ(parse(sbr(false), &config), AacParse::Ok);
    EXPECT_EQ(config, core(2, 6, 24000, 1, 1));
    ASSERT_EQ(parse(plainAsc().put(0, 16), &config), AacParse::Ok);
    EXPECT_EQ(config, core(2, 3, 48000, 2, 2));
}

// Every shorter prefix ends too early, whichever field it ends in.
TEST(AudioSpecificConfigTest, RefusesEveryTruncation) {
    for (const Case& c : cases()) {
        const Bytes bytes = c.asc.bytes();
        for (size_t bits = 0; bits < c.asc.bits(); bits++) {
            AacBitReader reader(bytes.data(), 0, bits);
            CSAudioSpecificConfig config;
            EXPECT_NE(orvhost::parseAudioSpecificConfig(reader, false, &config), AacParse::Ok)
                << c.name << " " << bits;
        }
    }
}

TEST(AudioSpecificConfigTest, TellsReservedFromUnsupported) {
    CSAudioSpecificConfig config;
    EXPECT_EQ(parse(plainAsc(2, 13), &config), AacParse::Breach);
    EXPECT_EQ(parse(plainAsc(2, 3, 15), &config), AacParse::Breach);
    EXPECT_EQ(parse(plainAsc(0), &config), AacParse::Breach);
    EXPECT_EQ(parse(plainAsc(8), &config), AacParse::Unsupported);
    EXPECT_EQ(parse(plainAsc(17).put(2, 2), &config), AacParse::Unsupported);
}

}  // namespace
