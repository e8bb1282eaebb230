#include <binder/IPCThreadState.h>
#include <binder/PermissionCache.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "binder/PermissionPolicy.h"
#include "support/TempFile.h"
#include "support/TraceCapture.h"

namespace orvhost {
namespace {

using orvtest::TempFile;
using orvtest::TraceCapture;

// In every system: user daemon has the number 1, and its group the same name and number.
constexpr uid_t DAEMON = 1;
constexpr uid_t STRANGER = 54321;

int64_t gNowMs = 0;

int64_t nowMs() {
    return gNowMs;
}

std::vector<uint8_t> bytesOf(const std::string& text) {
    return {text.begin(), text.end()};
}

void rewrite(const TempFile& file, const std::string& text) {
    std::ofstream(file.path(), std::ios::trunc) << text;
}

TEST(PermissionPolicy, LinesGrantAndBadOnesAreSkippedWithAReason) {
    const struct {
        const char* name;
        std::string text;
        bool daemon;
        bool stranger;
        const char* warning;  // after the path
    } cases[] = {
        {"empty", "", false, false, nullptr},
        {"comments", "# p 1 54321\n\n   # p daemon\n", false, false, nullptr},
        {"number", "p 54321\n", false, true, nullptr},
        {"name, without line end", "p daemon", true, false, nullptr},
        {"group", "p @daemon # them all\n", true, false, nullptr},
        {"several, blanks and tabs", "  p\t54321   daemon \r\n", true, true, nullptr},
        {"lines add up", "p 54321\np daemon\n", true, true, nullptr},
        {"another permission", "q daemon 54321\n", false, false, nullptr},
        {"nobody", "p\np daemon\n", true, false, ":1: nobody after \"p\": line skipped"},
        {"no such user", "p daemon\np 54321 no-such-one\n", true, false,
         ":2: no user \"no-such-one\": line skipped"},
        {"no such group", "p 54321 @no-such-one", false, false,
         ":1: no group \"no-such-one\": line skipped"},
        {"no group's name", "p @", false, false, ":1: no group \"\": line skipped"},
        {"the number that is none", "p 4294967295", false, false,
         ":1: no user \"4294967295\": line skipped"},
        {"negative", "p -1", false, false, ":1: no user \"-1\": line skipped"},
        {"too long", std::string(65537, '#'), false, false,
         ": longer than 64 KiB: no permissions from it"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        const TempFile file(bytesOf(each.text));
        TraceCapture trace;
        PermissionPolicy policy(file.path());
        EXPECT_EQ(policy.holds("p", DAEMON), each.daemon);
        EXPECT_EQ(policy.holds("p", STRANGER), each.stranger);
        EXPECT_FALSE(policy.holds("p", static_cast<uid_t>(-1)));
        EXPECT_TRUE(policy.holds("p", 0));
        EXPECT_TRUE(policy.holds("p", getuid()));
        const std::vector<std::string> lines = trace.take();
        ASSERT_EQ(lines.size(), each.warning != nullptr ? 1u : 0u);
        if (each.warning != nullptr) {
            EXPECT_EQ(lines[0], file.path() + each.warning);
        }
    }
}

TEST(PermissionPolicy, AFileThatOthersMayChangeIsNoPolicy) {
    const TempFile file(bytesOf("p daemon"));
    TraceCapture trace;
    for (const mode_t mode : {0620, 0602}) {
        ASSERT_EQ(chmod(file.path().c_str(), mode), 0);
        EXPECT_FALSE(PermissionPolicy(file.path()).holds("p", DAEMON));
        EXPECT_EQ(trace.take(),
                  std::vector{file.path() + ": others may write to it: no permissions from it"});
    }
    unlink(file.path().c_str());
    ASSERT_EQ(mkfifo(file.path().c_str(), 0600), 0);
    EXPECT_FALSE(PermissionPolicy(file.path()).holds("p", DAEMON));
    EXPECT_EQ(trace.take().size(), 1u);
}

TEST(PermissionPolicy, LooksAtTheFileOnceASecond) {
    const TempFile file(bytesOf("p daemon"));
    PermissionPolicy policy(file.path(), &nowMs);
    EXPECT_TRUE(policy.holds("p", DAEMON));
    rewrite(file, "p 54321");
    gNowMs += 999;
    EXPECT_TRUE(policy.holds("p", DAEMON));
    gNowMs += 1;
    EXPECT_FALSE(policy.holds("p", DAEMON));
    EXPECT_TRUE(policy.holds("p", STRANGER));

    // The same length, another time.
    rewrite(file, "p 54320");
    const struct timespec times[2] = {{1000, 0}, {1000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, file.path().c_str(), times, 0), 0);
    gNowMs += 1000;
    EXPECT_FALSE(policy.holds("p", STRANGER));

    rewrite(file, "p 54321 1");
    gNowMs += 1000;
    EXPECT_TRUE(policy.holds("p", STRANGER));
    unlink(file.path().c_str());
    gNowMs += 1000;
    EXPECT_FALSE(policy.holds("p", STRANGER));
}

// The process's own policy, where it is asked about calls.
TEST(PermissionCache, AsksForTheCaller) {
    const TempFile file(
        bytesOf("org.orvplayer.permission.CALL 54321\nandroid.permission.DUMP daemon\n"));
    ASSERT_EQ(setenv("ORV_PERMISSIONS", file.path().c_str(), 1), 0);
    EXPECT_TRUE(PermissionPolicy::mayCall(STRANGER));
    EXPECT_FALSE(PermissionPolicy::mayCall(DAEMON));

    const android::String16 dump("android.permission.DUMP");
    EXPECT_TRUE(android::PermissionCache::checkCallingPermission(dump));
    const android::IPCThreadState::CallerScope caller(77, STRANGER);
    int32_t pid = 0;
    int32_t uid = 0;
    EXPECT_FALSE(android::PermissionCache::checkCallingPermission(dump, &pid, &uid));
    EXPECT_EQ(pid, 77);
    EXPECT_EQ(uid, static_cast<int32_t>(STRANGER));
    EXPECT_TRUE(android::PermissionCache::checkPermission(dump, 78, DAEMON));
}

}  // namespace
}  // namespace orvhost
