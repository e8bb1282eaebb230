#include "SignalHooks.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>

#include "support/Await.h"

namespace orvplay {
namespace {

using orvclient::Signal;
using orvtest::await;

class SignalHooksTest : public testing::Test {
protected:
    void SetUp() override {
        mFolder = testing::TempDir() + "orv-hooks-" + std::to_string(getpid());
        std::filesystem::create_directories(mFolder);
    }
    void TearDown() override { std::filesystem::remove_all(mFolder); }

    void begin(const std::string& onLost, const std::string& onBack) {
        mHooks.emplace(SignalHooks::Commands{onLost, onBack}, mMessages);
        mHooks->subscribe(&mCallbacks);
    }
    // As the service's monitor tells it, and the player's next look.
    void tell(Signal signal) {
        mCallbacks.onSignal(0, static_cast<unsigned int>(signal));
        look();
    }
    void look(const std::string& service = "51200") {
        mHooks->look({"TV \"Açaí\" $(false)", service, "udp://239.255.1.1:5000"});
    }
    std::string path(const std::string& name) const { return mFolder + "/" + name; }
    std::string content(const std::string& name) const {
        std::ostringstream text;
        text << std::ifstream(path(name)).rdbuf();
        return text.str();
    }
    // Once as many lines are there.
    bool awaitLines(const std::string& name, long lines) const {
        return await([&] {
            const std::string text = content(name);
            return std::count(text.begin(), text.end(), '\n') >= lines;
        });
    }
    // Or dead, and nobody has asked for what became of it.
    static bool isGone(const std::string& process) {
        std::ifstream file("/proc/" + process + "/stat");
        std::string pid, name, state;
        return !(file >> pid >> name >> state) || state == "Z" || state == "X";
    }

    std::string mFolder;
    Messages mMessages;
    orvclient::Callbacks mCallbacks;
    std::optional<SignalHooks> mHooks;
};

TEST_F(SignalHooksTest, RunWithWhatTheyNeedAndNothingElse) {
    const int leaked = dup2(STDERR_FILENO, 123);  // stays open over exec
    int others = 0;
    mCallbacks.onSignal = [&](unsigned, unsigned) { ++others; };
    begin(
        "{ echo \"$ORV_EVENT|$ORV_CHANNEL|$ORV_SERVICE|$ORV_SOURCE|$ORV_PLAYER_PID\"; "
        "readlink /proc/self/fd/0; ls /proc/self/fd; } > " +
            path("out.new") + "; mv " + path("out.new") + " " + path("out"),
        "");
    tell(Signal::LOST);
    ASSERT_TRUE(awaitLines("out", 3));
    const std::string out = content("out");
    EXPECT_EQ(out.substr(0, out.find("\n")),
              "signal-lost|TV \"Açaí\" $(false)|51200|udp://239.255.1.1:5000|" +
                  std::to_string(getpid()));
    EXPECT_NE(out.find("\n/dev/null\n"), std::string::npos) << out;
    EXPECT_EQ(out.find("123"), std::string::npos) << out;
    EXPECT_EQ(others, 1) << "who listened before still does";
    close(leaked);
}

// Lost is told again and again; back is only what was lost.
TEST_F(SignalHooksTest, OnceForEachLossAndReturn) {
    begin("echo lost >> " + path("log"), "echo back >> " + path("log"));
    tell(Signal::WEAK);
    tell(Signal::GOOD);
    const Signal course[] = {Signal::WEAK, Signal::LOST, Signal::LOST, Signal::LOST};
    for (int round = 1; round <= 2; ++round) {
        for (const Signal signal : course) {
            tell(signal);
        }
        ASSERT_TRUE(awaitLines("log", round * 2 - 1));
        tell(Signal::GOOD);
        tell(Signal::GOOD);
        ASSERT_TRUE(awaitLines("log", round * 2));
        // The one before has ended, and was seen to.
        ASSERT_TRUE(await([&] {
            look();
            return !mHooks->isRunning();
        }));
    }
    tell(Signal::LOST);
    look("51232");  // another channel, whose signal is lost later
    ASSERT_TRUE(awaitLines("log", 6));
    ASSERT_TRUE(await([&] {
        look("51232");
        return !mHooks->isRunning();
    }));
    mCallbacks.onSignal(0, static_cast<unsigned int>(Signal::LOST));
    look("51232");
    ASSERT_TRUE(awaitLines("log", 7));
    std::istringstream lines(content("log"));
    std::map<std::string, int> counts;
    for (std::string line; lines >> line;) {
        ++counts[line];
    }
    EXPECT_EQ(counts["lost"], 4);
    EXPECT_EQ(counts["back"], 3);
}

TEST_F(SignalHooksTest, OneAtATimeAndNoneIsLeftBehind) {
    for (const std::string ignore : {"", "trap '' TERM; "}) {
        SCOPED_TRACE(ignore);
        std::filesystem::remove(path("pid"));
        begin(ignore + "sleep 60 & echo $$ $! >> " + path("pid") + "; wait; sleep 60", "");
        testing::internal::CaptureStderr();
        tell(Signal::LOST);
        ASSERT_TRUE(awaitLines("pid", 1));
        for (int i = 0; i < 3; ++i) {
            tell(Signal::GOOD);
            tell(Signal::LOST);
        }
        mHooks.reset();
        const std::string said = testing::internal::GetCapturedStderr();
        EXPECT_EQ(said.find("still runs"), said.rfind("still runs")) << said;
        EXPECT_NE(said.find("still runs"), std::string::npos);
        std::istringstream pids(content("pid"));
        std::string shell, child, more;
        pids >> shell >> child >> more;
        EXPECT_EQ(more, "") << "it was run once";
        EXPECT_TRUE(await([&] { return isGone(shell) && isGone(child); }));
    }
}

}  // namespace
}  // namespace orvplay
