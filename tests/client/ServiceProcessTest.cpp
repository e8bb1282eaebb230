// The service process of an application: started, watched and ended.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvclient/Player.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

#include "client/ChildProcess.h"
#include "support/Await.h"
#include "support/ProcessUsage.h"

namespace orvtest {
namespace {

using orvclient::ChildProcess;
using orvclient::Player;

constexpr std::chrono::seconds BOUND{20};

std::unique_ptr<ChildProcess> shell(const std::string& script) {
    const int socket = open("/dev/null", O_RDWR | O_CLOEXEC);
    std::string error;
    auto child = ChildProcess::start({"sh", "-c", script}, socket, -1, &error);
    EXPECT_EQ(error, "");
    close(socket);
    return child;
}

std::string endOf(const std::string& script) {
    const auto child = shell(script);
    EXPECT_TRUE(child->waitForEnd(BOUND));
    return child->describeEnd();
}

TEST(ServiceProcessTest, SeesWhatItShouldAndNothingElse) {
    const int leak = fcntl(STDERR_FILENO, F_DUPFD, 50);  // not close-on-exec
    EXPECT_EQ(endOf("test \"$0 $1\" = '--peer-fd 3' || exit 10; test -e /proc/$$/fd/3 || exit 11; "
                    "test ! -e /proc/$$/fd/" +
                    std::to_string(leak) +
                    " || exit 12; "
                    "read line && exit 13; test \"$(ps -o pgid= $$)\" -eq $$ || exit 14; "
                    "test /proc/$$/fd/1 -ef /proc/$$/fd/2 || exit 15"),
              "ended by itself (status 0)");
    close(leak);
    EXPECT_EQ(endOf("exit 7"), "ended by itself (status 7)");
    EXPECT_EQ(endOf("kill -SEGV $$"), "was ended by signal 11 (Segmentation fault)");
}

// Asked after two seconds, made to after two more. The application's other children are its own.
TEST(ServiceProcessTest, AStubbornOneIsEnded) {
    const pid_t other = fork();
    if (other == 0) {
        _exit(5);
    }
    const size_t before = ProcessUsage::now().descriptors;
    pid_t pid = -1;
    {
        const auto child = shell("trap '' TERM; while :; do sleep 0.1; done");
        pid = child->pid();
        EXPECT_FALSE(child->waitForEnd(std::chrono::milliseconds(1)));
        EXPECT_EQ(child->describeEnd(), "runs");
        child->end();
        EXPECT_EQ(child->describeEnd(), "was ended by signal 9 (Killed)");
    }
    EXPECT_EQ(kill(pid, 0), -1);
    EXPECT_EQ(ProcessUsage::now().descriptors, before);
    int status = 0;
    EXPECT_EQ(waitpid(other, &status, 0), other);
    EXPECT_EQ(WEXITSTATUS(status), 5);
}

TEST(ServiceProcessTest, APlayerWithoutAServiceSaysWhy) {
    std::string error;
    Player::Options options;
    options.daemon = "/nonexistent/orvplayerd";
    EXPECT_EQ(Player::create(options, {}, &error), nullptr);
    EXPECT_EQ(error,
              "/nonexistent/orvplayerd: the player service cannot be started: No such file or "
              "directory");
    options.daemon = "false with arguments";
    EXPECT_EQ(Player::create(options, {}, &error), nullptr);
    EXPECT_EQ(error, "the player service ended by itself (status 1) before it served");
}

}  // namespace
}  // namespace orvtest
