#include <binder/IPCThreadState.h>

#include <unistd.h>

namespace android {

IPCThreadState::IPCThreadState() : mCallingPid(getpid()), mCallingUid(getuid()) {}

IPCThreadState* IPCThreadState::self() {
    static thread_local IPCThreadState state;
    return &state;
}

IPCThreadState::CallerScope::CallerScope(pid_t pid, uid_t uid)
    : mPid(self()->mCallingPid), mUid(self()->mCallingUid) {
    self()->mCallingPid = pid;
    self()->mCallingUid = uid;
}

IPCThreadState::CallerScope::~CallerScope() {
    self()->mCallingPid = mPid;
    self()->mCallingUid = mUid;
}

}  // namespace android
