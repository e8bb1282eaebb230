#pragma once

#include <binder/IBinder.h>

namespace android {

// The named objects of this process. Every connection (see binder/BinderConnection.h of the host)
// offers them to the process at its other end under these names. Any thread.
class IServiceManager : public virtual RefBase {
public:
    static constexpr int DUMP_FLAG_PRIORITY_DEFAULT = 1 << 3;

    // Null when nobody has that name.
    virtual sp<IBinder> checkService(const String16& name) const = 0;
    virtual sp<IBinder> getService(const String16& name) const = 0;
    // A second object of a name replaces the first. `allowIsolated` and `dumpPriority` are kept
    // for the platform's sake: this host has neither.
    virtual status_t addService(const String16& name, const sp<IBinder>& service,
                                bool allowIsolated = false,
                                int dumpPriority = DUMP_FLAG_PRIORITY_DEFAULT) = 0;
    virtual Vector<String16> listServices() = 0;

protected:
    ~IServiceManager() override = default;
};

sp<IServiceManager> defaultServiceManager();

}  // namespace android
