// Recordings as their user has them: made, listed, played, paused, and removed.

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "ControlSocket.h"
#include "programs/Program.h"
#include "programs/VirtualScreen.h"
#include "support/Await.h"

namespace orvtest {
namespace {

using nlohmann::json;

const std::string SMALL = ORV_SAMPLES_DIR "/small.ts";
const std::string LONG = ORV_SAMPLES_DIR "/small-long.ts";
constexpr double PATIENCE_S = SANITIZED ? 90 : 30;

// Recordings and sockets of the programs in folders of their own.
class RecordTest : public testing::Test {
protected:
    void SetUp() override {
        mHome = testing::TempDir() + "orv-record-" + std::to_string(getpid());
        std::filesystem::create_directories(mHome + "/run");
        mEnvironment = {"XDG_DATA_HOME=" + mHome, "XDG_RUNTIME_DIR=" + mHome + "/run",
                        "ORV_TRACE=off"};
        setenv("XDG_RUNTIME_DIR", (mHome + "/run").c_str(), 1);
    }
    void TearDown() override {
        unsetenv("XDG_RUNTIME_DIR");
        std::filesystem::remove_all(mHome);
    }

    std::unique_ptr<Program> start(const std::vector<std::string>& arguments) {
        return std::make_unique<Program>(arguments, -1, mEnvironment);
    }
    ProgramResult run(const std::vector<std::string>& arguments) {
        return start(arguments)->finish(PATIENCE_S);
    }
    // What the player with this process number answers, once it can be reached.
    static json ask(pid_t player, const json& request) {
        json answer;
        std::string error;
        EXPECT_TRUE(await([&] { return orvplay::askPlayer(player, request, &answer, &error); },
                          std::chrono::seconds(20)))
            << error;
        return answer;
    }
    static int count(const std::vector<json>& events, const std::string& name) {
        return static_cast<int>(std::count_if(events.begin(), events.end(), [&](const json& event) {
            return event["event"] == name;
        }));
    }
    static json find(const std::vector<json>& events, const std::string& name) {
        const auto found = std::find_if(events.begin(), events.end(),
                                        [&](const json& event) { return event["event"] == name; });
        return found != events.end() ? *found : json::object();
    }
    // Recordings that something was written to.
    size_t files() const {
        const std::filesystem::recursive_directory_iterator all(mHome + "/orvplayer/recordings");
        return static_cast<size_t>(std::count_if(begin(all), end(all), [](const auto& entry) {
            std::error_code gone;
            const auto size = entry.file_size(gone);
            return entry.path().extension() == ".ts" && !gone && size > 0;
        }));
    }

    std::string mHome;
    std::vector<std::string> mEnvironment;
};

TEST_F(RecordTest, WithoutWatchingListedPlayedAndRemoved) {
    const ProgramResult recorded = run({"record", SMALL, "--duration", "5", "--name", "News"});
    ASSERT_EQ(recorded.exitCode, 0) << recorded.err;
    EXPECT_NE(recorded.out.find("Recording 1: News, ORV HD, 0:0"), std::string::npos)
        << recorded.out;

    const ProgramResult listed = run({"record", "list"});
    EXPECT_EQ(listed.exitCode, 0) << listed.err;
    EXPECT_NE(listed.out.find("ORV HD            News\n"), std::string::npos) << listed.out;
    const auto rows = run({"record", "list", "--json"}).events();
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0]["state"], "whole");
    EXPECT_GT(rows[0]["durationMs"], 3000);
    EXPECT_LT(rows[0]["durationMs"], 8000);
    EXPECT_EQ(rows[0]["sizeBytes"], std::filesystem::file_size(rows[0]["path"]));

    const ProgramResult played = run({"play", "recording:1", "--headless", "--json"});
    EXPECT_EQ(played.exitCode, 0) << played.err;
    const auto events = played.events();
    EXPECT_EQ(count(events, "onEndOfContent"), 1);
    EXPECT_GE(count(events, "onTimeUpdate"), 3);
    const json summary = played.summary();
    EXPECT_GT(summary["framesRendered"], 60);
    EXPECT_EQ(summary["frameNumbers"]["backward"], 0);

    EXPECT_EQ(run({"record", "rm", "1"}).exitCode, 0);
    EXPECT_EQ(files(), 0U);
    EXPECT_EQ(run({"record", "list"}).out, "No recordings.\n");
}

