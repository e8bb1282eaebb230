// Channel changes of a running player, as its user asks for them and finds them afterwards.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "ControlSocket.h"
#include "Program.h"
#include "support/Await.h"

namespace orvtest {
namespace {

using nlohmann::json;

const std::string SAMPLE = ORV_SAMPLES_DIR "/small-long.ts";
const std::string GUIDE = ORV_SAMPLES_DIR "/small-guide-br.ts";
constexpr double PATIENCE_S = SANITIZED ? 90 : 30;
const char* const PARTS[] = {"tuneMs", "tablesMs", "pcrMs", "idrMs", "audioMs", "gateMs"};

// Everything that programs remember and are reached by in a folder of its own.
class ZapTest : public testing::Test {
protected:
    ZapTest() {
        EXPECT_NE(mkdtemp(mHome.data()), nullptr);
        for (const char* name : {"CONFIG_HOME", "STATE_HOME", "DATA_HOME", "RUNTIME_DIR"}) {
            mEnvironment.push_back("XDG_" + std::string(name) + "=" + mHome);
        }
        setenv("XDG_RUNTIME_DIR", mHome.c_str(), 1);
    }
    ~ZapTest() override {
        unsetenv("XDG_RUNTIME_DIR");
        std::filesystem::remove_all(mHome);
    }

    std::unique_ptr<Program> start(const std::vector<std::string>& arguments) const {
        return std::make_unique<Program>(arguments, -1, mEnvironment);
    }
    ProgramResult run(const std::vector<std::string>& arguments) const {
        return start(arguments)->finish(PATIENCE_S);
    }
    // A player that shows pictures of a source; of none named for an empty text.
    std::unique_ptr<Program> play(const std::string& source) const {
        std::vector<std::string> arguments = {"play", "--headless", "--no-audio", "--json"};
        if (!source.empty()) {
            arguments.push_back(source);
        }
        auto player = start(arguments);
        EXPECT_TRUE(player->waitForOutput("onStartVideoTask", PATIENCE_S)) << player->output();
        return player;
    }
    // The service that plays after `orvplay zap` with this; 0 when that failed.
    int zap(const std::string& channel) const {
        const ProgramResult result = run({"zap", channel, "--json"});
        EXPECT_EQ(result.exitCode, 0) << channel << ": " << result.err;
        const auto lines = result.events();
        return lines.size() == 1 ? lines[0].value("service", 0) : 0;
    }
    void expectFailure(const std::vector<std::string>& arguments, int code,
                       const char* message) const {
        const ProgramResult result = run(arguments);
        EXPECT_EQ(result.exitCode, code) << message;
        EXPECT_EQ(result.errLines(), 1U) << result.err;
        EXPECT_NE(result.err.find(message), std::string::npos) << result.err;
    }
    static json ask(pid_t player, const json& request) {
        json answer;
        std::string error;
        EXPECT_TRUE(orvplay::askPlayer(player, request, &answer, &error)) << error;
        return answer;
    }
    static std::vector<json> named(const std::vector<json>& events, const std::string& name) {
        std::vector<json> found;
        std::copy_if(events.begin(), events.end(), std::back_inserter(found),
                     [&](const json& event) { return event["event"] == name; });
        return found;
    }

