// The samples that the build makes: the marks in what libavcodec decodes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>

#include "pattern/TestPattern.h"
#include "tools/SampleDecoder.h"

namespace orvtest {
namespace {

using testing::SizeIs;

constexpr int kMainService = 0xC800;
constexpr int kSmallService = 0xC818;

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

}  // namespace
}  // namespace orvtest
