#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <vector>

namespace orvbench {

// What one would write without thinking of speed: bytes behind one mutex, copied in and copied out,
// each side woken by the other. The ring buffer's peer.
class MutexByteRing {
public:
    explicit MutexByteRing(size_t capacity) : mBytes(capacity) {}

    // Waits for room, however long.
    void push(const uint8_t* from, size_t size) {
        std::unique_lock lock(mMutex);
        mSpace.wait(lock, [&] { return mBytes.size() - mUsed >= size; });
        const size_t first = std::min(size, mBytes.size() - mHead);
        memcpy(mBytes.data() + mHead, from, first);
        memcpy(mBytes.data(), from + first, size - first);
        mHead = (mHead + size) % mBytes.size();
        mUsed += size;
        lock.unlock();
        mData.notify_one();
    }

    // Waits for `size` bytes, however long.
    void pop(uint8_t* to, size_t size) {
        std::unique_lock lock(mMutex);
        mData.wait(lock, [&] { return mUsed >= size; });
        const size_t first = std::min(size, mBytes.size() - mTail);
        memcpy(to, mBytes.data() + mTail, first);
        memcpy(to + first, mBytes.data(), size - first);
        mTail = (mTail + size) % mBytes.size();
        mUsed -= size;
        lock.unlock();
        mSpace.notify_one();
    }

private:
    std::mutex mMutex;
    std::condition_variable mSpace;
    std::condition_variable mData;
    std::vector<uint8_t> mBytes;
    size_t mHead = 0;
    size_t mTail = 0;
    size_t mUsed = 0;
};

}  // namespace orvbench
