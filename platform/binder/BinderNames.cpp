// The part of the transport that knows names: of services, and of processes on a bus.

#include <string.h>
#include <utils/String8.h>

#include "binder/BinderTransport.h"
#include "binder/BpBinder.h"
#include "trace/HostLog.h"

#include <optional>
#include <utility>

using android::BpBinder;
using android::IBinder;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;

namespace orvhost {

namespace {

constexpr char BUS_NAME[] = "org.freedesktop.DBus";
constexpr char BUS_PATH[] = "/org/freedesktop/DBus";
constexpr char NAME_PREFIX[] = "org.orvplayer.";

// Messages of one process that wait until the bus has said who it is: all its one-way calls that
// may be under way, and a large call besides.
constexpr size_t MAX_PARKED = 2 * BinderTransport::MAX_UNSETTLED.calls;
constexpr size_t MAX_PARKED_BYTES =
    2 * BinderTransport::MAX_UNSETTLED.bytes + ParcelAccess::MAX_BYTES;

// Of RequestName.
constexpr uint32_t DO_NOT_QUEUE = 4;
constexpr uint32_t IS_PRIMARY_OWNER = 1;
constexpr uint32_t IS_OWNER_ALREADY = 4;

// False when a name cannot be one on a bus.
bool busName(const String16& name, std::string* text) {
    *text = NAME_PREFIX + std::string(String8(name).string());
    return sd_bus_service_name_is_valid(text->c_str()) > 0;
}

// Reads a{sv} for the two entries that matter. False when the user is not among them.
bool readCredentials(sd_bus_message* message, BinderPeer* peer) {
    bool hasUser = false;
    if (sd_bus_message_enter_container(message, 'a', "{sv}") < 0) {
        return false;
    }
    while (sd_bus_message_enter_container(message, 'e', "sv") > 0) {
        const char* key = "";
        uint32_t value = 0;
        if (sd_bus_message_read(message, "s", &key) < 0) {
            return false;
        }
        const bool isUser = strcmp(key, "UnixUserID") == 0;
        const bool isProcess = strcmp(key, "ProcessID") == 0;
        if ((isUser || isProcess ? sd_bus_message_read(message, "v", "u", &value)
                                 : sd_bus_message_skip(message, "v")) < 0) {
            return false;
        }
        if (isUser) {
            peer->uid = value;
            hasUser = true;
        } else if (isProcess) {
            peer->pid = static_cast<pid_t>(value);
        }
        sd_bus_message_exit_container(message);
    }
    return hasUser;
}

}  // namespace

sd_bus_message* BinderTransport::newBusCall(const char* member) const {
    sd_bus_message* message = nullptr;
    sd_bus_message_new_method_call(mBus, &message, BUS_NAME, BUS_PATH, BUS_NAME, member);
    return message;
}

std::shared_ptr<BinderPeer> BinderTransport::senderOf(sd_bus_message* message) {
    if (!isBus()) {
        return mPeer;
    }
    const char* sender = sd_bus_message_get_sender(message);
    std::shared_ptr<BinderPeer>& peer = mPeers[sender != nullptr ? sender : BUS_NAME];
    if (peer == nullptr) {
        peer = std::make_shared<BinderPeer>();
        peer->name = sender != nullptr ? sender : BUS_NAME;
    }
    return peer;
}

void BinderTransport::park(sd_bus_message* message, const std::shared_ptr<BinderPeer>& peer) {
    const std::optional<size_t> bytes = wire::payloadOf(message);
    if (!bytes.has_value()) {
        refuse(message, SD_BUS_ERROR_UNKNOWN_METHOD, "no such call");
        return;
    }
    if (peer->parked.size() >= MAX_PARKED || peer->parkedBytes + *bytes > MAX_PARKED_BYTES) {
        refuse(message, SD_BUS_ERROR_LIMITS_EXCEEDED, "too many calls at once");
        return;
    }
    const bool isFirst = peer->parked.empty();
    peer->parkedBytes += *bytes;
    peer->parked.push_back(sd_bus_message_ref(message));
    sd_bus_message* question = isFirst ? newBusCall("GetConnectionCredentials") : nullptr;
    if (question == nullptr) {
        return;
    }
    uint64_t cookie = 0;
    sd_bus_message_append(question, "s", peer->name.c_str());
    if (send(question, &cookie)) {
        mIdentifying[cookie] = peer->name;
    }
}

void BinderTransport::handleIdentity(sd_bus_message* message, const std::string& name,
                                     bool isError) {
    const auto found = mPeers.find(name);
    if (found == mPeers.end()) {
        return;
    }
    const std::shared_ptr<BinderPeer> peer = found->second;
    if (isError || !readCredentials(message, peer.get())) {
        loseProcess(name);  // it has gone already
        return;
    }
    peer->isIdentified = true;
    peer->parkedBytes = 0;
    for (sd_bus_message* parked : std::exchange(peer->parked, {})) {
        IncomingCall call;
        const Step step = handleCall(parked, peer, &call);
        dispatch(step, std::move(call));
        sd_bus_message_unref(parked);
    }
}

void BinderTransport::handleSignal(sd_bus_message* message) {
    const char* sender = sd_bus_message_get_sender(message);
    const char* name = "";
    const char* before = "";
    const char* after = "";
    if (isBus() && sender != nullptr && strcmp(sender, BUS_NAME) == 0 &&
        sd_bus_message_is_signal(message, BUS_NAME, "NameOwnerChanged") > 0 &&
        sd_bus_message_read(message, "sss", &name, &before, &after) > 0 && *after == '\0') {
        loseProcess(name);
    }
}

void BinderTransport::loseProcess(const std::string& name) {
    if (const auto lost = mPeers.extract(name)) {
        bury(lost.mapped());
    }
}

status_t BinderTransport::getService(const String16& name, sp<IBinder>* service,
                                     std::string* detail) {
    Parcel answer;
    Waiter waiter;
    waiter.answer = &answer;
    {
        Guard guard(*this);
        if (mHasEnded) {
            return android::DEAD_OBJECT;
        }
        std::string owner;
        if (isBus() && !busName(name, &owner)) {
            return android::BAD_VALUE;
        }
        sd_bus_message* message = nullptr;
        sd_bus_message_new_method_call(mBus, &message, isBus() ? owner.c_str() : nullptr,
                                       wire::PATH, wire::INTERFACE, wire::GET_SERVICE);
        if (message == nullptr || sd_bus_message_append(message, wire::GET_SERVICE_SIGNATURE,
                                                        String8(name).string()) < 0) {
            sd_bus_message_unref(message);
            return android::BAD_VALUE;
        }
        if (!isBus()) {
            mPeer->isTrusted = true;
        }
        waiter.peer = mPeer;
        bool isSent = false;
        const status_t status = callAndWait(guard, message, &waiter, &isSent);
        if (status != android::OK) {
            *detail = waiter.detail;
            return status;
        }
    }
    return answer.readStrongBinder(service);
}

status_t BinderTransport::askBus(Guard& guard, sd_bus_message* message, Waiter* waiter) {
    waiter->asksBus = true;
    bool isSent = false;
    return message != nullptr ? callAndWait(guard, message, waiter, &isSent)
                              : static_cast<status_t>(android::NO_MEMORY);
}

status_t BinderTransport::claimName(const String16& name) {
    std::string wanted;
    Waiter waiter;
    Guard guard(*this);
    if (!isBus() || !busName(name, &wanted)) {
        return android::BAD_VALUE;
    }
    if (mHasEnded) {
        return android::DEAD_OBJECT;
    }
    sd_bus_message* message = newBusCall("RequestName");
    if (message != nullptr) {
        sd_bus_message_append(message, "su", wanted.c_str(), DO_NOT_QUEUE);
    }
    const status_t status = askBus(guard, message, &waiter);
    if (status != android::OK) {
        return status;
    }
    return waiter.number == IS_PRIMARY_OWNER || waiter.number == IS_OWNER_ALREADY
               ? android::OK
               : static_cast<status_t>(android::ALREADY_EXISTS);
}

pid_t BinderTransport::ownerPid(const BpBinder& proxy) {
    Waiter waiter;
    Guard guard(*this);
    const BinderPeer& owner = *proxy.mOwner;
    if (proxy.mTransport.get() != this || mHasEnded || owner.isDead) {
        return -1;
    }
    if (owner.isIdentified) {
        return owner.pid;
    }
    sd_bus_message* message = newBusCall("GetConnectionUnixProcessID");
    if (message != nullptr) {
        sd_bus_message_append(message, "s", owner.name.c_str());
    }
    return askBus(guard, message, &waiter) == android::OK ? static_cast<pid_t>(waiter.number) : -1;
}

}  // namespace orvhost
