#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "Checks.h"

namespace orvdoctor {

namespace {

namespace fs = std::filesystem;
using State = Finding::State;

constexpr char GROUP[] = "video";

std::vector<std::string> nodesBelow(const std::string& root) {
    std::vector<std::string> nodes;
    std::error_code error;
    for (fs::directory_iterator adapter(root + "/dev/dvb", error), end; !error && adapter != end;
         adapter.increment(error)) {
        if (adapter->path().filename().string().compare(0, 7, "adapter") != 0) {
            continue;
        }
        std::error_code inner;
        for (fs::directory_iterator node(adapter->path(), inner); !inner && node != end;
             node.increment(inner)) {
            if (node->path().filename().string().compare(0, 8, "frontend") == 0) {
                nodes.push_back(node->path().string().substr(root.size()));
            }
        }
    }
    std::sort(nodes.begin(), nodes.end());
    return nodes;
}

std::string userName() {
    const passwd* const user = getpwuid(geteuid());
    return user != nullptr ? user->pw_name : std::to_string(geteuid());
}

// In the system's files; those of a login count from its beginning only.
bool isMember(const std::string& user) {
    const group* const video = getgrnam(GROUP);
    for (char** member = video != nullptr ? video->gr_mem : nullptr;
         member != nullptr && *member != nullptr; ++member) {
        if (user == *member) {
            return true;
        }
    }
    return false;
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : ", ") + name;
    }
    return text;
}

}  // namespace

Finding checkTuner(const std::string& root) {
    const std::vector<std::string> nodes = nodesBelow(root);
    if (nodes.empty()) {
        return {"tuner", State::MISSING,
                "no DVB adapter in /dev/dvb: files and networks play, broadcasts on air do not; "
                "plug a tuner in, and see what the kernel makes of it",
                "sudo dmesg | grep -i -e dvb -e firmware"};
    }
    std::vector<std::string> usable;
    std::vector<std::string> refused;
    for (const std::string& node : nodes) {
        const bool may = euidaccess((root + node).c_str(), R_OK | W_OK) == 0;
        (may ? usable : refused).push_back(node);
    }
    if (refused.empty()) {
        return {"tuner", State::OK, joined(usable), ""};
    }
    const std::string user = userName();
    const bool again = isMember(user);
    return {"tuner", usable.empty() ? State::MISSING : State::WARNING,
            "this user may not open " + joined(refused) +
                (again ? "; group video counts from the next login on" : ""),
            again ? "loginctl terminate-user " + user : "sudo usermod -aG video " + user};
}

}  // namespace orvdoctor
