#include "EventFollowers.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <thread>
#include <vector>

#include "support/Await.h"

namespace orvplay {
namespace {

using nlohmann::json;

// A player that answers from a thread of its own, while lines are written on the test's.
class EventFollowersTest : public testing::Test {
protected:
    void SetUp() override {
        mRuntime = testing::TempDir() + "orv-follow-" + std::to_string(getpid());
        std::filesystem::create_directories(mRuntime);
        setenv("XDG_RUNTIME_DIR", mRuntime.c_str(), 1);
        std::string error;
        ASSERT_TRUE(mServer.open(&error)) << error;
        mThread = std::thread([this] {
            EventFollowers followers(mServer, mQueue);
            while (!mEnding) {
                mServer.wait(5'000'000, [&](int connection, const json& request) {
                    if (request.value("command", "") == "events") {
                        followers.add(connection);
                    } else {
                        mServer.answer(connection, {{"ok", true}});
                    }
                });
                followers.look();
            }
            followers.finish(200'000'000);
        });
    }
    void TearDown() override {
        end();
        unsetenv("XDG_RUNTIME_DIR");
        std::filesystem::remove_all(mRuntime);
    }
    void end() {
        mEnding = true;
        if (mThread.joinable()) {
            mThread.join();
        }
    }

    // Null when it was refused.
    static std::unique_ptr<PlayerLines> follow() {
        auto lines = std::make_unique<PlayerLines>();
        json answer;
        std::string error;
        EXPECT_TRUE(lines->ask(getpid(), {{"command", "events"}}, &answer, &error)) << error;
        return answer.value("ok", false) ? std::move(lines) : nullptr;
    }
    static bool isAnswered() {
        json answer;
        std::string error;
        return askPlayer(getpid(), {{"command", "other"}}, &answer, &error);
    }

    struct Read {
        uint64_t lines = 0;
        uint64_t missed = 0;
        bool isOrdered = true;
    };
    // Until so many lines are accounted for.
    static Read readAll(PlayerLines& lines, uint64_t expected) {
        constexpr int PATIENCE_MS = 10'000;
        Read read;
        std::string line;
        while (read.lines + read.missed < expected &&
               lines.next(&line, PATIENCE_MS) == PlayerLines::Got::LINE) {
            const json event = json::parse(line);
            if (event["event"] == "missed") {
                read.missed += event["count"].get<uint64_t>();
            } else {
                read.isOrdered &= event["n"] == read.lines + read.missed;
                ++read.lines;
            }
        }
        return read;
    }
    static std::string line(uint64_t number) {
        return json{{"event", "onTimeUpdate"}, {"n", number}, {"text", std::string(90, 'x')}}
            .dump();
    }

    std::string mRuntime;
    ControlServer mServer;
    EventQueue mQueue;
    std::atomic<bool> mEnding{false};
    std::thread mThread;
};

// Every line is either there, in its place, or counted there; and requests are served meanwhile.
TEST_F(EventFollowersTest, TheSlowLoseLinesAndTheOthersDoNotWait) {
    constexpr uint64_t LINES = 20'000;
    constexpr uint64_t AT_ONCE = 500;
    mQueue.put("before anyone follows");
    const auto quick = follow();
    const auto slow = follow();
    ASSERT_TRUE(quick != nullptr && slow != nullptr);
    Read fromQuick;
    for (uint64_t n = 0; n < LINES;) {
        for (const uint64_t until = n + AT_ONCE; n < until; ++n) {
            mQueue.put(line(n));
        }
        std::string got;
        for (uint64_t i = 0; i < AT_ONCE; ++i) {
            ASSERT_EQ(quick->next(&got, 10'000), PlayerLines::Got::LINE);
            fromQuick.isOrdered &= got == line(fromQuick.lines++);
        }
    }
    EXPECT_TRUE(fromQuick.isOrdered) << "who reads misses nothing";
    EXPECT_TRUE(isAnswered());
    const Read fromSlow = readAll(*slow, LINES);
    EXPECT_EQ(fromSlow.lines + fromSlow.missed, LINES);
    EXPECT_GT(fromSlow.missed, 0U);
    EXPECT_GT(fromSlow.lines, 100U);
    EXPECT_TRUE(fromSlow.isOrdered);
}

TEST_F(EventFollowersTest, AFewAtATimeUntilTheEnd) {
    std::vector<std::unique_ptr<PlayerLines>> all;
    for (size_t i = 0; i < EventFollowers::MAX_FOLLOWERS; ++i) {
        all.push_back(follow());
        ASSERT_NE(all.back(), nullptr);
    }
    EXPECT_EQ(follow(), nullptr) << "as many as it lets";
    EXPECT_TRUE(isAnswered()) << "there is room for requests";
    all.pop_back();
    ASSERT_TRUE(orvtest::await([&] {
        all.push_back(follow());
        return all.back() != nullptr || (all.pop_back(), false);
    })) << "whoever leaves makes room";
    mQueue.put(R"({"event":"summary"})");
    end();
    for (const auto& one : all) {
        std::string last;
        EXPECT_EQ(one->next(&last, 10'000), PlayerLines::Got::LINE);
        EXPECT_EQ(last, R"({"event":"summary"})");
    }
    all.clear();
    mQueue.put("nobody is left");
    EXPECT_TRUE(mQueue.take().lines.empty());
}

}  // namespace
}  // namespace orvplay
