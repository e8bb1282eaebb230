// Whole runs on streams that come over a network: the loopback interface, and a sender beside.

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <future>
#include <string>
#include <vector>

#include "programs/Program.h"

namespace orvtest {
namespace {

const std::string SAMPLE = ORV_SAMPLES_DIR "/small-long.ts";
constexpr double PLAYED_S = 3;

std::string freePort() {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    socklen_t length = sizeof address;
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), length), 0);
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length), 0);
    close(fd);
    return std::to_string(ntohs(address.sin_port));
}

struct Case {
    const char* name;
    std::string target;  // the port is added
    std::vector<std::string> faults;
    bool isWhole;  // nothing is lost on the way
};

const std::vector<Case> CASES = {
    {"a group by RTP", "rtp://lo@239.255.78.1:", {}, true},
    {"to this machine", "udp://127.0.0.1:", {}, true},
    {"to this machine by IPv6", "udp://[::1]:", {}, true},
    {"one in a hundred lost", "rtp://127.0.0.1:", {"--drop", "1"}, false},
};

class PlayNetworkTest : public testing::TestWithParam<size_t> {
protected:
    struct Run {
        ProgramResult played;
        ProgramResult sent;
    };

    static void SetUpTestSuite() {
        for (const Case& c : CASES) {
            sRuns.push_back(std::async(std::launch::async, [&c] { return run(c); }).share());
        }
    }
    static void TearDownTestSuite() { sRuns.clear(); }

    static Run run(const Case& c) {
        const std::string uri = c.target + freePort();
        std::vector<std::string> sending = {SAMPLE, uri, "--loop", "--hops", "0"};
        sending.insert(sending.end(), c.faults.begin(), c.faults.end());
        Program sender(Program::Other{ORV_SENDER}, sending);
        Run result;
        result.played = runProgram(
            {"play", uri, "--headless", "--json", "--duration", std::to_string(PLAYED_S)}, 60);
        sender.signal(SIGTERM);
        result.sent = sender.finish(5);
        return result;
    }

    static std::vector<std::shared_future<Run>> sRuns;
};

std::vector<std::shared_future<PlayNetworkTest::Run>> PlayNetworkTest::sRuns;

TEST_P(PlayNetworkTest, PlaysWhatArrives) {
    const Case& c = CASES[GetParam()];
    const Run& run = sRuns[GetParam()].get();
    ASSERT_EQ(run.played.exitCode, 0) << run.played.err;
    const nlohmann::json summary = run.played.summary();
    const nlohmann::json& network = summary["reception"];
    EXPECT_GT(network["datagrams"], 100) << summary;
    // Nothing was lost on our side.
    EXPECT_EQ(network["badDatagrams"], 0);
    EXPECT_EQ(network["kernelDrops"], 0);
    EXPECT_EQ(network["droppedPackets"], 0);
    EXPECT_EQ(network["lost"] == 0, c.isWhole) << network;
    EXPECT_EQ(network["continuityErrors"] == 0, c.isWhole) << network;
    EXPECT_GE(summary["framesRendered"], 10) << summary;
}

INSTANTIATE_TEST_SUITE_P(Cases, PlayNetworkTest, testing::Range(size_t{0}, CASES.size()),
                         [](const auto& test) {
                             std::string name = CASES[test.param].name;
                             std::replace(name.begin(), name.end(), ' ', '_');
                             return name;
                         });

TEST(NetworkCommandsTest, ProbeTellsWhatCame) {
    const std::string uri = "rtp://lo@239.255.78.2:" + freePort();
    Program sender(Program::Other{ORV_SENDER}, {SAMPLE, uri, "--loop", "--hops", "0"});
    const ProgramResult result = runProgram({"probe", uri, "--json", "--duration", "1"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto events = result.events();
    ASSERT_GE(events.size(), 2u);
    EXPECT_EQ(events[0]["event"], "service");
    EXPECT_EQ(events[0]["play"].get<std::string>().compare(0, 24 + uri.size(),
                                                           "orvplay play " + uri + " --service "),
              0)
        << events[0];
    EXPECT_GT(result.summary()["reception"]["datagrams"], 10);
    EXPECT_EQ(result.summary()["continuityErrors"], 0);
}

TEST(NetworkCommandsTest, EveryFailureHasItsCodeAndALine) {
    const struct {
        std::string uri;
        int exitCode;
        const char* part;
    } cases[] = {
        {"udp://239.255.78.3", 2, "no port"},
        {"rtsp://example/", 2, "no such kind of source"},
        {"udp://nowhere0@239.255.78.3:" + freePort(), 4, "see: ip link"},
        {"udp://" + std::string(64, 'n') + ":5000", 4, "name a numeric address"},
        {"udp://127.0.0.1:" + freePort(), 5, "is its sender running?"},
    };
    for (const auto& c : cases) {
        for (const char* command : {"play", "units"}) {
            std::vector<std::string> arguments = {command, c.uri};
            if (std::string(command) == "play") {
                arguments.emplace_back("--headless");
            }
            const ProgramResult result = runProgram(arguments);
            EXPECT_EQ(result.exitCode, c.exitCode) << command << " " << c.uri << result.err;
            EXPECT_NE(result.err.find(c.part), std::string::npos) << result.err;
            EXPECT_EQ(result.errLines(), 1u) << result.err;
        }
    }
}

}  // namespace
}  // namespace orvtest
