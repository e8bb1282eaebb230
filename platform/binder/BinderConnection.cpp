#include "binder/BinderConnection.h"

#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utils/String8.h>

#include "binder/BinderTransport.h"
#include "binder/BpBinder.h"

#include <algorithm>
#include <chrono>

using android::IBinder;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;

namespace orvhost {

namespace {

constexpr std::chrono::seconds HANDSHAKE_TIMEOUT(5);

struct BusDeleter {
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
using BusPointer = std::unique_ptr<sd_bus, BusDeleter>;

bool isUnixStream(int fd) {
    int domain = 0;
    int type = 0;
    socklen_t size = sizeof domain;
    return getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_UNIX &&
           getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_STREAM;
}

// Waits until both ends have agreed; negative: they do not.
int finishHandshake(sd_bus* bus) {
    const auto deadline = std::chrono::steady_clock::now() + HANDSHAKE_TIMEOUT;
    while (true) {
        const int ready = sd_bus_is_ready(bus);
        if (ready != 0) {
            return ready;
        }
        const int progress = sd_bus_process(bus, nullptr);
        if (progress < 0) {
            return progress;
        }
        if (progress > 0) {
            continue;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return -ETIMEDOUT;
        }
        const int events = sd_bus_get_events(bus);
        pollfd watched = {sd_bus_get_fd(bus), static_cast<short>(std::max(events, 0)), 0};
        poll(&watched, 1, static_cast<int>(left.count()) + 1);
    }
}

BusPointer openSocket(int fd, bool isServer, std::string* error) {
    sd_bus* made = nullptr;
    int result = sd_bus_new(&made);
    if (result < 0) {
        close(fd);
        *error = std::string("no memory for the connection: ") + strerror(-result);
        return nullptr;
    }
    BusPointer bus(made);
    result = sd_bus_set_fd(made, fd, fd);  // closes it from here on
    sd_id128_t id = {};
    if (result >= 0 && isServer) {
        result = sd_id128_randomize(&id);
        if (result >= 0) {
            result = sd_bus_set_server(made, 1, id);
        }
    }
    // Who is at the other end says the kernel; the handshake need not.
    if (result < 0 || (result = sd_bus_set_anonymous(made, 1)) < 0 ||
        (result = sd_bus_negotiate_fds(made, 1)) < 0 || (result = sd_bus_start(made)) < 0 ||
        (result = finishHandshake(made)) < 0) {
        *error = std::string("the other end of the socket does not answer as it should: ") +
                 strerror(-result);
        return nullptr;
    }
    return bus;
}

// What makes a process that ends known on the bus.
constexpr char DEATHS[] =
    "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
    "member='NameOwnerChanged',arg2=''";

BusPointer openBus(BinderConnection::Bus kind, const std::string& address, std::string* error) {
    sd_bus* made = nullptr;
    int result = 0;
    if (!address.empty()) {
        result = sd_bus_new(&made);
        if (result >= 0 && (result = sd_bus_set_address(made, address.c_str())) >= 0 &&
            (result = sd_bus_set_bus_client(made, 1)) >= 0) {
            result = sd_bus_start(made);
        }
    } else {
        result = kind == BinderConnection::SYSTEM_BUS ? sd_bus_open_system(&made)
                                                      : sd_bus_open_user(&made);
    }
    BusPointer bus(made);
    if (result < 0 || (result = finishHandshake(made)) < 0 ||
        (result = sd_bus_set_method_call_timeout(
             made, std::chrono::microseconds(HANDSHAKE_TIMEOUT).count())) < 0 ||
        (result = sd_bus_call_method(made, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                     "org.freedesktop.DBus", "AddMatch", nullptr, nullptr, "s",
                                     DEATHS)) < 0) {
        *error = std::string("the ") +
                 (!address.empty()                       ? "bus " + address
                  : kind == BinderConnection::SYSTEM_BUS ? "system bus"
                                                         : "session bus") +
                 " cannot be reached: " +
                 (result == -ENOMEDIUM ? "DBUS_SESSION_BUS_ADDRESS is not set" : strerror(-result));
        return nullptr;
    }
    return bus;
}

}  // namespace

BinderConnection::BinderConnection(std::shared_ptr<BinderTransport> transport)
    : mTransport(std::move(transport)) {}

BinderConnection::~BinderConnection() {
    mTransport->disconnect();
}

sp<BinderConnection> BinderConnection::overSocket(int fd, Role role, std::string* error) {
    ucred other = {};
    socklen_t size = sizeof other;
    if (!isUnixStream(fd) || getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &other, &size) != 0) {
        *error = "descriptor " + std::to_string(fd) + " is not a connected local stream socket";
        if (fd >= 0) {
            close(fd);
        }
        return nullptr;
    }
    BusPointer bus = openSocket(fd, role == SERVICE, error);
    if (bus == nullptr) {
        return nullptr;
    }
    auto peer = std::make_shared<BinderPeer>();
    peer->pid = other.pid;
    peer->uid = other.uid;
    peer->isIdentified = true;
    const sp<BinderConnection> connection(
        new BinderConnection(std::make_shared<BinderTransport>()));
    if (!connection->mTransport->start(bus.release(), std::move(peer), error)) {
        return nullptr;
    }
    return connection;
}

sp<BinderConnection> BinderConnection::toBus(Bus kind, const std::string& address,
                                             std::string* error) {
    BusPointer bus = openBus(kind, address, error);
    if (bus == nullptr) {
        return nullptr;
    }
    const sp<BinderConnection> connection(
        new BinderConnection(std::make_shared<BinderTransport>()));
    if (!connection->mTransport->start(bus.release(), nullptr, error)) {
        return nullptr;
    }
    return connection;
}

sp<IBinder> BinderConnection::getService(const String16& name, std::string* error) {
    sp<IBinder> service;
    std::string detail;
    const status_t status = mTransport->getService(name, &service, &detail);
    if (status == android::OK) {
        return service;
    }
    const std::string quoted = std::string("\"") + String8(name).string() + "\"";
    switch (status) {
        case android::NAME_NOT_FOUND:
            *error = "there is no service " + quoted;
            break;
        case android::PERMISSION_DENIED:
            *error = "service " + quoted + " refuses this user";
            break;
        case android::TIMED_OUT:
            *error = "service " + quoted + " does not answer";
            break;
        case android::DEAD_OBJECT:
            *error = "service " + quoted + " cannot be reached: its process is gone";
            break;
        default:
            *error = "service " + quoted + " cannot be reached: " +
                     (detail.empty() ? "status " + std::to_string(status) : detail);
            break;
    }
    return nullptr;
}

bool BinderConnection::claimName(const String16& name, std::string* error) {
    const status_t status = mTransport->claimName(name);
    if (status == android::OK) {
        return true;
    }
    const std::string quoted = std::string("\"org.orvplayer.") + String8(name).string() + "\"";
    switch (status) {
        case android::ALREADY_EXISTS:
            *error = "another process has the name " + quoted;
            break;
        case android::PERMISSION_DENIED:
            *error = "the bus does not let this user have the name " + quoted;
            break;
        case android::BAD_VALUE:
            *error = quoted + " cannot be a name, or this is no bus";
            break;
        default:
            *error =
                "the bus does not give the name " + quoted + ": status " + std::to_string(status);
            break;
    }
    return false;
}

void BinderConnection::setDisconnectedCallback(std::function<void()> callback) {
    mTransport->setDisconnectedCallback(std::move(callback));
}

bool BinderConnection::isConnected() const {
    return mTransport->isConnected();
}

pid_t BinderConnection::peerPid() const {
    return mTransport->peerPid();
}

pid_t BinderConnection::ownerPid(const sp<IBinder>& proxy) const {
    const android::BpBinder* remote = proxy != nullptr ? proxy->remoteBinder() : nullptr;
    return remote != nullptr ? mTransport->ownerPid(*remote) : -1;
}

void BinderConnection::disconnect() {
    mTransport->disconnect();
}

BinderConnection::Figures BinderConnection::figures() const {
    return mTransport->figures();
}

}  // namespace orvhost
