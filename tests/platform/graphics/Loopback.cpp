#include "platform/graphics/Loopback.h"

#include <binder/IPCThreadState.h>
#include <fcntl.h>

#include <algorithm>
#include <memory>

#include "binder/ParcelAccess.h"

using namespace android;
using orvhost::ParcelAccess;

class Loopback::Proxy : public IBinder {
public:
    Proxy(Loopback* loopback, Side owner, const sp<BBinder>& object)
        : mOwner(owner), mObject(object), mLoopback(loopback) {}

    const String16& getInterfaceDescriptor() const override { return mNoDescriptor; }
    bool isBinderAlive() const override {
        std::lock_guard<std::mutex> lock(mLoopback->mLock);
        return !mLoopback->mIsCut;
    }
    status_t pingBinder() override { return OK; }
    status_t dump(int, const Vector<String16>&) override { return OK; }
    status_t transact(uint32_t code, const Parcel& data, Parcel*, uint32_t flags) override {
        // Nothing in these tests may ever wait for the other side.
        return (flags & FLAG_ONEWAY) == 0 ? INVALID_OPERATION : mLoopback->send(*this, code, data);
    }
    status_t linkToDeath(const sp<DeathRecipient>& recipient, void*, uint32_t) override {
        std::lock_guard<std::mutex> lock(mLoopback->mLock);
        if (mLoopback->mIsCut) {
            return DEAD_OBJECT;
        }
        mRecipients.push_back(recipient);
        return OK;
    }
    status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void*, uint32_t,
                           wp<DeathRecipient>*) override {
        std::lock_guard<std::mutex> lock(mLoopback->mLock);
        const auto found = std::find(mRecipients.begin(), mRecipients.end(), recipient.promote());
        if (found == mRecipients.end()) {
            return NAME_NOT_FOUND;
        }
        mRecipients.erase(found);
        return OK;
    }

    const Side mOwner;  // of the object
    // With the lock.
    sp<BBinder> mObject;  // null: cut off
    std::vector<sp<DeathRecipient>> mRecipients;

private:
    const String16 mNoDescriptor;
    Loopback* const mLoopback;
};

Loopback::Loopback(pid_t servicePid) {
    mLanes[SERVICE].thread = std::thread([this] { run(mLanes[SERVICE], getpid()); });
    mLanes[APPLICATION].thread =
        std::thread([this, servicePid] { run(mLanes[APPLICATION], servicePid); });
}

Loopback::~Loopback() {
    {
        std::lock_guard<std::mutex> lock(mLock);
        mIsOver = true;
    }
    mChanged.notify_all();
    for (Lane& lane : mLanes) {
        lane.thread.join();
    }
}

sp<IBinder> Loopback::proxyOf(Side side, const sp<IBinder>& object) {
    std::lock_guard<std::mutex> lock(mLock);
    sp<IBinder> proxy = mProxies[object.get()].promote();
    if (proxy == nullptr) {
        proxy = new Proxy(this, side, object->localBinder());
        mProxies[object.get()] = proxy;
    }
    return proxy;
}

void Loopback::run(Lane& lane, pid_t callingPid) {
    const IPCThreadState::CallerScope caller(callingPid, getuid());
    std::unique_lock<std::mutex> lock(mLock);
    for (;;) {
        mChanged.wait(lock, [&] { return mIsOver || (!lane.isStopped && !lane.calls.empty()); });
        if (mIsOver) {
            return;
        }
        std::function<void()> call = std::move(lane.calls.front());
        lane.calls.pop_front();
        lane.isBusy = true;
        lock.unlock();
        call();
        call = nullptr;
        lock.lock();
        lane.isBusy = false;
        mChanged.notify_all();
    }
}

