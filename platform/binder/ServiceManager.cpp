#include <binder/IServiceManager.h>

#include <map>
#include <mutex>

namespace android {

namespace {

class ServiceManager : public IServiceManager {
public:
    sp<IBinder> checkService(const String16& name) const override {
        const std::lock_guard<std::mutex> lock(mMutex);
        const auto found = mServices.find(name);
        return found != mServices.end() ? found->second : nullptr;
    }

    // Objects of this process are there or are not: nothing to wait for.
    sp<IBinder> getService(const String16& name) const override { return checkService(name); }

    status_t addService(const String16& name, const sp<IBinder>& service, bool /*allowIsolated*/,
                        int /*dumpPriority*/) override {
        if (name.size() == 0 || service == nullptr) {
            return BAD_VALUE;
        }
        sp<IBinder> replaced = service;  // let go of unlocked: its end may be anything
        const std::lock_guard<std::mutex> lock(mMutex);
        std::swap(mServices[name], replaced);
        return OK;
    }

    Vector<String16> listServices() override {
        const std::lock_guard<std::mutex> lock(mMutex);
        Vector<String16> names;
        for (const auto& service : mServices) {
            names.add(service.first);
        }
        return names;
    }

private:
    mutable std::mutex mMutex;
    std::map<String16, sp<IBinder>> mServices;
};

}  // namespace

sp<IServiceManager> defaultServiceManager() {
    // Never destroyed: connections ask it until the process is gone.
    static const auto* const manager = new sp<IServiceManager>(new ServiceManager);
    return *manager;
}

}  // namespace android
