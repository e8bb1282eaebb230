#pragma once

#include <binder/Binder.h>
#include <binder/Parcel.h>

namespace orvtest {

// Looks like an object of another process: passes every call on to a local one.
class RelayBinder : public android::IBinder {
public:
    explicit RelayBinder(const android::sp<android::IBinder>& target) : mTarget(target) {}

    const android::String16& getInterfaceDescriptor() const override {
        return mTarget->getInterfaceDescriptor();
    }
    bool isBinderAlive() const override { return true; }
    android::status_t pingBinder() override { return mTarget->pingBinder(); }
    android::status_t dump(int fd, const android::Vector<android::String16>& args) override {
        return mTarget->dump(fd, args);
    }
    android::status_t transact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                               uint32_t flags) override {
        return mTarget->transact(code, data, reply, flags);
    }
    android::status_t linkToDeath(const android::sp<DeathRecipient>&, void*, uint32_t) override {
        return android::OK;
    }
    android::status_t unlinkToDeath(const android::wp<DeathRecipient>&, void*, uint32_t,
                                    android::wp<DeathRecipient>*) override {
        return android::OK;
    }

private:
    const android::sp<android::IBinder> mTarget;
};

}  // namespace orvtest
