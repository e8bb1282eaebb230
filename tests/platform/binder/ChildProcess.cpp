#include "platform/binder/ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/Await.h"

ChildProcess::ChildProcess(const std::vector<std::string>& arguments, int fd) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return;
    }
    std::vector<char*> words;
    for (const std::string& argument : arguments) {
        words.push_back(const_cast<char*>(argument.c_str()));
    }
    words.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
    if (fd >= 0) {
        posix_spawn_file_actions_adddup2(&actions, fd, fd);  // which lets it stay open
    }
    if (posix_spawnp(&mPid, words[0], &actions, nullptr, words.data(), environ) != 0) {
        mPid = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    mOutput = ends[0];
    if (fd >= 0) {
        close(fd);
    }
}

ChildProcess::~ChildProcess() {
    if (mPid > 0) {
        kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
    }
    if (mOutput >= 0) {
        close(mOutput);
    }
}

std::string ChildProcess::readLine() {
    std::string line;
    char next = 0;
    while (read(mOutput, &next, 1) == 1 && next != '\n') {
        line += next;
    }
    return line;
}

void ChildProcess::signal(int number) const {
    if (mPid > 0) {
        kill(mPid, number);
    }
}

void ChildProcess::stop() const {
    signal(SIGSTOP);
    int status = 0;
    waitpid(mPid, &status, WUNTRACED);
}

int ChildProcess::exitCode() {
    int status = 0;
    if (mPid <= 0 || !orvtest::await([&] { return waitpid(mPid, &status, WNOHANG) == mPid; })) {
        return -1;
    }
    mPid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
