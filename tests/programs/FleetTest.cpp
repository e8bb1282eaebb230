// Players that run, as other programs see them.

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "FigureTable.h"
#include "StatusText.h"
#include "programs/Program.h"
#include "support/Await.h"

namespace orvtest {
namespace {

using nlohmann::json;
using orvplay::OpenMetrics;

const std::string LONG = ORV_SAMPLES_DIR "/small-long.ts";
constexpr double PATIENCE_S = SANITIZED ? 90 : 30;

// What a standard parser makes of it: a JSON object a line for each sample.
constexpr char PARSER[] = R"(
import json, sys
try:
    from prometheus_client.openmetrics.parser import text_string_to_metric_families as parse
except ImportError:
    sys.exit(77)
for f in parse(open(sys.argv[1], encoding='utf-8').read()):
    for s in f.samples:
        print(json.dumps({'event': s.name, 'type': f.type, 'unit': f.unit, 'help': f.documentation,
                          'labels': s.labels, 'value': s.value}))
)";

class FleetTest : public testing::Test {
protected:
    void SetUp() override {
        mHome = testing::TempDir() + "orv-fleet-" + std::to_string(getpid());
        std::filesystem::create_directories(mHome + "/run");
        mEnvironment = {"XDG_DATA_HOME=" + mHome, "XDG_RUNTIME_DIR=" + mHome + "/run",
                        "ORV_TRACE=off"};
    }
    void TearDown() override { std::filesystem::remove_all(mHome); }