// By the option of the player that plays, and by other commands.
TEST_F(RecordTest, WhilePlaying) {
    const auto player =
        start({"play", LONG, "--headless", "--no-audio", "--json", "--record=Film"});
    ASSERT_TRUE(player->waitForOutput("onRecorderStarted", PATIENCE_S)) << player->output();
    const ProgramResult twice = run({"record", "start"});
    EXPECT_EQ(twice.exitCode, 7);
    EXPECT_NE(twice.err.find("under way already"), std::string::npos) << twice.err;
    ASSERT_TRUE(player->waitForOutput("onStartVideoTask", PATIENCE_S));
    const ProgramResult stopped = run({"record", "stop"});
    EXPECT_EQ(stopped.exitCode, 0) << stopped.err;
    EXPECT_EQ(stopped.out, "1\n");
    EXPECT_EQ(run({"record", "stop"}).exitCode, 8);

    const ProgramResult started = run({"record", "start", "--name", "More"});
    EXPECT_EQ(started.out, "2\n") << started.err;
    EXPECT_EQ(run({"record", "stop", "--discard"}).exitCode, 0);
    EXPECT_EQ(run({"record", "start", "--storage", "7"}).exitCode, 7) << "there is none";
    EXPECT_EQ(run({"record", "start", "--player", std::to_string(player->pid())}).out, "3\n");

    // The end of the player is the end of its recording, which is kept once there is any.
    EXPECT_TRUE(await([&] { return files() == 2; }));
    player->signal(SIGINT);
    const ProgramResult played = player->finish(PATIENCE_S);
    EXPECT_EQ(played.exitCode, 130) << played.err;
    const auto events = played.events();
    EXPECT_EQ(count(events, "onRecorderStarted"), 3);
    EXPECT_EQ(count(events, "onRecorderStopped"), 3);
    EXPECT_EQ(find(events, "recording")["programme"], "Film");
    EXPECT_EQ(played.summary()["frameNumbers"]["missing"], 0);
    EXPECT_EQ(files(), 2U);
    EXPECT_EQ(run({"record", "start"}).exitCode, 3) << "nothing plays any more";
}

