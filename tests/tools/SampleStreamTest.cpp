// The samples that the build makes, measured: timing of the multiplex on the stream's own clock,
// and the marks in what libavcodec decodes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>

#include "pattern/TestPattern.h"
#include "tools/SampleDecoder.h"
#include "tools/TsScan.h"

namespace orvtest {
namespace {

using testing::AllOf;
using testing::Each;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;
using testing::SizeIs;

constexpr int kMainService = 0xC800;
constexpr int kSmallService = 0xC818;
constexpr uint16_t kPmtPid = 0x0100;
constexpr uint16_t kVideoPid = 0x0111;
constexpr uint16_t kAudioPid = 0x0112;
constexpr int64_t kRate = 1'200'000;
constexpr int64_t kMs27M = kClock27M / 1000;

std::string samplePath(const std::string& name) {
    return std::string(ORV_SAMPLES_DIR) + "/" + name + ".ts";
}

struct SampleCase {
    const char* name;
    int service;
    const char* audioCodec;
    bool interlaced;
};

std::ostream& operator<<(std::ostream& out, const SampleCase& sample) {
    return out << sample.name << " service " << sample.service;
}

std::string identifier(std::string name) {
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

std::string caseName(const testing::TestParamInfo<SampleCase>& tested) {
    return identifier(tested.param.name) + (tested.param.service == kMainService ? "" : "_second");
}

std::string sampleName(const testing::TestParamInfo<const char*>& tested) {
    return identifier(tested.param);
}

class DecodedSample : public testing::TestWithParam<SampleCase> {};

// Every picture is there once, in order, at its time; flashes where they belong; each beep starts
// with its flash.
TEST_P(DecodedSample, MarksAreWhereTheyBelong) {
    const SampleCase& sample = GetParam();
    const DecodedService decoded = decodeService(samplePath(sample.name), sample.service);
    EXPECT_EQ(decoded.errors, 0);
    EXPECT_EQ(decoded.audioCodec, sample.audioCodec);
    ASSERT_THAT(decoded.frames, SizeIs(300));
    const int64_t originUs = decoded.frames.front().ptsUs;
    std::vector<int64_t> flashesUs;
    for (uint32_t i = 0; i < decoded.frames.size(); ++i) {
        const DecodedFrame& frame = decoded.frames[i];
        ASSERT_EQ(frame.number, i);
        EXPECT_NEAR(frame.ptsUs - originUs, int64_t{i} * 1'001'000 / 30, 12) << i;
        EXPECT_EQ(frame.flash, i % 30 < kFlashFrames) << i;
        EXPECT_EQ(frame.interlaced, sample.interlaced) << i;
        if (i % 30 == 0 && i > 0) {
            flashesUs.push_back(frame.ptsUs);
        }
    }
    // The first beep has no silence before it.
    ASSERT_THAT(decoded.beepsUs, SizeIs(flashesUs.size()));
    for (size_t i = 0; i < flashesUs.size(); ++i) {
        EXPECT_NEAR(decoded.beepsUs[i], flashesUs[i], 2000) << i;
    }
    EXPECT_GE(decoded.audioSamples, 10 * 48000);
}

INSTANTIATE_TEST_SUITE_P(
    Samples, DecodedSample,
    testing::Values(SampleCase{"small", kMainService, "aac_latm", true},
                    SampleCase{"small", kSmallService, "aac", false},
                    SampleCase{"small-adts", kMainService, "aac", true},
                    SampleCase{"small-aligned", kMainService, "aac_latm", true},
                    SampleCase{"small-mpeg", kMainService, "mp2", false},
                    SampleCase{"small-wrap", kMainService, "aac_latm", true},
                    SampleCase{"small-pcr-on-video", kMainService, "aac_latm", true},
                    SampleCase{"small-hrd", kMainService, "aac_latm", true}),
    caseName);

class Multiplex : public testing::TestWithParam<const char*> {
protected:
    TsScan scan{samplePath(GetParam())};

    // When a packet has arrived, relative to the first clock reference, in 27 MHz units.
    int64_t arrived27M(int64_t packet) const {
        const ScannedPcr& first = firstPcr();
        return expectedAfter27M(first, {0, packet + 1}, kRate);
    }
    const ScannedPcr& firstPcr() const { return scan.pcrs.begin()->second.front(); }
    int64_t sinceFirstPcr27M(int64_t stamp90k) const {
        return stampDistance(stamp90k, firstPcr().pcr27M / 300) * 300;
    }
};

TEST_P(Multiplex, ClockReferencesAreDenseAndExact) {
    EXPECT_THAT(scan.continuityErrors, IsEmpty());
    ASSERT_THAT(scan.pcrs, Not(IsEmpty()));
    for (const auto& [pid, pcrs] : scan.pcrs) {
        for (size_t i = 1; i < pcrs.size(); ++i) {
            EXPECT_LE(expectedAfter27M(pcrs[i - 1], pcrs[i], kRate), 30 * kMs27M) << pid;
            const int64_t modulo = kStampModulo * 300;
            const int64_t passed = ((pcrs[i].pcr27M - pcrs[0].pcr27M) % modulo + modulo) % modulo;
            ASSERT_NEAR(passed, expectedAfter27M(pcrs[0], pcrs[i], kRate), 1) << pid;
        }
        EXPECT_GT(expectedAfter27M(pcrs.front(), pcrs.back(), kRate), 9000 * kMs27M);
    }
}

TEST_P(Multiplex, DataArrivesAheadOfItsTimeAndNeverLate) {
    ASSERT_THAT(scan.pes, SizeIs(Ge(2U)));
    for (const auto& [pid, units] : scan.pes) {
        for (const ScannedPes& unit : units) {
            ASSERT_LE(arrived27M(unit.lastPacket), sinceFirstPcr27M(unit.dts)) << pid;
            const int64_t lead = sinceFirstPcr27M(unit.pts) - arrived27M(unit.firstPacket);
            ASSERT_THAT(lead, AllOf(Ge(500 * kMs27M), Le(850 * kMs27M))) << pid;
        }
    }
}

TEST_P(Multiplex, TablesComeOften) {
    for (const uint16_t pid : {uint16_t{0x00}, uint16_t{0x10}, uint16_t{0x11}, kPmtPid}) {
        const auto& starts = scan.sections[pid];
        const int64_t limitMs = pid == 0x00 || pid == kPmtPid ? 150 : 1100;
        ASSERT_THAT(starts, SizeIs(Ge(8U))) << pid;
        for (size_t i = 1; i < starts.size(); ++i) {
            ASSERT_LE(expectedAfter27M({0, starts[i - 1]}, {0, starts[i]}, kRate), limitMs * kMs27M)
                << pid;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Samples, Multiplex,
                         testing::Values("small", "small-wrap", "small-pcr-on-video", "small-mpeg"),
                         sampleName);

// One whole access unit a PES packet: delimiter first, parameter sets before an IDR picture, a
// picture-timing message and no other in each.
TEST(SampleVideo, AccessUnitsAreWhole) {
    const TsScan scan(samplePath("small"));
    const auto& units = scan.pes.at(kVideoPid);
    ASSERT_THAT(units, SizeIs(300));
    for (size_t i = 0; i < units.size(); ++i) {
        const bool idr = i % 15 == 0;
        ASSERT_EQ(nalTypes(units[i].payload), idr ? "9 7 8 6 5" : "9 6 1") << i;
        EXPECT_EQ(units[i].randomAccess, idr) << i;
        const std::vector<uint8_t> sei{0, 0, 1, 6, 1};
        EXPECT_NE(
            std::search(units[i].payload.begin(), units[i].payload.end(), sei.begin(), sei.end()),
            units[i].payload.end());
    }
}

TEST(SampleTimeStamps, PassTheWrapInMidStream) {
    const TsScan scan(samplePath("small-wrap"));
    for (const uint16_t pid : {kVideoPid, kAudioPid}) {
        const auto& units = scan.pes.at(pid);
        EXPECT_GT(units.front().pts, kStampModulo - 5 * 90000);
        EXPECT_LT(units.back().pts, 7 * 90000);
    }
}

enum class Framing { Loas, Adts };

// Whether a payload begins with the sync word of a framing.
bool beginsWith(Framing framing, const std::vector<uint8_t>& payload) {
    if (payload.size() < 2) {
        return false;
    }
    const unsigned word = payload[0] << 8 | payload[1];
    return framing == Framing::Loas ? (word & 0xFFE0) == 0x56E0 : (word & 0xFFF0) == 0xFFF0;
}

// Declared stream type, carried framing, and how many of the first 50 PES packets begin with a
// frame: all, or only the first because frames run over the ends.
TEST(SampleAudio, FramingIsDeclaredAndCutAsAskedFor) {
    struct Case {
        const char* name;
        uint8_t declared;
        Framing carried;
        int atLeast;
        int atMost;
    };
    const Case cases[] = {{"small", 0x11, Framing::Loas, 1, 3},
                          {"small-adts", 0x0F, Framing::Adts, 1, 3},
                          {"small-aligned", 0x11, Framing::Loas, 50, 50},
                          {"small-latm-as-adts", 0x0F, Framing::Loas, 50, 50},
                          {"small-adts-as-latm", 0x11, Framing::Adts, 50, 50}};
    for (const Case& c : cases) {
        const TsScan scan(samplePath(c.name));
        const auto& section = scan.firstSection.at(kPmtPid);
        const std::vector<uint8_t> entry{c.declared, 0xE0 | kAudioPid >> 8, kAudioPid & 0xFF};
        EXPECT_NE(std::search(section.begin(), section.end(), entry.begin(), entry.end()),
                  section.end())
            << c.name;
        const auto& units = scan.pes.at(kAudioPid);
        ASSERT_THAT(units, SizeIs(Ge(50U))) << c.name;
        const auto begins = std::count_if(
            units.begin(), units.begin() + 50,
            [&](const ScannedPes& unit) { return beginsWith(c.carried, unit.payload); });
        EXPECT_THAT(begins, AllOf(Ge(c.atLeast), Le(c.atMost))) << c.name;
    }
}

// A cut shows on every PID at one place: a counter that jumps, content that is missing, and
// another time base.
TEST(SampleCut, JumpsOnceInMidStream) {
    const TsScan scan(samplePath("small-cut"));
    const auto cutPacket = static_cast<int64_t>(5.0 * kRate / (188 * 8));
    for (const auto& [pid, units] : scan.pes) {
        ASSERT_THAT(scan.continuityErrors.at(pid), SizeIs(1)) << pid;
        EXPECT_THAT(scan.continuityErrors.at(pid).front(),
                    AllOf(Ge(cutPacket), Le(cutPacket + 800)))
            << pid;
        const auto jumps = std::adjacent_find(
            units.begin(), units.end(), [](const ScannedPes& a, const ScannedPes& b) {
                return std::abs(stampDistance(b.dts, a.dts)) > 90000;
            });
        ASSERT_NE(jumps, units.end()) << pid;
        EXPECT_LT(stampDistance((jumps + 1)->dts, jumps->dts), -int64_t{3600} * 90000) << pid;
    }
    const auto& pictures = scan.pes.at(kVideoPid);
    EXPECT_THAT(pictures, SizeIs(AllOf(Ge(250U), Le(260U))));
}

}  // namespace
}  // namespace orvtest
