#pragma once

#include <binder/IBinder.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace orvhost {
class BinderTransport;
struct BinderPeer;
}  // namespace orvhost

namespace android {

// An object of another process: every call goes through the connection over which it was received,
// which the proxy keeps alive (but not open). There is one proxy of an object at a time. When the
// last reference goes, the owner is told, from that very thread and without waiting.
//
// Death recipients are held weakly, as long as the proxy lives.
class BpBinder final : public IBinder {
public:
    BpBinder(std::shared_ptr<orvhost::BinderTransport> transport,
             std::shared_ptr<orvhost::BinderPeer> owner, uint64_t id);

    // Asks the object the first time.
    const String16& getInterfaceDescriptor() const override;
    bool isBinderAlive() const override { return mAlive; }
    status_t pingBinder() override;
    status_t dump(int fd, const Vector<String16>& args) override;
    status_t transact(uint32_t code, const Parcel& data, Parcel* reply,
                      uint32_t flags = 0) override;
    status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                         uint32_t flags = 0) override;
    status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                           uint32_t flags = 0, wp<DeathRecipient>* outRecipient = nullptr) override;
    BpBinder* remoteBinder() override { return this; }

protected:
    ~BpBinder() override;

private:
    friend class orvhost::BinderTransport;

    struct Link {
        wp<DeathRecipient> recipient;
        void* cookie;
        uint32_t flags;
    };

    // By the transport: no call gets through any more. The links are gone with it; who they were
    // for is to be told by tell(), without a lock.
    std::vector<Link> die();
    void tell(const std::vector<Link>& links);

    const std::shared_ptr<orvhost::BinderTransport> mTransport;
    const std::shared_ptr<orvhost::BinderPeer> mOwner;
    const uint64_t mId;
    uint32_t mReceived = 0;  // how often it came; with the transport's lock

    mutable std::mutex mLock;
    std::atomic<bool> mAlive{true};  // written with mLock
    // With mLock.
    std::vector<Link> mLinks;
    mutable std::atomic<bool> mDescriptorKnown{false};
    mutable String16 mDescriptor;  // not written again once known
};

}  // namespace android
