#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "Checks.h"
#include "PlayerSession.h"

namespace orvdoctor {

namespace {

using State = Finding::State;

constexpr char INSTALL[] = "sudo apt-get install --reinstall orvplayer orvplayer-tools";
constexpr char DAEMON[] = "orvplayerd";

// Where the client library looks first: beside this program.
std::string programBeside() {
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    const auto beside = self.parent_path() / DAEMON;
    return !error && access(beside.c_str(), X_OK) == 0 ? beside.string() : "";
}

// What follows the name in `orvplayerd --version`.
std::string versionOf(const std::string& program) {
    std::string quoted = "'";
    for (const char c : program) {
        quoted += c == '\'' ? "'\\''" : std::string(1, c);
    }
    FILE* const pipe = popen((quoted + "' --version 2>&1").c_str(), "re");
    char line[256] = "";
    if (pipe == nullptr || fgets(line, sizeof line, pipe) == nullptr) {
        line[0] = 0;
    }
    if (pipe == nullptr || pclose(pipe) != 0) {
        return "";
    }
    const std::string text(line);
    const size_t begin = text.find(' ');
    return begin == std::string::npos ? "" : text.substr(begin + 1, text.find('\n') - begin - 1);
}

}  // namespace

Finding checkService() {
    const std::string found = programBeside();
    const std::string program = found.empty() ? DAEMON : found;
    const std::string version = versionOf(program);
    if (version.empty()) {
        return {"service", State::MISSING,
                found.empty() ? "no orvplayerd beside orvplay or in PATH: nothing can be played"
                              : found + " does not start: nothing can be played",
                INSTALL};
    }
    if (version != ORV_VERSION) {
        return {"service", State::WARNING,
                program + " is of version " + version + ", orvplay of " + ORV_VERSION, INSTALL};
    }
    orvplay::ServiceOptions options;
    options.silent = true;
    std::string error;
    orvplay::PlayerSession session(options, {});
    if (!session.connectAside(&error)) {
        return {"service", State::MISSING, program + ": " + error, program + " --check-config"};
    }
    return {"service", State::OK, program + " " + version + " starts and answers", ""};
}

}  // namespace orvdoctor
