#include "recording/PacketQueue.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <new>
#include <utility>

namespace orvhost {

PacketQueue::PacketQueue(size_t packets)
    : mDepth(packets), mRing(new (std::nothrow) uint8_t[packets * TS_PACKET_BYTES]) {}

bool PacketQueue::push(const uint8_t* packet) {
    if (mPending == 0 || mKnown + mPending >= mDepth) {
        std::lock_guard lock(mMutex);
        if (mFilled == 0 && mPending == 0) {
            mFirst = 0;
            mHead = 0;
        }
        mKnown = mFilled;
    }
    if (mKnown + mPending >= mDepth || mRing == nullptr) {
        return false;
    }
    std::memcpy(mRing.get() + mHead * TS_PACKET_BYTES, packet, TS_PACKET_BYTES);
    mHead = mHead + 1 == mDepth ? 0 : mHead + 1;
    ++mPending;
    ++mPushed;
    return true;
}

void PacketQueue::rollBack() {
    mHead = mHead >= mPending ? mHead - mPending : mHead + mDepth - mPending;
    mPushed -= mPending;
    mPending = 0;
}

void PacketQueue::publish() {
    if (mPending == 0) {
        return;
    }
    bool wake = false;
    {
        std::lock_guard lock(mMutex);
        mFilled += std::exchange(mPending, 0);
        wake = mEnough != 0 && mFilled >= mEnough;
    }
    if (wake) {
        mWake.notify_one();
    }
}

bool PacketQueue::hasRoom() {
    std::lock_guard lock(mMutex);
    mRefused = mFilled > mDepth / 2;
    return !mRefused;
}

PacketQueue::Stretch PacketQueue::wait(size_t enough, size_t most, int timeoutMs) {
    std::unique_lock lock(mMutex);
    mEnough = enough;
    mWake.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                   [this, enough] { return mFilled >= enough || mWoken; });
    mEnough = 0;
    mWoken = false;
    return {mRing.get() + mFirst * TS_PACKET_BYTES, std::min({mFilled, mDepth - mFirst, most})};
}

bool PacketQueue::release(size_t packets) {
    std::lock_guard lock(mMutex);
    mFilled -= packets;
    mFirst += packets;
    mFirst = mFirst == mDepth ? 0 : mFirst;
    return mFilled <= mDepth / 2 && std::exchange(mRefused, false);
}

void PacketQueue::wake() {
    {
        std::lock_guard lock(mMutex);
        mWoken = true;
    }
    mWake.notify_one();
}

}  // namespace orvhost