status_t Loopback::send(const Proxy& proxy, uint32_t code, const Parcel& data) {
    const Side to = proxy.mOwner;
    const auto twin = std::make_shared<Parcel>();
    if (const status_t status = carry(to, data, twin.get()); status != OK) {
        return status;
    }
    std::lock_guard<std::mutex> lock(mLock);
    if (mIsCut) {
        return DEAD_OBJECT;
    }
    if (mLanes[to].calls.size() >= mLanes[to].room) {
        return FAILED_TRANSACTION;
    }
    ++mLanes[to].received;
    mLanes[to].calls.push_back(
        [target = proxy.mObject, code, twin] { target->transact(code, *twin, nullptr); });
    mChanged.notify_all();
    return OK;
}

// The parcel as the other side reads it: own descriptors, proxies for the sender's objects and its
// own objects for their proxies.
status_t Loopback::carry(Side to, const Parcel& data, Parcel* twin) {
    std::vector<uint8_t> bytes(data.data(), data.data() + data.dataSize());
    std::vector<uint32_t> offsets;
    const auto objects = ParcelAccess::objects(data);
    for (const auto& object : objects) {
        ParcelAccess::put(bytes.data(), object.offset, object.type, 0);
        offsets.push_back(static_cast<uint32_t>(object.offset));
    }
    std::vector<ParcelAccess::Received> received;
    if (!ParcelAccess::inspect(bytes.data(), bytes.size(), offsets.data(), offsets.size(),
                               &received)) {
        return BAD_VALUE;
    }
    for (size_t i = 0; i < objects.size(); ++i) {
        if (objects[i].binder == nullptr) {
            received[i].fd = fcntl(objects[i].fd, F_DUPFD_CLOEXEC, 0);
        } else if (objects[i].binder->localBinder() != nullptr) {
            received[i].binder = proxyOf(to == SERVICE ? APPLICATION : SERVICE, objects[i].binder);
        } else {
            received[i].binder = static_cast<Proxy*>(objects[i].binder.get())->mObject;
        }
    }
    return ParcelAccess::build(bytes.data(), bytes.size(), std::move(received), twin);
}

void Loopback::stop(Side side) {
    std::unique_lock<std::mutex> lock(mLock);
    mLanes[side].isStopped = true;
    mChanged.wait(lock, [&] { return !mLanes[side].isBusy; });
}

void Loopback::resume(Side side) {
    std::lock_guard<std::mutex> lock(mLock);
    mLanes[side].isStopped = false;
    mChanged.notify_all();
}

void Loopback::setRoom(Side side, size_t calls) {
    std::lock_guard<std::mutex> lock(mLock);
    mLanes[side].room = calls;
}

size_t Loopback::waiting(Side side) {
    std::lock_guard<std::mutex> lock(mLock);
    return mLanes[side].calls.size();
}

size_t Loopback::received(Side side) {
    std::lock_guard<std::mutex> lock(mLock);
    return mLanes[side].received;
}

void Loopback::settle() {
    std::unique_lock<std::mutex> lock(mLock);
    mChanged.wait(lock, [this] {
        return std::all_of(std::begin(mLanes), std::end(mLanes), [](const Lane& lane) {
            return !lane.isBusy && (lane.isStopped || lane.calls.empty());
        });
    });
}

void Loopback::cut() {
    std::deque<std::function<void()>> lost[2];
    std::vector<sp<IBinder>> dropped;
    {
        std::lock_guard<std::mutex> lock(mLock);
        mIsCut = true;
        for (const Side side : {SERVICE, APPLICATION}) {
            lost[side].swap(mLanes[side].calls);
            mLanes[side].isStopped = false;
        }
        for (const auto& [object, weak] : mProxies) {
            dropped.push_back(weak.promote());
            Proxy* const proxy = static_cast<Proxy*>(dropped.back().get());
            if (proxy == nullptr) {
                continue;
            }
            Lane& lane = mLanes[proxy->mOwner == SERVICE ? APPLICATION : SERVICE];
            for (const auto& recipient : proxy->mRecipients) {
                lane.calls.push_back([recipient, weak = weak] { recipient->binderDied(weak); });
            }
            proxy->mRecipients.clear();
            dropped.push_back(std::move(proxy->mObject));
        }
        mChanged.notify_all();
    }
}
