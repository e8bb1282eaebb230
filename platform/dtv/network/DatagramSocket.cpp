#include "dtv/network/DatagramSocket.h"

#include <arpa/inet.h>
#include <dtv/TunerTypes.h>
#include <fcntl.h>
#include <net/if.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "trace/HostLog.h"

namespace orvhost {

namespace {

// Below this a busy machine loses datagrams of a full multiplex: a quarter of a second.
constexpr int SMALL_BUFFER_BYTES = 1 << 20;

template <typename T>
bool set(int fd, int level, int name, const T& value) {
    return setsockopt(fd, level, name, &value, sizeof value) == 0;
}

// -1 for what is no socket.
int option(int fd, int name) {
    int value = -1;
    socklen_t length = sizeof value;
    return getsockopt(fd, SOL_SOCKET, name, &value, &length) == 0 ? value : -1;
}

}  // namespace

DatagramSocket::~DatagramSocket() {
    if (mFd >= 0) {
        close(mFd);
    }
}

std::unique_ptr<DatagramSocket> DatagramSocket::open(const NetworkUri& uri, TuneResult& result) {
    std::unique_ptr<DatagramSocket> socket(new DatagramSocket(uri));
    return socket->findInterface(result) && socket->openAndBind(result) ? std::move(socket)
                                                                        : nullptr;
}

bool DatagramSocket::isOne(int descriptor) {
    const int domain = option(descriptor, SO_DOMAIN);
    return option(descriptor, SO_TYPE) == SOCK_DGRAM && (domain == AF_INET || domain == AF_INET6);
}

std::unique_ptr<DatagramSocket> DatagramSocket::adopt(int descriptor, const NetworkUri& uri,
                                                      TuneResult& result) {
    std::unique_ptr<DatagramSocket> socket(new DatagramSocket(uri));
    const int domain = uri.family == NetworkUri::Family::V6 ? AF_INET6 : AF_INET;
    if (!isOne(descriptor) || option(descriptor, SO_DOMAIN) != domain) {
        socket->fail(result, "what was handed over is no socket for it");
        return nullptr;
    }
    socket->mFd = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
    if (socket->mFd < 0) {
        socket->fail(result, std::strerror(errno));
        return nullptr;
    }
    // What the client could leave out, or change.
    set(socket->mFd, SOL_SOCKET, SO_RXQ_OVFL, 1);
    set(socket->mFd, SOL_SOCKET, SO_TIMESTAMPNS, 1);
    socket->mInterface = if_nametoindex(uri.interface.c_str());
    socket->mBufferBytes = option(socket->mFd, SO_RCVBUF) / 2;
    return socket;
}

bool DatagramSocket::fail(TuneResult& result, const std::string& what) const {
    result = {TuneStatus::CannotOpen, mUri.toString() + ": " + what};
    return false;
}

bool DatagramSocket::findInterface(TuneResult& result) {
    if (mUri.interface.empty()) {
        return true;
    }
    mInterface = if_nametoindex(mUri.interface.c_str());
    return mInterface != 0 || fail(result, "no network interface \"" + mUri.interface +
                                               "\" on this machine; see: ip link");
}

DatagramSocket::Address DatagramSocket::addressOf(const NetworkUri& uri, const std::string& host,
                                                  uint16_t port, unsigned interface) {
    Address address;
    if (uri.family == NetworkUri::Family::V6) {
        sockaddr_in6 v6{};
        v6.sin6_family = AF_INET6;
        v6.sin6_port = htons(port);
        v6.sin6_scope_id = interface;
        inet_pton(AF_INET6, host.c_str(), &v6.sin6_addr);
        std::memcpy(&address.storage, &v6, sizeof v6);
        address.length = sizeof v6;
    } else {
        sockaddr_in v4{};
        v4.sin_family = AF_INET;
        v4.sin_port = htons(port);
        inet_pton(AF_INET, host.c_str(), &v4.sin_addr);
        std::memcpy(&address.storage, &v4, sizeof v4);
        address.length = sizeof v4;
    }
    return address;
}

bool DatagramSocket::openAndBind(TuneResult& result) {
    const bool isV6 = mUri.family == NetworkUri::Family::V6;
    mFd = ::socket(isV6 ? AF_INET6 : AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (mFd < 0) {
        return fail(result, std::string("no socket: ") + std::strerror(errno));
    }
    if (mUri.isMulticast) {
        // Programs of one machine may watch the same group. Bound to the group, and of its packets
        // those alone that this socket joined for: other groups on that port stay away.
        set(mFd, SOL_SOCKET, SO_REUSEADDR, 1);
        set(mFd, isV6 ? IPPROTO_IPV6 : IPPROTO_IP, isV6 ? IPV6_MULTICAST_ALL : IP_MULTICAST_ALL, 0);
    } else if (!mUri.interface.empty() &&
               !set(mFd, SOL_SOCKET, SO_BINDTOIFINDEX, static_cast<int>(mInterface))) {
        return fail(result, "cannot be tied to " + mUri.interface + ": " + std::strerror(errno));
    }
    growBuffer();
    set(mFd, SOL_SOCKET, SO_RXQ_OVFL, 1);
    set(mFd, SOL_SOCKET, SO_TIMESTAMPNS, 1);
    const Address address = addressOf(mUri, mUri.host, mUri.port, mInterface);
    if (bind(mFd, reinterpret_cast<const sockaddr*>(&address.storage), address.length) != 0) {
        return failBind(result);
    }
    if (mUri.isMulticast && !changeMembership(true)) {
        const int error = errno;
        const std::string named = mUri.scheme + "://INTERFACE@" + mUri.host + ":...";
        return fail(result, error == ENODEV && mUri.interface.empty()
                                ? "no route to the group; name an interface: " + named
                                : std::string("the group cannot be joined: ") +
                                      std::strerror(error) + "; try another interface: " + named);
    }
    return true;
}

bool DatagramSocket::failBind(TuneResult& result) const {
    switch (errno) {
        case EADDRNOTAVAIL:
            return fail(result, mUri.host +
                                    " is no address of this machine; name one that it "
                                    "has, or none: " +
                                    mUri.scheme + "://:" + std::to_string(mUri.port));
        case EADDRINUSE:
            return fail(result,
                        "another program receives on this port; end it, or send to "
                        "another port");
        case EACCES:
            return fail(result,
                        "this port needs rights that the player has not; use one above "
                        "1023");
        default:
            return fail(result, std::string("cannot be received: ") + std::strerror(errno));
    }
}

// The kernel doubles what it is asked for and tells the doubled figure: its own share.
void DatagramSocket::growBuffer() {
    if (!set(mFd, SOL_SOCKET, SO_RCVBUFFORCE, WANTED_BUFFER_BYTES)) {
        set(mFd, SOL_SOCKET, SO_RCVBUF, WANTED_BUFFER_BYTES);
    }
    mBufferBytes = option(mFd, SO_RCVBUF) / 2;
    const std::string name = mUri.toString();
    if (mBufferBytes < SMALL_BUFFER_BYTES) {
        HOST_LOGW("%s: %s: receive buffer of %d KiB only; raise net.core.rmem_max to %d\n",
                  __func__, name.c_str(), mBufferBytes >> 10, WANTED_BUFFER_BYTES);
    } else {
        HOST_LOGI("%s: %s: receive buffer of %d KiB\n", __func__, name.c_str(), mBufferBytes >> 10);
    }
}

bool DatagramSocket::changeMembership(bool join) {
    const int level = mUri.family == NetworkUri::Family::V6 ? IPPROTO_IPV6 : IPPROTO_IP;
    const Address group = addressOf(mUri, mUri.host, 0, mInterface);
    if (mUri.sender.empty()) {
        group_req request{};
        request.gr_interface = mInterface;
        request.gr_group = group.storage;
        return set(mFd, level, join ? MCAST_JOIN_GROUP : MCAST_LEAVE_GROUP, request);
    }
    group_source_req request{};
    request.gsr_interface = mInterface;
    request.gsr_group = group.storage;
    request.gsr_source = addressOf(mUri, mUri.sender, 0, mInterface).storage;
    return set(mFd, level, join ? MCAST_JOIN_SOURCE_GROUP : MCAST_LEAVE_SOURCE_GROUP, request);
}

void DatagramSocket::joinAgain() {
    if (!mUri.isMulticast || (!mUri.interface.empty() && mInterface == 0)) {
        return;
    }
    changeMembership(false);
    if (!mUri.interface.empty()) {
        const unsigned found = if_nametoindex(mUri.interface.c_str());
        mInterface = found != 0 ? found : mInterface;
    }
    changeMembership(true);
}

// The count of drops is 32 bits, since the socket was opened.
void DatagramSocket::readControl(msghdr& header, Datagram* datagram) {
    datagram->arrivedNs = 0;
    for (cmsghdr* c = CMSG_FIRSTHDR(&header); c != nullptr; c = CMSG_NXTHDR(&header, c)) {
        if (c->cmsg_level != SOL_SOCKET) {
            continue;
        }
        if (c->cmsg_type == SO_RXQ_OVFL) {
            uint32_t count = 0;
            std::memcpy(&count, CMSG_DATA(c), sizeof count);
            mKernelDrops += count - mLastDropCount;
            mLastDropCount = count;
        } else if (c->cmsg_type == SCM_TIMESTAMPNS) {
            timespec time;
            std::memcpy(&time, CMSG_DATA(c), sizeof time);
            datagram->arrivedNs = int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
        }
    }
}

size_t DatagramSocket::receive(Datagram* datagrams, size_t count) {
    count = std::min(count, BATCH);
    for (size_t i = 0; i < count; ++i) {
        mParts[i] = {datagrams[i].bytes, Datagram::MAX_BYTES};
        msghdr& header = mHeaders[i].msg_hdr;
        header.msg_iov = &mParts[i];
        header.msg_iovlen = 1;
        header.msg_control = mControls[i].bytes;
        header.msg_controllen = sizeof mControls[i].bytes;
    }
    const int got =
        recvmmsg(mFd, mHeaders.data(), static_cast<unsigned>(count), MSG_DONTWAIT, nullptr);
    if (got < 0) {
        return 0;  // nothing there; other errors are about datagrams that are gone already
    }
    for (size_t i = 0; i < static_cast<size_t>(got); ++i) {
        datagrams[i].size = mHeaders[i].msg_len;
        readControl(mHeaders[i].msg_hdr, &datagrams[i]);
    }
    return static_cast<size_t>(got);
}

}  // namespace orvhost