    std::unique_ptr<Program> start(const std::vector<std::string>& arguments) {
        return std::make_unique<Program>(arguments, -1, mEnvironment);
    }
    ProgramResult run(const std::vector<std::string>& arguments) {
        return start(arguments)->finish(PATIENCE_S);
    }
    // Playing, headless and in silence.
    std::unique_ptr<Program> play(const std::vector<std::string>& more = {}) {
        std::vector<std::string> arguments{"play", LONG, "--headless", "--no-audio"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        auto player = start(arguments);
        EXPECT_TRUE(await([&] { return statusOf(*player).value("picturesShown", 0) > 0; },
                          std::chrono::seconds(60)));
        return player;
    }
    json statusOf(const Program& player) {
        const ProgramResult told =
            run({"status", "--json", "--player", std::to_string(player.pid())});
        return told.exitCode == 0 ? json::parse(told.out) : json::object();
    }
    // The samples, in the order in which they come.
    std::vector<json> parse(const std::string& text) {
        std::ofstream(mHome + "/metrics") << text;
        std::ofstream(mHome + "/parse.py") << PARSER;
        Program parser(Program::Other{"/usr/bin/python3"},
                       {mHome + "/parse.py", mHome + "/metrics"});
        const ProgramResult result = parser.finish(PATIENCE_S);
        mHasParser = result.exitCode != 77;
        EXPECT_TRUE(result.exitCode == 0 || !mHasParser) << result.err << text;
        return result.events();
    }
    static json find(const std::vector<json>& samples, const std::string& name) {
        const auto found = std::find_if(samples.begin(), samples.end(), [&](const json& sample) {
            return sample["event"] == name;
        });
        return found != samples.end() ? *found : json::object();
    }

    std::string mHome;
    std::vector<std::string> mEnvironment;
    bool mHasParser = true;
};

// Every kind of figure, of two players, with names as hostile as names can be.
TEST_F(FleetTest, OpenMetricsIsWhatAParserExpects) {
    const std::string name = "a \"quoted\" \\ name\nin two lines, {b=\"c\"} é";
    std::vector<json> players;
    size_t values = 0;
    for (const int pid : {4711, 4712}) {
        json player{{"pid", pid}, {"unknown", 1}};
        for (const orvplay::FigureKind& kind : orvplay::figureTable()) {
            const std::string label = kind.label;
            player[kind.key] = kind.type == OpenMetrics::Type::INFO
                                   ? json{{"channel", name}, {"service", 7}}
                               : kind.type == OpenMetrics::Type::STATESET ? json("weak")
                               : label == "quantile" ? json{{"0.5", 1e-6}, {"1", 2.25}}
                               : label == "process"  ? json{{"player", 1}, {"service", 2}}
                                                     : json(pid * 1e9);
            values += kind.type == OpenMetrics::Type::STATESET ? 3 : label.empty() ? 1 : 2;
        }
        players.push_back(player);
    }
    players.back()["paused"] = true;
    players.back().erase("captions");
    players.back()["bytes"] = "no number";
    const auto samples = parse(orvplay::figuresOpenMetrics(players));
    if (!mHasParser) {
        GTEST_SKIP() << "python3-prometheus-client is not installed";
    }
    EXPECT_EQ(samples.size(), values - 2);
    const json info = find(samples, "orvplay_player_info");
    EXPECT_EQ(info["labels"]["channel"], name);
    EXPECT_EQ(info["labels"]["pid"], "4711");
    EXPECT_EQ(find(samples, "orvplay_captions_total")["type"], "counter");
    const json memory = find(samples, "orvplay_resident_memory_bytes");
    EXPECT_EQ(memory["unit"], "bytes");
    EXPECT_EQ(memory["labels"]["process"], "player");
    EXPECT_EQ(orvplay::figuresOpenMetrics({}), "# EOF\n");
}

// What another program says of itself may be anything.
TEST_F(FleetTest, StatusIsToldInAFewLines) {
    orvplay::ScreenState state;
    state.name = "News HD";
    state.channelNumber = "7.1";
    state.serviceId = 51200;
    state.now = orvplay::Programme{"Tonight", "", 1'795'320'000, 1'795'323'600};
    state.localOffsetMinutes = -180;
    state.recordingNumber = 12;
    state.recordingMs = 61'000;
    state.width = 1920;
    state.height = 1080;
    state.isInterlaced = true;
    state.skewMs = -3.4;
    state.isPaused = true;
    state.positionMs = 65'000;
    json status = orvplay::toJson(state);
    status["picturesShown"] = 120;
    EXPECT_EQ(orvplay::statusText(status),
              "Plays      7.1 News HD (service 51200)\n"
              "Now        01:00-02:00  Tonight\n"
              "Signal     good\n"
              "Position   1:05, paused\n"
              "Picture    1920x1080i, 120 shown, 0 dropped, skew -3 ms\n"
              "Recording  12, 1:01\n"
              "Volume     100 %\n");
    for (auto& [key, value] : status.items()) {
        json other = status;
        for (const json& wrong : {json(), json("x"), json(-1), json::array(), json::object()}) {
            other[key] = wrong;
            EXPECT_NE(orvplay::statusText(other), "") << key;
        }
    }
}

TEST_F(FleetTest, OfOnePlayerOfTwoAndOfNone) {
    for (const char* const command : {"status", "stats", "events"}) {
        const ProgramResult none = run({command});
        EXPECT_EQ(none.exitCode, 8) << none.err;
        EXPECT_NE(none.err.find("nothing plays"), std::string::npos) << none.err;
        EXPECT_EQ(run({command, "--player", "1"}).exitCode, 8);
    }
    const auto first = play();
    const ProgramResult status = run({"status"});
    EXPECT_EQ(status.exitCode, 0) << status.err;
    EXPECT_EQ(status.out.find("Plays      6.1 ORV HD"), 0U) << status.out;
    const auto second = play();
    EXPECT_EQ(run({"status"}).exitCode, 2);
    const ProgramResult both = run({"stats", "--openmetrics"});
    EXPECT_EQ(both.exitCode, 0) << both.err;
    const auto samples = parse(both.out);
    EXPECT_EQ(std::count_if(samples.begin(), samples.end(),
                            [](const json& sample) {
                                return sample["event"] == "orvplay_pictures_shown_total" &&
                                       sample["value"] > 0;
                            }),
              mHasParser ? 2 : 0);
    const auto figures = run({"stats", "--json", "--player", std::to_string(second->pid())});
    const json told = json::parse(figures.out);
    EXPECT_EQ(told["pid"], second->pid());
    EXPECT_EQ(told["signal"], "good");
    EXPECT_EQ(told["player"]["channel"], "ORV HD");
    EXPECT_GT(told["packets"], 1000);
    EXPECT_EQ(told["continuityErrors"], 0);
    EXPECT_GT(told["cpuSeconds"]["service"], 0);
    EXPECT_GT(told["residentMemoryBytes"]["service"], 1'000'000);
    EXPECT_FALSE(told.contains("datagrams"));
    EXPECT_NE(run({"stats"}).out.find("Pictures shown "), std::string::npos);
}

TEST_F(FleetTest, EventsAreFollowedWithoutJsonThere) {
    const auto player = play();
    const auto left = start({"events"});
    const auto follower = start({"events", "--player", std::to_string(player->pid())});
    ASSERT_TRUE(left->waitForOutput("closedCaptionText", PATIENCE_S));
    ASSERT_TRUE(follower->waitForOutput("closedCaptionText", PATIENCE_S));
    left->signal(SIGINT);
    EXPECT_EQ(left->finish(PATIENCE_S).exitCode, 130);
    player->signal(SIGINT);
    EXPECT_EQ(player->finish(PATIENCE_S).exitCode, 130);
    const ProgramResult followed = follower->finish(PATIENCE_S);
    EXPECT_EQ(followed.exitCode, 0) << followed.err;
    EXPECT_GT(followed.summary()["framesRendered"], 0) << followed.out;
}

}  // namespace
}  // namespace orvtest
