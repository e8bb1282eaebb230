// How presentation is timed, as data: does it agree with the summary, and is a file as if on air
// one?

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "programs/Program.h"
#include "support/TempFile.h"

namespace orvtest {
namespace {

using nlohmann::json;

class TimingTest : public testing::Test {
protected:
    void TearDown() override {
        unlink(mTiming.c_str());
        unlink(mPicture.c_str());
    }

    ProgramResult play(std::vector<std::string> more) {
        std::vector<std::string> arguments = {
            "play", std::string(ORV_SAMPLES_DIR) + "/small.ts", "--headless", "--json", "--timing",
            mTiming};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const ProgramResult result = runProgram(arguments, 60);
        std::ifstream file(mTiming);
        for (std::string line; std::getline(file, line);) {
            const json parsed = json::parse(line, nullptr, false);
            EXPECT_TRUE(parsed.is_object()) << line;
            mLines[parsed.value("kind", "")].push_back(parsed);
        }
        return result;
    }

    std::map<std::string, int> fates() const {
        std::map<std::string, int> counts;
        for (const json& line : at("video")) {
            ++counts[line["shown"] == true ? "shown" : line.value("why", "?")];
        }
        return counts;
    }

    const std::vector<json>& at(const std::string& kind) const {
        static const std::vector<json> none;
        const auto found = mLines.find(kind);
        return found != mLines.end() ? found->second : none;
    }

    std::vector<std::string> faults() const {
        std::vector<std::string> all;
        for (const json& line : at("fault")) {
            all.push_back(line.value("what", "") + " " + line.value("text", ""));
        }
        return all;
    }
    bool hasFault(const std::string& begin) const {
        for (const std::string& fault : faults()) {
            if (fault.compare(0, begin.size(), begin) == 0) {
                return true;
            }
        }
        return false;
    }

    const std::string mTiming = testing::TempDir() + "orv-timing-" + std::to_string(getpid());
    const std::string mPicture = mTiming + ".png";
    std::map<std::string, std::vector<json>> mLines;
};

TEST_F(TimingTest, AgreesWithTheSummary) {
    const ProgramResult result = play({"--duration", "3"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const json summary = result.summary();
    EXPECT_EQ(fates()["shown"], summary["framesRendered"]);
    EXPECT_TRUE(at("missed").empty());
    EXPECT_EQ(at("start").size(), 1u);
    ASSERT_GT(at("audio").size(), 20u);
    EXPECT_GE(at("buffers").size(), 20u);
    EXPECT_TRUE(at("buffers").back()["percent"].contains("VideoPES"));
    uint64_t sound = 0;
    double skew = 0.0;
    int skews = 0;
    for (const json& line : at("audio")) {
        sound += line["frames"].get<uint64_t>();
        if (line.contains("skewMs") && line["shown"] == true) {
            skew += line["skewMs"].get<double>();
            ++skews;
        }
    }
    for (const json& line : at("silence")) {
        sound += line["frames"].get<uint64_t>();
    }
    ASSERT_GT(skews, 10);
    if (SANITIZED) {
        return;  // nothing comes in time there
    }
    EXPECT_NEAR(static_cast<double>(sound), summary["audioFrames"].get<double>(), 8192);
    EXPECT_LT(std::abs(skew / skews), summary["avSkewMs"]["max"].get<double>() + 10);
    for (const json& line : at("video")) {
        if (line["shown"] == true) {
            EXPECT_NEAR((line["clock"].get<double>() - line["pts"].get<double>()) / 90, 0, 40);
        }
    }
    bool hasText = false;
    for (const json& line : at("caption")) {
        hasText = hasText || !line.value("text", "").empty();
    }
    EXPECT_TRUE(hasText);

    EXPECT_EQ(runProgram({"plot", mTiming, "-o", mPicture}).exitCode, 0);
    EXPECT_EQ(access(mPicture.c_str(), R_OK), 0);
}

// Longer than the file lasts: over the joint nothing is missing but for what is cut off there.
TEST_F(TimingTest, PlaysAsLiveWithFaults) {
    const std::string text = "at 3s gap 1500ms\nat 6s drop 20% for 500ms\n";
    TempFile script({text.begin(), text.end()});
    const ProgramResult result = play({"--as-live=" + script.path(), "--duration", "9"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(hasFault("injected gap 1500ms"));
    EXPECT_TRUE(hasFault("injected drop 20% for 500ms"));
    EXPECT_TRUE(hasFault("sourceGap"));
    EXPECT_TRUE(hasFault("sourceBack"));
    EXPECT_TRUE(hasFault("continuity"));
    std::vector<std::string> told;
    for (const json& event : result.events()) {
        if (event.value("event", "") == "fault") {
            told.push_back(event["text"]);
            EXPECT_GT(event["t"].get<double>(), -2.0);
        }
    }
    ASSERT_GE(told.size(), 2u);
    EXPECT_EQ(told[0], "gap 1500ms");
}

TEST_F(TimingTest, ErrorsSayWhatToDo) {
    const std::string sample = std::string(ORV_SAMPLES_DIR) + "/small.ts";
    TempFile script({'a', 't', '\n'});
    TempFile empty({});
    struct Case {
        std::vector<std::string> arguments;
        int exitCode;
        std::string message;
    };
    const Case cases[] = {
        {{"play", sample, "--headless", "--as-live=" + script.path()}, 2, ": line 1: at: "},
        {{"play", sample, "--headless", "--as-live=/nowhere"}, 2, "/nowhere: cannot be read"},
        {{"play", "-", "--headless", "--as-live"}, 2, "is no transport stream file"},
        {{"play", sample, "--headless", "--timing", "/nowhere/at/all"}, 1, "cannot be written"},
        {{"plot", empty.path(), "-o", mPicture}, 4, "it is empty"},
        {{"plot", script.path(), "-o", mPicture}, 4, "1 lines are none of --timing"},
        {{"plot", "/nowhere", "-o", mPicture}, 4, "cannot be read"},
        {{"plot", script.path(), "-o", "a.jpeg"}, 2, "must end in .png or .svg"},
    };
    for (const Case& one : cases) {
        const ProgramResult result = runProgram(one.arguments);
        EXPECT_EQ(result.exitCode, one.exitCode) << result.err;
        EXPECT_NE(result.err.find(one.message), std::string::npos) << result.err;
    }
}

}  // namespace
}  // namespace orvtest