// What playback throws away for a pause or a seek is no dropped picture.
TEST_F(RecordTest, PausesAndSeeks) {
    const ProgramResult imported = run({"record", "import", SMALL, "--name", "All"});
    ASSERT_EQ(imported.exitCode, 0) << imported.err;
    ASSERT_EQ(imported.out, "1\n");
    const auto player = start({"record", "play", "1", "--headless", "--json"});
    ASSERT_TRUE(player->waitForOutput("\"onTimeUpdate\"", PATIENCE_S));
    EXPECT_TRUE(ask(player->pid(), {{"command", "play.pause"}})["ok"]);
    ASSERT_TRUE(player->waitForOutput("onPaused", PATIENCE_S));
    EXPECT_TRUE(ask(player->pid(), {{"command", "play.seek"}, {"by", 3000}})["ok"]);
    EXPECT_TRUE(ask(player->pid(), {{"command", "play.pause"}})["ok"]);
    ASSERT_TRUE(player->waitForOutput("\"seconds\":6", PATIENCE_S)) << player->output();
    EXPECT_TRUE(ask(player->pid(), {{"command", "play.seek"}, {"by", -60'000}})["ok"]);
    EXPECT_FALSE(ask(player->pid(), {{"command", "record.start"}})["ok"]);
    ASSERT_TRUE(player->waitForOutput("\"position\":0", PATIENCE_S));
    EXPECT_TRUE(ask(player->pid(), {{"command", "play.seek"}, {"by", 60'000}})["ok"]);
    const ProgramResult played = player->finish(PATIENCE_S);
    EXPECT_EQ(played.exitCode, 0) << played.err;
    const auto events = played.events();
    EXPECT_EQ(count(events, "onSeeked"), 3);
    EXPECT_EQ(count(events, "onResumed"), 1);
    EXPECT_EQ(count(events, "onEndOfContent"), 1);
    const json summary = played.summary();
    EXPECT_EQ(summary["frameNumbers"]["missing"], 0);
    EXPECT_EQ(summary["frameNumbers"]["backward"], 0);
    if (!SANITIZED) {
        EXPECT_EQ(summary["framesDropped"], 0);
        EXPECT_LT(summary["frameJitterMs"]["p99"], 100);
    }
}

// Each key in the window does what the same request does.
TEST_F(RecordTest, KeysDriveThePlayer) {
    orvplay::VirtualScreen screen;
    if (!screen.start(640, 480)) {
        GTEST_SKIP() << "there is no Xvfb on this machine";
    }
    // The libraries of a display keep some of their memory to the end.
    mEnvironment.emplace_back("ASAN_OPTIONS=detect_leaks=0");
    mEnvironment.push_back(std::string("DISPLAY=") + getenv("DISPLAY"));
    mEnvironment.push_back("SDL_VIDEODRIVER=x11");
    ASSERT_EQ(run({"record", "import", LONG}).exitCode, 0);
    struct Press {
        const char* key;
        const char* told;  // an event, or a line for people
    };
    struct {
        std::string source;
        std::vector<Press> presses;
    } const cases[] = {
        {"recording:1",
         {{"space", "onPaused"},
          {"Right", "\"onSeeked\""},
          {"space", "onResumed"},
          {"Down", "\"position\":0}"},
          {"r", "what plays is no broadcast"}}},
        {LONG, {{"r", "onRecorderStarted"}, {"r", "onRecorderStopped"}, {"Left", "cannot go"}}},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.source);
        const auto player = start({"play", test.source, "--json"});
        ASSERT_TRUE(player->waitForOutput("onBufferingEnd", PATIENCE_S)) << player->output();
        for (const Press& press : test.presses) {
            SCOPED_TRACE(press.key);
            ASSERT_TRUE(orvplay::VirtualScreen::press(press.key));
            const bool isEvent = std::string(press.told).find("on") == 0 || press.told[0] == '"';
            EXPECT_TRUE(isEvent ? player->waitForOutput(press.told, PATIENCE_S)
                                : player->waitForError(press.told, PATIENCE_S));
        }
        ASSERT_TRUE(orvplay::VirtualScreen::press("q"));
        EXPECT_EQ(player->finish(PATIENCE_S).exitCode, 0);
    }
}

// Where playback stopped is kept, shown, and gone on from.
TEST_F(RecordTest, GoesOnWhereItStopped) {
    ASSERT_EQ(run({"record", "import", LONG}).exitCode, 0);
    const auto stopAt = [this](const std::string& second, bool resume) {
        std::vector<std::string> arguments{"play", "recording:1", "--headless", "--json"};
        if (resume) {
            arguments.push_back("--resume");
        }
        const auto player = start(arguments);
        EXPECT_TRUE(player->waitForOutput("\"seconds\":" + second + "}", PATIENCE_S));
        player->signal(SIGINT);
        return player->finish(PATIENCE_S);
    };
    stopAt("2", false);
    const auto rows = run({"record", "list", "--json"}).events();
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_GE(rows[0]["positionMs"], 2000);
    EXPECT_LT(rows[0]["positionMs"], 6000);
    EXPECT_NE(run({"record", "list"}).out.find("seen to 0:0"), std::string::npos);

    const ProgramResult resumed = stopAt("8", true);
    EXPECT_EQ(count(resumed.events(), "onSeeked"), 1);
    for (const json& event : resumed.events()) {
        EXPECT_TRUE(event["event"] != "onTimeUpdate" || event["seconds"] > 2) << event;
    }
    const ProgramResult again = stopAt("1", false);
    EXPECT_NE(again.err.find("stopped at 0:08 last time; --resume"), std::string::npos)
        << again.err;

    const auto player = start({"play", "recording:1", "--headless", "--json", "--resume"});
    ASSERT_TRUE(player->waitForOutput("\"onTimeUpdate\"", PATIENCE_S));
    EXPECT_TRUE(ask(player->pid(), {{"command", "play.seek"}, {"by", 60'000}})["ok"]);
    EXPECT_EQ(player->finish(PATIENCE_S).exitCode, 0);
    EXPECT_EQ(run({"record", "show", "1", "--json"}).events()[0]["positionMs"], 0)
        << "it was seen to its end";
    EXPECT_EQ(run({"play", SMALL, "--headless", "--resume"}).exitCode, 2);
}

TEST_F(RecordTest, WrongUseIsToldInOneLine) {
    const std::string noise = mHome + "/noise.mp4";
    std::ofstream(noise) << std::string(100'000, 'U');
    struct {
        std::vector<std::string> arguments;
        int exitCode;
        const char* message;
    } const cases[] = {
        {{"record"}, 2, "SOURCE"},
        {{"record", SMALL, "list"}, 2, "either"},
        {{"record", SMALL, "--name", "a;b"}, 2, "';'"},
        {{"record", SMALL, "--storage", "99"}, 2, "--storage"},
        {{"record", SMALL, "--storage", "7"}, 7, "storage"},
        {{"record", "/no/such.ts"}, 4, "/no/such.ts"},
        {{"record", SMALL, "--service", "9"}, 8, "51200"},
        {{"record", "start"}, 3, "orvplay play"},
        {{"record", "stop", "--player", "1"}, 8, "process number 1"},
        {{"record", "show", "7"}, 8, "7"},
        {{"record", "rm", "7"}, 8, "7"},
        {{"record", "rm", "0"}, 2, "N"},
        {{"record", "import", "/no/such.ts"}, 4, "/no/such.ts"},
        {{"record", "import", noise}, 4, noise.c_str()},
        {{"record", "play", "7", "--headless"}, 8, "7"},
        {{"play", "recording:7", "--headless"}, 8, "7"},
        {{"play", "recording:x", "--headless"}, 2, "record list"},
        {{"play", SMALL, "--record=#1", "--headless"}, 2, "'#'"},
        {{"play", noise, "--headless"}, 4, "media player"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.message);
        const ProgramResult result = run(test.arguments);
        EXPECT_EQ(result.exitCode, test.exitCode) << result.err;
        EXPECT_NE(result.err.find(test.message), std::string::npos) << result.err;
        // The service itself says why its media player cannot go on.
        if (test.exitCode != 2 && std::string(test.message) != "media player") {
            EXPECT_EQ(result.errLines(), 1U) << result.err;
        }
    }
    std::filesystem::remove_all(mHome + "/orvplayer/recordings");
    std::ofstream(mHome + "/orvplayer/recordings") << "no folder";
    const ProgramResult nowhere = run({"record", SMALL});
    EXPECT_EQ(nowhere.exitCode, 7) << nowhere.err;
    EXPECT_EQ(nowhere.errLines(), 1U) << nowhere.err;
}

}  // namespace
}  // namespace orvtest
