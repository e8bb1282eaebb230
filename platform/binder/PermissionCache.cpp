#include <binder/IPCThreadState.h>
#include <binder/PermissionCache.h>
#include <utils/String8.h>

#include "binder/PermissionPolicy.h"

namespace android {

bool PermissionCache::checkCallingPermission(const String16& permission) {
    int32_t pid = 0;
    int32_t uid = 0;
    return checkCallingPermission(permission, &pid, &uid);
}

bool PermissionCache::checkCallingPermission(const String16& permission, int32_t* outPid,
                                             int32_t* outUid) {
    const IPCThreadState* const caller = IPCThreadState::self();
    *outPid = caller->getCallingPid();
    *outUid = static_cast<int32_t>(caller->getCallingUid());
    return checkPermission(permission, caller->getCallingPid(), caller->getCallingUid());
}

bool PermissionCache::checkPermission(const String16& permission, pid_t /*pid*/, uid_t uid) {
    return orvhost::PermissionPolicy::instance().holds(String8(permission).string(), uid);
}

}  // namespace android
