#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "dtv/network/NetworkUri.h"

namespace orvtest {

// Sends datagrams to where a receiver of the same URI listens: to a group at an interface, or to an
// address. One thread.
class UdpSender {
public:
    // Null, and one line, when that cannot be. `hops`: how many routers multicast may pass, 0: it
    // stays on this machine. `from`: the sender's address, empty: the system chooses.
    static std::unique_ptr<UdpSender> open(const orvhost::NetworkUri& uri, int hops,
                                           const std::string& from, std::string* error);
    ~UdpSender();
    UdpSender(const UdpSender&) = delete;  // it owns the socket
    UdpSender& operator=(const UdpSender&) = delete;

    // 0, or an errno: nobody listens, no route.
    int send(const std::vector<uint8_t>& datagram);

private:
    explicit UdpSender(int fd) : mFd(fd) {}

    const int mFd;
    sockaddr_storage mTo{};
    socklen_t mToLength = 0;
};

}  // namespace orvtest
