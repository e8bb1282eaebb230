// MPEG audio of encoders, and headers of every kind over filler: the frames that the player cuts
// are those that libavcodec's parser cuts, as far as both go by the same lengths.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "decoder/MP3MediaExtractor.h"
#include "decoder/PesRing.h"
#include "oracle/AvStreams.h"
#include "support/MpegAudioFrames.h"
#include "support/TestStreams.h"

namespace OrvPlayer {
namespace {

using namespace orvtest;

constexpr int64_t START = 900000;

std::vector<Bytes> encode(const char* encoder, int sampleRate) {
    std::vector<Bytes> frames;
    for (orvtest::Unit& unit :
         encodeAudio({.encoder = encoder, .sampleRate = sampleRate, .blocks = 60}).units) {
        frames.push_back(std::move(unit.bytes));
    }
    EXPECT_GT(frames.size(), 50u);
    return frames;
}

// Three frames a packet, each packet ending in another place of its last frame, the header whole.
std::vector<PesPacket> packed(const std::vector<Bytes>& frames, int64_t duration) {
    std::vector<PesPacket> packets(1);
    packets.back().pts = START;
    for (size_t i = 0; i < frames.size(); ++i) {
        const Bytes& frame = frames[i];
        const size_t cuts[] = {frame.size(), 6, 7, frame.size() / 2, frame.size() - 1};
        const size_t cut = i % 3 == 2 ? cuts[i / 3 % std::size(cuts)] : frame.size();
        const auto middle = frame.begin() + static_cast<long>(cut);
        packets.back().payload.insert(packets.back().payload.end(), frame.begin(), middle);
        if (i % 3 == 2) {
            packets.emplace_back().payload.assign(middle, frame.end());
            packets.back().pts = START + static_cast<int64_t>(i + 1) * duration;
        }
    }
    return packets;
}

std::vector<PesRing::Unit> extracted(const std::vector<PesPacket>& packets) {
    PesRing ring(20);
    const android::sp<MediaExtractor> extractor = new MP3MediaExtractor(ring.buffer);
    for (const PesPacket& packet : packets) {
        ring.push(static_cast<uint64_t>(packet.pts), packet.payload);
    }
    return ring.drain(*extractor);
}

void expectCutAsByTheParser(AVCodecID codec, const std::vector<Bytes>& frames, int64_t duration) {
    const std::vector<PesPacket> packets = packed(frames, duration);
    std::vector<PesRing::Unit> expected;
    for (const ParsedUnit& unit : parseUnits(codec, packets, duration)) {
        expected.push_back({unit.bytes, unit.pts});
    }
    EXPECT_EQ(expected.size(), frames.size());
    EXPECT_EQ(extracted(packets), expected);
}

struct Encoded {
    const char* encoder;
    AVCodecID codec;
    int sampleRate;
    int64_t duration;
};

TEST(MpegAudioTest, CutsWhatEncodersMake) {
    const Encoded streams[] = {
        {"mp2", AV_CODEC_ID_MP2, 48000, 24 * 90},
        {"mp2", AV_CODEC_ID_MP2, 32000, 36 * 90},
        {"mp2", AV_CODEC_ID_MP2, 24000, 48 * 90},
        {"mp2", AV_CODEC_ID_MP2, 16000, 72 * 90},
        {"libmp3lame", AV_CODEC_ID_MP3, 48000, 24 * 90},
        {"libmp3lame", AV_CODEC_ID_MP3, 32000, 36 * 90},
    };
    for (const Encoded& stream : streams) {
        SCOPED_TRACE(testing::Message() << stream.encoder << " " << stream.sampleRate);
        expectCutAsByTheParser(stream.codec, encode(stream.encoder, stream.sampleRate),
                               stream.duration);
    }
}

// Every bit rate of every layer and version without padding, lengths as the standards have them.
TEST(MpegAudioTest, CutsEveryKindOfHeader) {
    const auto& bitRates = MP3MediaExtractor::bitRateTable;
    const auto& rates = MP3MediaExtractor::samplingRateTable;
    const auto& samples = MP3MediaExtractor::samplesPerFrameTable;
    constexpr AVCodecID CODECS[] = {AV_CODEC_ID_MP1, AV_CODEC_ID_MP2, AV_CODEC_ID_MP3};
    constexpr unsigned VERSIONS[] = {3, 2, 0};
    for (size_t kind = 0; kind < std::size(VERSIONS) * std::size(CODECS) * 14 * 3; ++kind) {
        const size_t version = kind / 126, layer = kind / 42 % 3, rateIndex = kind % 3;
        const size_t bitRateIndex = kind / 3 % 14 + 1;
        if (version != 0 && layer == 2) {
            continue;  // see below
        }
        const size_t column = version == 0 ? layer : layer == 0 ? 3 : 4;
        const uint32_t slotBytes = layer == 0 ? 4 : 1;
        const size_t size = samples[layer][version] / 8 * 1000 / slotBytes *
                            bitRates[bitRateIndex][column] / rates[rateIndex][version] * slotBytes;
        MpegHeader header{.version = VERSIONS[version], .layer = 3 - static_cast<unsigned>(layer)};
        header.bitRateIndex = static_cast<unsigned>(bitRateIndex);
        header.samplingRateIndex = static_cast<unsigned>(rateIndex);
        SCOPED_TRACE(testing::Message()
                     << "version " << header.version << " layer " << layer + 1 << " bit rate "
                     << bitRateIndex << " sampling rate " << rateIndex << " size " << size);
        std::vector<Bytes> frames;
        for (unsigned i = 0; i < 15; ++i) {
            frames.push_back(header.frame(size, i));
        }
        const auto duration = static_cast<int64_t>(size * 8 / bitRates[bitRateIndex][column] * 90);
        expectCutAsByTheParser(CODECS[layer], frames, duration);
    }
}

// Deliberate: a padded frame takes 144 bytes more than one without padding, so it swallows the
// start of the next, which is lost.
TEST(MpegAudioTest, PaddedFramesSwallowWhatFollows) {
    const std::vector<Bytes> frames = encode("mp2", 44100);
    Bytes stream;
    for (const Bytes& frame : frames) {
        stream = stream + frame;
    }
    size_t next = 0, padded = 0;
    const auto units = extracted({{0xC0, START, START, stream}});
    for (const PesRing::Unit& unit : units) {
        while (next < frames.size() &&
               !std::equal(frames[next].begin(), frames[next].end(), unit.bytes.begin())) {
            ++next;
        }
        ASSERT_LT(next, frames.size());
        const bool isPadded = (unit.bytes[2] & 0x02) != 0;
        EXPECT_EQ(unit.bytes.size(), frames[next].size() + (isPadded ? 143 : 0));
        padded += isPadded ? 1 : 0;
        next += isPadded ? 2 : 1;
    }
    EXPECT_GT(padded, 10u);
    EXPECT_GT(units.size(), frames.size() / 2);
}

// Deliberate: at the lower rates of Layer III a unit is two frames, which take the time of two.
TEST(MpegAudioTest, PairsFramesOfTheLowerRatesOfLayerThree) {
    const std::vector<Bytes> frames = encode("libmp3lame", 24000);
    Bytes stream;
    for (const Bytes& frame : frames) {
        stream = stream + frame;
    }
    std::vector<PesRing::Unit> expected;
    for (size_t i = 0; i + 1 < frames.size(); i += 2) {
        expected.push_back({frames[i] + frames[i + 1], START + static_cast<int64_t>(i) * 24 * 90});
    }
    EXPECT_EQ(extracted({{0xC0, START, START, stream}}), expected);
}

}  // namespace
}  // namespace OrvPlayer
