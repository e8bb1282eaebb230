#include <pwd.h>
#include <unistd.h>

#include "Checks.h"
#include "ProgramModule.h"
#include "WindowLoader.h"

namespace orvdoctor {

namespace {

using State = Finding::State;

std::string hostName() {
    char name[256] = "";
    return gethostname(name, sizeof name - 1) == 0 && name[0] != 0 ? name : "HOST";
}

std::string userName() {
    const passwd* const user = getpwuid(geteuid());
    return user != nullptr ? user->pw_name : "USER";
}

}  // namespace

Finding checkDisplay() {
    if (!orvplay::isDisplayAvailable()) {
        return {"display", State::MISSING,
                "neither DISPLAY nor WAYLAND_DISPLAY is set: no window can be opened, only "
                "--headless plays; log in on the desktop, or from one",
                "ssh -X " + hostName()};
    }
    std::string error;
    const auto find = reinterpret_cast<const char* (*)(std::string*)>(
        orvplay::moduleEntry("orvwindow.so", "orvFindDisplay", &error));
    if (find == nullptr) {
        return {"display", State::MISSING, "the window cannot be loaded: " + error,
                "sudo apt-get install --reinstall orvplayer-tools"};
    }
    const char* const driver = find(&error);
    if (driver == nullptr) {
        return {"display", State::MISSING,
                "the display that the environment names does not answer this user (" + error +
                    "); as the desktop's user",
                "xhost +si:localuser:" + userName()};
    }
    return {"display", State::OK, std::string("windows open by ") + driver, ""};
}

}  // namespace orvdoctor
