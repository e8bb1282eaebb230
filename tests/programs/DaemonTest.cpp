#include <binder/Parcel.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <functional>
#include <random>
#include <thread>

#include "binder/CallTimeout.h"
#include "graphics/BufferQueue.h"
#include "platform/binder/PrivateBus.h"
#include "programs/Program.h"
#include "programs/ServiceClient.h"
#include "support/Await.h"
#include "support/TempFile.h"

namespace {

using namespace orvtest;
using android::Parcel;
using android::String16;

const char SAMPLE[] = ORV_SAMPLES_DIR "/small.ts";
enum PlayerCode : uint32_t {
    STOP = 3,
    PAUSE = 4,
    CLOSE = 8,
    SET_SURFACE = 9,
    START_RECORDER = 13,
    SET_AUDIO_ENABLE = 20,
    GET_STATE = 25
};
enum State { IDLE = 1, OPEN = 2, PLAYING = 3, PAUSED = 4 };

// A service process has half a second to end; a sanitizer makes everything slow.
constexpr double END_S = SANITIZED ? 5.0 : 0.5;

Program::Other daemonProgram(int handedFd = -1) {
    return {ORV_DAEMON, handedFd};
}

// The service as the child of this process.
class Embedded {
public:
    Embedded() : Embedded(socketPair()) {}

    Program& program() { return mProgram; }
    ServiceClient& client() { return *mClient; }
    void leave() { mClient = nullptr; }

private:
    struct Ends {
        int ours;
        int theirs;
    };
    static Ends socketPair() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        return {ends[0], ends[1]};
    }
    explicit Embedded(Ends ends)
        : mProgram(daemonProgram(ends.theirs), {"--peer-fd", std::to_string(ends.theirs)}) {
        close(ends.theirs);
        mClient = std::make_unique<ServiceClient>(ServiceClient::onSocket(ends.ours));
        EXPECT_TRUE(mClient->isComplete());
    }

    Program mProgram;
    std::unique_ptr<ServiceClient> mClient;
};

// Where a supervisor is told how its service is doing.
class NotifySocket {
public:
    NotifySocket() {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        // Without a file: the name begins with a 0.
        mName.copy(address.sun_path + 1, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(mFd, reinterpret_cast<const sockaddr*>(&address),
                       static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + mName.size())),
                  0);
    }
    ~NotifySocket() { close(mFd); }
    NotifySocket(const NotifySocket&) = delete;  // owns the descriptor
    NotifySocket& operator=(const NotifySocket&) = delete;

    std::string variable() const { return "NOTIFY_SOCKET=@" + mName; }
    // The next message; empty when there is none.
    std::string take() const {
        char text[256];
        const ssize_t size = recv(mFd, text, sizeof text, MSG_DONTWAIT);
        return size > 0 ? std::string(text, static_cast<size_t>(size)) : "";
    }

private:
    const std::string mName = "orvtest-notify-" + std::to_string(getpid());
    const int mFd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

// The service on a bus of the test's own.
// Where a service records, gone with the object.
class DataHome {
public:
    DataHome() { EXPECT_NE(mkdtemp(mPath.data()), nullptr); }
    DataHome(const DataHome&) = delete;  // owns the folder
    DataHome& operator=(const DataHome&) = delete;
    ~DataHome() { std::filesystem::remove_all(mPath); }

    std::string variable() const { return "XDG_DATA_HOME=" + mPath; }

private:
    std::string mPath = "/tmp/orvtest-data-XXXXXX";
};

class OnBus {
public:
    OnBus()
        : mProgram(daemonProgram(), {"--bus-address", mBus.address()},
                   {mNotify.variable(), mData.variable()}) {
        EXPECT_TRUE(mProgram.waitForError("orvplayerd: ready ", 20));
    }
    PrivateBus& bus() { return mBus; }
    Program& program() { return mProgram; }
    NotifySocket& supervisor() { return mNotify; }

private:
    PrivateBus mBus;
    NotifySocket mNotify;
    const DataHome mData;
    Program mProgram;
};

// Of its own lines: what is traced of the playback stands among them.
size_t messagesIn(const std::string& err) {
    size_t count = 0;
    for (size_t at = err.find("orvplayerd: "); at != std::string::npos;
         at = err.find("orvplayerd: ", at + 1)) {
        ++count;
    }
    return count;
}

void expectEnd(Program& program, int exitCode, size_t messages) {
    const ProgramResult result = program.finish(20);
    EXPECT_EQ(result.exitCode, exitCode) << result.err;
    EXPECT_EQ(messagesIn(result.err), messages) << result.err;
}

