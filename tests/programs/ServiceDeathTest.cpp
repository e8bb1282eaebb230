// The program and the player service, when one of them goes.

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "programs/Program.h"
#include "support/Await.h"

namespace orvtest {
namespace {

const std::string SMALL = ORV_SAMPLES_DIR "/small.ts";
constexpr double PATIENCE_S = 20;
// A service looks at its connection, and a program at its service, that often.
constexpr double TOLD_S = SANITIZED ? 10 : 1;
constexpr std::chrono::milliseconds GONE(SANITIZED ? 5000 : 500);

const std::vector<std::string> PLAY = {"play", SMALL, "--headless", "--json"};

// Lines of JSON that mark how far a run has come; "" is before it opened anything.
const std::vector<std::string> MOMENTS = {"", "openUriComplete", "startComplete", "onBufferingEnd"};

// The service, once the program has come so far.
pid_t serviceAt(Program& program, const std::string& moment) {
    const pid_t service = program.awaitService(PATIENCE_S);
    EXPECT_GT(service, 0);
    EXPECT_TRUE(moment.empty() || program.waitForOutput(moment, PATIENCE_S));
    return service;
}

// Nobody may have asked yet what became of it: then its name is still there.
bool isGone(pid_t process) {
    std::ifstream stat("/proc/" + std::to_string(process) + "/stat");
    std::string id, name, state;
    return !(stat >> id >> name >> state) || state == "Z" || state == "X";
}

TEST(ServiceDeathTest, IsToldInOneLineAtOnce) {
    struct {
        std::vector<std::string> arguments;
        std::string moment;
    } cases[] = {{PLAY, "openUriComplete"},
                 {PLAY, "startComplete"},
                 {PLAY, "onBufferingEnd"},
                 {{"snapshot", SMALL, "-n", "1000", "-o", "/dev/null"}, "/dev/null"}};
    for (const auto& test : cases) {
        SCOPED_TRACE(test.arguments[0] + " " + test.moment);
        Program program(test.arguments);
        const pid_t service = serviceAt(program, test.moment);
        kill(service, SIGKILL);
        const ProgramResult result = program.finish(TOLD_S);
        EXPECT_FALSE(result.timedOut);
        EXPECT_EQ(result.exitCode, 3) << result.out << result.err;
        EXPECT_EQ(result.errLines(), 1U) << result.err;
        EXPECT_NE(result.err.find("signal 9"), std::string::npos) << result.err;
        EXPECT_NE(result.err.find("start orvplay again"), std::string::npos) << result.err;
    }
}

TEST(ServiceDeathTest, AnotherServiceGoesOn) {
    std::vector<std::string> arguments = PLAY;
    arguments.insert(arguments.end(), {"--restart", "--duration", "7"});
    Program program(arguments);
    const pid_t first = serviceAt(program, "onBufferingEnd");
    kill(first, SIGKILL);
    ASSERT_TRUE(program.waitForError("another one goes on\n", PATIENCE_S));
    const ProgramResult result = program.finish(PATIENCE_S);
    EXPECT_EQ(result.exitCode, 0) << result.out << result.err;
    EXPECT_EQ(result.errLines(), 1U) << result.err;
    std::string names;
    for (const nlohmann::json& event : result.events()) {
        const std::string name = event["event"];
        if (name.ends_with("Complete") || name == "onBufferingEnd") {
            EXPECT_EQ(event.value("result", 0), 0);
            names += name + " ";
        }
    }
    const std::string once = "openUriComplete startComplete onBufferingEnd ";
    EXPECT_EQ(names, once + once);
    // Some 2 s pass until the pictures are back.
    EXPECT_GT(result.summary().value("framesRendered", 0), SANITIZED ? 10 : 90);
    EXPECT_GT(result.summary().value("cpuSeconds", 0.0), 0.0);
}

TEST(ServiceDeathTest, NoServiceOutlivesItsProgram) {
    for (const std::string& moment : MOMENTS) {
        for (const bool isStopped : {false, true}) {
            SCOPED_TRACE(moment + (isStopped ? " stopped" : ""));
            Program program(PLAY);
            const pid_t service = serviceAt(program, moment);
            if (isStopped) {
                program.signal(SIGSTOP);
            }
            program.signal(SIGKILL);
            EXPECT_TRUE(await([service] { return isGone(service); }, GONE));
            EXPECT_FALSE(program.finish(PATIENCE_S).timedOut);
        }
    }
}

// Nothing in the service waits for the program: sound is played all the time, and pictures are
// shown again as soon as there is somebody to see them.
TEST(ServiceDeathTest, AStoppedProgramStopsNoService) {
    constexpr auto STOPPED = std::chrono::seconds(3);
    constexpr int PLAYED_S = 6;
    std::vector<std::string> arguments = PLAY;
    arguments.insert(arguments.end(), {"--duration", std::to_string(PLAYED_S)});
    Program program(arguments);
    ASSERT_TRUE(program.waitForOutput("closedCaptionText", PATIENCE_S));  // there are pictures
    program.signal(SIGSTOP);
    std::this_thread::sleep_for(STOPPED);
    program.signal(SIGCONT);
    const ProgramResult result = program.finish(PATIENCE_S);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.err, "");
    const nlohmann::json summary = result.summary();
    EXPECT_GE(summary.value("audioFrames", 0), 48'000 * (PLAYED_S - 1)) << summary;
    EXPECT_GT(summary.value("framesDropped", 0), 30) << summary;
    if (!SANITIZED) {
        EXPECT_GT(summary.value("framesRendered", 0), 60) << summary;
        EXPECT_NEAR(summary.value("longestGapMs", 0), 3000, 500) << summary;
    }
}

TEST(ServiceDeathTest, WithoutAServiceOneLineSaysSo) {
    const std::filesystem::path folder =
        testing::TempDir() + "orv-alone-" + std::to_string(getpid());
    std::filesystem::create_directories(folder);
    const std::filesystem::path alone = folder / "orvplay";
    std::filesystem::copy_file(ORV_PLAY, alone);
    const std::filesystem::path beside = folder / "with-service";
    std::filesystem::create_directories(beside);
    std::filesystem::copy_file(ORV_PLAY, beside / "orvplay");
    std::ofstream(beside / "orvplayerd") << "#!/bin/sh\nkill -9 $$\n";
    std::filesystem::permissions(beside / "orvplayerd", std::filesystem::perms::owner_all);
    const std::vector<std::string> environment = {"PATH=/no/such",
                                                  "DBUS_SESSION_BUS_ADDRESS=unix:path=/no/such/bus",
                                                  "DBUS_SYSTEM_BUS_ADDRESS=unix:path=/no/such/bus"};
    struct {
        std::string program;
        std::vector<std::string> options;
        std::string advice;
    } const cases[] = {{alone, {}, "--check-config"},
                       {beside / "orvplay", {}, "before it served; start orvplay again"},
                       {ORV_PLAY, {"--connect"}, "leave out --connect"},
                       {ORV_PLAY, {"--connect=system"}, "leave out --connect"}};
    for (const auto& test : cases) {
        for (const char* command : {"play", "snapshot"}) {
            std::vector<std::string> arguments = {command, SMALL};
            arguments.insert(arguments.end(), test.options.begin(), test.options.end());
            SCOPED_TRACE(test.program + " " + command);
            const ProgramResult result =
                Program(Program::Other{test.program}, arguments, environment).finish(PATIENCE_S);
            EXPECT_EQ(result.exitCode, 3) << result.err;
            EXPECT_EQ(result.errLines(), 1U) << result.err;
            EXPECT_NE(result.err.find(test.advice), std::string::npos) << result.err;
            EXPECT_EQ(result.out, "");
        }
    }
    std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace orvtest
