#include "programs/PrivateBus.h"

#include <gtest/gtest.h>

#include <csignal>

namespace orvtest {

namespace {

std::vector<uint8_t> configOf(const std::string& configuration) {
    const std::string text =
        "<busconfig><type>session</type><listen>unix:tmpdir=/tmp</listen><auth>EXTERNAL</auth>"
        "<policy context=\"default\"><allow send_destination=\"*\"/><allow receive_sender=\"*\"/>"
        "<allow own=\"*\"/></policy>" +
        configuration + "</busconfig>";
    return {text.begin(), text.end()};
}

}  // namespace

PrivateBus::PrivateBus(const std::string& configuration)
    : mConfig(configOf(configuration)),
      mDaemon(Program::Other{"/usr/bin/dbus-daemon"},
              {"--config-file=" + mConfig.path(), "--nofork", "--nopidfile", "--print-address=1"}) {
    if (mDaemon.waitForOutput("\n", 10)) {
        mAddress = mDaemon.output().substr(0, mDaemon.output().find('\n'));
    } else {
        ADD_FAILURE() << "no bus";
    }
}

void PrivateBus::kill() {
    mDaemon.signal(SIGKILL);
    mDaemon.finish(5);
}

}  // namespace orvtest
