// The player on a desktop's bus, as playerctl and panels have it.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "platform/binder/PrivateBus.h"
#include "programs/Program.h"
#include "support/Await.h"

namespace orvtest {
namespace {

using nlohmann::json;
using std::chrono::seconds;
using std::chrono::steady_clock;

const std::string LONG = ORV_SAMPLES_DIR "/small-long.ts";
constexpr double PATIENCE_S = SANITIZED ? 90 : 30;

// Counts what a player tells on the bus.
class BusWatch {
public:
    explicit BusWatch(const std::string& address) {
        EXPECT_EQ(sd_bus_new(&mBus), 0);
        sd_bus_set_address(mBus, address.c_str());
        sd_bus_set_bus_client(mBus, 1);
        EXPECT_GE(sd_bus_start(mBus), 0);
        sd_bus_match_signal(mBus, nullptr, nullptr, "/org/mpris/MediaPlayer2",
                            "org.freedesktop.DBus.Properties", "PropertiesChanged", onChange,
                            &mChanges);
        sd_bus_match_signal(mBus, nullptr, nullptr, "/org/mpris/MediaPlayer2",
                            "org.mpris.MediaPlayer2.Player", "Seeked", onChange, &mSeeks);
    }
    ~BusWatch() { sd_bus_flush_close_unref(mBus); }
    BusWatch(const BusWatch&) = delete;  // the bus knows it by address
    BusWatch& operator=(const BusWatch&) = delete;

    void watch(std::chrono::milliseconds time) {
        const auto end = steady_clock::now() + time;
        while (steady_clock::now() < end) {
            if (sd_bus_process(mBus, nullptr) <= 0) {
                sd_bus_wait(mBus, 20'000);
            }
        }
    }
    sd_bus* bus() { return mBus; }
    int changes() const { return mChanges; }
    int seeks() const { return mSeeks; }

private:
    static int onChange(sd_bus_message*, void* count, sd_bus_error*) {
        ++*static_cast<int*>(count);
        return 0;
    }

    sd_bus* mBus = nullptr;
    int mChanges = 0;
    int mSeeks = 0;
};

class DesktopTest : public testing::Test {
protected:
    void SetUp() override {
        if (mBus.address().empty() || !std::filesystem::exists("/usr/bin/playerctl")) {
            GTEST_SKIP() << "there is no dbus-daemon or no playerctl on this machine";
        }
        mHome = testing::TempDir() + "orv-desktop-" + std::to_string(getpid());
        std::filesystem::create_directories(mHome + "/run");
        mEnvironment = {"XDG_DATA_HOME=" + mHome, "XDG_RUNTIME_DIR=" + mHome + "/run",
                        "DBUS_SESSION_BUS_ADDRESS=" + mBus.address(), "ORV_TRACE=off"};
    }
    void TearDown() override { std::filesystem::remove_all(mHome); }

