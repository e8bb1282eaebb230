#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "Checks.h"
#include "DoctorReport.h"
#include "platform/audio/SoundServer.h"
#include "platform/binder/PrivateBus.h"
#include "programs/Program.h"
#include "programs/VirtualScreen.h"

namespace {

using namespace orvtest;
using orvdoctor::Finding;
using State = orvdoctor::Finding::State;
namespace fs = std::filesystem;

// A file system to look at, and a place for what the program writes.
class DoctorTest : public testing::Test {
protected:
    DoctorTest() { EXPECT_NE(mkdtemp(mRoot.data()), nullptr); }
    ~DoctorTest() override { fs::remove_all(mRoot); }

    void put(const std::string& path, fs::perms permissions) const {
        fs::create_directories(fs::path(mRoot + path).parent_path());
        std::ofstream(mRoot + path) << "node";
        fs::permissions(mRoot + path, permissions);
    }

    // What `orvplay doctor --json` says in that environment, by check; the summary under "".
    std::map<std::string, nlohmann::json> ask(std::vector<std::string> environment, int exitCode) {
        environment.insert(environment.end(),
                           {"HOME=" + mRoot, "XDG_RUNTIME_DIR=" + mRoot, "XDG_DATA_HOME=",
                            "XDG_CONFIG_HOME=", "ORV_AUDIO=auto", "XDG_STATE_HOME="});
        Program doctor({"doctor", "--json"}, -1, environment);
        const ProgramResult result = doctor.finish(60);
        EXPECT_EQ(result.exitCode, exitCode) << result.out << result.err;
        std::map<std::string, nlohmann::json> findings;
        for (const auto& line : result.events()) {
            findings[line.value("check", "")] = line;
        }
        return findings;
    }

    std::string mRoot = "/tmp/orvtest-doctor-XXXXXX";
    const bool mHasTuner = fs::exists("/dev/dvb");
};

const std::vector<std::string> NOTHING = {
    "DISPLAY=", "WAYLAND_DISPLAY=", "PULSE_SERVER=unix:/nonexistent",
    "DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent"};

TEST_F(DoctorTest, AMachineWithoutDisplaySoundAndTunerLacksThoseThree) {
    auto findings = ask(NOTHING, 1);
    std::vector<std::string> expected = {"display", "sound"};
    if (!mHasTuner) {
        expected.insert(expected.begin(), "tuner");
    }
    EXPECT_EQ(findings[""]["missing"], nlohmann::json(expected));
    EXPECT_EQ(findings["bus"]["state"], "note");
    for (const char* good : {"fonts", "codecs", "service", "folders", "memory"}) {
        EXPECT_EQ(findings[good]["state"], "ok") << findings[good];
    }
    for (const std::string& check : expected) {
        EXPECT_NE(findings[check]["fix"], "") << check;
    }
}

TEST_F(DoctorTest, WhatIsThereIsFound) {
    if (!SoundServer::isInstalled()) {
        GTEST_SKIP() << "no PulseAudio";
    }
    SoundServer sound;
    ASSERT_TRUE(sound.start());
    fs::create_directory(mRoot + "/services");
    std::ofstream(mRoot + "/services/one.service")
        << "[D-BUS Service]\nName=org.orvplayer.OrvPlayer\nExec=/bin/false\n";
    const PrivateBus bus("<servicedir>" + mRoot + "/services</servicedir>");
    orvplay::VirtualScreen screen;
    ASSERT_TRUE(screen.start(640, 480));
    auto findings =
        ask({"DBUS_SESSION_BUS_ADDRESS=" + bus.address(), "WAYLAND_DISPLAY="}, mHasTuner ? 0 : 1);
    for (const char* good : {"display", "sound", "bus"}) {
        EXPECT_EQ(findings[good]["state"], "ok") << findings[good];
    }
    EXPECT_EQ(findings[""]["missing"].size(), mHasTuner ? 0U : 1U);

    // One that is named and does not answer.
    findings = ask({"DISPLAY=:4711", "WAYLAND_DISPLAY="}, 1);
    EXPECT_EQ(findings["display"]["state"], "missing");
}

TEST_F(DoctorTest, TunersAreThoseThatThisUserMayOpen) {
    EXPECT_EQ(orvdoctor::checkTuner(mRoot).state, State::MISSING);
    put("/dev/dvb/adapter0/frontend0", fs::perms::all);
    put("/dev/dvb/adapter0/demux0", fs::perms::none);
    put("/dev/dvb/adapter1/frontend0", fs::perms::all);
    const Finding both = orvdoctor::checkTuner(mRoot);
    EXPECT_EQ(both.state, State::OK);
    EXPECT_EQ(both.text, "/dev/dvb/adapter0/frontend0, /dev/dvb/adapter1/frontend0");

    fs::permissions(mRoot, fs::perms::all);
    fs::permissions(mRoot + "/dev/dvb/adapter1/frontend0", fs::perms::none);
    const uid_t before = geteuid();
    const bool stepsDown = before == 0 && seteuid(65534) == 0;  // nothing is forbidden to root
    const Finding one = orvdoctor::checkTuner(mRoot);
    ASSERT_TRUE(!stepsDown || seteuid(before) == 0);
    EXPECT_EQ(one.state, State::WARNING);
    EXPECT_NE(one.text.find("adapter1/frontend0"), std::string::npos);
    EXPECT_EQ(one.text.find("adapter0"), std::string::npos);
    EXPECT_EQ(one.fix.find("sudo usermod -aG video "), 0U) << one.fix;
}

// The command that mends it depends on what is installed.
TEST_F(DoctorTest, ASoundServerThatIsInstalledIsStarted) {
    setenv("PULSE_SERVER", "unix:/nonexistent", 1);
    setenv("ORV_AUDIO", "auto", 1);
    EXPECT_EQ(orvdoctor::checkSound(mRoot).fix.find("sudo apt-get install pipewire-audio && "), 0U);
    put("/usr/bin/pulseaudio", fs::perms::all);
    EXPECT_EQ(orvdoctor::checkSound(mRoot).fix, "pulseaudio --start");
    put("/usr/bin/pipewire-pulse", fs::perms::all);
    EXPECT_EQ(orvdoctor::checkSound(mRoot).fix.find("systemctl --user enable --now pipewire"), 0U);
    setenv("ORV_AUDIO", "silent", 1);
    EXPECT_EQ(orvdoctor::checkSound(mRoot).state, State::NOTE);
    unsetenv("PULSE_SERVER");
}

TEST_F(DoctorTest, AFolderThatCannotBeWrittenIsNamed) {
    put("/file", fs::perms::all);  // where a folder would have to be
    setenv("XDG_DATA_HOME", (mRoot + "/file/data").c_str(), 1);
    const Finding folders = orvdoctor::checkFolders();
    unsetenv("XDG_DATA_HOME");
    EXPECT_EQ(folders.state, State::MISSING);
    EXPECT_NE(folders.text.find(mRoot + "/file/data/orvplayer"), std::string::npos);
}

TEST_F(DoctorTest, TellsOneLineEach) {
    const Finding finding = {"tuner", State::MISSING, "none", "plug one in"};
    EXPECT_EQ(orvdoctor::toText(finding), "missing  tuner    none; to mend it: plug one in\n");
    EXPECT_EQ(orvdoctor::toText({"bus", State::OK, "there", ""}), "ok       bus      there\n");
    EXPECT_FALSE(orvdoctor::isComplete({finding}));
    EXPECT_TRUE(
        orvdoctor::isComplete({{"bus", State::NOTE, "", ""}, {"x", State::WARNING, "", ""}}));
}

}  // namespace
