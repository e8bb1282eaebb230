#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "CodecDriver.h"
#include "media/AudioSpecificConfig.h"
#include "media/CodecStatistics.h"

using namespace android;
using namespace orvtest;

namespace {

constexpr const char* AAC = "audio/mp4a-latm";

// Of one channel, full scale 1. The tone of half amplitude has 0.354.
double effectiveValue(const std::vector<Output>& outputs, int channels, int channel) {
    double sum = 0;
    size_t count = 0;
    for (const Output& output : outputs) {
        for (size_t i = static_cast<size_t>(channel); i < output.pcm.size();
             i += static_cast<size_t>(channels)) {
            sum += std::pow(output.pcm[i] / 32768.0, 2);
            ++count;
        }
    }
    return std::sqrt(sum / static_cast<double>(count));
}

// As the player writes it: padded with zeros to ten bytes.
std::vector<uint8_t> padded(std::vector<uint8_t> configuration) {
    configuration.resize(10);
    return configuration;
}

struct AudioCase {
    std::string name;
    const char* mime;
    AudioOptions encoded;
    const char* events;
    std::vector<uint8_t> configuration;  // instead of the encoder's own
    int outRate;
    size_t outSamples;  // of a block
    bool adts = false;  // what the format says
};

void PrintTo(const AudioCase& test, std::ostream* out) {
    *out << test.name;
}

class AudioStreamTest : public testing::TestWithParam<AudioCase> {};

// One block for every unit, with the unit's time, in the stream's own channels and rate.
TEST_P(AudioStreamTest, GivesEachUnitsSamplesWithItsTime) {
    const AudioCase& test = GetParam();
    Stream stream = encodeAudio(test.encoded);
    ASSERT_GE(stream.units.size(), static_cast<size_t>(test.encoded.blocks));
    if (!test.configuration.empty()) {
        stream.configuration = test.configuration;
    }
    if (!stream.configuration.empty()) {
        stream.configuration = padded(stream.configuration);
    }
    CodecDriver driver(test.mime, nullptr, test.adts);
    ASSERT_EQ(driver.configureAndStart(), OK);
    driver.play(stream);

    EXPECT_EQ(driver.events, test.events);
    EXPECT_EQ(driver.times(), stream.timesInOrder());
    ASSERT_FALSE(driver.formats.empty());
    const int channels = int32Of(driver.formats.back(), "channel-count");
    EXPECT_EQ(channels, test.encoded.channels);
    EXPECT_EQ(int32Of(driver.formats.back(), "sample-rate"), test.outRate);
    for (const Output& output : driver.outputs) {
        ASSERT_EQ(output.pcm.size(), test.outSamples * static_cast<size_t>(channels));
    }
    for (int channel = 0; channel < channels; ++channel) {
        if (channels == 6 && channel == 3) {
            continue;  // the effects channel has no 440 Hz
        }
        EXPECT_NEAR(effectiveValue(driver.outputs, channels, channel), 0.354, 0.03) << channel;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Streams, AudioStreamTest,
    testing::Values(
        AudioCase{"AacStereo", AAC, {}, "F.", {}, 48000, 1024},
        AudioCase{"AacMono", AAC, {.sampleRate = 24000, .channels = 1}, "F.", {}, 24000, 1024},
        // Six channels do not fit the first buffers.
        AudioCase{"AacSurround", AAC, {.channels = 6}, "BF.", {}, 48000, 1024},
        // "is-adts" means nothing once a configuration came.
        AudioCase{"AacRawInSpiteOfAdts", AAC, {}, "F.", {}, 48000, 1024, true},
        // Explicit SBR over a core of 24 kHz: the output has the rate of the extension.
        AudioCase{
            "AacExplicitSbr", AAC, {.sampleRate = 24000}, "F.", {0x2B, 0x11, 0x88}, 48000, 2048},
        // The same signalled the backward compatible way, behind the configuration.
        AudioCase{"AacSyncExtension",
                  AAC,
                  {.sampleRate = 24000},
                  "F.",
                  {0x13, 0x10, 0x56, 0xE5, 0x98},
                  48000,
                  2048},
        AudioCase{"LayerThree", "audio/mpeg", {.encoder = "libmp3lame"}, "F.", {}, 48000, 1152},
        AudioCase{"LayerTwo",
                  "audio/mpeg",
                  {.encoder = "mp2", .sampleRate = 32000},
                  "F.",
                  {},
                  32000,
                  1152}),
    [](const auto& tested) { return tested.param.name; });

TEST(AudioCodecTest, TakesAdtsUntilAConfigurationComes) {
    const Stream raw = encodeAudio({});
    CodecDriver driver(AAC, nullptr, true);
    ASSERT_EQ(driver.configureAndStart(), OK);
    const Stream framed = framedAsAdts(raw);
    driver.play(framed);
    EXPECT_EQ(driver.times(), framed.timesInOrder());
    driver.play(raw);
    EXPECT_EQ(driver.outputs.size(), 2 * raw.units.size());
    EXPECT_NEAR(effectiveValue(driver.outputs, 2, 0), 0.354, 0.03);
}

// A stream without any configuration yields nothing, and starts with the first one.
TEST(AudioCodecTest, PassesOverUnitsBeforeTheConfiguration) {
    Stream stream = encodeAudio({});
    const std::vector<uint8_t> configuration = padded(stream.configuration);
    CodecDriver driver(AAC);
    ASSERT_EQ(driver.configureAndStart(), OK);
    const uint64_t damaged = orvhost::codecStatistics().audioUnitsDamaged;
    for (size_t i = 0; i < 5; ++i) {
        ASSERT_TRUE(driver.feed(&stream.units[i]));
    }
    stream.units.erase(stream.units.begin(), stream.units.begin() + 5);
    stream.configuration = configuration;
    driver.play(stream);
    EXPECT_EQ(driver.times(), stream.timesInOrder());
    EXPECT_EQ(orvhost::codecStatistics().audioUnitsDamaged - damaged, 5u);
}

// A new configuration in mid-stream: the next unit is the first of the new stream.
TEST(AudioCodecTest, FollowsAnotherConfiguration) {
    const Stream first = encodeAudio({.blocks = 10});
    const Stream second =
        encodeAudio({.sampleRate = 32000, .channels = 1, .blocks = 10}).delayed(1000000);
    CodecDriver driver(AAC);
    ASSERT_EQ(driver.configureAndStart(), OK);
    const Unit configuration = {padded(first.configuration), 0};
    ASSERT_TRUE(driver.feed(&configuration, MediaCodec::BUFFER_FLAG_CODECCONFIG));
    for (size_t i = 0; i < 5; ++i) {
        ASSERT_TRUE(driver.feed(&first.units[i]));
    }
    driver.play(second);
    EXPECT_EQ(driver.events, "F.F.");
    ASSERT_EQ(driver.outputs.size(), 5 + second.units.size());
    EXPECT_EQ(driver.outputs[5].timeUs, second.units[0].timeUs);
    EXPECT_EQ(int32Of(driver.formats.back(), "sample-rate"), 32000);
    EXPECT_EQ(int32Of(driver.formats.back(), "channel-count"), 1);
}

// Channel configuration 0: a program_config_element (ISO/IEC 14496-3, 4.4.1.1) in each unit says
// what the channels are.
TEST(AudioCodecTest, FindsTheChannelsInsideTheUnits) {
    Stream stream = encodeAudio({});
    stream.configuration = padded({0x11, 0x80});
    // Low complexity, 48 kHz, one channel pair in front, byte aligned, no comment.
    const uint8_t onePair[] = {0xA0, 0x98, 0x80, 0x00, 0x04, 0x00, 0x00};
    for (Unit& unit : stream.units) {
        unit.bytes.insert(unit.bytes.begin(), std::begin(onePair), std::end(onePair));
    }
    CodecDriver driver(AAC);
    ASSERT_EQ(driver.configureAndStart(), OK);
    driver.play(stream);
    EXPECT_EQ(driver.times(), stream.timesInOrder());
    ASSERT_FALSE(driver.formats.empty());
    EXPECT_EQ(int32Of(driver.formats.back(), "channel-count"), 2);
    EXPECT_NEAR(effectiveValue(driver.outputs, 2, 1), 0.354, 0.03);
}

// Layer III at the lower rates may come two frames a unit, the second without a time of its own.
TEST(AudioCodecTest, TakesTwoFramesInAUnit) {
    const Stream single = encodeAudio({.encoder = "libmp3lame", .sampleRate = 24000});
    Stream pairs;
    for (size_t i = 0; i + 1 < single.units.size(); i += 2) {
        pairs.units.push_back(single.units[i]);
        std::vector<uint8_t>& bytes = pairs.units.back().bytes;
        const std::vector<uint8_t>& second = single.units[i + 1].bytes;
        bytes.insert(bytes.end(), second.begin(), second.end());
    }
    CodecDriver driver("audio/mpeg");
    ASSERT_EQ(driver.configureAndStart(), OK);
    driver.play(pairs);
    ASSERT_EQ(driver.outputs.size(), 2 * pairs.units.size());
    for (size_t i = 0; i < driver.outputs.size(); ++i) {
        EXPECT_EQ(driver.outputs[i].pcm.size(), 2u * 576);
        EXPECT_EQ(driver.outputs[i].timeUs, pairs.units[i / 2].timeUs + (i % 2) * 24000) << i;
    }
    EXPECT_NEAR(effectiveValue(driver.outputs, 2, 0), 0.354, 0.03);
}

TEST(AudioCodecTest, SurvivesDamage) {
    for (const char* mime : {AAC, "audio/mpeg"}) {
        const bool aac = mime == AAC;
        Stream stream = encodeAudio({.encoder = aac ? "aac" : "mp2", .blocks = 60});
        const Stream clean = stream.delayed(100000000);
        std::mt19937 random(11);
        for (Unit& unit : stream.units) {
            for (int flips = 0; flips < 8; ++flips) {
                unit.bytes[random() % unit.bytes.size()] ^=
                    static_cast<uint8_t>(1u << random() % 8);
            }
            unit.bytes.resize(1 + random() % unit.bytes.size());
        }
        stream.units.insert(stream.units.end(), clean.units.begin(), clean.units.end());
        CodecDriver driver(mime);
        ASSERT_EQ(driver.configureAndStart(), OK);
        driver.play(stream);
        std::vector<int64_t> times = driver.times();
        std::erase_if(times, [&](int64_t timeUs) { return timeUs < clean.units[2].timeUs; });
        std::vector<int64_t> expected = clean.timesInOrder();
        expected.erase(expected.begin(), expected.begin() + 2);
        EXPECT_EQ(times, expected) << mime;
        EXPECT_EQ(int32Of(driver.formats.back(), "sample-rate"), 48000);
    }
}

struct ConfigCase {
    std::vector<uint8_t> bytes;
    bool good;
    size_t used;
    unsigned objectType;
    unsigned channels;
};

// ISO/IEC 14496-3, 1.6.2.1: the true length in front of the padding.
TEST(AudioSpecificConfigTest, FindsTheTrueLength) {
    const ConfigCase cases[] = {
        {padded({0x11, 0x90}), true, 2, 2, 2},                    // LC, 48 kHz, stereo
        {padded({0x2B, 0x11, 0x88}), true, 4, 2, 2},              // SBR over LC, 24 over 48 kHz
        {padded({0x13, 0x10, 0x56, 0xE5, 0x98}), true, 5, 2, 2},  // backward compatible extension
        {padded({0x17, 0x80, 0x5D, 0xC0, 0x08}), true, 5, 2, 1},  // rate written out
        {padded({}), true, 2, 0, 0},
        {{0x11}, false, 2, 2, 0},
        {{}, false, 2, 0, 0},
    };
    for (const ConfigCase& test : cases) {
        orvhost::AudioSpecificConfig config;
        EXPECT_EQ(orvhost::AudioSpecificConfig::parse(test.bytes, &config), test.good);
        EXPECT_EQ(config.bytes, test.used);
        EXPECT_EQ(config.objectType, test.objectType);
        EXPECT_EQ(config.channelConfiguration, test.channels);
    }
}

}  // namespace
