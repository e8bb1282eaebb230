// Whole runs on the samples: is every picture shown once, in order, on time and in sync?

#include <gtest/gtest.h>

#include <future>
#include <string>
#include <vector>

#include "programs/Program.h"

namespace orvtest {
namespace {

struct Variant {
    std::string name;
    std::vector<std::string> options = {};
    double durationS = 3;         // 0: to the end
    uint32_t firstNumber = 1;     // the latest first picture; 0 gives way to the second
    double firstFrameMs = 3'500;  // a picture at most 0.8 s after it arrived, and a start
};

// A wrong framing is found out by 26 records of sound. The wrap and the cut
// lie inside the time played.
const std::vector<Variant> VARIANTS = {
    {"small"},
    {"small-adts"},
    {"small-aligned"},
    {"small-mpeg"},
    {"small-pcr-on-video"},
    {"small-hrd"},
    {"small", {"--no-audio"}},
    {"small", {"--service", "51224"}},
    {"small", {"--service", "ORV 1SEG"}},
    {"small-adts-as-latm", {}, 3, 90, 5'500},
    {"small-latm-as-adts", {}, 3, 90, 5'500},
    {"small-wrap", {}, 6},
    {"small-cut", {}, 0},
};

std::vector<std::string> playArguments(const Variant& variant) {
    std::vector<std::string> arguments = {
        "play", std::string(ORV_SAMPLES_DIR) + "/" + variant.name + ".ts", "--headless", "--json"};
    if (variant.durationS > 0) {
        arguments.insert(arguments.end(), {"--duration", std::to_string(variant.durationS)});
    }
    arguments.insert(arguments.end(), variant.options.begin(), variant.options.end());
    return arguments;
}

// All variants play at the same time, each is looked at on its own.
class PlaySamplesTest : public testing::TestWithParam<size_t> {
protected:
    static void SetUpTestSuite() {
        for (const Variant& variant : VARIANTS) {
            sRuns.push_back(std::async(std::launch::async, [&variant] {
                                return runProgram(playArguments(variant), 60);
                            }).share());
        }
    }
    static void TearDownTestSuite() { sRuns.clear(); }

    static std::vector<std::shared_future<ProgramResult>> sRuns;
};

std::vector<std::shared_future<ProgramResult>> PlaySamplesTest::sRuns;

void expectEveryPicture(const Variant& variant, const nlohmann::json& summary) {
    const nlohmann::json& numbers = summary["frameNumbers"];
    EXPECT_EQ(numbers["repeated"], 0);
    EXPECT_EQ(numbers["backward"], 0);
    EXPECT_GT(summary["audioFrames"], 48'000 * variant.durationS);
    const uint64_t rendered = summary["framesRendered"];
    if (SANITIZED) {
        EXPECT_GT(rendered, 10U);
        return;
    }
    EXPECT_LE(numbers["first"], variant.firstNumber);
    EXPECT_EQ(numbers["missing"], 0);
    EXPECT_EQ(summary["framesDropped"], 0);
    EXPECT_NEAR(static_cast<double>(rendered), variant.durationS * 29.97, 10);
    EXPECT_LE(summary["firstFrameMs"], variant.firstFrameMs);
    EXPECT_GT(summary["firstIdrMs"], 0);
    EXPECT_LT(summary["frameJitterMs"]["p99"], 40);
    EXPECT_LT(summary["avSkewMs"]["p99"], 80);
}

// Content is missing and another time base begins in the middle. What the player holds at the cut
// is lost; the rest comes within the live delay (1.5 s and a lead of 0.7 s) and 1.1 s.
void expectRecovery(const nlohmann::json& summary) {
    EXPECT_EQ(summary["frameNumbers"]["backward"], 0);
    EXPECT_GE(summary["frameNumbers"]["last"], 296);
    if (!SANITIZED) {
        EXPECT_LT(summary["longestGapMs"], 1'500 + 700 + 1'100);
        EXPECT_GT(summary["framesRendered"], 180);
        EXPECT_LT(summary["avSkewMs"]["p99"], 150);
    }
}

TEST_P(PlaySamplesTest, ShowsEveryPictureOnceInOrderAndInSync) {
    const Variant& variant = VARIANTS[GetParam()];
    SCOPED_TRACE(variant.name);
    const ProgramResult result = sRuns[GetParam()].get();
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const nlohmann::json summary = result.summary();
    ASSERT_TRUE(summary.contains("frameNumbers")) << result.out << result.err;
    SCOPED_TRACE(summary.dump());
    if (variant.name == "small-cut") {
        expectRecovery(summary);
    } else {
        expectEveryPicture(variant, summary);
    }
}

INSTANTIATE_TEST_SUITE_P(Samples, PlaySamplesTest, testing::Range<size_t>(0, VARIANTS.size()));

TEST(PlayEventsTest, ComeInOrderAndEndWithTheSummary) {
    const ProgramResult result = runProgram(playArguments({"small", {}, 1}), 30);
    std::string names;
    int lastProgress = 0;
    double last = 0;
    for (const nlohmann::json& event : result.events()) {
        const std::string name = event["event"];
        if (name == "onBuffering") {
            EXPECT_GT(event["progress"], lastProgress);
            lastProgress = event["progress"];
        } else if (name != "onAudioSessionId" && name != "closedCaptionText") {
            names += name + " ";
        }
        if (event.contains("t")) {
            EXPECT_GE(event["t"], last);
            last = event["t"];
        }
    }
    // The size of the pictures comes twice: from the decoder, and with the first one in its time.
    EXPECT_EQ(names,
              "onBufferingBegin openUriComplete startComplete onStartVideoTask onStartVideoTask "
              "onBufferingEnd summary ");
    EXPECT_GE(lastProgress, 1);
    EXPECT_EQ(result.err, "") << "no terminal: no status line, and nothing went wrong";
}

}  // namespace
}  // namespace orvtest
