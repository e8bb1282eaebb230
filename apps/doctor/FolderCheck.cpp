#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "Checks.h"

namespace orvdoctor {

namespace {

namespace fs = std::filesystem;
using State = Finding::State;

// Under XDG's rules: the variable, or the place below the user's home.
std::string folderOf(const char* variable, const char* belowHome) {
    const char* const chosen = getenv(variable);
    const char* const home = getenv("HOME");
    const std::string base = chosen != nullptr && *chosen == '/' ? chosen
                             : home != nullptr && *home == '/'   ? std::string(home) + belowHome
                                                                 : "";
    return base.empty() ? "" : base + "/orvplayer";
}

// A folder that is not there yet is as good as the first one above it that is.
bool isWritable(const fs::path& folder) {
    std::error_code error;
    fs::path place = folder;
    while (!fs::exists(place, error) && place.has_relative_path()) {
        place = place.parent_path();
    }
    return fs::is_directory(place, error) && access(place.c_str(), W_OK | X_OK) == 0;
}

}  // namespace

Finding checkFolders() {
    const char* const runtime = getenv("XDG_RUNTIME_DIR");
    const bool hasRuntime = runtime != nullptr && *runtime == '/';
    const struct {
        std::string path;
        const char* what;
    } folders[] = {{folderOf("XDG_DATA_HOME", "/.local/share"), "recordings"},
                   {folderOf("XDG_CONFIG_HOME", "/.config"), "channels"},
                   {folderOf("XDG_STATE_HOME", "/.local/state"), "the last channel and volume"},
                   {hasRuntime ? runtime : "/tmp", "sockets of running players"}};
    for (const auto& folder : folders) {
        if (folder.path.empty()) {
            return {"folders", State::MISSING,
                    std::string("no place for ") + folder.what + ": HOME is not set",
                    "export HOME=\"$(getent passwd $(id -u) | cut -d: -f6)\""};
        }
        if (!isWritable(folder.path)) {
            return {"folders", State::MISSING,
                    folder.path + " cannot be written: no place for " + folder.what,
                    "sudo install -d -o " + std::to_string(geteuid()) + " " + folder.path};
        }
    }
    return {"folders", State::OK,
            "recordings in " + folders[0].path + ", channels in " + folders[1].path, ""};
}

}  // namespace orvdoctor
