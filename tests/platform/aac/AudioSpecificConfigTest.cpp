#include "aac/AudioSpecificConfig.h"

#include <gtest/gtest.h>

#include "support/AacFrames.h"

namespace {

using namespace orvtest;
using orvhost::AacBitReader;
using orvhost::AacParse;

// The bits start three bits into a byte, as they do inside a StreamMuxConfig.
AacParse parse(const Bits& asc, CSAudioSpecificConfig* config, bool lengthKnown = true) {
    const Bits shifted = Bits().u(3, 5).append(asc);
    const Bytes bytes = shifted.bytes();
    AacBitReader reader(bytes.data(), 3, shifted.size());
    const AacParse result = orvhost::parseAudioSpecificConfig(reader, lengthKnown, config);
    if (result == AacParse::Ok && !lengthKnown) {
        EXPECT_EQ(reader.bitsLeft(), 0u);
    }
    return result;
}

struct Case {
    const char* name;
    Bits asc;
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
    Bits pce = plainAsc(2, 3, 0);
    putPairAndLfe(pce, 0);
    const Bits he = Bits().u(5, 5).u(4, 6).u(4, 2).u(4, 3).u(5, 2).u(3, 0);
    const Bits hePs = Bits().u(5, 29).u(4, 6).u(4, 1).u(4, 15).u(24, 50000).u(5, 2).u(3, 0);
    const Bits erLc = Bits().u(5, 17).u(4, 3).u(4, 2).u(3, 1).u(3 + 1 + 2, 0);
    const Bits erTwinVq = Bits().u(5, 21).u(4, 3).u(4, 2).u(3, 1).u(1 + 2, 0);
    const Bits erLd = Bits().u(5, 23).u(4, 3).u(4, 2).u(3, 4).u(2, 0);
    return {
        {"aac-lc", plainAsc(), core(2, 3, 48000, 2, 2)},
        {"written frequency", Bits().u(5, 2).u(4, 15).u(24, 0).u(4, 7).u(3, 0),
         core(2, 15, 0, 7, 8)},
        {"960 samples, core coder delay",
         Bits().u(5, 2).u(4, 3).u(4, 2).u(2, 3).u(14, 0x3FFF).u(1, 0),
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
        Bits bits = plainAsc(2, 6, 1).u(11, 0x2B7).u(5, 5).u(1, present);
        return present ? bits.u(4, 3) : bits;
    };
    CSAudioSpecificConfig config;
    ASSERT_EQ(parse(sbr(true), &config), AacParse::Ok);
    EXPECT_EQ(config, withSbr(core(2, 6, 24000, 1, 1), 3, 48000));
    ASSERT_EQ(parse(sbr(true).u(11, 0x548).u(1, 1), &config), AacParse::Ok);
    EXPECT_EQ(config, withSbr(core(2, 6, 24000, 1, 1), 3, 48000, true));
    ASSERT_EQ(parse(sbr(false), &config), AacParse::Ok);
    EXPECT_EQ(config, core(2, 6, 24000, 1, 1));
    ASSERT_EQ(parse(plainAsc().u(16, 0), &config), AacParse::Ok);
    EXPECT_EQ(config, core(2, 3, 48000, 2, 2));
}

// Every shorter prefix ends too early, whichever field it ends in.
TEST(AudioSpecificConfigTest, RefusesEveryTruncation) {
    for (const Case& c : cases()) {
        const Bytes bytes = c.asc.bytes();
        for (size_t bits = 0; bits < c.asc.size(); bits++) {
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
    EXPECT_EQ(parse(plainAsc(17).u(2, 2), &config), AacParse::Unsupported);
}

}  // namespace
