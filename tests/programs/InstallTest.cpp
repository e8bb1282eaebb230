#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>

#include "platform/binder/PrivateBus.h"
#include "programs/Program.h"
#include "programs/ServiceClient.h"

namespace {

using namespace orvtest;
namespace fs = std::filesystem;

// What `cmake --install` makes of programs and service, in a folder of its own.
class InstallTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        char folder[] = "/tmp/orvinstall-XXXXXX";
        ASSERT_NE(mkdtemp(folder), nullptr);
        sStage = folder;
        for (const char* component : {"player", "tools"}) {
            Program install({ORV_CMAKE}, {"--install", ORV_BUILD, "--component", component},
                            {"DESTDIR=" + sStage.string()});
            const ProgramResult result = install.finish(120);
            ASSERT_EQ(result.exitCode, 0) << result.err;
        }
    }
    static void TearDownTestSuite() { fs::remove_all(sStage); }

    static fs::path staged(const std::string& path) { return sStage.string() + ORV_PREFIX + path; }

    static std::string textOf(const fs::path& path) {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    static fs::path sStage;
};
fs::path InstallTest::sStage;

TEST_F(InstallTest, ProgramsFindTheirLibraries) {
    for (const char* name : {"/bin/orvplay", "/bin/orvplayerd"}) {
        const ProgramResult result = Program({staged(name).string()}, {"--version"}).finish(20);
        EXPECT_EQ(result.exitCode, 0) << result.err;
    }
}

TEST_F(InstallTest, TheUnitsNameTheProgramAndAreTight) {
    const fs::path system = staged("/lib/systemd/system/orvplayerd.service");
    const fs::path user = staged("/lib/systemd/user/orvplayerd.service");
    EXPECT_NE(textOf(system).find("ExecStart=" ORV_PREFIX "/bin/orvplayerd --system"),
              std::string::npos);
    EXPECT_NE(textOf(user).find("ExecStart=" ORV_PREFIX "/bin/orvplayerd --session"),
              std::string::npos);
    const std::string analyze = "/usr/bin/systemd-analyze";
    if (!fs::exists(analyze)) {
        GTEST_SKIP() << "no systemd-analyze";
    }
    const ProgramResult result = Program({analyze}, {"security", "--offline=true", "--no-pager",
                                                     "--threshold=20", system.string()})
                                     .finish(60);
    EXPECT_EQ(result.exitCode, 0) << result.out << result.err;
}

TEST_F(InstallTest, TheDesktopOpensFilesWithIt) {
    const fs::path entry = staged("/share/applications/orvplay.desktop");
    const std::string text = textOf(entry);
    EXPECT_NE(text.find("\nExec=orvplay play %f\n"), std::string::npos) << text;
    EXPECT_NE(text.find("\nIcon=orvplay\n"), std::string::npos);
    EXPECT_TRUE(fs::exists(staged("/share/icons/hicolor/scalable/apps/orvplay.svg")));
    const std::string validate = "/usr/bin/desktop-file-validate";
    if (!fs::exists(validate)) {
        GTEST_SKIP() << "no desktop-file-validate";
    }
    const ProgramResult result = Program({validate}, {entry.string()}).finish(20);
    EXPECT_EQ(result.exitCode, 0) << result.out << result.err;
}

// Each of the names starts the service; the policy of the system's bus is read, too.
TEST_F(InstallTest, ABusStartsTheServiceByItsNames) {
    const fs::path folder = sStage / "activation";
    fs::create_directory(folder);
    const std::string program = std::string("Exec=") + ORV_PREFIX;
    for (const auto& entry : fs::directory_iterator(staged("/share/dbus-1/services"))) {
        std::string text = textOf(entry.path());
        ASSERT_NE(text.find(program), std::string::npos) << text;
        text.replace(text.find(program), program.size(), "Exec=" + staged("").string());
        std::ofstream(folder / entry.path().filename()) << text;
    }
    for (const char* name : {"OrvPlayer", "OrvTuner", "OrvMonitor", "OrvRecordings"}) {
        PrivateBus bus("<servicedir>" + folder.string() + "</servicedir><include>" +
                       staged("/share/dbus-1/system.d/org.orvplayer.conf").string() + "</include>");
        EXPECT_TRUE(fs::exists(staged("/share/dbus-1/system-services/org.orvplayer." +
                                      std::string(name) + ".service")));
        const auto connection = ServiceClient::onBus(bus.address());
        std::string error;
        EXPECT_NE(connection->getService(android::String16(name), &error), nullptr) << error;
        ServiceClient client(connection);
        EXPECT_TRUE(client.isComplete());
    }
}

}  // namespace
