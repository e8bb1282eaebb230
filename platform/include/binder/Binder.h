#pragma once

#include <binder/IBinder.h>

namespace android {

// An object of this process that others may call: derive and override onTransact().
class BBinder : public IBinder {
public:
    const String16& getInterfaceDescriptor() const override;
    bool isBinderAlive() const override { return true; }
    status_t pingBinder() override { return OK; }
    status_t dump(int fd, const Vector<String16>& args) override;

    // A one-way call to an object of this very process is executed on a thread of its own queue,
    // in order, never on the caller's, as a call of this process. (A transport, which has a queue
    // for those of each connection and knows who calls, executes them without FLAG_ONEWAY.)
    status_t transact(uint32_t code, const Parcel& data, Parcel* reply,
                      uint32_t flags = 0) override;

    status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                         uint32_t flags = 0) override;
    status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                           uint32_t flags = 0, wp<DeathRecipient>* outRecipient = nullptr) override;

    BBinder* localBinder() override { return this; }

    // Whether a call of that code never waits: not for another call, a device, or a lock that is
    // held longer than a moment. Its transport then executes it before it reads on, which saves
    // waking another thread up. Any thread.
    virtual bool isBrief(uint32_t /*code*/) const { return false; }

protected:
    // Answers one call, on any thread of the pool, several at a time. This one answers the
    // platform's own codes (ping, interface query, dump) and UNKNOWN_TRANSACTION to all others.
    // `reply` is never null, whoever calls.
    virtual status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags);

    ~BBinder() override = default;

private:
    status_t postOneWay(uint32_t code, const Parcel& data, uint32_t flags);
    status_t onDump(const Parcel& data);
};

}  // namespace android
