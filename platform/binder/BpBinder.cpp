#include "binder/BpBinder.h"

#include <binder/Parcel.h>

#include "binder/BinderTransport.h"

#include <algorithm>

namespace android {

BpBinder::BpBinder(std::shared_ptr<orvhost::BinderTransport> transport,
                   std::shared_ptr<orvhost::BinderPeer> owner, uint64_t id)
    : mTransport(std::move(transport)), mOwner(std::move(owner)), mId(id) {}

BpBinder::~BpBinder() {
    mTransport->release(*this);
}

const String16& BpBinder::getInterfaceDescriptor() const {
    if (mDescriptorKnown.load(std::memory_order_acquire)) {
        return mDescriptor;
    }
    Parcel data;
    Parcel reply;
    String16 descriptor;
    if (mTransport->transact(*this, INTERFACE_TRANSACTION, data, &reply, 0) == OK) {
        reply.readString16(&descriptor);
    }
    std::lock_guard<std::mutex> guard(mLock);
    if (!mDescriptorKnown && descriptor.size() > 0) {
        mDescriptor = descriptor;
        mDescriptorKnown.store(true, std::memory_order_release);
    }
    return mDescriptor;
}

status_t BpBinder::pingBinder() {
    Parcel data;
    Parcel reply;
    return transact(PING_TRANSACTION, data, &reply, 0);
}

status_t BpBinder::dump(int fd, const Vector<String16>& args) {
    Parcel data;
    Parcel reply;
    data.writeFileDescriptor(fd);
    data.writeInt32(static_cast<int32_t>(args.size()));
    for (const String16& argument : args) {
        data.writeString16(argument);
    }
    return transact(DUMP_TRANSACTION, data, &reply, 0);
}

status_t BpBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    return mTransport->transact(*this, code, data, reply, flags);
}

status_t BpBinder::linkToDeath(const sp<DeathRecipient>& recipient, void* cookie, uint32_t flags) {
    if (recipient == nullptr) {
        return BAD_VALUE;
    }
    std::lock_guard<std::mutex> guard(mLock);
    if (!mAlive) {
        return DEAD_OBJECT;
    }
    mLinks.push_back({recipient, cookie, flags});
    return OK;
}

status_t BpBinder::unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie, uint32_t flags,
                                 wp<DeathRecipient>* outRecipient) {
    std::lock_guard<std::mutex> guard(mLock);
    if (!mAlive) {
        return DEAD_OBJECT;
    }
    // Without a recipient the cookie says which.
    const auto found = std::find_if(mLinks.begin(), mLinks.end(), [&](const Link& link) {
        return link.flags == flags &&
               (recipient == nullptr ? cookie != nullptr && link.cookie == cookie
                                     : link.recipient == recipient && link.cookie == cookie);
    });
    if (found == mLinks.end()) {
        return NAME_NOT_FOUND;
    }
    if (outRecipient != nullptr) {
        *outRecipient = found->recipient;
    }
    mLinks.erase(found);
    return OK;
}

std::vector<BpBinder::Link> BpBinder::die() {
    std::lock_guard<std::mutex> guard(mLock);
    mAlive = false;
    return std::move(mLinks);
}

void BpBinder::tell(const std::vector<Link>& links) {
    for (const Link& link : links) {
        if (const sp<DeathRecipient> recipient = link.recipient.promote(); recipient != nullptr) {
            recipient->binderDied(wp<IBinder>(this));
        }
    }
}

}  // namespace android
