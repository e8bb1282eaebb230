#include "TmuxScreen.h"

#include <stdlib.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>

namespace orvtest {

namespace {

constexpr double SHELL_S = 20;
constexpr auto PAUSE = std::chrono::milliseconds(20);  // between two looks

std::string quoted(const std::string& text) {
    std::string all = "'";
    for (const char c : text) {
        all += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return all + "'";
}

std::string size(int columns, int rows) {
    return " -x " + std::to_string(columns) + " -y " + std::to_string(rows);
}

}  // namespace

TmuxScreen::TmuxScreen(int columns, int rows) {
    if (mkdtemp(mFolder.data()) == nullptr) {
        return;
    }
    run("new-session -d" + size(columns, rows) +
        " env -u DISPLAY -u WAYLAND_DISPLAY -u NO_COLOR PS1='ready> ' LC_ALL=C.UTF-8"
        " bash --norc --noprofile -i");
    mIsReady = waitFor("ready>", SHELL_S);
}

TmuxScreen::~TmuxScreen() {
    run("kill-server");
    std::error_code ignored;
    std::filesystem::remove_all(mFolder, ignored);
}

std::string TmuxScreen::run(const std::string& command) const {
    std::string out;
    const std::string line =
        "LC_ALL=C.UTF-8 tmux -u -f /dev/null -S " + mFolder + "/tmux " + command + " 2>/dev/null";
    FILE* const pipe = popen(line.c_str(), "r");
    if (pipe == nullptr) {
        return out;
    }
    char part[4096];
    for (size_t got = 0; (got = fread(part, 1, sizeof part, pipe)) > 0;) {
        out.append(part, got);
    }
    pclose(pipe);
    return out;
}

void TmuxScreen::type(const std::string& text) const {
    run("send-keys -l " + quoted(text));
}

void TmuxScreen::press(const std::string& key) const {
    run("send-keys " + key);
}

void TmuxScreen::resize(int columns, int rows) const {
    run("resize-window" + size(columns, rows));
}

std::string TmuxScreen::text() const {
    return run("capture-pane -p");
}

bool TmuxScreen::waitFor(const std::string& text, double seconds, bool isThere) const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while ((this->text().find(text) != std::string::npos) != isThere) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(PAUSE);
    }
    return true;
}

}  // namespace orvtest
