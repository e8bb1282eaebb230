#include "WindowLoader.h"

#include <cstdlib>

#include "ProgramModule.h"

namespace orvplay {

namespace {

bool isSet(const char* variable) {
    const char* value = getenv(variable);
    return value != nullptr && *value != 0;
}

}  // namespace

bool isDisplayAvailable() {
    return isSet("DISPLAY") || isSet("WAYLAND_DISPLAY");
}

std::unique_ptr<Display> createWindow(const std::string& title, std::string* error) {
    const auto create = reinterpret_cast<Display* (*)(const char*)>(
        moduleEntry("orvwindow.so", "orvCreateWindow", error));
    if (create == nullptr) {
        *error = "no window module: " + *error + "; install it again or use --headless";
        return nullptr;
    }
    return std::unique_ptr<Display>(create(title.c_str()));
}

}  // namespace orvplay
