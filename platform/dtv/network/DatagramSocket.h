#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "dtv/network/NetworkUri.h"

namespace orvhost {

struct TuneResult;

// A datagram and where to put it. The caller's buffer of MAX_BYTES.
struct Datagram {
    uint8_t* bytes = nullptr;
    size_t size = 0;
    int64_t arrivedNs = 0;  // as the kernel stamped it, by the system's time of day; 0: unknown

    static constexpr size_t MAX_BYTES = 65536;  // more than UDP carries
};

// The socket of one network source: bound, joined to its group, never waiting. One thread.
//
// A service that may open no such socket works on one that its client opened: open() there,
// descriptor() handed over, adopt() here. Both then stand for one socket.
class DatagramSocket {
public:
    static constexpr size_t BATCH = 64;  // taken by one call of the system at most

    // Null with the reason in `result`, one line that says what to do.
    static std::unique_ptr<DatagramSocket> open(const NetworkUri& uri, TuneResult& result);
    // Over a socket that was opened for that URI; the descriptor stays the caller's. Null with the
    // reason in `result` for what is no such socket.
    static std::unique_ptr<DatagramSocket> adopt(int descriptor, const NetworkUri& uri,
                                                 TuneResult& result);
    // Whether a descriptor is a socket for datagrams of a network.
    static bool isOne(int descriptor);
    ~DatagramSocket();
    DatagramSocket(const DatagramSocket&) = delete;  // headers point into it
    DatagramSocket& operator=(const DatagramSocket&) = delete;

    int descriptor() const { return mFd; }

    // Takes what has come, at most `count` and BATCH of them, into these. Their number, or 0.
    size_t receive(Datagram* datagrams, size_t count);

    // Leaves the group and joins it again, for an interface that went away and came back.
    void joinAgain();

    // Datagrams that came to the socket while its buffer was full.
    uint64_t kernelDrops() const { return mKernelDrops; }

    // What the kernel gave, of WANTED_BUFFER_BYTES.
    int bufferBytes() const { return mBufferBytes; }

    // A second at 17 Mbit/s and more, with what the kernel adds to each datagram.
    static constexpr int WANTED_BUFFER_BYTES = 4 << 20;

private:
    static constexpr size_t CONTROL_BYTES = CMSG_SPACE(sizeof(uint32_t)) + CMSG_SPACE(16);

    struct Address {
        sockaddr_storage storage{};
        socklen_t length = 0;
    };

    explicit DatagramSocket(const NetworkUri& uri) : mUri(uri) {}
    bool openAndBind(TuneResult& result);
    bool fail(TuneResult& result, const std::string& what) const;
    bool failBind(TuneResult& result) const;
    void growBuffer();
    bool findInterface(TuneResult& result);
    bool changeMembership(bool join);
    void readControl(msghdr& header, Datagram* datagram);
    static Address addressOf(const NetworkUri& uri, const std::string& host, uint16_t port,
                             unsigned interface);

    const NetworkUri mUri;
    int mFd = -1;
    unsigned mInterface = 0;  // 0: the system chooses
    int mBufferBytes = 0;
    uint64_t mKernelDrops = 0;
    uint32_t mLastDropCount = 0;

    std::array<mmsghdr, BATCH> mHeaders{};
    std::array<iovec, BATCH> mParts{};
    struct alignas(cmsghdr) Control {
        uint8_t bytes[CONTROL_BYTES];
    };
    std::array<Control, BATCH> mControls;
};

}  // namespace orvhost
