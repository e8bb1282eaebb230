#pragma once

#include <sys/types.h>

namespace android {

// Who calls: of the call that this thread executes; outside of one, this process itself.
class IPCThreadState {
public:
    static IPCThreadState* self();

    pid_t getCallingPid() const { return mCallingPid; }
    uid_t getCallingUid() const { return mCallingUid; }

    // Sets the caller for as long as it lives: the transports do so around each call, tests may.
    class CallerScope {
    public:
        CallerScope(pid_t pid, uid_t uid);
        ~CallerScope();
        CallerScope(const CallerScope&) = delete;
        CallerScope& operator=(const CallerScope&) = delete;

    private:
        const pid_t mPid;
        const uid_t mUid;
    };

private:
    IPCThreadState();

    pid_t mCallingPid;
    uid_t mCallingUid;
};

}  // namespace android
