#include "sender/UdpSender.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace orvtest {

namespace {

using orvhost::NetworkUri;

constexpr int SEND_BUFFER_BYTES = 1 << 20;

template <typename T>
bool set(int fd, int level, int name, const T& value) {
    return setsockopt(fd, level, name, &value, sizeof value) == 0;
}

socklen_t makeAddress(bool isV6, const std::string& host, uint16_t port, unsigned interface,
                      sockaddr_storage* out) {
    if (isV6) {
        sockaddr_in6 v6{};
        v6.sin6_family = AF_INET6;
        v6.sin6_port = htons(port);
        v6.sin6_scope_id = interface;
        inet_pton(AF_INET6, host.c_str(), &v6.sin6_addr);
        std::memcpy(out, &v6, sizeof v6);
        return sizeof v6;
    }
    sockaddr_in v4{};
    v4.sin_family = AF_INET;
    v4.sin_port = htons(port);
    inet_pton(AF_INET, host.c_str(), &v4.sin_addr);
    std::memcpy(out, &v4, sizeof v4);
    return sizeof v4;
}

bool chooseWay(int fd, bool isV6, unsigned interface, int hops) {
    if (isV6) {
        return set(fd, IPPROTO_IPV6, IPV6_MULTICAST_HOPS, hops) &&
               (interface == 0 || set(fd, IPPROTO_IPV6, IPV6_MULTICAST_IF, interface));
    }
    ip_mreqn way{};
    way.imr_ifindex = static_cast<int>(interface);
    return set(fd, IPPROTO_IP, IP_MULTICAST_TTL, hops) &&
           (interface == 0 || set(fd, IPPROTO_IP, IP_MULTICAST_IF, way));
}

}  // namespace

std::unique_ptr<UdpSender> UdpSender::open(const NetworkUri& uri, int hops, const std::string& from,
                                           std::string* error) {
    const bool isV6 = uri.family == NetworkUri::Family::V6;
    const int fd = socket(isV6 ? AF_INET6 : AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    std::unique_ptr<UdpSender> sender(fd < 0 ? nullptr : new UdpSender(fd));
    const unsigned interface = uri.interface.empty() ? 0 : if_nametoindex(uri.interface.c_str());
    if (!uri.interface.empty() && interface == 0) {
        *error = uri.interface + ": no such network interface; see: ip link";
        return nullptr;
    }
    sockaddr_storage own{};
    const socklen_t ownLength = makeAddress(isV6, from, 0, interface, &own);
    if (sender == nullptr || !chooseWay(fd, isV6, interface, hops) ||
        (!from.empty() && bind(fd, reinterpret_cast<const sockaddr*>(&own), ownLength) != 0)) {
        *error = uri.toString() + ": cannot be sent to: " + std::strerror(errno);
        return nullptr;
    }
    set(fd, SOL_SOCKET, SO_SNDBUF, SEND_BUFFER_BYTES);
    sender->mToLength = makeAddress(isV6, uri.host, uri.port, interface, &sender->mTo);
    return sender;
}

UdpSender::~UdpSender() {
    close(mFd);
}

int UdpSender::send(const std::vector<uint8_t>& datagram) {
    const ssize_t sent = sendto(mFd, datagram.data(), datagram.size(), 0,
                                reinterpret_cast<const sockaddr*>(&mTo), mToLength);
    return sent < 0 ? errno : 0;
}

}  // namespace orvtest
