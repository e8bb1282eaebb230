// The part of the transport that ends things: processes, the connection, calls that are not made.

#include <sys/socket.h>

#include "binder/BinderTransport.h"
#include "binder/BpBinder.h"

#include <chrono>
#include <thread>
#include <utility>

using android::BpBinder;
using android::sp;

namespace orvhost {

namespace {

using Clock = std::chrono::steady_clock;

// A call that takes longer than that does not hold up the news of its caller's death.
constexpr std::chrono::milliseconds LAST_CALLS(200);

// What the dead process asked for is done first: else what its death closes could be opened after
// it.
void awaitLastCalls(const std::weak_ptr<CallsUnderWay>& calls, Clock::time_point deadline) {
    while (!calls.expired() && Clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

}  // namespace

void BinderTransport::end() {
    if (mHasEnded) {
        return;
    }
    mHasEnded = true;
    mWatcher = NOBODY;
    mPool.stopWatchingReading();
    // The pool keeps duplicates: closing alone would not tell the other end.
    shutdown(mPool.readFd(), SHUT_RDWR);
    sd_bus_close(mBus);
    for (const auto& [cookie, waiter] : mWaiters) {
        waiter->status = android::DEAD_OBJECT;
        finish(waiter);
    }
    mWaiters.clear();
    mIdentifying.clear();
    if (!mIsDisconnecting && mDisconnected) {
        notice(std::exchange(mDisconnected, nullptr));  // deaths may be told later
    }
    for (const auto& [name, peer] : mPeers) {
        bury(peer);
    }
}

void BinderTransport::bury(const std::shared_ptr<BinderPeer>& peer) {
    peer->isDead = true;
    peer->unsettled = {};
    std::erase_if(mSettlements, [&peer](const auto& one) { return one.second.peer == peer; });
    std::erase_if(mWaiters, [&](const auto& one) {
        const bool isForIt = one.second->peer == peer;
        if (isForIt) {
            one.second->status = android::DEAD_OBJECT;
            finish(one.second);
        }
        return isForIt;
    });
    for (sd_bus_message* message : peer->parked) {
        sd_bus_message_unref(message);
    }
    peer->parked.clear();
    const std::weak_ptr<CallsUnderWay> calls = std::exchange(peer->underWay, nullptr);
    const Clock::time_point deadline = Clock::now() + LAST_CALLS;
    for (const auto& [id, weak] : peer->proxies) {
        sp<BpBinder> proxy = weak.promote();
        if (proxy == nullptr) {
            continue;
        }
        std::vector<BpBinder::Link> links = proxy->die();
        if (!links.empty()) {
            notice([proxy, links, calls, deadline] {
                awaitLastCalls(calls, deadline);
                proxy->tell(links);
            });
        }
        mDropped.push_back(std::move(proxy));
    }
    peer->proxies.clear();
    mObjects.forget(*peer, &mDropped);
}

void BinderTransport::notice(std::function<void()> what) {
    mNotices.push_back(std::move(what));
    mPool.post();
}

void BinderTransport::tellNotices(Guard& guard) {
    mIsTelling = true;
    while (!mNotices.empty()) {
        std::function<void()> what = std::move(mNotices.front());
        mNotices.pop_front();
        guard.unlock();
        mPool.passLead();
        what();
        what = nullptr;  // what it held ends here
        guard.lock();
    }
    mIsTelling = false;
}

void BinderTransport::setDisconnectedCallback(std::function<void()> callback) {
    Guard guard(*this);
    if (!mHasEnded) {
        mDisconnected.swap(callback);
    } else if (!mIsDisconnecting && callback) {
        notice(std::move(callback));
    }
    guard.unlock();
}

void BinderTransport::disconnect() {
    std::function<void()> callback;
    {
        Guard guard(*this);
        if (mBus == nullptr) {
            return;
        }
        mIsDisconnecting = true;
        end();
        callback.swap(mDisconnected);
        for (IncomingCall& call : std::exchange(mCalls, {})) {
            drop(std::move(call));
        }
        for (const std::shared_ptr<BinderPeer>& peer : std::exchange(mToDrain, {})) {
            dropOneWay(*peer);
        }
    }
    mPool.stop();
}

void BinderTransport::drop(IncomingCall call) {
    sd_bus_message_unref(call.request);
    mDropped.push_back(std::move(call.target));
    mDroppedParcels.push_back(std::move(call.data));
}

void BinderTransport::dropOneWay(BinderPeer& peer) {
    for (IncomingCall& call : std::exchange(peer.oneWay, {})) {
        drop(std::move(call));
    }
    peer.oneWayLoad = {};
    peer.isDraining = false;
}

}  // namespace orvhost
