#include "common/RingBuffer.h"

#include <cutils/ashmem.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "common/Trace.h"

namespace OrvPlayer {

namespace {

constexpr unsigned int WAIT_MS = 100;
constexpr size_t COLUMNS = 80;

constexpr char RED[] = "\033[01;31m";
constexpr char GREEN[] = "\033[01;32m";
constexpr char YELLOW[] = "\033[01;33m";
constexpr char PLAIN[] = "\033[m";
constexpr char LINE_START[] = "\033[2K\r";

#ifdef MAP_UNINITIALIZED
constexpr int UNINITIALIZED = MAP_UNINITIALIZED;
#else
constexpr int UNINITIALIZED = 0;
#endif

// In 64 bits: sizes near 2^32 must not round to 0.
constexpr uint64_t roundUp4(uint64_t size) {
    return (size + 3) & ~uint64_t{3};
}

}  // namespace

RingBuffer::RingBuffer() = default;

RingBuffer::~RingBuffer() {
    if (const int result = unmapStorage(); result != 0) {
        ORV_LOGE("%s: munmap return code: %d\n", __func__, result);
    }
}

int RingBuffer::configure(std::string name, unsigned int sizeExponent) {
    return configureStorage(__func__, std::move(name), 1u << (sizeExponent % 32));
}

int RingBuffer::configureWithSize(std::string name, unsigned int size) {
    return configureStorage(__func__, std::move(name), size);
}

int RingBuffer::configureStorage(const char* caller, std::string name, unsigned int size) {
    if (mSize != 0) {
        ORV_LOGE("%s: RingBuffer already configured\n", caller);
        return 1;
    }
    mSize = size;
    ORV_LOGI("%s: mSize: %d\n", caller, static_cast<int>(mSize));
    const long pageSize = sysconf(_SC_PAGESIZE);
    // Only this bound is tested here: a size that is no page multiple fails at the third mapping.
    if (static_cast<long>(mSize) < pageSize) {
        ORV_LOGE("%s: Size must be multiple of %d\n", caller, static_cast<int>(pageSize));
        mSize = 0;
        return 1;
    }
    mName = std::move(name);
    const int region = ashmem_create_region(mName.c_str(), mSize);
    if (region < 0) {
        ORV_LOGE("%s: ashmem_create_region failed. error code: %d\n", caller, errno);
        return 1;
    }
    if (ashmem_set_prot_region(region, PROT_READ | PROT_WRITE) < 0) {
        ORV_LOGE("%s: ashmem_set_prot_region failed.error code: %d\n", caller, errno);
        close(region);
        return 1;
    }
    if (mapStorage(caller, region) != 0) {
        close(region);
        return 1;
    }
    if (close(region) != 0) {  // the two mappings keep the region alive
        ORV_LOGE("%s: close failed fd = %d. error code: %d\n", caller, region, errno);
        unmapStorage();
        return 1;
    }
    return 0;
}

int RingBuffer::mapStorage(const char* caller, int region) {
    void* reserved = mmap(nullptr, 2 * static_cast<size_t>(mSize), PROT_NONE,
                          MAP_PRIVATE | MAP_ANONYMOUS | UNINITIALIZED, -1, 0);
    if (reserved == MAP_FAILED) {
        ORV_LOGE("%s: mmap failed 1 fd = %d error code: %d\n", caller, region, errno);
        return 1;
    }
    mBuffer = static_cast<unsigned char*>(reserved);
    if (!mapView(mBuffer, region)) {
        ORV_LOGE("%s: mmap failed 2 fd = %d. error code: (%d : %s)\n", caller, region, errno,
                 strerror(errno));
        unmapStorage();
        return 1;
    }
    if (!mapView(mBuffer + mSize, region)) {
        ORV_LOGE("%s: mmap failed 3 fd = %d. error code: %d\n", caller, region, errno);
        unmapStorage();
        return 1;
    }
    return 0;
}

bool RingBuffer::mapView(unsigned char* address, int region) {
    return mmap(address, mSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED | UNINITIALIZED,
                region, 0) == address;
}

int RingBuffer::unmapStorage() {
    unsigned char* storage = std::exchange(mBuffer, nullptr);
    return storage == nullptr ? 0 : munmap(storage, 2 * static_cast<size_t>(mSize));
}

// What was seen last may be long past: writers and readers go on by more than they asked for, by
// what getFreeSpace() and getDataSize() told them. Hence sums, which cannot go below 0.
bool RingBuffer::hasSpace(uint64_t size) {
    const uint64_t needed = mHead.load(std::memory_order_relaxed) + size;
    if (needed > mTailSeen + mSize) {
        mTailSeen = mTail.load();
    }
    return needed <= mTailSeen + mSize;
}

bool RingBuffer::hasData(uint64_t size) {
    const uint64_t needed = mTail.load(std::memory_order_relaxed) + size;
    if (needed > mHeadSeen) {
        mHeadSeen = mHead.load();
    }
    return needed <= mHeadSeen;
}

unsigned char* RingBuffer::write(unsigned int size, block_t block) {
    mWriteLock.lock();
    const uint64_t rounded = roundUp4(size);
    const auto fits = [this, rounded] { return hasSpace(rounded); };
    if (!fits() && block == BLOCKING) {
        mSpaceAvailable.waitOnce(mWriteLock, WAIT_MS, fits);
    }
    if (mBuffer == nullptr || !fits()) {
        mWriteLock.unlock();
        return nullptr;
    }
    return mBuffer + mHead.load(std::memory_order_relaxed) % mSize;
}

void RingBuffer::writeAdvance(unsigned long size) {
    mHead.store(mHead.load(std::memory_order_relaxed) + roundUp4(size));
    mWriteLock.unlock();
    mDataAvailable.broadcast();
}

bool RingBuffer::waitForSpace(unsigned int size) {
    const auto fits = [this, size] { return hasSpace(size); };
    if (!fits()) {
        mSpaceAvailable.waitOnce(mWriteLock, WAIT_MS, fits);
    }
    return fits();
}

unsigned char* RingBuffer::read(unsigned int size, block_t block) {
    mReadLock.lock();
    const auto ready = [this, size] { return hasData(size); };
    if (!ready() && block == BLOCKING) {
        mDataAvailable.waitOnce(mReadLock, WAIT_MS, ready);
    }
    if (mBuffer == nullptr || !ready()) {
        mReadLock.unlock();
        return nullptr;
    }
    return mBuffer + mTail.load(std::memory_order_relaxed) % mSize;
}

void RingBuffer::readAdvance(unsigned long size) {
    mTail.store(mTail.load(std::memory_order_relaxed) + roundUp4(size));
    mReadLock.unlock();
    mSpaceAvailable.broadcast();
}

void RingBuffer::reset() {
    mReadLock.lock();
    mWriteLock.lock();
    mHead.store(0);
    mTail.store(0);
    mHeadSeen = 0;
    mTailSeen = 0;
    mDataAvailable.broadcast();
    mSpaceAvailable.broadcast();
    mWriteLock.unlock();
    mReadLock.unlock();
}

std::string RingBuffer::getRepresentation() {
    std::string bar(COLUMNS, '=');
    const uint64_t head = mHead.load();
    const uint64_t tail = mTail.load();
    if (head == tail || mSize == 0) {
        bar.insert(0, GREEN);
    } else {
        const auto column = [this](uint64_t position) {
            return static_cast<size_t>(static_cast<float>(position % mSize) /
                                       static_cast<float>(mSize) * static_cast<float>(COLUMNS));
        };
        const size_t headColumn = column(head);
        const size_t tailColumn = column(tail);
        // The larger column first, so that the smaller one stays valid.
        if (tailColumn >= headColumn) {
            bar.insert(tailColumn, RED).insert(headColumn, GREEN).insert(0, RED);
        } else {
            bar.insert(headColumn, GREEN).insert(tailColumn, RED).insert(0, GREEN);
        }
    }
    return std::string(YELLOW) + "|" + bar + YELLOW + "|" + PLAIN;
}

void RingBuffer::dump(FILE* stream, int indent) {
    const std::string start = LINE_START + std::string(static_cast<size_t>(indent), '\t');
    const char* prefix = start.c_str();
    fprintf(stream, "%s - RingBuffer %s\n", prefix, mName.c_str());
    if (mSize == 0) {
        fprintf(stream, "%s\tRingBuffer is not configured.\n", prefix);
        return;
    }
    const uint64_t head = mHead.load();
    const uint64_t tail = mTail.load();
    const auto position = [this](uint64_t counter) {
        return static_cast<unsigned int>(counter % mSize);
    };
    // A look, not a try: taking the lock here could meet a module that releases it for a finished
    // worker, and then two would think that they hold it.
    const auto probe = [](const HandoffLock& lock) {
        return lock.isHeld() ? std::string(RED) + "Locked" + PLAIN
                             : std::string(GREEN) + "Unlocked" + PLAIN;
    };
    const auto marker = [&position, this](uint64_t counter) {
        return std::string(static_cast<size_t>(position(counter)) * COLUMNS / mSize, ' ');
    };
    fprintf(stream, "%s\tSize: %u\n", prefix, mSize);
    fprintf(stream, "%s\tHead: %u (%u)\n", prefix, static_cast<unsigned int>(head), position(head));
    fprintf(stream, "%s\tTail: %u (%u)\n", prefix, static_cast<unsigned int>(tail), position(tail));
    fprintf(stream, "%s\tUsed: %03.2f%%\n", prefix,
            static_cast<double>(getDataSize()) / mSize * 100);
    fprintf(stream, "%s\tPointer: %p\n", prefix, static_cast<void*>(mBuffer));
    fprintf(stream, "%s\tWriteLock: %s\n", prefix, probe(mWriteLock).c_str());
    fprintf(stream, "%s\tReadLock: %s\n", prefix, probe(mReadLock).c_str());
    fprintf(stream, "%s\t%s\n", prefix, getRepresentation().c_str());
    fprintf(stream, "%s\t%s^ head\n", prefix, marker(head).c_str());
    fprintf(stream, "%s\t%s^ tail\n\n", prefix, marker(tail).c_str());
}

}  // namespace OrvPlayer