    std::string mHome = "/tmp/orvtest-zap-XXXXXX";
    std::vector<std::string> mEnvironment = {"ORV_TRACE=off"};
};

void expectPartsToAddUp(const json& split) {
    double sumMs = 0.0;
    for (const char* part : PARTS) {
        ASSERT_TRUE(split.contains(part)) << split;
        EXPECT_GE(split[part], 0.0) << part;
        sumMs += split[part].get<double>();
    }
    EXPECT_NEAR(sumMs, split["totalMs"].get<double>(), 5.0) << split;
}

TEST_F(ZapTest, BetweenTheServicesOfAFile) {
    expectFailure({"zap"}, 3, "nothing plays");
    expectFailure({"zap", "--history"}, 0, "no channel was changed yet");
    const auto player = play(SAMPLE);
    ASSERT_EQ(run({"record", "start"}).exitCode, 0);
    const ProgramResult first = run({"zap", "--json"});
    ASSERT_EQ(first.exitCode, 0) << first.err;
    ASSERT_EQ(first.events().size(), 1U);
    expectPartsToAddUp(first.events()[0]);
    const int other = first.events()[0]["service"];
    EXPECT_TRUE(player->waitForError("recording 1 ends", PATIENCE_S)) << "by the change";

    const int back = zap("last");
    EXPECT_NE(back, other);
    EXPECT_EQ(zap("previous"), other);
    EXPECT_EQ(zap(std::to_string(other)), other) << "nothing to be changed";
    expectFailure({"zap", "nowhere"}, 8, "no channel \"nowhere\"");

    const ProgramResult history = run({"zap", "--history", "--json", "-n", "2"});
    const auto lines = history.events();
    ASSERT_EQ(lines.size(), 3U) << history.out;
    EXPECT_EQ(lines[0]["service"], back);
    expectPartsToAddUp(lines[1]);
    EXPECT_EQ(lines[2]["count"], 2);
    expectPartsToAddUp(lines[1]);
    EXPECT_NE(run({"zap", "--history"}).out.find("median"), std::string::npos);

    player->signal(SIGINT);
    const ProgramResult played = player->finish(PATIENCE_S);
    EXPECT_EQ(played.exitCode, 130) << played.err;
    std::vector<int> services;
    for (const json& change : named(played.events(), "channelChanged")) {
        services.push_back(change["service"]);
    }
    EXPECT_EQ(services, (std::vector<int>{other, back, other}));
    EXPECT_EQ(named(played.events(), "onRecorderStopped").size(), 1U);
    const json summary = played.summary();
    EXPECT_EQ(summary["frameNumbers"]["backward"], 0) << "a file goes on where it is";
    if (!SANITIZED) {
        EXPECT_EQ(summary["framesDropped"], 0);
        EXPECT_LT(summary["longestGapMs"], 700) << "what lies between is no gap";
    }
}

// Whoever asked gets the answer of the change that came of it.
TEST_F(ZapTest, OfManyRequestsAtOnceTheLastCounts) {
    const auto player = play(SAMPLE);
    std::vector<json> answers(3);
    std::vector<std::thread> askers;
    for (json& answer : answers) {
        askers.emplace_back([&] { answer = ask(player->pid(), {{"command", "channel.next"}}); });
    }
    for (std::thread& asker : askers) {
        asker.join();
    }
    player->signal(SIGINT);
    const auto changes = named(player->finish(PATIENCE_S).events(), "channelChanged");
    ASSERT_FALSE(changes.empty());
    EXPECT_LE(changes.size(), 3U);
    for (const json& answer : answers) {
        EXPECT_EQ(answer["ok"], true) << answer;
        EXPECT_EQ(answer["service"], changes.back()["service"]) << "three on: the other of two";
    }
}

TEST_F(ZapTest, TheUsersChannelsAreTheLineupAndTheLastOneIsRemembered) {
    expectFailure({"play", "--headless"}, 2, "orvplay scan");
    ASSERT_EQ(run({"scan", GUIDE}).exitCode, 0);
    std::ofstream(mHome + "/more.m3u") << "#EXTM3U\n#EXTINF:-1 tvg-chno=\"9.1\",Gone\n"
                                       << mHome << "/gone.ts\n";
    ASSERT_EQ(run({"channels", "import", mHome + "/more.m3u"}).exitCode, 0);
    {
        const auto player = play("");
        EXPECT_EQ(ask(player->pid(), {{"command", "channel.set"}, {"channel", "6.1"}})["number"],
                  "6.1");
        expectFailure({"zap"}, 4, "no such file");  // past the one-segment service
        EXPECT_EQ(zap("6.2"), 51224) << "it goes on from there";
        EXPECT_TRUE(player->waitForError("6.2 ORV 1SEG", PATIENCE_S));
        player->signal(SIGINT);
        EXPECT_EQ(player->finish(PATIENCE_S).exitCode, 130);
    }
    const auto player = play("");
    const json now = ask(player->pid(), {{"command", "channel.set"}, {"channel", "6.2"}});
    EXPECT_EQ(now["ok"], true);
    EXPECT_FALSE(now.contains("totalMs")) << "it plays already: " << now;
}

// A second is more than the player lets sound be late.
TEST_F(ZapTest, APausedBroadcastGoesOnWithSoundInStep) {
    const auto player = start({"play", SAMPLE, "--headless", "--json", "--duration", "9"});
    ASSERT_TRUE(player->waitForOutput("onStartVideoTask", PATIENCE_S));
    EXPECT_EQ(ask(player->pid(), {{"command", "play.pause"}})["ok"], true);
    std::this_thread::sleep_for(std::chrono::milliseconds(1200));
    EXPECT_EQ(ask(player->pid(), {{"command", "play.pause"}})["ok"], true);
    const ProgramResult result = player->finish(PATIENCE_S);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const auto summaries = named(result.events(), "summary");
    ASSERT_EQ(summaries.size(), 1U);
    EXPECT_GE(summaries[0]["avSkewMs"]["count"], 2) << summaries[0];
    if (!SANITIZED) {
        EXPECT_LT(summaries[0]["avSkewMs"]["max"], 60.0) << summaries[0];
    }
}

TEST_F(ZapTest, RepeatedChangesAreMeasured) {
    const auto player = play(SAMPLE);
    const ProgramResult result = run({"zap", "--count", "2"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("first picture after"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("worst"), std::string::npos) << result.out;
    EXPECT_GE(result.seconds, 3.0);
}

}  // namespace
}  // namespace orvtest
