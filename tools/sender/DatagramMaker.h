#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <random>
#include <vector>

namespace orvtest {

// What the way over a network does to datagrams, each as a part of all of them.
struct NetworkFaults {
    double drop = 0.0;
    double duplicate = 0.0;
    double reorder = 0.0;
    uint64_t seed = 1;
};

// Puts transport stream packets into datagrams, seven in each, with an RTP header (RFC 3550, RFC
// 2250) or without, and has the faults happen to them: with the same seed the same ones. A datagram
// that is out of order, or a copy, comes 1 to 4 datagrams late.
class DatagramMaker {
public:
    using Bytes = std::vector<uint8_t>;
    using Sink = std::function<void(const Bytes& datagram)>;

    DatagramMaker(bool isRtp, const NetworkFaults& faults, Sink sink);

    // One packet of 188 bytes, due at that time of 90 kHz.
    void add(const uint8_t* packet, uint32_t time90k);

    // Sends what is not full yet and what is late.
    void flush();

    // Goes on as a sender that was started again: another SSRC, other sequence numbers.
    void restart();

    // While true everything that is sent is dropped.
    void setOutage(bool outage) { mOutage = outage; }

    uint64_t made() const { return mMade; }
    uint64_t dropped() const { return mDropped; }
    uint64_t duplicated() const { return mDuplicated; }
    uint64_t reordered() const { return mReordered; }

    static constexpr size_t PACKETS = 7;

private:
    struct Late {
        uint64_t behind;  // this datagram
        Bytes datagram;
    };

    void beginDatagram(uint32_t time90k);
    void finishDatagram();
    void sendLate();
    bool happens(double part);
    void delay(const Bytes& datagram);

    const bool mIsRtp;
    const NetworkFaults mFaults;
    const Sink mSink;
    std::mt19937_64 mRandom;
    uint32_t mSsrc = 0;
    uint16_t mNumber = 0;
    Bytes mDatagram;
    size_t mPackets = 0;
    bool mOutage = false;
    std::vector<Late> mLate;
    uint64_t mMade = 0;
    uint64_t mDropped = 0;
    uint64_t mDuplicated = 0;
    uint64_t mReordered = 0;
};

}  // namespace orvtest
