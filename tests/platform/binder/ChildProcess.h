#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

// A program that a test starts, and ends if it does not end itself.
class ChildProcess {
public:
    // `fd`, when not -1, is there at the same number in the child, and closed here.
    explicit ChildProcess(const std::vector<std::string>& arguments, int fd = -1);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return mPid; }
    // Its next line on standard output, without the end; empty when it ended.
    std::string readLine();
    void signal(int number) const;
    // Returns when it has stopped; SIGCONT lets it go on.
    void stop() const;
    // What it exited with; -1 when it was killed, or does not end in time.
    int exitCode();

private:
    pid_t mPid = -1;
    int mOutput = -1;
};
