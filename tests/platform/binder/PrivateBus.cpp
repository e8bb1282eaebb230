#include "platform/binder/PrivateBus.h"

#include <stdlib.h>

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
  %c
</busconfig>
)";

}  // namespace

PrivateBus::PrivateBus(const std::string& configuration) {
    char folder[] = "/tmp/orv_bus_XXXXXX";
    if (mkdtemp(folder) == nullptr) {
        return;
    }
    mFolder = folder;
    std::filesystem::permissions(mFolder, std::filesystem::perms(0755));
    std::string text = CONFIGURATION;
    text.replace(text.find("%s"), 2, mFolder);
    text.replace(text.find("%c"), 2, configuration);
    const std::string file = mFolder + "/bus.conf";
    std::ofstream(file) << text;

    mDaemon = std::make_unique<ChildProcess>(std::vector<std::string>{
        "dbus-daemon", "--config-file=" + file, "--nofork", "--print-address=1"});
    mAddress = mDaemon->readLine();
}

PrivateBus::~PrivateBus() {
    kill();
    std::error_code ignored;
    if (!mFolder.empty()) {
        std::filesystem::remove_all(mFolder, ignored);
    }
}
