#include "dtv/PacketWindow.h"

#include <algorithm>
#include <cstring>

namespace orvhost {

namespace {

// A buffer that grew for the head of a source shrinks again once that was fed.
constexpr size_t USUAL_BYTES = 2 << 20;

// So little moves to the front rather than that the next read goes to memory that is not in the
// processor's cache.
constexpr size_t SMALL_BYTES = 4096;

}  // namespace

void PacketWindow::makeRoom(size_t bytes) {
    const size_t used = mCount * TS_PACKET_BYTES + mRaw;
    if (mBegin + used + bytes <= mBuffer.size() && used > SMALL_BYTES) {
        return;
    }
    if (used > 0 && mBegin > 0) {
        std::memmove(mBuffer.data(), mBuffer.data() + mBegin, used);
    }
    mBegin = 0;
    if (used + bytes > mBuffer.size()) {
        mBuffer.resize(std::max(used + bytes, mBuffer.size() * 2));
    } else if (mBuffer.size() > USUAL_BYTES && used + bytes <= USUAL_BYTES / 2) {
        mBuffer.resize(USUAL_BYTES);
        mBuffer.shrink_to_fit();
    }
}

ssize_t PacketWindow::fill(ByteSource& source, size_t most, int timeoutMs, bool mayGrow) {
    mFresh = 0;
    makeRoom(most);
    uint8_t* raw = mBuffer.data() + mBegin + mCount * TS_PACKET_BYTES;
    const ssize_t got = source.read(raw + mRaw, most, timeoutMs);
    if (got < 0 || (got == 0 && mayGrow)) {
        return got;
    }
    if (source.givesPackets()) {
        mFresh = static_cast<size_t>(got) / TS_PACKET_BYTES;
        mCount += mFresh;
        return got;
    }
    mRaw += static_cast<size_t>(got);
    const PacketSynchronizer::Result result = mSynchronizer.align(raw, mRaw, got == 0);
    const size_t packetBytes = result.packets * TS_PACKET_BYTES;
    mRaw -= result.consumed;
    if (mRaw > 0 && result.consumed != packetBytes) {
        std::memmove(raw + packetBytes, raw + result.consumed, mRaw);
    }
    mCount += result.packets;
    mFresh = result.packets;
    return got;
}

void PacketWindow::release(size_t count) {
    mBegin += count * TS_PACKET_BYTES;
    mCount -= count;
    mFresh = std::min(mFresh, mCount);
}

void PacketWindow::clear() {
    mBegin = 0;
    mCount = 0;
    mFresh = 0;
    mRaw = 0;
    mSynchronizer.reset();
}

}  // namespace orvhost
