// The program on a terminal, as a user runs it there.

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>

#include "TmuxScreen.h"
#include "programs/Program.h"

namespace orvtest {
namespace {

constexpr double PATIENCE_S = SANITIZED ? 60 : 20;
const std::string SAMPLE = ORV_SAMPLES_DIR "/small-guide-br.ts";
const std::string NAME = "ORV São João HD";

class TerminalUseTest : public testing::Test {
protected:
    void SetUp() override {
        mScreen = std::make_unique<TmuxScreen>(80, 24);
        if (!mScreen->isReady()) {
            GTEST_SKIP() << "there is no tmux on this machine";
        }
        mPidFile = mScreen->folder() + "/pid";
        mScreen->type(
            "export ORV_AUDIO=silent XDG_CONFIG_HOME=/nowhere; before=$(stty -g); clear\n");
    }

    // The shell tells how it ended.
    void play(const std::string& options) const {
        std::filesystem::remove(mPidFile);
        mScreen->type("sh -c 'echo $$ >" + mPidFile + "; exec " + ORV_PLAY + " play " + options +
                      "'; echo exit=$?; [ \"$before\" = \"$(stty -g)\" ] && echo modes kept\n");
    }
    pid_t program() const {
        pid_t pid = -1;
        std::ifstream(mPidFile) >> pid;
        return pid;
    }
    bool waitFor(const std::string& text) const { return mScreen->waitFor(text, PATIENCE_S); }

    // The screen is gone, the terminal as it was and the shell goes on.
    void expectEnd(int code) const {
        EXPECT_TRUE(waitFor("exit=" + std::to_string(code) + "\nmodes kept\nready>"))
            << mScreen->text();
        EXPECT_EQ(mScreen->text().find("? help"), std::string::npos) << mScreen->text();
    }

    std::unique_ptr<TmuxScreen> mScreen;
    std::string mPidFile;
};

TEST_F(TerminalUseTest, ShowsWhatPlaysAndObeysItsKeys) {
    play(SAMPLE + " --terminal");
    ASSERT_TRUE(waitFor(NAME)) << mScreen->text();
    EXPECT_TRUE(waitFor("Picture    320x240i")) << mScreen->text();
    EXPECT_TRUE(waitFor("? help   q quit")) << mScreen->text();
    mScreen->type(" ");
    EXPECT_TRUE(waitFor("paused")) << mScreen->text();
    mScreen->type("c");
    EXPECT_TRUE(waitFor("Enter plays")) << mScreen->text();
    mScreen->press("Escape");
    mScreen->resize(40, 10);
    EXPECT_TRUE(waitFor("paused")) << mScreen->text();
    EXPECT_TRUE(waitFor(NAME)) << mScreen->text();
    mScreen->type("?");
    EXPECT_TRUE(waitFor("quieter, louder")) << mScreen->text();
    mScreen->type("?q");
    mScreen->resize(80, 24);
    expectEnd(0);
}

// Whatever ends it; and what was said meanwhile is told then.
TEST_F(TerminalUseTest, GivesTheTerminalBack) {
    const struct {
        const char* how;
        std::function<void(pid_t)> end;
        int code;
        const char* told;
    } TABLE[] = {
        {"Ctrl-C", [this](pid_t) { mScreen->press("C-c"); }, 130, "Pictures:"},
        {"SIGTERM", [](pid_t program) { kill(program, SIGTERM); }, 130, "Pictures:"},
        {"the service is gone",
         [](pid_t program) { kill(awaitServiceOf(program, PATIENCE_S), SIGKILL); }, 3,
         "orvplay: the player service"},
    };
    for (const auto& row : TABLE) {
        SCOPED_TRACE(row.how);
        mScreen->type("clear\n");
        play(SAMPLE);
        ASSERT_TRUE(waitFor(NAME)) << mScreen->text();
        row.end(program());
        expectEnd(row.code);
        EXPECT_NE(mScreen->text().find(row.told), std::string::npos) << mScreen->text();
    }
}

// A program that hangs, here because its service stands still, ends with the second Ctrl-C.
TEST_F(TerminalUseTest, GivesTheTerminalBackAtOnce) {
    play(SAMPLE);
    ASSERT_TRUE(waitFor(NAME)) << mScreen->text();
    const pid_t service = awaitServiceOf(program(), PATIENCE_S);
    kill(service, SIGSTOP);
    mScreen->press("C-c");
    mScreen->press("C-c");
    expectEnd(130);
    kill(service, SIGKILL);
}

TEST_F(TerminalUseTest, IsPutAsideAndTakenUpAgain) {
    play(SAMPLE);
    ASSERT_TRUE(waitFor(NAME)) << mScreen->text();
    mScreen->press("C-z");
    ASSERT_TRUE(waitFor("Stopped")) << mScreen->text();
    mScreen->type("echo again; fg\n");
    EXPECT_TRUE(waitFor("? help")) << mScreen->text();
    EXPECT_EQ(mScreen->text().find("Stopped"), std::string::npos) << mScreen->text();
    mScreen->type("q");
    EXPECT_TRUE(waitFor("again")) << mScreen->text();
    EXPECT_TRUE(mScreen->waitForNo("? help", PATIENCE_S)) << mScreen->text();
}

// A type of terminal that cannot place text, and what was asked for: the status line, or data.
TEST_F(TerminalUseTest, IsNotForcedOnAnybody) {
    mScreen->type("play() { " + std::string(ORV_PLAY) + " play " + SAMPLE +
                  " --duration 0.1 \"$@\"; }; clear\n");
    mScreen->type("play --headless; TERM=dumb play; echo both\n");
    EXPECT_TRUE(waitFor("\nboth")) << mScreen->text();
    EXPECT_EQ(mScreen->text().find("? help"), std::string::npos) << mScreen->text();
    mScreen->type("play --json\n");
    EXPECT_TRUE(waitFor("\"event\":\"summary\"")) << mScreen->text();
    mScreen->type("TERM=dumb play --terminal; echo exit=$?\n");
    EXPECT_TRUE(waitFor("cannot place text; use --headless\nexit=2")) << mScreen->text();
}

TEST(TerminalOptionTest, NeedsATerminal) {
    const ProgramResult result = runProgram({"play", SAMPLE, "--terminal"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_NE(result.err.find("use --headless"), std::string::npos) << result.err;
    EXPECT_EQ(result.errLines(), 1u) << result.err;
    for (const char* other : {"--json", "--headless"}) {
        EXPECT_EQ(runProgram({"play", SAMPLE, "--terminal", other}).exitCode, 2) << other;
    }
}

}  // namespace
}  // namespace orvtest
