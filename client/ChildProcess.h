#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace orvclient {

// The service process of an application that has one of its own.
//
// It gets the application's standard error (as its standard output too), nothing to read, the
// socket, and no other descriptor. It is a process group of its own: Ctrl-C reaches the
// application, which then ends the service. The application's other children are never waited for.
// Any thread.
class ChildProcess {
public:
    // Runs `command` (a program with arguments; without a '/', looked for in PATH) with
    // "--peer-fd N" behind it, N being the descriptor of `socket` in the child. The socket stays
    // the caller's. `errorOutput` becomes its standard error, unless that is -1 or this process has
    // none. Null, and one line in *error, when that cannot be.
    static std::unique_ptr<ChildProcess> start(const std::vector<std::string>& command, int socket,
                                               int errorOutput, std::string* error);
    ~ChildProcess();                             // end()
    ChildProcess(const ChildProcess&) = delete;  // owns a process
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return mPid; }

    // Waits so long for its end; true when it has ended.
    bool waitForEnd(std::chrono::milliseconds wait);

    // Lets it end, which it does when its connection is closed; after two seconds asks for it,
    // after two more insists. It is gone when this returns.
    void end();

    // How it ended: "ended by itself (status 0)"; "runs" while it does.
    std::string describeEnd();

private:
    ChildProcess(pid_t pid, int pidFd) : mPid(pid), mPidFd(pidFd) {}
    bool reap();

    const pid_t mPid;
    const int mPidFd;  // readable from its end on
    std::mutex mLock;
    bool mReaped = false;
    std::string mEnd = "runs";
};

}  // namespace orvclient
