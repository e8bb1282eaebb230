// What a viewer is told, and sees again, when the signal goes or a stream never comes. Each run
// takes as long as the stream is, so they run beside each other.

#include <gtest/gtest.h>

#include <fstream>
#include <future>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "damage/TsDamage.h"
#include "programs/Program.h"
#include "support/TempFile.h"

namespace orvtest {
namespace {

const std::string SAMPLE = std::string(ORV_SAMPLES_DIR) + "/small-long.ts";
constexpr double RUN_S = 60;
// Machines are busy, and under a sanitizer more so.
constexpr double SLACK_S = SANITIZED ? 1.5 : 0.2;

ProgramResult play(const std::string& file, std::vector<std::string> options) {
    options.insert(options.begin(), {"play", file, "--headless", "--json"});
    return runProgram(options, RUN_S);
}

// The times of the events of a name, in seconds since the start.
std::vector<double> timesOf(const ProgramResult& result, const std::string& name,
                            const std::string& status = "") {
    std::vector<double> times;
    for (const nlohmann::json& event : result.events()) {
        if (event["event"] == name && (status.empty() || event["currentName"] == status)) {
            times.push_back(event["t"]);
        }
    }
    return times;
}

// Pictures end with what came before the gap, 0.7 s ahead of its time and 1.5 s of delay later.
void expectGapTold(const ProgramResult& result, double gapS, double lengthS) {
    constexpr double LIVE_DELAY_S = 2.2;
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const std::vector<double> weak = timesOf(result, "onSignalStatusChanged", "weak");
    const std::vector<double> lost = timesOf(result, "onSignalStatusChanged", "lost");
    const std::vector<double> good = timesOf(result, "onSignalStatusChanged", "good");
    ASSERT_EQ(weak.size(), 1u) << result.out;
    ASSERT_EQ(lost.size(), 1u) << result.out;
    ASSERT_EQ(good.size(), 1u) << result.out;
    EXPECT_NEAR(weak[0], gapS + LIVE_DELAY_S + 3.15, 0.15 + SLACK_S);
    EXPECT_NEAR(lost[0] - weak[0], 5.15, 0.15 + SLACK_S);
    EXPECT_NEAR(good[0], gapS + lengthS + 0.3, 0.3 + SLACK_S);

    // The size again, with a picture: an IDR comes within 0.5 s, and such a hole costs 1.1 s.
    const std::vector<double> pictures = timesOf(result, "onStartVideoTask");
    ASSERT_GE(pictures.size(), 2u);
    EXPECT_GT(pictures.back(), good[0]);
    EXPECT_LT(pictures.back(), gapS + lengthS + 0.5 + LIVE_DELAY_S + 1.1 + SLACK_S);
    EXPECT_LT(result.summary()["avSkewMs"]["p99"], 80);
}

void expectBufferingRisesUntilItEnds(const ProgramResult& result) {
    int last = -1;
    bool ended = false;
    for (const nlohmann::json& event : result.events()) {
        if (event["event"] == "onBuffering") {
            EXPECT_FALSE(ended);
            EXPECT_GT(event["progress"], last);
            last = event["progress"];
        }
        ended |= event["event"] == "onBufferingEnd";
    }
    EXPECT_TRUE(ended);
}

// Both first frames open the outputs; where one never comes a timer does.
void expectBegunByTheTimer(const ProgramResult& result, const char* figure) {
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const std::vector<double> opened = timesOf(result, "onBufferingEnd");
    ASSERT_EQ(opened.size(), 1u) << result.out;
    EXPECT_NEAR(opened[0], 17.0, SLACK_S);
    EXPECT_GT(result.summary()[figure], 0);
}

TEST(SignalTest, IsToldAndPlaybackBeginsOrGoesOn) {
    std::ifstream file(SAMPLE, std::ios::binary);
    TsDamage damage({std::istreambuf_iterator<char>(file), {}});
    constexpr double GAP_S = 5;
    constexpr double GAP_LENGTH_S = 12;  // ends before the first reminder, 3 s after the loss
    damage.loseSpan(GAP_S, GAP_LENGTH_S);
    const TempFile withGap(damage.take());
    const auto run = [](const std::string& path, std::vector<std::string> options) {
        return std::async(std::launch::async, play, path, std::move(options));
    };
    auto gap = run(withGap.path(), {"--keep-gaps"});
    auto picture = run(SAMPLE, {"--audio-pid", "0"});
    auto sound = run(SAMPLE, {"--video-pid", "0"});

    const ProgramResult result = gap.get();
    expectGapTold(result, GAP_S, GAP_LENGTH_S);
    expectBufferingRisesUntilItEnds(result);
    expectBegunByTheTimer(picture.get(), "framesRendered");
    expectBegunByTheTimer(sound.get(), "audioFrames");
}

}  // namespace
}  // namespace orvtest
