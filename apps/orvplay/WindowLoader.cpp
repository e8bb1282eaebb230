#include "WindowLoader.h"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>

namespace orvplay {

namespace {

constexpr char MODULE[] = "../lib/orvwindow.so";

bool isSet(const char* variable) {
    const char* value = getenv(variable);
    return value != nullptr && *value != 0;
}

}  // namespace

bool isDisplayAvailable() {
    return isSet("DISPLAY") || isSet("WAYLAND_DISPLAY");
}

std::unique_ptr<Display> createWindow(const std::string& title, std::string* error) {
    std::error_code failure;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", failure);
    const auto path = (program.parent_path() / MODULE).lexically_normal();
    // Never closed: its code runs until the process ends.
    void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    auto* create =
        module == nullptr
            ? nullptr
            : reinterpret_cast<Display* (*)(const char*)>(dlsym(module, "orvCreateWindow"));
    if (create == nullptr) {
        const char* reason = dlerror();
        *error = std::string("no window module: ") + (reason != nullptr ? reason : path.c_str()) +
                 "; install it again or use --headless";
        return nullptr;
    }
    return std::unique_ptr<Display>(create(title.c_str()));
}

}  // namespace orvplay
