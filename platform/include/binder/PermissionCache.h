#pragma once

#include <sys/types.h>
#include <utils/String16.h>

namespace android {

// Which caller holds which permission, by the host's policy (binder/PermissionPolicy.h). Answers at
// once; any thread.
class PermissionCache {
public:
    PermissionCache() = delete;

    // Of the call that this thread executes.
    static bool checkCallingPermission(const String16& permission);
    static bool checkCallingPermission(const String16& permission, int32_t* outPid,
                                       int32_t* outUid);
    static bool checkPermission(const String16& permission, pid_t pid, uid_t uid);
};

}  // namespace android