double secondsOf(const std::function<void()>& action) {
    const auto begin = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

size_t entriesOf(pid_t pid, const char* folder) {
    const auto path = std::filesystem::path("/proc") / std::to_string(pid) / folder;
    std::error_code gone;
    const auto entries = std::filesystem::directory_iterator(path, gone);
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

// Whether the service answers to a request for a recording, with whatever.
bool record(ServiceClient& client) {
    Parcel data;
    data.writeInterfaceToken(String16("OrvPlayer"));
    data.writeString16(String16("MTV://recorder/live?recType=1;"));
    Parcel reply;
    return client.player()->transact(START_RECORDER, data, &reply) == android::OK;
}

class WhilePlaying : public testing::TestWithParam<bool> {
protected:
    void playIfWanted(ServiceClient& client) {
        ASSERT_TRUE(client.isComplete());
        if (GetParam()) {
            ASSERT_EQ(client.play(SAMPLE), 0);
            ASSERT_TRUE(client.plays());
        }
    }
};
INSTANTIATE_TEST_SUITE_P(Daemon, WhilePlaying, testing::Bool());

TEST_P(WhilePlaying, TheServiceEndsWithTheProgramThatStartedIt) {
    Embedded service;
    playIfWanted(service.client());
    EXPECT_LT(secondsOf([&] {
                  service.leave();
                  expectEnd(service.program(), 0, 0);
              }),
              END_S);
}

TEST_P(WhilePlaying, ASignalEndsTheServiceAndItsNamesAreFree) {
    OnBus service;
    ServiceClient client(ServiceClient::onBus(service.bus().address()));
    playIfWanted(client);
    EXPECT_TRUE(await([&] { return service.supervisor().take() == "READY=1"; }));
    EXPECT_LT(secondsOf([&] {
                  service.program().signal(SIGTERM);
                  expectEnd(service.program(), 0, 1);
              }),
              END_S);
    EXPECT_EQ(service.supervisor().take(), "STOPPING=1");
    EXPECT_FALSE(ServiceClient(ServiceClient::onBus(service.bus().address())).isComplete());
}

TEST_P(WhilePlaying, TheEndOfTheBusIsTold) {
    OnBus service;
    ServiceClient client(ServiceClient::onBus(service.bus().address()));
    playIfWanted(client);
    service.bus().kill();
    EXPECT_LT(secondsOf([&] { expectEnd(service.program(), 1, 2); }), END_S);
}

TEST(Daemon, ASecondServiceIsRefused) {
    OnBus service;
    Program second(daemonProgram(), {"--bus-address", service.bus().address()});
    expectEnd(second, 3, 1);
    EXPECT_TRUE(ServiceClient(ServiceClient::onBus(service.bus().address())).isComplete());
}

TEST(Daemon, CommandLinesAndConfigurationsThatMakeNoSense) {
    const std::string text = "org.orvplayer.permission.CALL nobody-of-that-name\n";
    const TempFile permissions(std::vector<uint8_t>(text.begin(), text.end()));
    const std::tuple<std::vector<std::string>, std::vector<std::string>, int> cases[] = {
        {{}, {}, 2},
        {{"--session", "--system"}, {}, 2},
        {{"--peer-fd", "99"}, {}, 2},
        {{"--bus-address", "unix:path=/tmp/no-such-bus"}, {}, 3},
        {{"--check-config"}, {}, 0},
        {{"--check-config"}, {"ORV_AUDIO=loud"}, 1},
        {{"--check-config"}, {"ORV_TRACE_FILE=/proc/nowhere"}, 1},
        {{"--check-config"}, {"ORV_PERMISSIONS=" + permissions.path()}, 1},
    };
    for (const auto& [arguments, environment, exitCode] : cases) {
        const ProgramResult result = Program(daemonProgram(), arguments, environment).finish(20);
        EXPECT_EQ(result.exitCode, exitCode) << result.err;
        EXPECT_EQ(result.err.empty(), exitCode == 0) << result.err;
    }
}

TEST(Daemon, TellsWhatItPlays) {
    Embedded service;
    ServiceClient& client = service.client();
    ASSERT_TRUE(client.isComplete());
    ASSERT_EQ(client.play(SAMPLE), 0);
    std::vector<int64_t> beeps;
    EXPECT_TRUE(await(
        [&] {
            const auto now = client.figures();
            beeps.insert(beeps.end(), now.beepsNs.begin(), now.beepsNs.end());
            usleep(20'000);
            return beeps.size() >= 2;
        },
        std::chrono::seconds(30)));
    const auto figures = client.figures();
    EXPECT_TRUE(figures.heard);
    EXPECT_EQ(figures.pid, service.program().pid());
    EXPECT_GT(figures.firstIdrReadyUs, 0);
    EXPECT_GT(figures.firstPcrUs, 0);
    EXPECT_GT(figures.firstSoundUs, figures.firstPcrUs);
    EXPECT_NEAR(figures.outputLatencyMs, 179.7, 0.1);  // of 48 kHz in stereo
    EXPECT_GT(figures.cpuSeconds, 0.0);
    // A beep a second. The stream starts anew at its end, so that one distance may differ.
    EXPECT_GT(beeps.back() - beeps.front(), 400'000'000);
    service.program().signal(SIGUSR1);
    EXPECT_TRUE(service.program().waitForError("Module Name: ", 10));
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    EXPECT_EQ(client.service("OrvMonitor")->dump(ends[1], {}), android::OK);
    char text[65536];
    const ssize_t size = read(ends[0], text, sizeof text);
    ASSERT_GT(size, 0);
    EXPECT_NE(std::string(text, static_cast<size_t>(size)).find("Module Name: "),
              std::string::npos);
    close(ends[0]);
    // Nobody reads any more: that is the caller's affair, and no reason to die.
    EXPECT_NE(client.service("OrvMonitor")->dump(ends[1], {}), android::OK);
    close(ends[1]);
    EXPECT_TRUE(client.plays());
}

TEST(Daemon, HostileCallsHarmNobody) {
    Embedded service;
    ServiceClient& client = service.client();
    ASSERT_TRUE(client.isComplete());
    std::mt19937 random(7);
    for (const char* name : {orvhost::ITuner::SERVICE_NAME, orvhost::IMonitor::SERVICE_NAME}) {
        const auto target = client.service(name);
        for (int round = 0; round < 500; ++round) {
            Parcel data;
            if (round % 4 != 0) {
                data.writeInterfaceToken(String16(name));
            }
            for (auto words = random() % 12; words > 0; --words) {
                switch (random() % 6) {
                    case 0:
                        data.writeStrongBinder(new android::BBinder);
                        break;
                    case 1:
                        data.writeFileDescriptor(STDIN_FILENO);
                        break;
                    default:
                        data.writeInt32(static_cast<int32_t>(random() >> random() % 32));
                }
            }
            Parcel reply;
            target->transact(static_cast<uint32_t>(random() % 6), data, &reply);
        }
        EXPECT_EQ(target->pingBinder(), android::OK);
    }
    EXPECT_EQ(client.call(GET_STATE), IDLE);
}

// Everything but opening and closing, without which no stop is one too many.
TEST(Daemon, CommandsFromEightThreadsWhileItPlays) {
    constexpr uint32_t COMMANDS[] = {2,  3,  4,  5,  6,  10, 11, 14, 17, 18, 19,
                                     20, 21, 22, 23, 24, 25, 26, 27, 28, 29};
    Embedded service;
    ServiceClient& client = service.client();
    ASSERT_TRUE(client.isComplete());
    ASSERT_EQ(client.play(SAMPLE), 0);
    ASSERT_TRUE(client.plays());

    android::sp<android::IGraphicBufferProducer> producer;
    android::sp<orvhost::BufferQueue::Consumer> window;
    orvhost::BufferQueue::create(&producer, &window);
    Parcel surface;
    surface.writeInterfaceToken(String16("OrvPlayer"));
    surface.writeString16(String16());
    surface.writeString16(String16());
    surface.writeInt32(0);
    surface.writeInt32(0);
    surface.writeStrongBinder(android::IInterface::asBinder(producer));
    Parcel answer;
    ASSERT_EQ(client.player()->transact(SET_SURFACE, surface, &answer), android::OK);

    std::atomic<bool> over{false};
    std::atomic<int> failed{0};
    std::vector<std::thread> threads;
    threads.emplace_back([&] {
        orvhost::AcquiredBuffer picture;
        while (!over) {
            if (window->acquire(&picture, 50) == android::OK) {
                window->release(picture.slot);
            }
        }
    });
    for (unsigned seed = 0; seed < 8; ++seed) {
        threads.emplace_back([&, seed] {
            std::mt19937 random(seed);
            while (!over) {
                Parcel data;
                data.writeInterfaceToken(String16("OrvPlayer"));
                for (int field = 0; field < 5; ++field) {
                    data.writeInt32(static_cast<int32_t>(random() % 300));
                }
                Parcel reply;
                const uint32_t code = COMMANDS[random() % std::size(COMMANDS)];
                failed += client.player()->transact(code, data, &reply) != android::OK;
            }
        });
    }
    std::this_thread::sleep_for(std::chrono::seconds(3));
    over = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failed, 0);
    // And it plays as before, once it has its PIDs again.
    client.call(CLOSE);
    EXPECT_EQ(client.play(SAMPLE), 0);
    EXPECT_TRUE(client.plays());
}

// The application is killed, whatever it did: the service forgets it, and serves the next one.
TEST(Daemon, AKilledClientLeavesNothingBehind) {
    using Deed = std::function<bool(ServiceClient&)>;
    const Deed play = [](ServiceClient& c) { return c.play(SAMPLE) == 0; };
    const Deed watch = [&](ServiceClient& c) { return play(c) && c.plays(); };
    struct {
        const char* what;
        Deed deed;
        int state;
    } const cases[] = {
        // Threads and descriptors that the first playback and recording make once for all count
        // from here.
        {"the first", [&](ServiceClient& c) { return watch(c) && record(c); }, PLAYING},
        {"connected", [](ServiceClient&) { return true; }, IDLE},
        {"opened", [](ServiceClient& c) { return c.openFile(SAMPLE) == 0; }, OPEN},
        {"buffering", play, PLAYING},
        {"watching", watch, PLAYING},
        {"paused", [&](ServiceClient& c) { return play(c) && c.call(PAUSE) == -1; }, PAUSED},
        {"recording", [&](ServiceClient& c) { return play(c) && record(c); }, PLAYING},
    };
    OnBus service;
    const std::string address = service.bus().address();
    const pid_t daemon = service.program().pid();
    size_t threads = 0;
    size_t descriptors = 0;
    for (const auto& test : cases) {
        SCOPED_TRACE(test.what);
        int ready[2] = {-1, -1};
        ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
        const pid_t application = fork();
        if (application == 0) {
            auto* client = new ServiceClient(ServiceClient::onBus(address));
            if (client->isComplete() && test.deed(*client) &&
                client->call(GET_STATE) == test.state) {
                [[maybe_unused]] const ssize_t told = write(ready[1], "p", 1);
            }
            close(ready[1]);
            while (true) {
                pause();
            }
        }
        close(ready[1]);
        char byte = 0;
        EXPECT_EQ(read(ready[0], &byte, 1), 1);
        close(ready[0]);
        kill(application, SIGKILL);
        waitpid(application, nullptr, 0);
        const auto isIdle = [&] {
            return threads == 0 ||
                   (entriesOf(daemon, "task") <= threads && entriesOf(daemon, "fd") <= descriptors);
        };
        EXPECT_LT(secondsOf([&] { EXPECT_TRUE(await(isIdle)) << entriesOf(daemon, "task"); }),
                  END_S);
        ServiceClient next(ServiceClient::onBus(address));
        ASSERT_TRUE(next.isComplete());
        EXPECT_TRUE(await([&] { return next.call(GET_STATE) == IDLE; }));
        EXPECT_FALSE(next.tuner().signal().tuned);
        if (threads == 0) {
            threads = entriesOf(daemon, "task");
            descriptors = entriesOf(daemon, "fd");
        }
    }
    ServiceClient last(ServiceClient::onBus(address));
    EXPECT_EQ(last.play(SAMPLE), 0);
    EXPECT_TRUE(last.plays());
}

// A stop while nothing is open is the player's internal fault: it ends the process with status 0.
TEST(Daemon, AnInternalFaultEndsTheProcessAtOnce) {
    OnBus service;
    ServiceClient client(ServiceClient::onBus(service.bus().address()));
    ASSERT_TRUE(client.isComplete());
    Parcel data;
    data.writeInterfaceToken(String16("OrvPlayer"));
    Parcel reply;
    EXPECT_LT(secondsOf([&] {
                  EXPECT_EQ(client.player()->transact(STOP, data, &reply), android::DEAD_OBJECT);
                  const ProgramResult result = service.program().finish(20);
                  EXPECT_EQ(result.exitCode, 0);
                  EXPECT_GE(result.errLines(), 2u) << result.err;
              }),
              SANITIZED ? 10.0 : 1.0);
}

// The same, while nobody reads its standard error and the pipe is full.
TEST(Daemon, AnInternalFaultWaitsForNoReader) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "ThreadSanitizer puts off the handler of the signal that ends the process";
#endif
    setenv("ORV_TRACE", "entry", 1);
    Embedded service;
    unsetenv("ORV_TRACE");
    ServiceClient& client = service.client();
    ASSERT_TRUE(client.isComplete());
    for (int lines = 0; lines < 3000; ++lines) {
        client.call(SET_AUDIO_ENABLE);
    }
    Parcel data;
    data.writeInterfaceToken(String16("OrvPlayer"));
    Parcel reply;
    const orvhost::CallTimeout bound(std::chrono::seconds(10));
    EXPECT_LT(secondsOf([&] {
                  EXPECT_EQ(client.player()->transact(STOP, data, &reply), android::DEAD_OBJECT);
              }),
              SANITIZED ? 10.0 : 1.0);
    EXPECT_EQ(service.program().finish(20).exitCode, 0);
}

}  // namespace
