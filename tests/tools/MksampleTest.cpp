// The program itself: what it answers to wrong use.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace {

using testing::HasSubstr;

struct Result {
    std::string output;
    int status = -1;
};

Result runShell(const std::string& command) {
    Result result;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return result;
    }
    char buffer[65536];
    size_t count = 0;
    while ((count = fread(buffer, 1, sizeof(buffer), pipe)) > 0) {
        result.output.append(buffer, count);
    }
    const int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128;
    return result;
}

Result mksample(const std::string& arguments) {
    return runShell(std::string("'") + ORV_MKSAMPLE + "' " + arguments);
}

TEST(MksampleTest, WrongUseIsOneClearLine) {
    struct Case {
        const char* arguments;
        int status;
        const char* message;
    };
    const Case cases[] = {
        {"", 2, "--out"},
        {"--nonsense", 2, "unknown option"},
        {"--out - extra", 2, "unexpected argument extra"},
        {"--out - --size 320x242", 2, "--size"},
        {"--out - --size 99999999999999999999x1", 2, "--size"},
        {"--out - --fps 0/0", 2, "--fps"},
        {"--out - --duration nan", 2, "--duration"},
        {"--out - --mux-rate 1e300", 2, "--mux-rate"},
        {"--out - --audio ogg", 2, "--audio"},
        {"--out - --guide xx", 2, "--guide"},
        {"--out - --audio mpeg --wrong-framing", 2, "--wrong-framing"},
        {"--out - --start-pts 8589934592", 2, "--start-pts"},
        {"--out - --duration 3 --cut-at 4", 2, "--cut-at"},
        {"--out - --pcr-on-video --no-pcr-pid", 2, "exclude"},
        {"--out - --no-captions --captions-list x", 2, "exclude"},
        {"--small --captions-list /nowhere/x --out /dev/null", 1, "cannot write"},
        {"--small --out /dev/full", 1, "cannot write"},
        {"--small --mux-rate 500k --out /dev/null", 1, "too late"},
    };
    for (const Case& c : cases) {
        const Result result = mksample(std::string(c.arguments) + " 2>&1 >/dev/null");
        EXPECT_EQ(result.status, c.status) << c.arguments;
        EXPECT_THAT(result.output, HasSubstr(c.message)) << c.arguments;
        EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1) << result.output;
    }
}

}  // namespace