    std::unique_ptr<Program> start(const std::vector<std::string>& arguments) {
        return std::make_unique<Program>(arguments, -1, mEnvironment);
    }
    // What playerctl prints, without the end of its line.
    std::string control(const std::vector<std::string>& arguments) {
        std::vector<std::string> all{"-p", "orvplay"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        Program playerctl(Program::Other{"/usr/bin/playerctl"}, all, mEnvironment);
        const std::string out = playerctl.finish(PATIENCE_S).out;
        return out.substr(0, out.find('\n'));
    }
    bool awaitStatus(const std::string& status) {
        return await([&] { return control({"status"}) == status; }, seconds(60));
    }
    static double number(const std::string& text) {
        return text.empty() ? NAN : std::strtod(text.c_str(), nullptr);
    }

    PrivateBus mBus;
    std::string mHome;
    std::vector<std::string> mEnvironment;
};

TEST_F(DesktopTest, ARecordingIsPausedSoughtAndStopped) {
    ASSERT_EQ(start({"record", "import", LONG, "--name", "Film"})->finish(PATIENCE_S).exitCode, 0);
    const auto player = start({"record", "play", "1", "--headless", "--json"});
    ASSERT_TRUE(player->waitForOutput("\"onTimeUpdate\"", PATIENCE_S));
    EXPECT_TRUE(awaitStatus("Playing"));
    EXPECT_NE(control({"metadata", "xesam:title"}).find("Film"), std::string::npos)
        << control({"metadata"});
    EXPECT_EQ(control({"metadata", "xesam:url"}).find("file:///"), 0U);
    EXPECT_GT(number(control({"metadata", "mpris:length"})), 5e6);

    control({"volume", "0.25"});
    EXPECT_TRUE(await([&] { return number(control({"volume"})) == 0.25; }));

    control({"play-pause"});
    EXPECT_TRUE(player->waitForOutput("onPaused", PATIENCE_S));
    EXPECT_TRUE(awaitStatus("Paused"));
    control({"pause"});
    control({"position", "4"});
    EXPECT_TRUE(player->waitForOutput("\"position\":4000", PATIENCE_S)) << player->output();
    EXPECT_TRUE(await([&] { return number(control({"position"})) == 4.0; }));
    control({"position", "2+"});
    EXPECT_TRUE(player->waitForOutput("\"position\":6000", PATIENCE_S)) << player->output();
    control({"play"});
    EXPECT_TRUE(player->waitForOutput("onResumed", PATIENCE_S));
    EXPECT_EQ(player->output().find("onPaused"), player->output().rfind("onPaused"))
        << "pause where it is paused already is nothing";

    // Another track's position is not for this one; what is no player of ours is refused.
    BusWatch bus(mBus.address());
    const std::string name =
        "org.mpris.MediaPlayer2.orvplay.instance" + std::to_string(player->pid());
    const auto call = [&](const char* method, const char* types, auto... arguments) {
        sd_bus_error error = SD_BUS_ERROR_NULL;
        const int result = sd_bus_call_method(bus.bus(), name.c_str(), "/org/mpris/MediaPlayer2",
                                              "org.mpris.MediaPlayer2.Player", method, &error,
                                              nullptr, types, arguments...);
        sd_bus_error_free(&error);
        return result;
    };
    EXPECT_GE(call("SetPosition", "ox", "/org/other/track", int64_t{1'000'000}), 0);
    EXPECT_LT(call("OpenUri", "s", "file:///etc/passwd"), 0);
    EXPECT_LT(call("SetPosition", "s", "wrong types"), 0);
    EXPECT_GE(call("Seek", "x", int64_t{-60'000'000}), 0);
    EXPECT_TRUE(player->waitForOutput("\"position\":0", PATIENCE_S));
    EXPECT_EQ(player->output().find("\"position\":1000}"), std::string::npos);
    EXPECT_TRUE(await([&] {
        bus.watch(std::chrono::milliseconds(50));
        return bus.seeks() > 0;
    }));
    control({"stop"});
    const ProgramResult played = player->finish(PATIENCE_S);
    EXPECT_EQ(played.exitCode, 0) << played.err;
    EXPECT_FALSE(played.summary().empty());
}

// Live: no length and no position; nothing is told while nothing changes, and little when much
// does.
TEST_F(DesktopTest, LiveIsQuietOnTheBus) {
    const auto player = start({"play", LONG, "--headless", "--no-audio", "--json"});
    ASSERT_TRUE(player->waitForOutput("onStartVideoTask", PATIENCE_S));
    EXPECT_TRUE(awaitStatus("Playing"));
    EXPECT_TRUE(await([&] { return control({"metadata", "xesam:artist"}) == "ORV HD"; }));
    EXPECT_EQ(control({"metadata", "mpris:length"}), "");
    EXPECT_EQ(control({"metadata", "xesam:url"}), "file://" + LONG);
    BusWatch bus(mBus.address());
    bus.watch(seconds(2));  // what the beginning changed
    const int before = bus.changes();
    bus.watch(seconds(5));
    EXPECT_EQ(bus.changes(), before);

    const std::string name =
        "org.mpris.MediaPlayer2.orvplay.instance" + std::to_string(player->pid());
    const auto begin = steady_clock::now();
    for (int i = 0; i < 40; ++i) {
        sd_bus_call_method_async(bus.bus(), nullptr, name.c_str(), "/org/mpris/MediaPlayer2",
                                 "org.mpris.MediaPlayer2.Player", "PlayPause", nullptr, nullptr,
                                 nullptr);
        bus.watch(std::chrono::milliseconds(50));
    }
    bus.watch(std::chrono::milliseconds(1500));
    const std::chrono::duration<double> took = steady_clock::now() - begin;
    EXPECT_GT(bus.changes(), before);
    EXPECT_LE(bus.changes() - before, took.count() + 1);
    EXPECT_TRUE(awaitStatus("Playing")) << "an even number of times";

    // The bus ends; playback does not.
    const auto shown = [this] {
        const ProgramResult status = start({"status", "--json"})->finish(PATIENCE_S);
        return status.exitCode == 0 ? json::parse(status.out).value("picturesShown", 0) : 0;
    };
    mBus.kill();
    const int pictures = shown();
    EXPECT_TRUE(await([&] { return shown() > pictures + 10; }, seconds(30)));
    player->signal(SIGINT);
    EXPECT_EQ(player->finish(PATIENCE_S).exitCode, 130);
}

TEST_F(DesktopTest, ABusThatSaysNothingHoldsNothingUp) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = mHome + "/silent";
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int silent = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(silent, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(silent, 1), 0);
    for (const std::string& bus :
         {"unix:path=" + path, "unix:path=" + mHome + "/none", std::string("nonsense")}) {
        SCOPED_TRACE(bus);
        mEnvironment[2] = "DBUS_SESSION_BUS_ADDRESS=" + bus;
        const ProgramResult played =
            start({"play", LONG, "--headless", "--no-audio", "--json", "--duration", "1"})
                ->finish(PATIENCE_S);
        EXPECT_EQ(played.exitCode, 0) << played.err;
        EXPECT_EQ(played.errLines(), 0U) << played.err;
        EXPECT_GT(played.summary()["framesRendered"], 20);
    }
    close(silent);
}

}  // namespace
}  // namespace orvtest
