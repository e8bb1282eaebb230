#pragma once

#include <binder/IBinder.h>

#include <functional>
#include <memory>
#include <string>

namespace orvhost {

class BinderTransport;

// A way to the binder objects of other processes, and theirs to the objects of this one.
//
//   peer to peer:  two processes, one connected socket (AF_UNIX, stream), no daemon
//   bus:           any number of processes at a D-Bus bus
//
//   auto connection = BinderConnection::overSocket(fd, BinderConnection::APPLICATION, &error);
//   sp<IBinder> player = connection->getService(String16("OrvPlayer"), &error);
//
// Both carry the same parcels: a call is one D-Bus message (see docs/binder.md). The objects named
// at defaultServiceManager() can be reached from the other end, others once they were passed along
// in a parcel, by who they were passed to.
//
// Callers of another user are refused unless they are root or the policy lets them
// (PERMISSION_DENIED at their end). A process that was asked for a service may always call back.
//
// A connection keeps a few threads ("Binder") that read and execute calls. It ends with
// disconnect(), or when the other end or the bus goes: then calls under way and all later ones
// answer DEAD_OBJECT, and death recipients are told. Any thread.
class BinderConnection : public android::RefBase {
public:
    // D-Bus wants one end of a socket to answer for both.
    enum Role { SERVICE, APPLICATION };
    enum Bus { SESSION_BUS, SYSTEM_BUS };

    // Takes the socket, on failure too, and waits up to 5 s for the other end, which may come
    // later. Null, and one line in *error, on failure.
    static android::sp<BinderConnection> overSocket(int fd, Role role, std::string* error);

    // Connects to the bus. `address` goes before the bus's own when it is not empty.
    static android::sp<BinderConnection> toBus(Bus bus, const std::string& address,
                                               std::string* error);

    // The object of a name: at the other end of a socket; on a bus, of the process that holds
    // "org.orvplayer.NAME". Null, and one line, when there is none (a bus starts the service if it
    // knows how).
    android::sp<android::IBinder> getService(const android::String16& name, std::string* error);

    // On a bus: takes "org.orvplayer.NAME" for an object of this process. False, and one line, when
    // another process holds it or the bus's policy forbids it.
    bool claimName(const android::String16& name, std::string* error);

    // Called once, on a thread of the connection, when it ends without disconnect(). Set before
    // it can happen matters not: a connection that has ended calls at once.
    void setDisconnectedCallback(std::function<void()> callback);

    bool isConnected() const;
    // The process at the other end of a socket; -1 on a bus. For a service on a bus:
    // the process that owns a proxy, or -1.
    pid_t peerPid() const;
    pid_t ownerPid(const android::sp<android::IBinder>& proxy) const;

    // Ends it. Not from one of its own threads. When this returns none of them runs.
    void disconnect();

    // What there is of this connection's, for tests and reports.
    struct Figures {
        size_t exportedObjects = 0;  // of ours, held by others
        size_t proxies = 0;          // of others', held by us
        size_t queuedOneWay = 0;     // calls not known to be executed: told 64 at a time
        size_t droppedOneWay = 0;    // refused because too many were under way
    };
    Figures figures() const;

private:
    explicit BinderConnection(std::shared_ptr<BinderTransport> transport);
    ~BinderConnection() override;

    const std::shared_ptr<BinderTransport> mTransport;
};

}  // namespace orvhost
