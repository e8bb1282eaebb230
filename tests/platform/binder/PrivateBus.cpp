#include "platform/binder/PrivateBus.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace {

constexpr char CONFIGURATION[] = R"(<busconfig>
  <type>session</type>
  <listen>unix:dir=%s</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
    <allow own="*"/>
    <deny own="org.orvplayer.Forbidden"/>
  </policy>
</busconfig>
)";

}  // namespace

PrivateBus::PrivateBus() {
    char folder[] = "/tmp/orv_bus_XXXXXX";
    if (mkdtemp(folder) == nullptr) {
        return;
    }
    mFolder = folder;
    std::filesystem::permissions(mFolder, std::filesystem::perms(0755));
    std::string text = CONFIGURATION;
    text.replace(text.find("%s"), 2, mFolder);
    const std::string file = mFolder + "/bus.conf";
    std::ofstream(file) << text;

    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return;
    }
    const std::string option = "--config-file=" + file;
    const char* const arguments[] = {"dbus-daemon", option.c_str(), "--nofork", "--print-address=1",
                                     nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
    const int result = posix_spawnp(&mPid, arguments[0], &actions, nullptr,
                                    const_cast<char* const*>(arguments), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (result != 0) {
        mPid = -1;
    }
    char line[256];
    const ssize_t length = result == 0 ? read(ends[0], line, sizeof line) : 0;
    close(ends[0]);
    if (length > 0) {
        mAddress.assign(line, static_cast<size_t>(length));
        mAddress.erase(mAddress.find_last_not_of('\n') + 1);
    }
}

PrivateBus::~PrivateBus() {
    kill();
    std::error_code ignored;
    if (!mFolder.empty()) {
        std::filesystem::remove_all(mFolder, ignored);
    }
}

void PrivateBus::kill() {
    if (mPid > 0) {
        ::kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
        mPid = -1;
    }
}
