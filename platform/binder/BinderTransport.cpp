#include "binder/BinderTransport.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <thread>
#include <utility>

#include "binder/BpBinder.h"
#include "binder/CallTimeout.h"

using android::BpBinder;
using android::IBinder;
using android::Parcel;
using android::sp;
using android::status_t;

namespace orvhost {

namespace {

// One-way calls ask to be told of their execution whenever so much of them is under way.
constexpr Load ASK_AT{64, 256 * 1024, 16};

// A process that does not read what it asks for is cut off at so many messages.
constexpr uint64_t MAX_QUEUED_MESSAGES = 8192;

// Calls with an answer that were read by threads that wait, and are not begun.
constexpr Load MAX_CALLS{1024, 8 * 1024 * 1024, 256};

// Messages that are read in a row before others may have the lock.
constexpr size_t MESSAGES_A_TURN = 16;

}  // namespace

void BinderTransport::Guard::unlock() {
    if (!mHeld.owns_lock()) {
        return;
    }
    ObjectTable::Dropped dropped;
    std::vector<std::unique_ptr<Parcel>> parcels;
    dropped.swap(mTransport.mDropped);
    parcels.swap(mTransport.mDroppedParcels);
    mHeld.unlock();
}

void BinderTransport::Guard::wait(std::condition_variable& condition) {
    if (!mTransport.mDropped.empty() || !mTransport.mDroppedParcels.empty()) {
        unlock();
        lock();  // the caller looks again, as after any wait
        return;
    }
    const auto deadline = CallTimeout::deadline();
    if (deadline.has_value()) {
        condition.wait_until(mHeld, *deadline);
    } else {
        condition.wait(mHeld);
    }
}

BinderTransport::BinderTransport() : mWakeFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

BinderTransport::~BinderTransport() {
    sd_bus_close(mBus);
    sd_bus_unref(mBus);
    if (mWakeFd >= 0) {
        close(mWakeFd);
    }
}

bool BinderTransport::start(sd_bus* bus, std::shared_ptr<BinderPeer> peer, std::string* error) {
    Guard guard(*this);
    mBus = bus;
    mPeer = std::move(peer);
    if (mWakeFd < 0) {
        *error = "no descriptors left";
        return false;
    }
    if (!mPool.open(sd_bus_get_fd(bus), error) || !mPool.start(shared_from_this(), error)) {
        return false;
    }
    if (mPeer != nullptr) {
        mPeers[mPeer->name] = mPeer;
        // The kernel names the process that made a pair of sockets as the peer of both.
        if (sd_bus_message* hello = newCall(*mPeer, wire::HELLO); hello != nullptr) {
            sd_bus_message_append(hello, "u", static_cast<uint32_t>(getpid()));
            send(hello, nullptr);
        }
    }
    passWatching();
    return true;
}

// Sending ---------------------------------------------------------------------------------------

sd_bus_message* BinderTransport::newCall(const BinderPeer& peer, const char* member) const {
    sd_bus_message* message = nullptr;
    sd_bus_message_new_method_call(mBus, &message, peer.name.empty() ? nullptr : peer.name.c_str(),
                                   wire::PATH, wire::INTERFACE, member);
    return message;
}

status_t BinderTransport::resolve(const std::vector<ParcelAccess::Object>& objects,
                                  BinderPeer& peer, std::vector<wire::Reference>* references) {
    if (objects.size() > wire::MAX_OBJECTS) {
        return android::FAILED_TRANSACTION;
    }
    for (const ParcelAccess::Object& object : objects) {
        uint64_t value = 0;
        if (object.type == ParcelAccess::BINDER) {
            value = mObjects.give(object.binder, peer);
        } else if (object.type == ParcelAccess::HANDLE) {
            const BpBinder* proxy = object.binder->remoteBinder();
            if (proxy->mOwner.get() != &peer) {
                unresolve(*references, peer);
                return android::INVALID_OPERATION;  // it could not be called from there
            }
            value = proxy->mId;
        }
        references->push_back({object.offset, object.type, value, object.fd});
    }
    return android::OK;
}

void BinderTransport::unresolve(const std::vector<wire::Reference>& references,
                                const BinderPeer& peer) {
    for (const wire::Reference& one : references) {
        if (one.type == ParcelAccess::BINDER) {
            mObjects.takeBack(one.value, peer, 1, &mDropped);
        }
    }
}

bool BinderTransport::send(sd_bus_message* message, uint64_t* cookie) {
    const int result = sd_bus_send(mBus, message, cookie);
    sd_bus_message_unref(message);
    if (sd_bus_is_open(mBus) <= 0) {
        end();
        return false;
    }
    noteQueued();
    return result >= 0 && !mHasEnded;
}

void BinderTransport::noteQueued() {
    uint64_t queued = 0;
    if (mHasEnded || sd_bus_get_n_queued_write(mBus, &queued) < 0 || queued == 0) {
        return;
    }
    if (queued > MAX_QUEUED_MESSAGES) {
        end();
    } else if (!mIsWatchingWriting) {
        mIsWatchingWriting = true;
        mPool.watchWriting();
    }
}

status_t BinderTransport::transact(const BpBinder& proxy, uint32_t code, const Parcel& data,
                                   Parcel* reply, uint32_t flags) {
    if (data.dataSize() > ParcelAccess::MAX_BYTES) {
        return android::FAILED_TRANSACTION;
    }
    const bool isOneWay = (flags & IBinder::FLAG_ONEWAY) != 0;
    const bool isExpendable = (flags & IBinder::FLAG_EXPENDABLE) != 0;
    flags &= ~static_cast<uint32_t>(IBinder::FLAG_EXPENDABLE);
    const std::vector<ParcelAccess::Object> objects = ParcelAccess::objects(data);
    Load load{1, data.dataSize(), 0};
    for (const ParcelAccess::Object& object : objects) {
        load.descriptors += object.type == ParcelAccess::DESCRIPTOR ? 1 : 0;
    }
    Parcel unread;
    Waiter waiter;
    waiter.answer = reply != nullptr ? reply : &unread;
    waiter.answer->freeData();

    Guard guard(*this);
    waiter.peer = proxy.mOwner;
    BinderPeer& peer = *proxy.mOwner;
    if (mHasEnded || peer.isDead) {
        return android::DEAD_OBJECT;
    }
    Load unsettled = peer.unsettled;
    unsettled.add(load);
    if (isOneWay && unsettled.exceeds(isExpendable ? MAX_EXPENDABLE : MAX_UNSETTLED)) {
        ++mDroppedOneWay;
        return android::FAILED_TRANSACTION;
    }
    std::vector<wire::Reference> references;
    status_t status = resolve(objects, peer, &references);
    if (status != android::OK) {
        return status;
    }
    sd_bus_message* message = newCall(peer, wire::TRANSACT);
    if (message == nullptr || sd_bus_message_append(message, "tuu", proxy.mId, code, flags) < 0 ||
        !wire::appendParcel(message, data.data(), data.dataSize(), references)) {
        sd_bus_message_unref(message);
        unresolve(references, peer);
        return android::FAILED_TRANSACTION;
    }
    bool isSent = false;
    status = isOneWay ? sendOneWay(message, proxy.mOwner, load, &isSent)
                      : callAndWait(guard, message, &waiter, &isSent);
    if (!isSent) {
        unresolve(references, peer);
    }
    return status;
}

status_t BinderTransport::sendOneWay(sd_bus_message* message,
                                     const std::shared_ptr<BinderPeer>& peer, const Load& load,
                                     bool* isSent) {
    Load unasked = peer->sinceAsked;
    unasked.add(load);
    const bool asks = unasked.calls >= ASK_AT.calls || unasked.bytes >= ASK_AT.bytes ||
                      unasked.descriptors >= ASK_AT.descriptors;
    uint64_t cookie = 0;
    *isSent = send(message, asks ? &cookie : nullptr);
    if (!*isSent) {
        return mHasEnded ? android::DEAD_OBJECT : android::FAILED_TRANSACTION;
    }
    peer->unsettled.add(load);
    peer->sinceAsked = asks ? Load{} : unasked;
    if (asks) {
        mSettlements[cookie] = {peer, unasked};
    }
    return android::OK;
}

void BinderTransport::release(const BpBinder& proxy) {
    Guard guard(*this);
    BinderPeer& peer = *proxy.mOwner;
    const auto known = peer.proxies.find(proxy.mId);
    if (known != peer.proxies.end() && known->second.unsafe_get() == &proxy) {
        peer.proxies.erase(known);
    }
    if (mHasEnded || peer.isDead) {
        return;
    }
    if (sd_bus_message* message = newCall(peer, wire::RELEASE); message != nullptr) {
        sd_bus_message_append(message, wire::RELEASE_SIGNATURE, proxy.mId, proxy.mReceived);
        send(message, nullptr);
    }
}

// Waiting and reading ---------------------------------------------------------------------------

status_t BinderTransport::callAndWait(Guard& guard, sd_bus_message* message, Waiter* waiter,
                                      bool* isSent) {
    if (mWatcher == POOL) {
        mPool.stopWatchingReading();  // the answer may be quicker than we are
        mWatcher = NOBODY;
    }
    uint64_t cookie = 0;
    *isSent = send(message, &cookie);
    if (!*isSent) {
        passWatching();
        return mHasEnded ? android::DEAD_OBJECT : android::FAILED_TRANSACTION;
    }
    mWaiters[cookie] = waiter;
    while (!waiter->isDone) {
        if (CallTimeout::leftMs() == 0) {
            mWaiters.erase(cookie);  // its answer finds nobody
            waiter->status = android::TIMED_OUT;
            break;
        }
        if (mWatcher == WAITER) {
            guard.wait(waiter->answered);
        } else {
            watchAsWaiter(guard, waiter);
        }
    }
    passWatching();
    return waiter->status;
}

// Nobody watches: the pool does only while nobody waits.
void BinderTransport::watchAsWaiter(Guard& guard, Waiter* waiter) {
    if (!hasBuffered()) {
        mWatcher = WAITER;
        waiter->isWatching = true;
        guard.unlock();
        pollfd watched[] = {{mPool.readFd(), POLLIN, 0}, {mWakeFd, POLLIN, 0}};
        poll(watched, 2, CallTimeout::leftMs());
        guard.lock();
        waiter->isWatching = false;
        if (watched[1].revents != 0) {
            uint64_t count = 0;
            (void)!read(mWakeFd, &count, sizeof count);
        }
    }
    mWatcher = NOBODY;
    Step step = MORE;
    for (size_t i = 0; i < MESSAGES_A_TURN && !waiter->isDone && step != NOTHING; ++i) {
        IncomingCall call;
        step = takeOne(&call);
        dispatch(step, std::move(call));
    }
    if (step != NOTHING && !waiter->isDone) {
        letOthersIn(guard);
    }
}

// Afterwards another thread may be watching.
void BinderTransport::letOthersIn(Guard& guard) {
    guard.unlock();
    std::this_thread::yield();
    guard.lock();
}

void BinderTransport::passWatching() {
    if (mHasEnded || mWatcher != NOBODY) {
        return;
    }
    if (!mWaiters.empty()) {
        mWaiters.begin()->second->answered.notify_one();
        return;
    }
    mWatcher = POOL;
    mPool.watchReading();
    postBuffered();
}

// Messages that have left the socket wake nobody.
void BinderTransport::postBuffered() {
    if (hasBuffered()) {
        mPool.post();
    }
}

bool BinderTransport::hasBuffered() const {
    uint64_t queued = 0;
    return !mHasEnded &&
           (mMayHoldMore || (sd_bus_get_n_queued_read(mBus, &queued) >= 0 && queued > 0));
}

void BinderTransport::finish(Waiter* waiter) {
    waiter->isDone = true;
    if (waiter->isWatching) {
        const uint64_t one = 1;
        (void)!write(mWakeFd, &one, sizeof one);
    } else {
        waiter->answered.notify_one();
    }
}

// For the pool to do, when this thread has something else to do.
void BinderTransport::dispatch(Step step, IncomingCall call) {
    if (step == CALL) {
        Load load = mCallsLoad;
        load.add(call.load);
        if (load.exceeds(MAX_CALLS)) {
            refuse(call.request, SD_BUS_ERROR_LIMITS_EXCEEDED, "too many calls");
            drop(std::move(call));
            return;
        }
        mCallsLoad = load;
        mCalls.push_back(std::move(call));
    }
    if (step == CALL || step == ONE_WAY) {
        mPool.post();
    }
}

void BinderTransport::readable() {
    Guard guard(*this);
    for (size_t i = 1; !mHasEnded && mWatcher == POOL; ++i) {
        IncomingCall call;
        switch (takeOne(&call)) {
            case NOTHING:
                return;
            case MORE:
                break;
            case CALL:
                postBuffered();
                guard.unlock();
                execute(&call);
                return;
            case ONE_WAY:
                if (mDraining < MAX_DRAINING) {
                    postBuffered();
                    drain(guard);
                    return;
                }
                break;
        }
        if (i % MESSAGES_A_TURN == 0) {
            letOthersIn(guard);
        }
    }
}

void BinderTransport::writable() {
    Guard guard(*this);
    mIsWatchingWriting = false;
    if (mHasEnded) {
        return;
    }
    IncomingCall call;
    const Step step = takeOne(&call);  // which first writes what is queued
    dispatch(step, std::move(call));
    noteQueued();
}

bool BinderTransport::runTask() {
    Guard guard(*this);
    if (!mNotices.empty() && !mIsTelling) {
        tellNotices(guard);
        return true;
    }
    if (!mCalls.empty()) {
        IncomingCall call = std::move(mCalls.front());
        mCalls.pop_front();
        mCallsLoad.subtract(call.load);
        guard.unlock();
        execute(&call);
        return true;
    }
    if (!mToDrain.empty() && mDraining < MAX_DRAINING) {
        drain(guard);
        return true;
    }
    if (hasBuffered()) {
        guard.unlock();
        readable();
        return true;
    }
    return false;
}

bool BinderTransport::isConnected() const {
    Guard guard(*this);
    return !mHasEnded;
}

pid_t BinderTransport::peerPid() const {
    Guard guard(*this);
    return mPeer != nullptr ? mPeer->pid : -1;
}

BinderConnection::Figures BinderTransport::figures() const {
    Guard guard(*this);
    BinderConnection::Figures figures;
    figures.exportedObjects = mObjects.size();
    figures.droppedOneWay = mDroppedOneWay;
    for (const auto& [name, peer] : mPeers) {
        figures.proxies += peer->proxies.size();
        figures.queuedOneWay += peer->unsettled.calls;
    }
    return figures;
}

}  // namespace orvhost
