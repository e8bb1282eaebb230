#include "programs/Program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

extern char** environ;

namespace orvtest {

namespace {

double nowSeconds() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double>(now).count();
}

void closeFd(int* fd) {
    if (*fd >= 0) {
        close(*fd);
        *fd = -1;
    }
}

std::vector<char*> pointersTo(std::vector<std::string>& strings) {
    std::vector<char*> pointers;
    for (std::string& string : strings) {
        pointers.push_back(string.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

size_t ProgramResult::errLines() const {
    return static_cast<size_t>(std::count(err.begin(), err.end(), '\n'));
}

std::vector<nlohmann::json> ProgramResult::events() const {
    std::vector<nlohmann::json> events;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
        events.push_back(nlohmann::json::parse(line, nullptr, false));
        EXPECT_TRUE(events.back().is_object()) << "no JSON: " << line;
    }
    return events;
}

nlohmann::json ProgramResult::summary() const {
    const std::vector<nlohmann::json> all = events();
    const bool there = !all.empty() && all.back().is_object() && all.back()["event"] == "summary";
    return there ? all.back() : nlohmann::json::object();
}

Program::Program(const std::vector<std::string>& arguments, int stdinFd,
                 const std::vector<std::string>& environment)
    : mBegin(nowSeconds()) {
    start({ORV_PLAY}, arguments, stdinFd, environment);
}

Program::Program(const Other& program, const std::vector<std::string>& arguments,
                 const std::vector<std::string>& environment)
    : mBegin(nowSeconds()) {
    start(program, arguments, -1, environment);
}

void Program::start(const Other& program, const std::vector<std::string>& arguments, int stdinFd,
                    const std::vector<std::string>& environment) {
    int out[2] = {-1, -1};
    int err[2] = {-1, -1};
    if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) {
        ADD_FAILURE() << "no pipes";
        return;
    }
    std::vector<std::string> argv = {program.path};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    std::vector<std::string> envp = environment;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        envp.emplace_back(*variable);
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (stdinFd >= 0) {
        posix_spawn_file_actions_adddup2(&actions, stdinFd, STDIN_FILENO);
    } else {
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    }
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    if (program.handedFd >= 0) {
        // Onto itself: the new process keeps it, others that start meanwhile do not.
        posix_spawn_file_actions_adddup2(&actions, program.handedFd, program.handedFd);
    }
    if (posix_spawn(&mPid, program.path.c_str(), &actions, nullptr, pointersTo(argv).data(),
                    pointersTo(envp).data()) != 0) {
        ADD_FAILURE() << "cannot run " << program.path;
        mPid = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    close(err[1]);
    mOutFd = out[0];
    mErrFd = err[0];
}

Program::~Program() {
    if (mPid > 0) {
        reap(true);
    }
    closeFd(&mOutFd);
    closeFd(&mErrFd);
}

// One round of reading. False when nothing came in time or both ends are closed.
bool Program::readMore(double seconds) {
    pollfd fds[] = {{mOutFd, POLLIN, 0}, {mErrFd, POLLIN, 0}};
    if ((mOutFd < 0 && mErrFd < 0) || seconds <= 0 ||
        poll(fds, 2, static_cast<int>(seconds * 1000) + 1) <= 0) {
        return false;
    }
    const auto take = [](const pollfd& ready, int* fd, std::string* text) {
        char bytes[4096];
        if (ready.fd >= 0 && ready.revents != 0) {
            const ssize_t got = read(ready.fd, bytes, sizeof bytes);
            if (got > 0) {
                text->append(bytes, static_cast<size_t>(got));
            } else if (got == 0 || errno != EINTR) {
                closeFd(fd);
            }
        }
    };
    take(fds[0], &mOutFd, &mResult.out);
    take(fds[1], &mErrFd, &mResult.err);
    return true;
}

bool Program::waitForOutput(const std::string& text, double seconds) {
    size_t from = 0;
    return waitFor(text, mResult.out, &from, seconds);
}

bool Program::waitForError(const std::string& text, double seconds) {
    return waitFor(text, mResult.err, &mErrorSeen, seconds);
}

bool Program::waitFor(const std::string& text, const std::string& where, size_t* from,
                      double seconds) {
    const double deadline = nowSeconds() + seconds;
    size_t found = 0;
    while ((found = where.find(text, *from)) == std::string::npos) {
        if (!readMore(deadline - nowSeconds())) {
            return false;
        }
    }
    *from = found + text.size();
    return true;
}

void Program::signal(int number) {
    if (mPid > 0) {
        kill(mPid, number);
    }
}

pid_t Program::awaitService(double seconds) {
    return awaitServiceOf(mPid, seconds);
}

pid_t awaitServiceOf(pid_t program, double seconds) {
    const double deadline = nowSeconds() + seconds;
    while (program > 0 && nowSeconds() < deadline) {
        std::error_code ended;
        const std::string tasks = "/proc/" + std::to_string(program) + "/task";
        for (const auto& task : std::filesystem::directory_iterator(tasks, ended)) {
            std::ifstream children(task.path() / "children");
            for (pid_t child = 0; children >> child;) {
                std::ifstream comm("/proc/" + std::to_string(child) + "/comm");
                std::string name;
                if (std::getline(comm, name) && name == "orvplayerd") {
                    return child;
                }
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return -1;
}

void Program::closeOutput() {
    closeFd(&mOutFd);
}

ProgramResult Program::finish(double seconds) {
    const double deadline = nowSeconds() + seconds;
    while (readMore(deadline - nowSeconds())) {
    }
    // Both pipes are closed only when the program is over, or as good as.
    mResult.timedOut = mErrFd >= 0;
    mResult.seconds = nowSeconds() - mBegin;
    if (mPid > 0) {
        reap(mResult.timedOut);
    }
    return mResult;
}

void Program::reap(bool killFirst) {
    if (killFirst) {
        kill(mPid, SIGKILL);
    }
    int status = 0;
    while (waitpid(mPid, &status, 0) < 0 && errno == EINTR) {
    }
    mPid = -1;
    mResult.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

ProgramResult runProgram(const std::vector<std::string>& arguments, double seconds) {
    return Program(arguments).finish(seconds);
}

}  // namespace orvtest
