#include "ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

namespace orvclient {

namespace {

constexpr int CHILD_SOCKET = 3;  // the first behind the standard ones
constexpr std::chrono::seconds PATIENCE{2};

std::string reason(int error) {
    return std::strerror(error);
}

// What the child inherits.
class FileActions {
public:
    FileActions(int socket, int errorOutput) {
        posix_spawn_file_actions_init(&mActions);
        const bool hasErrors = fcntl(STDERR_FILENO, F_GETFD) >= 0;
        if (hasErrors && errorOutput >= 0) {
            posix_spawn_file_actions_adddup2(&mActions, errorOutput, STDERR_FILENO);
        }
        // First: the socket may be one of the standard descriptors, where those were closed.
        posix_spawn_file_actions_adddup2(&mActions, socket, CHILD_SOCKET);
        posix_spawn_file_actions_addopen(&mActions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        if (!hasErrors) {
            posix_spawn_file_actions_addopen(&mActions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        }
        posix_spawn_file_actions_adddup2(&mActions, STDERR_FILENO, STDOUT_FILENO);
        posix_spawn_file_actions_addclosefrom_np(&mActions, CHILD_SOCKET + 1);
    }
    ~FileActions() { posix_spawn_file_actions_destroy(&mActions); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;
    const posix_spawn_file_actions_t* get() const { return &mActions; }

private:
    posix_spawn_file_actions_t mActions;
};

// A process group of its own, and signals as if a shell had started it.
class Attributes {
public:
    Attributes() {
        posix_spawnattr_init(&mAttributes);
        sigset_t none;
        sigemptyset(&none);
        sigset_t all;
        sigfillset(&all);
        posix_spawnattr_setsigmask(&mAttributes, &none);
        posix_spawnattr_setsigdefault(&mAttributes, &all);
        posix_spawnattr_setpgroup(&mAttributes, 0);
        posix_spawnattr_setflags(
            &mAttributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    }
    ~Attributes() { posix_spawnattr_destroy(&mAttributes); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;
    const posix_spawnattr_t* get() const { return &mAttributes; }

private:
    posix_spawnattr_t mAttributes;
};

}  // namespace

std::unique_ptr<ChildProcess> ChildProcess::start(const std::vector<std::string>& command,
                                                  int socket, int errorOutput, std::string* error) {
    std::vector<std::string> words = command;
    words.insert(words.end(), {"--peer-fd", std::to_string(CHILD_SOCKET)});
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    pid_t pid = -1;
    const int failure = posix_spawnp(&pid, arguments[0], FileActions(socket, errorOutput).get(),
                                     Attributes().get(), arguments.data(), environ);
    if (failure != 0) {
        *error = words[0] + ": the player service cannot be started: " + reason(failure);
        return nullptr;
    }
    // Not by <sys/pidfd.h>: what Debian 12 has of it does not link from C++.
    const int pidFd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    if (pidFd < 0) {
        *error = words[0] + ": the player service cannot be watched: " + reason(errno);
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        return nullptr;
    }
    return std::unique_ptr<ChildProcess>(new ChildProcess(pid, pidFd));
}

ChildProcess::~ChildProcess() {
    end();
    close(mPidFd);
}

// The descriptor tells the end also where the application has its children reaped by the system.
bool ChildProcess::waitForEnd(std::chrono::milliseconds wait) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + wait;
    for (;;) {
        if (reap()) {
            return true;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        pollfd ended{mPidFd, POLLIN, 0};
        const int ready = poll(&ended, 1, left.count() > 0 ? static_cast<int>(left.count()) : 0);
        if (ready == 0 || (ready < 0 && errno != EINTR)) {
            return reap();
        }
    }
}

bool ChildProcess::reap() {
    std::lock_guard<std::mutex> guard(mLock);
    if (mReaped) {
        return true;
    }
    int status = 0;
    const pid_t got = waitpid(mPid, &status, WNOHANG);
    if (got == 0 || (got < 0 && errno == EINTR)) {
        return false;
    }
    mReaped = true;
    if (got < 0) {
        mEnd = "ended";
    } else if (WIFSIGNALED(status)) {
        mEnd = "was ended by signal " + std::to_string(WTERMSIG(status)) + " (" +
               sigdescr_np(WTERMSIG(status)) + ")";
    } else {
        mEnd = "ended by itself (status " + std::to_string(WEXITSTATUS(status)) + ")";
    }
    return true;
}

void ChildProcess::end() {
    if (waitForEnd(PATIENCE)) {
        return;
    }
    for (const int signal : {SIGTERM, SIGKILL}) {
        // By the descriptor: the number could be another process's by then.
        syscall(SYS_pidfd_send_signal, mPidFd, signal, nullptr, 0);
        if (waitForEnd(PATIENCE)) {
            return;
        }
    }
    // Inside the kernel, on a device that does not answer. Nobody can wait for that.
}

std::string ChildProcess::describeEnd() {
    reap();
    std::lock_guard<std::mutex> guard(mLock);
    return mEnd;
}

}  // namespace orvclient
