// What `orvplay units` prints of the samples against what libavformat and libavcodec's parsers find
// in them: every PES packet and every access unit, its time, its size, its bytes.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "media/Av.h"
#include "oracle/AvStreams.h"
#include "programs/Program.h"

extern "C" {
#include <libavutil/md5.h>
}

namespace orvtest {
namespace {

constexpr int64_t STAMP_MASK = 0x1FFFFFFFF;
constexpr int64_t AUDIO_FRAME = 1920;  // 1024 samples of 48 kHz
constexpr int64_t LAYER_II_FRAME = 2160;
constexpr int64_t VIDEO_FRAME = 3003;
constexpr size_t NEVER = SIZE_MAX;

struct Variant {
    const char* sample;
    const char* service;
    int videoPid;
    int audioPid;
    AVCodecID audio;
    // Both streams lose the two PES packets around a jump of the continuity counter at a PES start:
    // the one that it ends, and the one that starts with it.
    bool isCut = false;
    // The first PES packets go to finding out that the framing is another than the tables say. The
    // time of the configuration, which is for nobody, may then be that of an earlier packet.
    size_t packetsForFraming = 0;
    // Times in between are a frame early: there PES packets end exactly with a unit, which looks to
    // the extractor as if a unit went on. The first packet is right, but where the search for the
    // framing ended with bytes that might have gone on.
    size_t lagFrom = NEVER, lagTo = NEVER;
};

void PrintTo(const Variant& variant, std::ostream* out) {
    *out << variant.sample << " " << variant.service;
}

// A line of the program, or what is to be there.
struct Line {
    int64_t pts = 0;
    size_t size = 0;
    std::string md5;
    int64_t dts = 0;     // of a PES packet
    unsigned about = 0;  // stream id of a PES packet, flags of a unit

    bool operator==(const Line&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const Line& line) {
        return out << "pts " << line.pts << " dts " << line.dts << " about " << line.about
                   << " size " << line.size << " " << line.md5;
    }
};

std::string md5Of(const Bytes& bytes) {
    uint8_t digest[16];
    av_md5_sum(digest, bytes.data(), bytes.size());
    std::string text;
    for (const uint8_t byte : digest) {
        constexpr char DIGITS[] = "0123456789abcdef";
        text += {DIGITS[byte >> 4], DIGITS[byte & 15]};
    }
    return text;
}

// `size` bytes that end `shift` bits before the end.
Bytes tail(const Bytes& bytes, size_t size, unsigned shift) {
    Bytes out(size);
    const size_t first = bytes.size() - size;
    for (size_t i = 0; i < size; i++) {
        const unsigned before = first + i == 0 ? 0 : bytes[first + i - 1];
        out[i] = static_cast<uint8_t>((before << 8 | bytes[first + i]) >> shift);
    }
    return out;
}

class UnitsTest : public testing::TestWithParam<Variant> {
protected:
    void SetUp() override {
        mFile = std::string(ORV_SAMPLES_DIR) + "/" + GetParam().sample + ".ts";
        auto packets = readPesPackets(mFile);
        mVideo = delivered(packets[GetParam().videoPid]);
        mAudio = delivered(packets[GetParam().audioPid]);
    }

    // The last PES packet of a stream is never complete.
    static std::vector<PesPacket> delivered(std::vector<PesPacket> packets) {
        EXPECT_GT(packets.size(), 50u);
        packets.pop_back();
        if (GetParam().isCut) {
            const auto jump = std::ranges::adjacent_find(
                packets, [](const auto& a, const auto& b) { return b.pts < a.pts - 900000; });
            EXPECT_NE(jump, packets.end());
            packets.erase(jump, jump + 2);
        }
        return packets;
    }

    // The program's lines for one stream. It runs once for all tests of a stage.
    const std::vector<Line>& lines(const std::string& stage, const std::string& stream) {
        static std::map<std::string, std::map<std::string, std::vector<Line>>> all;
        const std::string key = mFile + GetParam().service + stage;
        if (!all.contains(key)) {
            all[key] = run(stage);
        }
        return all[key][stream];
    }

    std::map<std::string, std::vector<Line>> run(const std::string& stage) {
        const ProgramResult result =
            runProgram({"units", mFile, "--service", GetParam().service, "--stage", stage});
        EXPECT_EQ(result.exitCode, 0) << result.err;
        std::map<std::string, std::vector<Line>> streams;
        for (const auto& event : result.events()) {
            if (!event.contains("stream") || event["stream"] == "captions") {
                continue;
            }
            std::vector<Line>& lines = streams[event["stream"]];
            EXPECT_EQ(event["index"], lines.size());
            Line line = {event["pts"].get<int64_t>() & STAMP_MASK, event["size"], event["md5"]};
            line.dts = event.value("dts", int64_t{0});
            line.about = event.contains("flags") ? event["flags"] : event["streamId"];
            lines.push_back(line);
        }
        return streams;
    }

