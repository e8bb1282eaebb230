#pragma once

#include <binder/IBinder.h>
#include <binder/Parcel.h>
#include <sys/types.h>
#include <systemd/sd-bus.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace orvhost {

struct BinderPeer;

// Held by every call of one process until that call is over.
struct CallsUnderWay {};

// How much of something there is: one-way calls under way, for one.
struct Load {
    size_t calls = 0;
    size_t bytes = 0;
    size_t descriptors = 0;

    void add(const Load& other) {
        calls += other.calls;
        bytes += other.bytes;
        descriptors += other.descriptors;
    }
    void subtract(const Load& other) {
        calls -= other.calls;
        bytes -= other.bytes;
        descriptors -= other.descriptors;
    }
    bool exceeds(const Load& bound) const {
        return calls > bound.calls || bytes > bound.bytes || descriptors > bound.descriptors;
    }
};

// A call that arrived, taken apart. The request is the transport's: answered or dropped through it.
struct IncomingCall {
    std::shared_ptr<BinderPeer> peer;
    std::shared_ptr<CallsUnderWay> underWay;
    sd_bus_message* request = nullptr;     // null: nobody waits for the answer
    android::sp<android::IBinder> target;  // null: the name of a service is asked for
    android::String16 service;
    uint32_t code = 0;
    uint32_t flags = 0;
    std::unique_ptr<android::Parcel> data;
    Load load;
    pid_t pid = -1;
    uid_t uid = static_cast<uid_t>(-1);
    bool isTrusted = false;
};

// One process at the other end: of a socket, or somewhere on the bus. Everything is guarded by the
// transport's lock.
struct BinderPeer {
    std::string name;  // its unique name on the bus; empty: the other end of a socket
    pid_t pid = -1;
    uid_t uid = static_cast<uid_t>(-1);
    bool isIdentified = false;  // pid and uid are known
    bool isTrusted = false;     // we asked it for a service: it may call back whoever it runs as
    bool isDead = false;

    std::unordered_map<uint64_t, android::wp<android::BpBinder>> proxies;  // by its object's id

    std::shared_ptr<CallsUnderWay> underWay = std::make_shared<CallsUnderWay>();

    // One-way calls to it: not known to be executed, and since it was last asked to tell.
    Load unsettled;
    Load sinceAsked;

    // One-way calls of it, in order; one thread at a time executes them.
    std::deque<IncomingCall> oneWay;
    Load oneWayLoad;
    bool isDraining = false;

    // On a bus: its messages while the daemon is asked who it is.
    std::vector<sd_bus_message*> parked;
    size_t parkedBytes = 0;
};

}  // namespace orvhost
