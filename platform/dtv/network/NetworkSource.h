#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "dtv/ByteSource.h"
#include "dtv/HostClock.h"
#include "dtv/network/ArrivalJitter.h"
#include "dtv/network/DatagramContent.h"
#include "dtv/network/DatagramSocket.h"
#include "dtv/network/RtpReorder.h"

namespace orvhost {

// Transport stream packets out of the datagrams of a sender, with an RTP header or without.
//
//   socket --recvmmsg--> [slots] --content--> bare: as it came ------------> [ready] --> reader
//                                        `--> RTP: RtpReorder, by number --/
//
// Slots are buffers of one datagram each that go round: held ones stay where the kernel put them,
// and the way to the reader is the only copy; it leaves out headers and parity. A datagram without
// packets costs nothing but itself.
//
// There is no end: a sender that is silent may come back, in whatever sequence.
class NetworkSource : public ByteSource {
public:
    // Null without a socket; `result` has the reason.
    static std::unique_ptr<NetworkSource> over(std::unique_ptr<DatagramSocket> socket,
                                               HostClock& clock, TuneResult& result);
    ~NetworkSource() override;

    // Whole packets of 188 bytes.
    ssize_t read(uint8_t* data, size_t size, int timeoutMs) override;
    bool rewind() override { return false; }
    bool seek(uint64_t) override { return false; }
    int duplicate() const override { return -1; }
    void interrupt() override;
    bool isLive() const override { return true; }
    bool givesPackets() const override { return true; }
    NetworkStatistics network() const override;

private:
    // A part of a slot that may go to the reader.
    struct Ready {
        int slot;
        size_t begin;
        size_t size;
    };

    NetworkSource(std::unique_ptr<DatagramSocket> socket, int wake, HostClock& clock);
    bool waitForData(int timeoutMs);
    void receive();
    void sort(int slot, const Datagram& datagram, int64_t nowNs);
    void takeFromReorder(int64_t nowNs);
    bool makeReady(int slot, size_t begin, size_t size);
    size_t copyReady(uint8_t* data, size_t size);
    void publish();
    uint8_t* bytesOf(int slot) { return mMemory.get() + static_cast<size_t>(slot) * SLOT_STRIDE; }

    // Those of a batch, those that are held, and some that the reader has not taken.
    static constexpr size_t SLOTS = DatagramSocket::BATCH * 2 + RtpReorder::WINDOW;
    // Not a power of two, which would have all slots share the same lines of the caches.
    static constexpr size_t SLOT_STRIDE = Datagram::MAX_BYTES + 1600;

    const std::unique_ptr<DatagramSocket> mSocket;
    const int mWake;
    HostClock& mClock;
    std::atomic<bool> mInterrupted{false};

    // The reader's thread only.
    const std::unique_ptr<uint8_t[]> mMemory;  // only what datagrams came to is ever backed
    std::vector<int> mFree;                    // the one that was used last is used next
    std::vector<DatagramContent> mContents;    // of held slots
    std::vector<int64_t> mArrivedNs;           // likewise
    std::vector<Ready> mReady;
    size_t mReadyFirst = 0;
    RtpReorder mReorder;
    ArrivalJitter mJitter;
    int64_t mLastCameNs;
    NetworkStatistics mCounts;

    mutable std::mutex mMutex;  // what was counted, for other threads
    NetworkStatistics mPublished;
};

}  // namespace orvhost