    std::string mFile;
    std::vector<PesPacket> mVideo, mAudio;
};

void compare(const std::vector<Line>& ours, const std::vector<Line>& expected) {
    EXPECT_EQ(ours.size(), expected.size());
    for (size_t i = 0; i < std::min(ours.size(), expected.size()); i++) {
        ASSERT_EQ(ours[i], expected[i]) << i;
    }
}

TEST_P(UnitsTest, PesPackets) {
    for (const auto& [stream, packets] : {std::pair("video", mVideo), std::pair("audio", mAudio)}) {
        std::vector<Line> expected;
        int64_t dts = 0;
        for (const PesPacket& packet : packets) {
            // A packet without a decoding time has that of the last one that had one.
            dts = packet.dts != packet.pts ? packet.dts : dts;
            expected.push_back({packet.pts, packet.payload.size(), md5Of(packet.payload), dts,
                                static_cast<unsigned>(packet.streamId)});
        }
        SCOPED_TRACE(stream);
        compare(lines("pes", stream), expected);
    }
}

TEST_P(UnitsTest, Pictures) {
    std::vector<Line> expected;
    for (const ParsedUnit& unit : parseUnits(AV_CODEC_ID_H264, mVideo, VIDEO_FRAME)) {
        const unsigned flags = (unit.isKey ? 0x02 : 0) | (expected.empty() ? 0x10 : 0);
        expected.push_back({unit.pts & STAMP_MASK, unit.bytes.size(), md5Of(unit.bytes), 0, flags});
    }
    compare(lines("units", "video"), expected);
}

TEST_P(UnitsTest, Sound) {
    const Variant& variant = GetParam();
    if (variant.audio == AV_CODEC_ID_MP2) {
        std::vector<Line> expected;
        for (const ParsedUnit& frame : parseUnits(variant.audio, mAudio, LAYER_II_FRAME)) {
            expected.push_back({frame.pts & STAMP_MASK, frame.bytes.size(), md5Of(frame.bytes)});
        }
        compare(lines("units", "audio"), expected);
        return;
    }
    mAudio.erase(mAudio.begin(), mAudio.begin() + static_cast<long>(variant.packetsForFraming));
    const std::vector<ParsedUnit> frames = parseUnits(variant.audio, mAudio, AUDIO_FRAME);
    const std::vector<Line>& ours = lines("units", "audio");
    ASSERT_FALSE(ours.empty());
    std::vector<Line> expected;
    for (const ParsedUnit& frame : frames) {
        const size_t index = expected.size();
        const bool isLate = index >= variant.lagFrom && index < variant.lagTo;
        Line line;
        line.pts = (frame.pts - (isLate ? AUDIO_FRAME : 0)) & STAMP_MASK;
        if (index == 0) {
            // The first unit gives way to the configuration: AAC-LC, 48 kHz, stereo.
            line.size = 10;
            line.md5 = md5Of({0x11, 0x90, 0, 0, 0, 0, 0, 0, 0, 0});
            line.about = 0x01;
            line.pts = variant.packetsForFraming > 0 ? ours[0].pts : line.pts;
        } else if (variant.audio == AV_CODEC_ID_AAC) {
            line.size = frame.bytes.size() - 7;
            line.md5 = md5Of(tail(frame.bytes, line.size, 0));
        } else {
            // In a LOAS frame a unit stands behind some bits of head and ends up to seven bits
            // before the frame does.
            ASSERT_LT(index, ours.size());
            line.size = ours[index].size;
            ASSERT_LT(line.size, frame.bytes.size());
            ASSERT_GT(line.size + 24, frame.bytes.size());
            for (unsigned shift = 0; shift < 8 && line.md5 != ours[index].md5; shift++) {
                line.md5 = md5Of(tail(frame.bytes, line.size, shift));
            }
        }
        expected.push_back(line);
    }
    compare(ours, expected);
}

constexpr auto LATM = AV_CODEC_ID_AAC_LATM;
constexpr auto ADTS = AV_CODEC_ID_AAC;

const Variant VARIANTS[] = {
    {"small", "51200", 273, 274, LATM},
    {"small", "51224", 385, 386, ADTS},
    {"small-adts", "51200", 273, 274, ADTS},
    {"small-aligned", "51200", 273, 274, LATM, false, 0, 5},
    {"small-adts-as-latm", "51200", 273, 274, ADTS, false, 26, 1, 136},
    {"small-latm-as-adts", "51200", 273, 274, LATM, false, 26, 5, 136},
    {"small-mpeg", "51200", 273, 274, AV_CODEC_ID_MP2},
    {"small-wrap", "51200", 273, 274, LATM},
    {"small-wrap", "51224", 385, 386, ADTS},
    {"small-cut", "51200", 273, 274, LATM, true},
    {"small-cut", "51224", 385, 386, ADTS, true},
    {"small-pcr-on-video", "51200", 273, 274, LATM},
    {"small-hrd", "51200", 273, 274, LATM},
};

INSTANTIATE_TEST_SUITE_P(Samples, UnitsTest, testing::ValuesIn(VARIANTS), [](const auto& test) {
    std::string name = std::string(test.param.sample) + "_" + test.param.service;
    std::ranges::replace(name, '-', '_');
    return name;
});

}  // namespace
}  // namespace orvtest
