#include "recording/PacketWalk.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "dtv/TsPacket.h"
#include "recording/FileBytes.h"

namespace orvhost {

namespace {

constexpr size_t BLOCK_BYTES = 1 << 20;
constexpr size_t SYNCS_TO_LOCK = 5;
constexpr size_t PERIODS[] = {188, 192, 204};
constexpr size_t LOCK_BYTES = SYNCS_TO_LOCK * 204;
constexpr uint64_t SYNC_BYTES = 1 << 20;  // so much without a packet is no transport stream

}  // namespace

PacketWalk::PacketWalk(int fd, uint64_t start, size_t packetBytes)
    : mFd(fd), mBlockAt(start), mPeriod(packetBytes), mBlock(BLOCK_BYTES) {}

bool PacketWalk::next() {
    mCount = 0;
    while (mCount == 0) {
        mAt += mTaken;
        mTaken = 0;
        if (mSize - mAt < LOCK_BYTES && !mAtEnd) {
            refill();
        }
        if (mSize - mAt < TS_PACKET_BYTES) {
            mTaken = mSize - mAt;
            return false;
        }
        if (mPeriod == 0 && mBlockAt + mAt > SYNC_BYTES) {
            return false;
        }
        mInSync = mBlock[mAt] == TS_SYNC_BYTE && (mInSync || locksAt(mAt));
        if (mInSync) {
            takeRun();
        } else {
            passOver();
        }
    }
    return true;
}

void PacketWalk::refill() {
    std::memmove(mBlock.data(), mBlock.data() + mAt, mSize - mAt);
    mBlockAt += mAt;
    mSize -= mAt;
    mAt = 0;
    const size_t room = mBlock.size() - mSize;
    const size_t got = readAllAt(mFd, mBlock.data() + mSize, room, mBlockAt + mSize);
    mAtEnd = got < room;
    mError = mAtEnd && errno != 0;
    mSize += got;
}

// Near the end fewer sync bytes have to do.
bool PacketWalk::syncsAt(size_t at, size_t period) const {
    for (size_t i = 0; i < SYNCS_TO_LOCK && at + i * period < mSize; ++i) {
        if (mBlock[at + i * period] != TS_SYNC_BYTE) {
            return false;
        }
    }
    return true;
}

bool PacketWalk::locksAt(size_t at) {
    if (mPeriod != 0) {
        return syncsAt(at, mPeriod);
    }
    for (const size_t period : PERIODS) {
        if (syncsAt(at, period)) {
            mPeriod = period;
            return true;
        }
    }
    return false;
}

// To the next byte that may start a packet.
void PacketWalk::passOver() {
    const uint8_t* from = mBlock.data() + mAt + 1;
    const size_t size = mSize - mAt - 1;
    const void* found = std::memchr(from, TS_SYNC_BYTE, size);
    mTaken =
        1 +
        (found == nullptr ? size : static_cast<size_t>(static_cast<const uint8_t*>(found) - from));
}

void PacketWalk::takeRun() {
    const size_t needed = mAtEnd ? TS_PACKET_BYTES : mPeriod;
    size_t end = mAt;
    for (; end + needed <= mSize && mBlock[end] == TS_SYNC_BYTE; end += mPeriod) {
        ++mCount;
    }
    mTaken = std::min(end, mSize) - mAt;
}

const uint8_t* PacketWalk::contiguous() {
    if (mPeriod == TS_PACKET_BYTES) {
        return packet(0);
    }
    mCompact.resize(mCount * TS_PACKET_BYTES);
    for (size_t i = 0; i < mCount; ++i) {
        std::memcpy(mCompact.data() + i * TS_PACKET_BYTES, packet(i), TS_PACKET_BYTES);
    }
    return mCompact.data();
}

}  // namespace orvhost
