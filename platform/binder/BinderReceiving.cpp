// The half of the transport that takes messages apart and executes calls.

#include <binder/Binder.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "binder/BinderTransport.h"
#include "binder/BpBinder.h"
#include "binder/PermissionPolicy.h"
#include "trace/HostLog.h"

#include <chrono>
#include <utility>

using android::BpBinder;
using android::IBinder;
using android::IPCThreadState;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;

namespace orvhost {

namespace {

// One-way calls of one process that wait here: more than it may send, unless it is none of ours.
constexpr Load MAX_WAITING{2 * BinderTransport::MAX_UNSETTLED.calls,
                           2 * BinderTransport::MAX_UNSETTLED.bytes,
                           2 * BinderTransport::MAX_UNSETTLED.descriptors};

// Calls in a row for one process before others have their turn.
constexpr size_t CALLS_A_TURN = 64;

status_t statusOf(const sd_bus_error* error) {
    struct {
        const char* name;
        status_t status;
    } static const KNOWN[] = {
        {SD_BUS_ERROR_ACCESS_DENIED, android::PERMISSION_DENIED},
        {SD_BUS_ERROR_DISCONNECTED, android::DEAD_OBJECT},
        {SD_BUS_ERROR_INVALID_ARGS, android::BAD_VALUE},
        {SD_BUS_ERROR_NAME_HAS_NO_OWNER, android::DEAD_OBJECT},
        {SD_BUS_ERROR_NO_REPLY, android::DEAD_OBJECT},
        {SD_BUS_ERROR_SERVICE_UNKNOWN, android::NAME_NOT_FOUND},
        {SD_BUS_ERROR_UNKNOWN_OBJECT, android::DEAD_OBJECT},
    };
    for (const auto& one : KNOWN) {
        if (sd_bus_error_has_name(error, one.name) > 0) {
            return one.status;
        }
    }
    return android::FAILED_TRANSACTION;
}

}  // namespace

BinderTransport::Step BinderTransport::takeOne(IncomingCall* call) {
    if (mHasEnded) {
        return NOTHING;
    }
    sd_bus_message* message = nullptr;
    const int result = sd_bus_process(mBus, &message);
    if (sd_bus_is_open(mBus) <= 0 || (result < 0 && result != -EAGAIN && result != -EINTR)) {
        sd_bus_message_unref(message);
        end();
        return NOTHING;
    }
    noteQueued();
    if (result <= 0) {
        mMayHoldMore = false;
        return NOTHING;
    }
    Step step = MORE;
    if (message != nullptr) {
        uint8_t type = 0;
        sd_bus_message_get_type(message, &type);
        if (type == SD_BUS_MESSAGE_METHOD_CALL) {
            const std::shared_ptr<BinderPeer> peer = senderOf(message);
            if (peer->isIdentified) {
                step = handleCall(message, peer, call);
            } else {
                park(message, peer);
            }
        } else if (type == SD_BUS_MESSAGE_SIGNAL) {
            handleSignal(message);
        } else {
            handleAnswer(message, type == SD_BUS_MESSAGE_METHOD_ERROR);
        }
        sd_bus_message_unref(message);
    }
    return step;
}

BinderTransport::Step BinderTransport::handleCall(sd_bus_message* message,
                                                  const std::shared_ptr<BinderPeer>& peer,
                                                  IncomingCall* call) {
    call->peer = peer;
    call->underWay = peer->underWay;
    call->pid = peer->pid;
    call->uid = peer->uid;
    call->isTrusted = peer->isTrusted;
    call->load.calls = 1;
    if (wire::isCall(message, wire::TRANSACT, wire::TRANSACT_SIGNATURE)) {
        return handleTransact(message, call);
    }
    if (wire::isCall(message, wire::GET_SERVICE, wire::GET_SERVICE_SIGNATURE)) {
        const char* name = "";
        sd_bus_message_read(message, wire::GET_SERVICE_SIGNATURE, &name);
        call->service = String16(name);
        call->request = sd_bus_message_ref(message);
        return CALL;
    }
    if (wire::isCall(message, wire::RELEASE, wire::RELEASE_SIGNATURE)) {
        uint64_t id = 0;
        uint32_t count = 0;
        sd_bus_message_read(message, wire::RELEASE_SIGNATURE, &id, &count);
        mObjects.takeBack(id, *peer, count, &mDropped);
        return MORE;
    }
    if (wire::isCall(message, wire::HELLO, wire::HELLO_SIGNATURE)) {
        uint32_t pid = 0;
        sd_bus_message_read(message, wire::HELLO_SIGNATURE, &pid);
        if (peer->name.empty() && peer->pid == getpid()) {
            peer->pid = static_cast<pid_t>(pid);
        }
        return MORE;
    }
    refuse(message, SD_BUS_ERROR_UNKNOWN_METHOD, "no such call");
    return MORE;
}

BinderTransport::Step BinderTransport::handleTransact(sd_bus_message* message, IncomingCall* call) {
    uint64_t id = 0;
    sd_bus_message_read(message, "tuu", &id, &call->code, &call->flags);
    call->data = std::make_unique<Parcel>();
    if (!readParcel(message, call->peer, call->data.get())) {
        refuse(message, SD_BUS_ERROR_INVALID_ARGS, "broken parcel");
        return MORE;
    }
    call->load = {1, call->data->dataSize(), ParcelAccess::objects(*call->data).size()};
    call->target = mObjects.find(id, *call->peer);
    if (call->target == nullptr) {
        mDroppedParcels.push_back(std::move(call->data));
        refuse(message, SD_BUS_ERROR_UNKNOWN_OBJECT, "no such object");
        return MORE;
    }
    if ((call->flags & IBinder::FLAG_ONEWAY) == 0) {
        call->request = sd_bus_message_ref(message);
        return CALL;
    }
    return handleOneWay(message, call);
}

BinderTransport::Step BinderTransport::handleOneWay(sd_bus_message* message, IncomingCall* call) {
    BinderPeer& peer = *call->peer;
    Load load = peer.oneWayLoad;
    load.add(call->load);
    if (load.exceeds(MAX_WAITING)) {
        mDroppedParcels.push_back(std::move(call->data));
        refuse(message, SD_BUS_ERROR_LIMITS_EXCEEDED, "too many one-way calls");
        return MORE;
    }
    if (sd_bus_message_get_expect_reply(message) > 0) {
        call->request = sd_bus_message_ref(message);
    }
    peer.oneWayLoad = load;
    peer.oneWay.push_back(std::move(*call));
    if (peer.isDraining) {
        return MORE;
    }
    peer.isDraining = true;
    mToDrain.push_back(peer.oneWay.back().peer);
    return ONE_WAY;
}

void BinderTransport::handleAnswer(sd_bus_message* message, bool isError) {
    uint64_t cookie = 0;
    sd_bus_message_get_reply_cookie(message, &cookie);
    if (const auto settled = mSettlements.find(cookie); settled != mSettlements.end()) {
        settled->second.peer->unsettled.subtract(settled->second.load);
        mSettlements.erase(settled);
        return;
    }
    if (const auto identifying = mIdentifying.extract(cookie)) {
        handleIdentity(message, identifying.mapped(), isError);
        return;
    }
    const auto found = mWaiters.extract(cookie);
    if (found.empty()) {
        // Nobody waits any more; but what came with it was given to us, and is given back.
        if (!isError && sd_bus_message_has_signature(message, wire::ANSWER_SIGNATURE) > 0) {
            mDroppedParcels.push_back(std::make_unique<Parcel>());
            readAnswer(message, senderOf(message), mDroppedParcels.back().get());
        }
        return;
    }
    Waiter* waiter = found.mapped();
    if (isError) {
        const sd_bus_error* error = sd_bus_message_get_error(message);
        waiter->status = statusOf(error);
        if (waiter->status == android::NAME_NOT_FOUND && waiter->peer != nullptr) {
            waiter->status = android::DEAD_OBJECT;
        }
        waiter->detail = error->message != nullptr ? error->message : error->name;
    } else if (waiter->asksBus) {
        const bool isNumber = sd_bus_message_read(message, "u", &waiter->number) > 0;
        waiter->status = isNumber ? android::OK : android::FAILED_TRANSACTION;
    } else {
        if (waiter->peer == nullptr) {
            waiter->peer = senderOf(message);
            waiter->peer->isTrusted = true;
        }
        waiter->status = readAnswer(message, waiter->peer, waiter->answer);
    }
    finish(waiter);
}

status_t BinderTransport::readAnswer(sd_bus_message* message,
                                     const std::shared_ptr<BinderPeer>& peer, Parcel* answer) {
    int32_t status = 0;
    if (sd_bus_message_has_signature(message, wire::ANSWER_SIGNATURE) <= 0 ||
        sd_bus_message_read(message, "i", &status) < 0 || !readParcel(message, peer, answer)) {
        if (mayLog()) {
            HOST_LOGW("binder: process %d sent a broken answer\n", static_cast<int>(peer->pid));
        }
        return android::FAILED_TRANSACTION;
    }
    return status;
}

bool BinderTransport::readParcel(sd_bus_message* message, const std::shared_ptr<BinderPeer>& peer,
                                 Parcel* parcel) {
    wire::ReceivedParcel received;
    if (!wire::readParcel(message, &received)) {
        return false;
    }
    // What ends here may not end with the lock held.
    bool isComplete = true;
    for (ParcelAccess::Received& object : received.objects) {
        isComplete = isComplete && attach(received, peer, &object);
    }
    if (!isComplete) {
        for (ParcelAccess::Received& object : received.objects) {
            mDropped.push_back(std::move(object.binder));
        }
        return false;
    }
    return ParcelAccess::build(received.bytes, received.size, std::move(received.objects),
                               parcel) == android::OK;
}

bool BinderTransport::attach(const wire::ReceivedParcel& from,
                             const std::shared_ptr<BinderPeer>& peer,
                             ParcelAccess::Received* object) {
    if (object->type == ParcelAccess::DESCRIPTOR) {
        object->fd = fcntl(from.descriptors[object->value], F_DUPFD_CLOEXEC, 3);
        return object->fd >= 0;
    }
    object->binder = object->type == ParcelAccess::BINDER ? proxyOf(peer, object->value)
                                                          : mObjects.find(object->value, *peer);
    return object->binder != nullptr;
}

sp<IBinder> BinderTransport::proxyOf(const std::shared_ptr<BinderPeer>& peer, uint64_t id) {
    android::wp<BpBinder>& known = peer->proxies[id];
    sp<BpBinder> proxy = known.promote();
    if (proxy == nullptr) {
        proxy = new BpBinder(shared_from_this(), peer, id);
        known = proxy;
    }
    ++proxy->mReceived;
    return proxy;
}

void BinderTransport::refuse(sd_bus_message* message, const char* error, const char* why) {
    if (mayLog()) {
        HOST_LOGW("binder: %s refused: %s\n", sd_bus_message_get_member(message), why);
    }
    sd_bus_reply_method_errorf(message, error, "%s", why);
    noteQueued();
}

// Once a second: a caller must not be able to bury everything else.
bool BinderTransport::mayLog() const {
    const int64_t nowMs = std::chrono::duration_cast<std::chrono::milliseconds>(
                              std::chrono::steady_clock::now().time_since_epoch())
                              .count();
    int64_t againMs = mLogAgainMs.load();
    return nowMs >= againMs && mLogAgainMs.compare_exchange_strong(againMs, nowMs + 1000);
}

void BinderTransport::execute(IncomingCall* call) {
    if (call->target == nullptr || !call->target->localBinder()->isBrief(call->code)) {
        mPool.passLead();
    }
    Parcel reply;
    const status_t status = executeTarget(*call, &reply);
    answer(call, status, reply);
}

status_t BinderTransport::executeTarget(const IncomingCall& call, Parcel* reply) const {
    if (!call.isTrusted && !PermissionPolicy::mayCall(call.uid)) {
        if (mayLog()) {
            HOST_LOGW("binder: user %u may not call\n", static_cast<unsigned>(call.uid));
        }
        return android::PERMISSION_DENIED;
    }
    const IPCThreadState::CallerScope caller(call.pid, call.uid);
    if (call.target != nullptr) {
        // In its turn already: not to be queued once more.
        return call.target->transact(call.code, *call.data, reply,
                                     call.flags & ~static_cast<uint32_t>(IBinder::FLAG_ONEWAY));
    }
    const sp<IBinder> service = android::defaultServiceManager()->checkService(call.service);
    return service != nullptr ? reply->writeStrongBinder(service) : android::NAME_NOT_FOUND;
}

void BinderTransport::answer(IncomingCall* call, status_t status, const Parcel& reply) {
    if (call->request == nullptr) {
        return;
    }
    const bool isOneWay = (call->flags & IBinder::FLAG_ONEWAY) != 0;
    std::vector<ParcelAccess::Object> objects;
    if (!isOneWay) {
        objects = ParcelAccess::objects(reply);
    }
    const size_t size = isOneWay ? 0 : reply.dataSize();
    Guard guard(*this);
    sd_bus_message* request = std::exchange(call->request, nullptr);
    if (mHasEnded || call->peer->isDead) {
        sd_bus_message_unref(request);
        return;
    }
    std::vector<wire::Reference> references;
    sd_bus_message* message = nullptr;
    status_t fault = size > ParcelAccess::MAX_BYTES ? android::FAILED_TRANSACTION
                                                    : resolve(objects, *call->peer, &references);
    if (fault == android::OK && (sd_bus_message_new_method_return(request, &message) < 0 ||
                                 sd_bus_message_append(message, "i", status) < 0 ||
                                 !wire::appendParcel(message, reply.data(), size, references))) {
        unresolve(references, *call->peer);
        message = sd_bus_message_unref(message);
        fault = android::FAILED_TRANSACTION;
    }
    if (fault != android::OK && sd_bus_message_new_method_return(request, &message) >= 0) {
        sd_bus_message_append(message, "i", fault);
        wire::appendParcel(message, nullptr, 0, {});
    }
    if (message != nullptr && !send(message, nullptr) && fault == android::OK) {
        unresolve(references, *call->peer);
    }
    sd_bus_message_unref(request);
}

void BinderTransport::drain(Guard& guard) {
    ++mDraining;
    while (!mToDrain.empty()) {
        const std::shared_ptr<BinderPeer> peer = std::move(mToDrain.front());
        mToDrain.pop_front();
        for (size_t i = 0; i < CALLS_A_TURN && !peer->oneWay.empty() && !mIsDisconnecting; ++i) {
            IncomingCall call = std::move(peer->oneWay.front());
            peer->oneWay.pop_front();
            peer->oneWayLoad.subtract(call.load);
            guard.unlock();
            execute(&call);
            call = {};  // what it held ends here
            guard.lock();
        }
        if (mIsDisconnecting) {
            dropOneWay(*peer);
        }
        peer->isDraining = !peer->oneWay.empty();
        if (peer->isDraining) {
            mToDrain.push_back(peer);
        }
    }
    --mDraining;
}

}  // namespace orvhost
