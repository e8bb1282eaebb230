#include "ControlSocket.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "support/Await.h"

namespace orvplay {
namespace {

using nlohmann::json;

// A folder of this user alone, and a player that answers there from a thread of its own.
class ControlSocketTest : public testing::Test {
protected:
    void SetUp() override {
        mRuntime = testing::TempDir() + "orv-control-" + std::to_string(getpid());
        std::filesystem::create_directories(mRuntime);
        setenv("XDG_RUNTIME_DIR", mRuntime.c_str(), 1);
    }
    void TearDown() override {
        mEnding = true;
        if (mThread.joinable()) {
            mThread.join();
        }
        unsetenv("XDG_RUNTIME_DIR");
        std::filesystem::remove_all(mRuntime);
    }

    void serve() {
        std::string error;
        ASSERT_TRUE(mServer.open(&error)) << error;
        mThread = std::thread([this] {
            int late = 0;
            while (!mEnding) {
                mServer.wait(20'000'000, [&](int connection, const json& request) {
                    if (request.value("command", "") == "later") {
                        late = connection;
                    } else {
                        mServer.answer(late, {{"ok", true}, {"n", request["n"]}});
                        mServer.answer(connection, {{"ok", true}, {"n", request["n"]}});
                        late = 0;
                    }
                });
            }
        });
    }
    // What comes back for these bytes until the player closes.
    std::string exchange(const std::string& bytes, bool leaves = false) const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        socketPath().copy(address.sun_path, sizeof address.sun_path - 1);
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
        std::string answer;
        char piece[256];
        for (ssize_t got = 1; !leaves && got > 0;) {
            got = read(fd, piece, sizeof piece);
            answer.append(piece, static_cast<size_t>(std::max<ssize_t>(got, 0)));
        }
        close(fd);
        return answer;
    }
    std::string socketPath() const {
        return mRuntime + "/orvplay/" + std::to_string(getpid()) + ".sock";
    }

    std::string mRuntime;
    ControlServer mServer;
    std::atomic<bool> mEnding{false};
    std::thread mThread;
};

TEST_F(ControlSocketTest, EachRequestHasItsAnswer) {
    serve();
    std::string error;
    EXPECT_EQ(runningPlayers(&error), std::vector<int>{getpid()});
    std::atomic<bool> isServedLate{false};
    std::thread waiting([&] {
        json late;
        std::string failure;
        isServedLate = askPlayer(getpid(), {{"command", "later"}}, &late, &failure) && late["ok"];
    });
    json answer;
    EXPECT_TRUE(askPlayer(getpid(), {{"n", std::string(60'000, 'x')}}, &answer, &error)) << error;
    EXPECT_TRUE(orvtest::await([&] {
        return askPlayer(getpid(), {{"n", 3}}, &answer, &error) && answer["n"] == 3 && isServedLate;
    }));
    waiting.join();
    EXPECT_FALSE(askPlayer(1, {}, &answer, &error));
    EXPECT_NE(error.find("process number 1"), std::string::npos) << error;
}

TEST_F(ControlSocketTest, StrangeRequestsHarmNobody) {
    serve();
    for (const std::string bytes : {"\n", "no json\n", "[1]\n", "{\"n\":", "\xFF\xFF\n"}) {
        if (bytes.ends_with("\n")) {
            EXPECT_NE(exchange(bytes).find("\"ok\":false"), std::string::npos) << bytes;
        }
        exchange(bytes, true);  // and gone before the answer
    }
    EXPECT_EQ(exchange(std::string(ControlServer::MAX_REQUEST_BYTES + 1, '{')), "");
    EXPECT_EQ(exchange("{\"n\":1}\n{\"n\":2}\n"), "{\"n\":1,\"ok\":true}\n") << "one alone";
}

// More than may be there at once wait for those before.
TEST_F(ControlSocketTest, ManyAskAtOnce) {
    serve();
    std::vector<std::thread> askers;
    std::atomic<int> answered{0};
    for (int i = 0; i < 40; ++i) {
        askers.emplace_back([&, i] {
            json answer;
            std::string error;
            answered += askPlayer(getpid(), {{"n", i}}, &answer, &error) && answer["n"] == i;
        });
    }
    for (std::thread& asker : askers) {
        asker.join();
    }
    EXPECT_EQ(answered, 40);
}

TEST_F(ControlSocketTest, DeadSocketsGoAndUnsafeFoldersAreNotUsed) {
    std::string error;
    EXPECT_TRUE(runningPlayers(&error).empty());
    const std::string folder = controlFolder(&error);
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        (folder + "/4711.sock").copy(address.sun_path, sizeof address.sun_path - 1);
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        close(fd);
    }
    std::ofstream(folder + "/notes.txt") << "x";
    EXPECT_TRUE(runningPlayers(&error).empty());
    EXPECT_FALSE(std::filesystem::exists(folder + "/4711.sock"));
    EXPECT_TRUE(std::filesystem::exists(folder + "/notes.txt"));

    chmod(folder.c_str(), 0750);
    EXPECT_FALSE(mServer.open(&error));
    EXPECT_NE(error.find("this user alone"), std::string::npos) << error;
    std::filesystem::remove_all(folder);
    std::filesystem::create_directory_symlink("/tmp", folder);
    EXPECT_EQ(controlFolder(&error), "");
    setenv("XDG_RUNTIME_DIR", (mRuntime + "/" + std::string(90, 'x')).c_str(), 1);
    std::filesystem::create_directories(getenv("XDG_RUNTIME_DIR"));
    EXPECT_FALSE(mServer.open(&error));
    EXPECT_NE(error.find("too long"), std::string::npos) << error;
}

}  // namespace
}  // namespace orvplay
