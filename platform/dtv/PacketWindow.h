#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "dtv/ByteSource.h"
#include "dtv/PacketSynchronizer.h"
#include "dtv/TsPacket.h"

namespace orvhost {

// The stretch of a source that was read and not fed yet.
//
//   | fed | packets ... | fresh packets | bytes of a packet to come |  room  |
//         ^ packets()   ^ fresh()
//
// The source reads into the room; packets are aligned where they lie. In a clean stream of 188-byte
// packets no byte moves until the room is used up. Feeding thread only.
class PacketWindow {
public:
    // Reads once, at most `most` bytes, waiting up to timeoutMs. Returns what the source returned;
    // the packets found are fresh(). `mayGrow`: there may be more after an end; what is not a whole
    // packet waits for it.
    ssize_t fill(ByteSource& source, size_t most, int timeoutMs, bool mayGrow = false);

    const uint8_t* packets() const { return mBuffer.data() + mBegin; }
    size_t count() const { return mCount; }
    const uint8_t* fresh() const { return packets() + (mCount - mFresh) * TS_PACKET_BYTES; }
    size_t freshCount() const { return mFresh; }

    // The first `count` packets were fed.
    void release(size_t count);

    // Forgets everything that was read, for a jump in the source.
    void clear();

    const PacketSynchronizer& synchronizer() const { return mSynchronizer; }

private:
    void makeRoom(size_t bytes);

    std::vector<uint8_t> mBuffer;
    size_t mBegin = 0;  // of the packets
    size_t mCount = 0;  // packets
    size_t mFresh = 0;  // of them, from the last fill()
    size_t mRaw = 0;    // bytes behind the packets
    PacketSynchronizer mSynchronizer;
};

}  // namespace orvhost
