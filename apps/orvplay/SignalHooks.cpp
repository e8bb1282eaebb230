#include "SignalHooks.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>
#include <vector>

#include "MonotonicTime.h"

namespace orvplay {

namespace {

constexpr int64_t LONG_NS = 10'000'000'000;
// What ends at SIGTERM at all does so at once.
constexpr int END_LOOKS = 50;
constexpr useconds_t END_LOOK_US = 10'000;

// The environment of this process, with ours in the place of any of the same names.
std::vector<std::string> environmentWith(const std::vector<std::string>& ours) {
    std::vector<std::string> all = ours;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const std::string name = text.substr(0, text.find('=') + 1);
        const bool isOurs = std::any_of(ours.begin(), ours.end(), [&](const std::string& one) {
            return one.starts_with(name);
        });
        if (!isOurs) {
            all.push_back(text);
        }
    }
    return all;
}

// Its process number; 0, and errno is set, when it cannot be started.
pid_t spawnShell(const std::string& command, std::vector<std::string> environment) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t signals;
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(
        &attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
    std::string shell = "sh";
    std::string option = "-c";
    std::string text = command;
    char* const arguments[] = {shell.data(), option.data(), text.data(), nullptr};
    std::vector<char*> entries;
    for (std::string& entry : environment) {
        entries.push_back(entry.data());
    }
    entries.push_back(nullptr);
    pid_t process = 0;
    errno = posix_spawn(&process, "/bin/sh", &actions, &attributes, arguments, entries.data());
    const bool isRunning = errno == 0;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return isRunning ? process : 0;
}

}  // namespace

SignalHooks::SignalHooks(Commands commands, Messages& messages) : mMessages(messages) {
    mLost.command = std::move(commands.onLost);
    mBack.command = std::move(commands.onBack);
}

SignalHooks::~SignalHooks() {
    end();
}

void SignalHooks::subscribe(orvclient::Callbacks* callbacks) {
    callbacks->onSignal = [this, others = std::move(callbacks->onSignal)](unsigned int previous,
                                                                          unsigned int current) {
        if (others) {
            others(previous, current);
        }
        onSignal(current);
    };
}

// That it is lost is told again and again.
void SignalHooks::onSignal(unsigned int current) {
    const auto signal = static_cast<orvclient::Signal>(current);
    if (signal == orvclient::Signal::LOST && !mIsLost.exchange(true)) {
        ++mLost.due;
    } else if (signal == orvclient::Signal::GOOD && mIsLost.exchange(false)) {
        ++mBack.due;
    }
}

void SignalHooks::look(const About& about) {
    if (const std::string plays = about.source + " " + about.service; plays != mPlayed) {
        if (!mPlayed.empty()) {
            onBegin();
        }
        mPlayed = plays;
    }
    for (Hook* const hook : {&mLost, &mBack}) {
        watch(*hook);
        if (hook->due.exchange(0) != 0 && !hook->command.empty()) {
            run(*hook, about);
        }
    }
}

void SignalHooks::run(Hook& hook, const About& about) {
    if (hook.process != 0) {
        if (!std::exchange(hook.isSkipTold, true)) {
            mMessages.say(std::string("the command for ") + hook.event +
                          " still runs and is not run again meanwhile");
        }
        return;
    }
    hook.process = spawnShell(
        hook.command,
        environmentWith({std::string("ORV_EVENT=") + hook.event, "ORV_CHANNEL=" + about.channel,
                         "ORV_SERVICE=" + about.service, "ORV_SOURCE=" + about.source,
                         "ORV_PLAYER_PID=" + std::to_string(getpid())}));
    hook.beginNs = monotonicNs();
    hook.isLongTold = false;
    if (hook.process == 0) {
        mMessages.say(std::string("the command for ") + hook.event +
                      " cannot be run: " + strerror(errno));
    }
}

void SignalHooks::watch(Hook& hook) {
    int status = 0;
    if (hook.process == 0) {
        return;
    }
    if (waitpid(hook.process, &status, WNOHANG) == 0) {
        if (monotonicNs() - hook.beginNs > LONG_NS && !std::exchange(hook.isLongTold, true)) {
            mMessages.say(std::string("the command for ") + hook.event +
                          " has run for 10 s; it is left to run");
        }
        return;
    }
    hook.process = 0;
    if (WIFEXITED(status) && WEXITSTATUS(status) != 0) {
        mMessages.say(std::string("the command for ") + hook.event + " ended with code " +
                      std::to_string(WEXITSTATUS(status)));
    }
}

void SignalHooks::end() {
    for (Hook* const hook : {&mLost, &mBack}) {
        if (hook->process == 0) {
            continue;
        }
        kill(-hook->process, SIGTERM);
        int left = END_LOOKS;
        while (waitpid(hook->process, nullptr, WNOHANG) == 0 && --left > 0) {
            usleep(END_LOOK_US);
        }
        kill(-hook->process, SIGKILL);  // whoever of its group is left
        if (left == 0) {
            waitpid(hook->process, nullptr, 0);
        }
    }
}

}  // namespace orvplay
