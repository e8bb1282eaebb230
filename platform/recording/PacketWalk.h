#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace orvhost {

// The packets of a file with their places, in stretches without anything between them.
//
//   PacketWalk walk(fd, 0, 0);
//   while (walk.next())
//       for (size_t i = 0; i < walk.count(); ++i)
//           ... walk.packet(i), walk.offsetOf(i) ...
//
// Bytes that are no packet are passed over; packets may have 4 or 16 bytes between them. The file
// is read with pread.
class PacketWalk {
public:
    // From `start` on. packetBytes: 188, 192 or 204, or 0 for what is found.
    PacketWalk(int fd, uint64_t start, size_t packetBytes);

    // False at the end of the file, on a read error, and where no packet can be found at all.
    bool next();

    size_t count() const { return mCount; }
    const uint8_t* packet(size_t i) const { return mBlock.data() + mAt + i * mPeriod; }
    uint64_t offsetOf(size_t i) const { return mBlockAt + mAt + i * mPeriod; }

    // The packets of this stretch one behind the other.
    const uint8_t* contiguous();

    size_t packetBytes() const { return mPeriod; }               // 0: none found
    uint64_t offset() const { return mBlockAt + mAt + mTaken; }  // all before it was looked at
    // Once next() was false: the end was not reached, or there were no packets.
    bool isBroken() const { return mError || mPeriod == 0; }

private:
    void refill();
    bool syncsAt(size_t at, size_t period) const;
    bool locksAt(size_t at);
    void passOver();
    void takeRun();

    const int mFd;
    uint64_t mBlockAt;  // in the file
    size_t mPeriod;
    std::vector<uint8_t> mBlock;
    size_t mSize = 0;   // what of the block is filled
    size_t mAt = 0;     // what next() found ...
    size_t mTaken = 0;  // ... in bytes
    size_t mCount = 0;
    std::vector<uint8_t> mCompact;
    bool mInSync = false;
    bool mAtEnd = false;
    bool mError = false;
};

}  // namespace orvhost
