#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

#include "dtv/TsPacket.h"

namespace orvhost {

// Packets on their way from the feed to the thread that writes them.
//
//   push() push() push() publish()  -->  | ring |  -->  wait() release()
//
// Bounded; neither side waits for the other's work here. One lock for a batch of packets on the
// feeding side, two for a block on the writing side, and the writer reads where the feed wrote. A
// queue that is kept empty stays in its first pages, and the others are never backed.
class PacketQueue {
public:
    explicit PacketQueue(size_t packets);
    PacketQueue(const PacketQueue&) = delete;  // its users know it by address
    PacketQueue& operator=(const PacketQueue&) = delete;

    // Without memory it is full from the start.
    bool isUsable() const { return mRing != nullptr; }

    // ---- The feeding side, one thread at a time.

    // False when it is full.
    bool push(const uint8_t* packet);
    // Takes back what was pushed since publish().
    void rollBack();
    // Hands over what was pushed, and wakes the writer when that is what it waits for.
    void publish();
    // Whether half of it is empty. After a "no" a release() tells when that is so again.
    bool hasRoom();
    // Of everything that was pushed and not taken back.
    uint64_t pushedBytes() const { return mPushed * TS_PACKET_BYTES; }

    // ---- The writing side, one thread.

    struct Stretch {
        const uint8_t* data = nullptr;
        size_t packets = 0;
    };

    // Waits for so many packets, at most so long; wake() ends the wait. Then gives the oldest ones
    // that lie one behind the other, at most `most`, or nothing.
    Stretch wait(size_t enough, size_t most, int timeoutMs);
    // The first packets of the stretch are written. True when the feeding side, which found no
    // room, has it again.
    bool release(size_t packets);

    // Ends the present wait, or the next one. Any thread.
    void wake();

private:
    const size_t mDepth;
    std::unique_ptr<uint8_t[]> mRing;

    // Feeding side.
    size_t mHead = 0;     // where the next packet goes
    size_t mPending = 0;  // pushed and not published
    size_t mKnown = 0;    // an upper bound of mFilled
    uint64_t mPushed = 0;

    std::mutex mMutex;  // all below
    std::condition_variable mWake;
    size_t mFirst = 0;
    size_t mFilled = 0;
    size_t mEnough = 0;  // of a writer that waits; 0: none does
    bool mWoken = false;
    bool mRefused = false;  // hasRoom() said no
};

}  // namespace orvhost
