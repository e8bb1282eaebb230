// A file as if it were on air: scripts of faults, what they do to packets, and the joint of a loop.

#include <dtv/TunerTypes.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dtv/PacketCounter.h"
#include "dtv/aslive/AsLiveSource.h"
#include "dtv/aslive/FaultInjector.h"
#include "dtv/aslive/FaultScript.h"
#include "dtv/aslive/LoopJoint.h"
#include "dtv/aslive/PacketTimes.h"
#include "support/ManualClock.h"
#include "support/TempFile.h"
#include "support/TsBuilder.h"

namespace {

using namespace orvhost;
using orvtest::Bytes;
using orvtest::TsBuilder;

constexpr unsigned PCR_PID = 0x101;
constexpr unsigned VIDEO = 0x111;
constexpr unsigned AUDIO = 0x112;
constexpr int64_t S = 1'000'000'000;

// ---- scripts

struct GoodLine {
    const char* line;
    Fault expected;  // but for its text
};

Fault faultOf(Fault::Kind kind, double atS, double lengthS, double rate = 0.0, int64_t ticks = 0) {
    Fault fault;
    fault.kind = kind;
    fault.atNs = static_cast<int64_t>(atS * 1e9);
    fault.lengthNs = static_cast<int64_t>(lengthS * 1e9);
    fault.rate = rate;
    fault.ticks27M = ticks;
    return fault;
}

TEST(FaultScriptTest, UnderstandsEveryFault) {
    using Kind = Fault::Kind;
    const GoodLine lines[] = {
        {"at 10s drop 1% for 5s", faultOf(Kind::DROP, 10, 5, 0.01)},
        {"at 30s gap 8s", faultOf(Kind::GAP, 30, 8)},
        {"at 30s gap for 500ms", faultOf(Kind::GAP, 30, 0.5)},
        {"at 1m30s bit-errors 1e-5 for 3s", faultOf(Kind::BIT_ERRORS, 90, 3, 1e-5)},
        {"at 0s transport-errors 0.5 for 1s", faultOf(Kind::TRANSPORT_ERRORS, 0, 1, 0.5)},
        {"\tat 2h  scramble for 2s  # and so on\r", faultOf(Kind::SCRAMBLE, 7200, 2)},
        {"at 1s duplicate 100% for 1s", faultOf(Kind::DUPLICATE, 1, 1, 1.0)},
        {"at 1s reorder 5% for 1s", faultOf(Kind::REORDER, 1, 1, 0.05)},
        {"at 1s no-pcr for 1.5m", faultOf(Kind::NO_PCR, 1, 90)},
        {"at 60s pcr-jump +2h", faultOf(Kind::PCR_JUMP, 60, 0, 0, 7200 * PCR_HZ)},
        {"at 60s time-jump -500ms", faultOf(Kind::TIME_JUMP, 60, 0, 0, -PCR_HZ / 2)},
        {"at 90s wrap", faultOf(Kind::WRAP, 90, 0, 0, 5 * PCR_HZ)},
        {"at 90s wrap in 20s", faultOf(Kind::WRAP, 90, 0, 0, 20 * PCR_HZ)},
    };
    for (const auto& [line, expected] : lines) {
        SCOPED_TRACE(line);
        std::string error;
        const auto script = FaultScript::parse(line, &error);
        ASSERT_TRUE(script) << error;
        ASSERT_EQ(script->faults.size(), 1u);
        const Fault& fault = script->faults[0];
        EXPECT_EQ(fault.kind, expected.kind);
        EXPECT_EQ(fault.atNs, expected.atNs);
        EXPECT_EQ(fault.lengthNs, expected.lengthNs);
        EXPECT_DOUBLE_EQ(fault.rate, expected.rate);
        EXPECT_EQ(fault.ticks27M, expected.ticks27M);
        EXPECT_EQ(fault.everyNs, 0);
    }
}

TEST(FaultScriptTest, ReadsAWholeScript) {
    std::string error;
    const auto script = FaultScript::parse(
        "# an evening\n\nseed 7\nevery 60s drop 1% for 5s pid 0x111\nat 9s time-jump +2h announced",
        &error);
    ASSERT_TRUE(script) << error;
    EXPECT_EQ(script->seed, 7u);
    ASSERT_EQ(script->faults.size(), 2u);
    EXPECT_EQ(script->faults[0].everyNs, 60 * S);
    EXPECT_EQ(script->faults[0].pid, 0x111);
    EXPECT_EQ(script->faults[0].text, "drop 1% for 5s pid 0x111");
    EXPECT_TRUE(script->faults[1].isAnnounced);
    EXPECT_TRUE(FaultScript::parse("", &error));
}

TEST(FaultScriptTest, TellsTheLineAndWhatIsWrong) {
    const std::pair<std::string, std::string> scripts[] = {
        {"drop 1%", "line 1: \"drop\": a line begins with at"},
        {"at 1s gap 1s\n\nat 2x gap 1s", "line 3: at: \"2x\" is no time"},
        {"at 10 gap 1s", "\"10\" is no time"},
        {"at 1s sneeze", "\"sneeze\" is no fault; there are drop, gap"},
        {"at 1s drop 5s", "drop: \"5s\" is no share"},
        {"at 1s drop 101% for 1s", "is no share"},
        {"at 1s drop nan for 1s", "is no share"},
        {"at 1s drop 1%", "drop lasts; write, say, drop 1% for 5s"},
        {"at 1s drop 1% for -5s", "is no time"},
        {"at 1s drop 1% for 5s pid 8192", "is no PID"},
        {"at 1s pcr-jump 2h", "\"2h\" is no jump"},
        {"at 1s pcr-jump +14h", "at most 13h"},
        {"at 1s gap 8s or so", "\"or so\" is too much"},
        {"every 99ms gap 8s", "every: \"99ms\" is too short"},
        {"at 9999h gap 8s", "is no time"},
        {"seed x", "\"x\" is no number"},
        {"at 1s \x1b[2J", "\"?[2J\" is no fault"},
        {std::string(70'000, '#'), "longer than 64 KiB"},
    };
    for (const auto& [text, expected] : scripts) {
        std::string error;
        EXPECT_FALSE(FaultScript::parse(text, &error));
        EXPECT_NE(error.find(expected), std::string::npos) << error;
    }
    std::string many;
    for (size_t i = 0; i <= FaultScript::MAX_FAULTS; ++i) {
        many += "at 1s gap 1s\n";
    }
    std::string error;
    EXPECT_FALSE(FaultScript::parse(many, &error));
    EXPECT_EQ(error, "line 1001: more than 1000 faults");
}

// ---- packets

// Two seconds of pictures and sound with a PCR every 40 ms; `first` is their first time.
Bytes broadcast(int64_t first90k = 900'000, bool startsInside = false) {
    TsBuilder builder;
    if (startsInside) {
        builder.packet(VIDEO, Bytes(184, 0x55)).packet(AUDIO, Bytes(184, 0x66));
    }
    for (int64_t i = 0; i < 50; ++i) {
        const int64_t time = first90k + i * 3600;
        builder.pcr(PCR_PID, time * 300);
        builder.pes(VIDEO, 0xE0, time + 63'000, Bytes(700, 0xAA), orvtest::NO_TIME, time + 60'000);
        builder.pes(AUDIO, 0xC0, time + 50'000, Bytes(300, 0xBB));
        builder.nulls(2);
    }
    return builder.build();
}

void forEachPacket(const Bytes& stream, const std::function<void(const uint8_t*)>& look) {
    for (size_t i = 0; i + TS_PACKET_BYTES <= stream.size(); i += TS_PACKET_BYTES) {
        look(&stream[i]);
    }
}

uint64_t continuityErrors(const Bytes& stream) {
    PacketCounter counter;
    forEachPacket(stream, [&](const uint8_t* packet) { counter.count(packet); });
    uint64_t errors = 0;
    for (const PidStatistics& pid : counter.pids()) {
        errors += pid.continuityErrors;
    }
    return errors;
}

Bytes looped(const Bytes& file, int laps) {
    LoopJoint joint;
    Bytes out;
    for (int lap = 0; lap < laps; ++lap) {
        forEachPacket(file, [&](const uint8_t* packet) {
            Bytes changed(packet, packet + TS_PACKET_BYTES);
            if (joint.pass(changed.data())) {
                out.insert(out.end(), changed.begin(), changed.end());
            }
        });
        joint.beginLap();
    }
    return out;
}

std::vector<int64_t> pcrs(const Bytes& stream) {
    std::vector<int64_t> all;
    forEachPacket(stream, [&](const uint8_t* packet) {
        if (hasPcr(packet)) {
            all.push_back(pcrOf(packet));
        }
    });
    return all;
}

// PTS of the PID, and the distance that DTS has.
std::vector<int64_t> stamps(const Bytes& stream, unsigned pid) {
    std::vector<int64_t> all;
    forEachPacket(stream, [&](const uint8_t* packet) {
        uint8_t id = 0;
        const size_t at = pidOf(packet) == pid ? stampOffsetOf(packet, &id) : 0;
        if (at != 0) {
            all.push_back(stampAt(packet + at));
            if (id == 0xE0) {
                EXPECT_EQ((all.back() - stampAt(packet + at + 5)) & (STAMP_WRAP - 1), 3000);
            }
        }
    });
    return all;
}

struct LoopCase {
    const char* name;
    int64_t first90k;
    bool startsInside;
};

class LoopJointTest : public testing::TestWithParam<LoopCase> {};

// Every step over the joints is as long as any other, to the tick; but for the time of two packets
// that are left out there.
TEST_P(LoopJointTest, TimesAndCountersGoOn) {
    constexpr int LAPS = 4;
    const Bytes file = broadcast(GetParam().first90k, GetParam().startsInside);
    const Bytes stream = looped(file, LAPS);
    EXPECT_EQ(continuityErrors(stream), 0u);
    const auto references = pcrs(stream);
    ASSERT_EQ(references.size(), 50u * LAPS);
    for (size_t i = 1; i < references.size(); ++i) {
        ASSERT_NEAR(static_cast<double>(pcrDistance(references[i - 1], references[i])),
                    3600.0 * 300, GetParam().startsInside ? 250'000 : 300)
            << i;
    }
    for (const unsigned pid : {VIDEO, AUDIO}) {
        const auto times = stamps(stream, pid);
        ASSERT_EQ(times.size(), 50u * LAPS);
        for (size_t i = 1; i < times.size(); ++i) {
            ASSERT_NEAR(static_cast<double>((times[i] - times[i - 1]) & (STAMP_WRAP - 1)), 3600,
                        GetParam().startsInside ? 850 : 1)
                << i;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Files, LoopJointTest,
                         testing::Values(LoopCase{"Plain", 900'000, false},
                                         LoopCase{"OverTheWrap", STAMP_WRAP - 90'000, false},
                                         LoopCase{"StartsInsideAUnit", 900'000, true}),
                         [](const auto& loop) { return loop.param.name; });

TEST(LoopJointRestTest, LeavesOutTheRestOfAUnitButNotItsClock) {
    TsBuilder file;
    file.packet(VIDEO, Bytes(176, 0x55), false, 27'000'000);
    file.packet(VIDEO, Bytes(184, 0x55));
    file.pes(VIDEO, 0xE0, 90'000, Bytes(20, 0xAA), 28'080'000);
    const Bytes stream = looped(file.build(), 2);
    ASSERT_EQ(stream.size(), (3 + 2) * TS_PACKET_BYTES);
    const uint8_t* const rest = &stream[3 * TS_PACKET_BYTES];
    EXPECT_TRUE(hasPcr(rest));
    EXPECT_FALSE(hasPayload(rest));
    EXPECT_EQ(continuityErrors(stream), 0u);
    EXPECT_TRUE(looped(Bytes(TS_PACKET_BYTES, 0x47), 3).size() > 0);
}

// ---- faults

class FaultInjectorTest : public testing::Test {
protected:
    // The whole broadcast at `atNs`.
    Bytes inject(const std::string& text, int64_t atNs = 0, const Bytes& in = broadcast()) {
        std::string error;
        const auto script = FaultScript::parse(text, &error);
        EXPECT_TRUE(script) << error;
        FaultInjector injector(*script);
        injector.advance(atNs, &mHappened);
        Bytes out;
        forEachPacket(in, [&](const uint8_t* packet) { injector.pass(packet, &out); });
        return out;
    }
    static size_t packets(const Bytes& stream) { return stream.size() / TS_PACKET_BYTES; }

    const Bytes mIn = broadcast();
    std::vector<FaultInjector::Happening> mHappened;
};

TEST_F(FaultInjectorTest, DoesToPacketsWhatTheScriptSays) {
    EXPECT_EQ(inject("at 5s gap 8s", 0), mIn);
    EXPECT_EQ(inject("at 5s gap 8s", 13 * S), mIn);
    EXPECT_TRUE(inject("at 5s gap 8s", 5 * S).empty());

    const size_t left = packets(inject("at 0s drop 10% for 1s"));
    EXPECT_NEAR(static_cast<double>(left), 0.9 * static_cast<double>(packets(mIn)), 30);
    EXPECT_EQ(packets(inject("at 0s drop 100% for 1s pid 0x112")), packets(mIn) - 100);
    EXPECT_EQ(packets(inject("at 0s duplicate 100% for 1s")), 2 * packets(mIn));

    const auto count = [](const Bytes& stream, bool (*is)(const uint8_t*)) {
        size_t n = 0;
        forEachPacket(stream, [&](const uint8_t* packet) { n += is(packet) ? 1 : 0; });
        return n;
    };
    EXPECT_EQ(count(inject("at 0s transport-errors 100% for 1s"), hasTransportError), packets(mIn));
    EXPECT_EQ(count(inject("at 0s scramble for 1s"), isScrambled), 50u * (4 + 2));
    EXPECT_TRUE(pcrs(inject("at 0s no-pcr for 1s")).empty());

    const Bytes reordered = inject("at 0s reorder 20% for 1s");
    EXPECT_EQ(packets(reordered), packets(mIn));
    EXPECT_GT(continuityErrors(reordered), 5u);
}

TEST_F(FaultInjectorTest, BitErrorsComeAtTheirRateAndLeaveHeaders) {
    const Bytes out = inject("at 0s bit-errors 1e-3 for 1s");
    ASSERT_EQ(out.size(), mIn.size());
    size_t bits = 0;
    for (size_t i = 0; i < out.size(); ++i) {
        const int wrong = __builtin_popcount(static_cast<unsigned>(out[i] ^ mIn[i]));
        EXPECT_TRUE(i % TS_PACKET_BYTES >= 4 || wrong == 0);
        bits += static_cast<size_t>(wrong);
    }
    const double expected = static_cast<double>(packets(mIn)) * 184 * 8 * 1e-3;
    EXPECT_NEAR(static_cast<double>(bits), expected, expected * 0.25);
    EXPECT_EQ(inject("at 0s bit-errors 1e-3 for 1s"), out);
    EXPECT_NE(inject("at 0s bit-errors 1e-3 for 1s\nseed 2"), out);
}

TEST_F(FaultInjectorTest, JumpsMoveClockOrAllTimes) {
    constexpr int64_t HOUR = 3600 * PCR_HZ;
    const int64_t pcr = pcrs(mIn)[0];
    const int64_t stamp = stamps(mIn, VIDEO)[0];
    const Bytes clockAlone = inject("at 0s pcr-jump +1h");
    EXPECT_EQ(pcrs(clockAlone)[0], pcr + HOUR);
    EXPECT_EQ(stamps(clockAlone, VIDEO)[0], stamp);

    const Bytes all = inject("at 0s time-jump -1h announced");
    EXPECT_EQ(pcrs(all)[0], pcr - HOUR + PCR_WRAP);
    EXPECT_EQ(stamps(all, VIDEO)[0], stamp - HOUR / 300 + STAMP_WRAP);
    EXPECT_TRUE(hasDiscontinuityIndicator(&all[0]));
    size_t announced = 0;
    forEachPacket(all,
                  [&](const uint8_t* p) { announced += hasDiscontinuityIndicator(p) ? 1 : 0; });
    EXPECT_EQ(announced, 1u);

    // The second PCR is 40 ms behind the first, and so on.
    const auto wrapping = pcrs(inject("at 0s wrap in 100ms"));
    EXPECT_NEAR(static_cast<double>(wrapping[0]), static_cast<double>(PCR_WRAP - 2'700'000), 300);
    EXPECT_GT(wrapping[2], wrapping[1]);
    EXPECT_LT(wrapping[3], PCR_HZ);
}

TEST_F(FaultInjectorTest, TellsWhatBeganAndRepeatsIt) {
    std::string error;
    FaultInjector injector(*FaultScript::parse("at 3s gap 1s\nevery 2s drop 1% for 500ms", &error));
    injector.advance(1 * S, &mHappened);
    EXPECT_TRUE(mHappened.empty());
    injector.advance(6 * S, &mHappened);
    ASSERT_EQ(mHappened.size(), 4u);
    const int64_t times[] = {2 * S, 3 * S, 4 * S, 6 * S};
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(mHappened[i].atNs, times[i]);
    }
    EXPECT_EQ(mHappened[1].text, "gap 1s");
    EXPECT_EQ(mHappened[0].lengthNs, S / 2);
}

// ---- the source

class AsLiveSourceTest : public testing::Test {
protected:
    void open(const std::string& script, const Bytes& bytes = broadcast()) {
        mFile.emplace(bytes);
        TuneResult result;
        mSource = AsLiveSource::open(openByteSource(mFile->path(), result), "news", script, mClock,
                                     result);
        ASSERT_NE(mSource, nullptr) << result.message;
    }
    // What comes in that time, looked at every 10 ms.
    Bytes readFor(int64_t ns) {
        Bytes all;
        std::vector<uint8_t> piece(1 << 16);
        for (int64_t step = 0; step < ns; step += S / 100) {
            ssize_t got = 0;
            while ((got = mSource->read(piece.data(), piece.size(), 0)) > 0) {
                all.insert(all.end(), piece.begin(), piece.begin() + got);
            }
            EXPECT_EQ(got, -EAGAIN);
            mClock.advance(S / 100);
        }
        return all;
    }

    orvtest::ManualClock mClock;
    std::optional<orvtest::TempFile> mFile;
    std::unique_ptr<AsLiveSource> mSource;
};

TEST_F(AsLiveSourceTest, ComesAtItsPaceForEver) {
    open("");
    const size_t lap = broadcast().size();
    const Bytes first = readFor(1 * S);
    EXPECT_NEAR(static_cast<double>(first.size()), static_cast<double>(lap) / 2,
                static_cast<double>(lap) / 20);
    using orvtest::operator+;
    const Bytes all = first + readFor(6 * S);
    EXPECT_NEAR(static_cast<double>(all.size()), static_cast<double>(lap) * 3.5,
                static_cast<double>(lap) / 10);
    EXPECT_EQ(continuityErrors(all), 0u);
    const auto faults = mSource->takeFaults();
    ASSERT_EQ(faults.size(), 3u);
    EXPECT_NEAR(static_cast<double>(faults[1].timeNs - faults[0].timeNs), 2e9, 5e7);
    EXPECT_TRUE(mSource->takeFaults().empty());
}

TEST_F(AsLiveSourceTest, IsSilentInAGapAndGoesOnWhereTheBroadcastIs) {
    open("at 1s gap 1s");
    const auto before = pcrs(readFor(1 * S));
    EXPECT_LE(pcrs(readFor(S * 95 / 100)).size(), 1u);
    readFor(S / 10);
    const auto after = pcrs(readFor(S / 5));
    ASSERT_FALSE(after.empty());
    EXPECT_GT(pcrDistance(before.back(), after.front()), PCR_HZ);
    ASSERT_GE(mSource->takeFaults().size(), 1u);
}

TEST_F(AsLiveSourceTest, RefusesWhatCannotBe) {
    orvtest::TempFile file(broadcast());
    TuneResult result;
    EXPECT_EQ(AsLiveSource::open(openByteSource(file.path(), result), "news", "at", mClock, result),
              nullptr);
    EXPECT_EQ(result.status, TuneStatus::BadUri);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(
        AsLiveSource::open(adoptByteSource(ends[0], "pipe", result), "pipe", "", mClock, result),
        nullptr);
    EXPECT_EQ(result.status, TuneStatus::CannotOpen);
    close(ends[0]);
    close(ends[1]);

    // No packets at all: at its end, not in an endless loop.
    open("", Bytes(10'000, 0x11));
    uint8_t buffer[1880];
    EXPECT_EQ(mSource->read(buffer, sizeof buffer, 0), 0);
    mSource->interrupt();
    EXPECT_EQ(mSource->read(buffer, sizeof buffer, 1000), -EINTR);
}

}  // namespace
