// Streams that nobody sends: lengths that lie, values out of all bounds, bytes by chance. Each is
// put in front of a sample and taken apart by the whole chain of receiver, parsers and extractors.
// Nothing of it may take the process down, hang or grow, and what follows must come whole.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <random>
#include <string>
#include <unordered_set>
#include <vector>

#include "loss/TakenApart.h"
#include "programs/Program.h"
#include "support/H264Builder.h"
#include "support/TempFile.h"
#include "support/TsBuilder.h"

namespace orvtest {
namespace {

constexpr uint16_t VIDEO_PID = 273;
constexpr uint16_t AUDIO_PID = 274;
constexpr uint8_t VIDEO_ID = 0xE0;
constexpr uint8_t AUDIO_ID = 0xC0;
constexpr int64_t PTS_90K = 900'000;

constexpr double MOST_SECONDS = SANITIZED ? 30 : 3;
constexpr long MOST_KB = 160 * 1024;

// What the end of the hostile part may take along: the PES packet that it leaves open, and the one
// that starts behind its hole.
constexpr size_t PES_AT_THE_SEAM = 2;
// Where the first SPS is among them, no picture up to the next.
constexpr size_t PICTURES_AT_THE_SEAM = PES_AT_THE_SEAM + 15;
// The sound units in those, the one cut on either side, and the one that the configuration
// replaces.
constexpr size_t SOUND_UNITS_AT_THE_SEAM = 12;

Bytes noise(size_t size, uint64_t seed) {
    std::mt19937_64 random(seed);
    Bytes bytes(size);
    for (uint8_t& byte : bytes) {
        byte = static_cast<uint8_t>(random());
    }
    return bytes;
}

Bytes repeated(const Bytes& pattern, size_t times) {
    Bytes bytes;
    for (size_t i = 0; i < times; ++i) {
        bytes.insert(bytes.end(), pattern.begin(), pattern.end());
    }
    return bytes;
}

// ---- packets: `change` gets 64 good packets with an adaptation field, every fourth a start
using PacketChange = std::function<void(uint8_t* packet, unsigned index)>;

Bytes packets(unsigned pid, const PacketChange& change) {
    TsBuilder builder;
    for (unsigned i = 0; i < 64; ++i) {
        const Bytes payload =
            i % 4 == 0 ? TsBuilder::pesBytes(VIDEO_ID, PTS_90K, noise(100, i)) : noise(100, i);
        builder.packet(pid, payload, i % 4 == 0);
    }
    Bytes bytes = builder.build();
    for (unsigned i = 0; i < 64; ++i) {
        change(bytes.data() + i * TsBuilder::PACKET, i);
    }
    return bytes;
}

Bytes onBoth(const PacketChange& change) {
    return packets(VIDEO_PID, change) + packets(AUDIO_PID, change);
}

// All flags, a private length up to 255, and what follows by chance.
void absurdField(uint8_t* p, unsigned i) {
    const Bytes random = noise(TsBuilder::PACKET - 4, i);
    std::copy(random.begin(), random.end(), p + 4);
    p[4] = static_cast<uint8_t>(i * 3);
    p[5] = static_cast<uint8_t>(i % 3 == 0 ? 0xFF : i % 3 == 1 ? 0x03 : 0x02);
    p[i % 3 == 0 ? 19 : 6] = static_cast<uint8_t>(255 - i);
}

// ---- PES packets
Bytes pesOn(unsigned pid, uint8_t id, const std::vector<Bytes>& streams) {
    TsBuilder builder;
    for (const Bytes& stream : streams) {
        builder.pes(pid, id, PTS_90K, stream);
    }
    return builder.build();
}
Bytes video(const std::vector<Bytes>& streams) {
    return pesOn(VIDEO_PID, VIDEO_ID, streams);
}
Bytes audio(const std::vector<Bytes>& streams) {
    return pesOn(AUDIO_PID, AUDIO_ID, streams);
}

// PES packets of 0 to 40 bytes, the first ones of this header and noise behind it.
Bytes tinyPes(const Bytes& rest) {
    TsBuilder builder;
    for (size_t size = 0; size <= 40; ++size) {
        for (const auto& [pid, id] : {std::pair{VIDEO_PID, VIDEO_ID}, {AUDIO_PID, AUDIO_ID}}) {
            Bytes whole = Bytes{0, 0, 1, id} + rest + noise(40, size);
            whole.resize(size);
            builder.packet(pid, whole, true);
        }
    }
    return builder.build();
}

// So few that neither extractor changes its mind about the stream.
Bytes streamIds() {
    TsBuilder builder;
    for (unsigned id = 0xBA; id <= 0xFF; id += 3) {
        builder.pes(VIDEO_PID, static_cast<uint8_t>(id), PTS_90K, noise(20, id));
        builder.pes(AUDIO_PID, static_cast<uint8_t>(id), PTS_90K, noise(20, id));
    }
    return builder.build();
}

Bytes withoutEnd(unsigned pid, uint8_t id, size_t bytes) {
    return TsBuilder().pes(pid, id, PTS_90K, Bytes(bytes, 0xA5)).build();
}

// ---- pictures
Bytes picture(const Bytes& before) {
    using namespace OrvPlayer::h264;
    return aud() + before + slice(5, {.type = 5}) + slice(1);
}

Bytes absurdSps(const std::function<void(OrvPlayer::h264::SpsFields&)>& change) {
    OrvPlayer::h264::SpsFields fields;
    change(fields);
    return video({picture(OrvPlayer::h264::sps(fields)), picture({})});
}

Bytes noiseInNal(unsigned type) {
    std::vector<Bytes> streams;
    for (uint64_t seed = 0; seed < 30; ++seed) {
        streams.push_back(picture(OrvPlayer::h264::nal(type, noise(1 + seed * 5, seed))));
    }
    return video(streams);
}

// ---- sound
Bytes loas(unsigned length, const Bytes& body) {
    return Bytes{0x56, static_cast<uint8_t>(0xE0 | length >> 8), static_cast<uint8_t>(length)} +
           body;
}

Bytes loasNoise() {
    std::vector<Bytes> streams;
    for (unsigned seed = 0; seed < 60; ++seed) {
        Bytes body = noise(seed * 4, seed);
        if (!body.empty() && seed % 2 == 0) {
            body[0] &= 0x7F;  // a StreamMuxConfig follows
        }
        streams.push_back(loas(static_cast<unsigned>(body.size()), body));
    }
    return audio(streams);
}

Bytes adtsHeaders() {
    std::vector<Bytes> streams;
    for (unsigned i = 0; i < 16 * 10; ++i) {
        const unsigned rate = i % 16;
        const unsigned length = i / 16;  // also below the header's 7 bytes
        const auto rateByte = static_cast<uint8_t>(0x40 | rate << 2);
        streams.push_back(Bytes{0xFF, 0xF1, rateByte, 0x80, static_cast<uint8_t>(length >> 3),
                                static_cast<uint8_t>(length << 5 | 0x1F), 0xFC} +
                          noise(20, i));
    }
    return audio(streams);
}

struct Case {
    const char* name;
    std::function<Bytes()> make;
    bool spoilsSps = false;  // the first SPS counts, whatever it says: no picture may follow
};

std::vector<Case> cases() {
    using OrvPlayer::h264::HrdFields;
    using OrvPlayer::h264::nal;
    using OrvPlayer::h264::SpsFields;
    using OrvPlayer::h264::Timing;
    const auto field = [](uint8_t* p, unsigned i) { p[4] = static_cast<uint8_t>(175 + i * 5 / 4); };
    return {
        {"FieldLengths", [=] { return onBoth(field); }},
        {"FieldFlags", [] { return onBoth(absurdField); }},
        {"ReservedControl", [] { return onBoth([](uint8_t* p, unsigned) { p[3] &= 0xCF; }); }},
        {"OnlyStarts", [] { return onBoth([](uint8_t* p, unsigned) { p[1] |= 0x40; }); }},
        {"NoStarts", [] { return onBoth([](uint8_t* p, unsigned) { p[1] &= 0xBF; }); }},
        {"NoiseBehindSync",
         [] {
             Bytes bytes = noise(2000 * TsBuilder::PACKET, 7);
             for (size_t i = 0; i < bytes.size(); i += TsBuilder::PACKET) {
                 bytes[i] = 0x47;
             }
             return bytes;
         }},
        {"TinyPes",
         [] {
             return tinyPes({0, 0, 0x80, 0xC0, 10});
         }},
        {"TinyPesAllFlags",
         [] {
             return tinyPes({0, 0, 0x8F, 0xFF, 255, 0xFF, 0xFF});
         }},
        {"TinyPesHeaderTooLong",
         [] {
             return tinyPes({0xFF, 0xFF, 0x80, 0, 255});
         }},
        {"StreamIds", streamIds},
        {"PictureWithoutEnd", [] { return withoutEnd(VIDEO_PID, VIDEO_ID, 7'000'000); }},
        {"SoundWithoutEnd", [] { return withoutEnd(AUDIO_PID, AUDIO_ID, 70'000); }},
        {"Zeros", [] { return video({Bytes(50'000)}) + audio({Bytes(50'000)}); }},
        {"Ones", [] { return video({Bytes(50'000, 0xFF)}) + audio({Bytes(50'000, 0xFF)}); }},
        {"Noise", [] { return video({noise(50'000, 3)}) + audio({noise(50'000, 4)}); }, true},
        {"StartCodes",
         [] {
             return video({repeated({0, 0, 1}, 20'000)});
         }},
        {"Delimiters",
         [] {
             return video({repeated({0, 0, 1, 9}, 20'000)});
         }},
        {"Slices",
         [] {
             return video({repeated({0, 0, 1, 0x65, 0x88}, 20'000)});
         }},
        {"SpsEmpty",
         [] {
             return video({repeated({0, 0, 1, 0x67}, 20'000)});
         },
         true},
        {"SpsNoise", [] { return noiseInNal(7); }, true},
        {"SpsZeros", [] { return video({picture(nal(7, Bytes(100)))}); }, true},
        {"SpsOnes", [] { return video({picture(nal(7, Bytes(100, 0xFF)))}); }, true},
        {"SpsHuge",
         [] { return absurdSps([](SpsFields& f) { f.widthMbs = f.mapUnits = 0xFFFFFFFF; }); },
         true},
        {"SpsCroppedAway",
         [] { return absurdSps([](SpsFields& f) {
                  f.crop = {~0U, ~0U, ~0U, ~0U};
              }); }, true},
        {"SpsTimeRunsAway",
         [] { return absurdSps([](SpsFields& f) {
                  f.timing = Timing{~0U, 1, true};
              }); }, true},
        {"SpsManyBuffers",
         [] {
             return absurdSps([](SpsFields& f) {
                 f.nalHrd = HrdFields{};
                 f.nalHrd->cpbCnt = 5000;
                 f.vclHrd = f.nalHrd;
             });
         },
         true},
        {"SpsScalingRunsAway",
         [] {
             return absurdSps([](SpsFields& f) {
                 f.profile = 100;
                 f.chroma.ue(1).ue(0).ue(0).u(1, 0).u(1, 1);
                 for (int i = 0; i < 8; ++i) {
                     f.chroma.u(1, 1).se(0x7FFFFFFF).se(-0x7FFFFFFF);
                 }
             });
         },
         true},
        {"SeiHuge",
         [] {
             const Bytes sizes = nal(6, Bytes(3000, 0xFF));
             return absurdSps([](SpsFields&) {}) +
                    video({picture(sizes), picture(nal(6, Bytes{1, 0xFF, 0xFF, 0x10})),
                           picture(nal(6, Bytes{5, 0}))});
         },
         true},
        {"SeiNoise", [] { return absurdSps([](SpsFields&) {}) + noiseInNal(6); }, true},
        {"LoasLengthZero", [] { return audio({repeated(loas(0, {}), 3000)}); }},
        {"LoasLengthMost", [] { return audio({loas(0x1FFF, {})}); }},
        {"LoasNoise", loasNoise},
        {"LoasZeros", [] { return audio({repeated(loas(200, Bytes(200)), 50)}); }},
        {"LoasOnes", [] { return audio({repeated(loas(200, Bytes(200, 0xFF)), 50)}); }},
        {"AdtsHeaders", adtsHeaders},
    };
}

std::vector<uint8_t> sample() {
    std::ifstream file(ORV_SAMPLES_DIR "/small.ts", std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

class HostileStreamsTest : public testing::TestWithParam<Case> {
protected:
    static void SetUpTestSuite() {
        setenv("ORV_TRACE", "off", 0);
        sSample = sample();
        std::string error;
        ASSERT_TRUE(selectFirstService(sSample, &sStreams, &error)) << error;
        sPes = takeApart(sSample, sStreams, true);
        sUnits = takeApart(sSample, sStreams, false);
        ASSERT_FALSE(sPes.video.empty() || sPes.audio.empty());
    }

    static TakenApart take(const Bytes& hostile, bool pes) {
        const auto begin = std::chrono::steady_clock::now();
        const TakenApart taken = takeApart(hostile + sSample, sStreams, pes);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
        EXPECT_LT(took.count(), MOST_SECONDS);
        EXPECT_TRUE(taken.tuned);
        EXPECT_EQ(taken.end, orvplay::UnitFlow::End::WORKED_OFF);
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        if (!SANITIZED) {
            EXPECT_LT(usage.ru_maxrss, MOST_KB);
        }
        return taken;
    }

    // How many of the sound units did not come.
    static size_t missing(const std::vector<TakenUnit>& all, const std::vector<TakenUnit>& taken) {
        std::unordered_multiset<uint64_t> left;
        for (const TakenUnit& unit : taken) {
            left.insert(unit.hash);
        }
        size_t count = 0;
        for (const TakenUnit& unit : all) {
            const auto found = left.find(unit.hash);
            if (found == left.end()) {
                ++count;
            } else {
                left.erase(found);
            }
        }
        return count;
    }

    static std::vector<uint8_t> sSample;
    static orvplay::StreamSelection sStreams;
    static TakenApart sPes;
    static TakenApart sUnits;
};

std::vector<uint8_t> HostileStreamsTest::sSample;
orvplay::StreamSelection HostileStreamsTest::sStreams;
TakenApart HostileStreamsTest::sPes;
TakenApart HostileStreamsTest::sUnits;

TEST_P(HostileStreamsTest, CostNothingBehindThem) {
    const Case& test = GetParam();
    const Bytes hostile = test.make();
    const TakenApart pes = take(hostile, true);
    EXPECT_LE(missing(sPes.video, pes.video), PES_AT_THE_SEAM);
    EXPECT_LE(missing(sPes.audio, pes.audio), PES_AT_THE_SEAM);
    const TakenApart units = take(hostile, false);
    if (!test.spoilsSps) {
        EXPECT_LE(missing(sUnits.video, units.video), PICTURES_AT_THE_SEAM);
    }
    EXPECT_LE(missing(sUnits.audio, units.audio), SOUND_UNITS_AT_THE_SEAM);
}

INSTANTIATE_TEST_SUITE_P(, HostileStreamsTest, testing::ValuesIn(cases()),
                         [](const testing::TestParamInfo<Case>& c) { return c.param.name; });

// Sound in the other framing, of which none of this is.
TEST_F(HostileStreamsTest, SoundIsNoAdts) {
    orvplay::StreamSelection adts = sStreams;
    adts.audioKind = orvhost::StreamKind::AudioAdts;
    const Bytes hostile = adtsHeaders() + loasNoise() + audio({noise(50'000, 9)});
    EXPECT_EQ(takeApart(hostile + sSample, adts, false).end, orvplay::UnitFlow::End::WORKED_OFF);
}

// The service is found behind broken sections. Tables that are whole and wrong stand until their
// version changes.
TEST_F(HostileStreamsTest, TablesThatLie) {
    Bytes cut = pmt(101, VIDEO_PID, {{0x1B, VIDEO_PID, {}}});
    cut[2] = 0xFF;  // longer than it is
    cut[1] |= 0x0F;
    Bytes loops = pmt(101, VIDEO_PID, {{0x1B, VIDEO_PID, {}}});
    loops.resize(loops.size() - 4);
    loops[11] = 0xFF;  // program_info_length
    const uint32_t crc = crc32Mpeg(loops);
    loops = loops + be16(crc >> 16) + be16(crc & 0xFFFF);
    const struct {
        const char* name;
        Bytes tables;
        bool found;
    } tests[] = {
        {"no programmes", TsBuilder().section(0, pat({})).build(), false},
        {"noise", pesOn(0, 0xFF, {noise(2000, 1)}) + pesOn(17, 0xFF, {noise(2000, 2)}), true},
        {"too long", TsBuilder().section(0, pat({{101, 600}})).section(600, cut).build(), false},
        {"loops", TsBuilder().section(0, pat({{101, 600}})).section(600, loops).build(), false},
        {"giant", TsBuilder().section(0, section(0, 1, noise(4080, 3))).build(), false},
        {"pointer", repeated(TsBuilder().packet(0, Bytes(184, 0xFF), true).build(), 20), true},
    };
    for (const auto& test : tests) {
        SCOPED_TRACE(test.name);
        const auto begin = std::chrono::steady_clock::now();
        orvplay::StreamSelection found;
        std::string error;
        const bool isFound = selectFirstService(test.tables + sSample, &found, &error);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
        EXPECT_LT(took.count(), MOST_SECONDS);
        if (test.found) {
            EXPECT_TRUE(isFound) << error;
            EXPECT_EQ(found.videoPid, VIDEO_PID);
        } else if (!isFound) {
            EXPECT_NE(error, "");
        }
    }
}

// What reaches the decoders and the renderers: the program goes on, and ends by itself.
TEST_F(HostileStreamsTest, Play) {
    const Bytes part(sSample.begin(), sSample.begin() + static_cast<ptrdiff_t>(sSample.size() / 2));
    std::vector<std::future<ProgramResult>> runs;
    for (const Bytes& hostile :
         {onBoth(absurdField) + tinyPes({0, 0, 0x8F, 0xFF, 255, 0xFF, 0xFF}),
          video({repeated({0, 0, 1, 0x65, 0x88}, 20'000)}) + loasNoise(), noiseInNal(5)}) {
        runs.push_back(std::async(std::launch::async, [hostile, &part] {
            const TempFile file(hostile + part);
            return runProgram(
                {"play", file.path(), "--video-pid", "273", "--audio-pid", "274", "--pcr-pid",
                 std::to_string(sStreams.pcrPid), "--headless", "--json", "--duration", "1"},
                60);
        }));
    }
    for (auto& run : runs) {
        const ProgramResult result = run.get();
        EXPECT_FALSE(result.timedOut);
        EXPECT_EQ(result.exitCode, 0) << result.out << result.err.substr(0, 2000);
    }
}

}  // namespace
}  // namespace orvtest
