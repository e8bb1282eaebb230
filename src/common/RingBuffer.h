#pragma once

#include <utils/RefBase.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>

#include "common/HandoffLock.h"

namespace OrvPlayer {

// The data path between two pipeline threads: one writer, one reader, records of any size.
//
// The storage is one shared-memory region mapped twice, back to back, so a record that starts near
// the end runs on into the second view and is always one contiguous run of bytes:
//
//     mBuffer          mBuffer + mSize      mBuffer + 2 * mSize
//     |...tail#####head....|...tail#####head....|
//
// Records are built and read in place:
//     writer: write(n) -> build -> writeAdvance(n)
//     reader: read(n)  -> use   -> readAdvance(n)
// Between the two calls the caller holds that side's lock and must end every way out, the exit
// request of its thread included, with an advance (0 commits or consumes nothing). A lock that a
// finished thread left held is released by its module from any thread, again with an advance of 0.
//
// Every advance is rounded up to a multiple of 4 bytes, so records stay 4-byte aligned. Waits last
// at most 100 ms and happen once: null means "look again on your next pass", never an error. No
// operation checks its caller.
class RingBuffer : public virtual android::RefBase {
public:
    enum block_t { BLOCKING = 0, NON_BLOCKING = 1 };

    RingBuffer();
    RingBuffer(const RingBuffer&) = delete;  // the other side knows the storage by address
    RingBuffer& operator=(const RingBuffer&) = delete;

    // Maps 2^sizeExponent bytes (the exponent modulo 32). Returns 0, or 1 on failure (logged). A
    // buffer is configured once; a failure after the size was accepted is final.
    int configure(std::string name, unsigned int sizeExponent);
    // The same with a capacity in bytes: a multiple of the page size, at least one page.
    int configureWithSize(std::string name, unsigned int size);

    // Reserves `size` bytes at the write position. On success the caller holds the write lock;
    // null, with the lock released, when there is not room (BLOCKING waits for it once).
    unsigned char* write(unsigned int size, block_t block);
    // Commits `size` bytes, releases the write lock and wakes the reader.
    void writeAdvance(unsigned long size);
    // For a writer that holds the write lock: waits once for `size` free bytes; true when they
    // are there.
    bool waitForSpace(unsigned int size);

    // The read position, with the read lock held, when at least `size` bytes are in use; null
    // with the lock released otherwise. The reader may look at all getDataSize() bytes.
    unsigned char* read(unsigned int size, block_t block);
    // Consumes `size` bytes, releases the read lock and wakes the writer.
    void readAdvance(unsigned long size);

    // Wake a side that waits, so that it looks at its exit request. Any thread, no lock needed.
    void wakeReaders() { mDataAvailable.broadcast(); }
    void wakeWriters() { mSpaceAvailable.broadcast(); }

    // Momentary values, read without a lock. For the writer and the reader a stale value only
    // under-reports; for a third thread the two counters are never of quite the same moment, so
    // the difference is kept within the capacity.
    unsigned int getDataSize() const {
        const uint64_t tail = mTail.load();
        const uint64_t head = mHead.load();
        return head > tail ? static_cast<unsigned int>(std::min<uint64_t>(head - tail, mSize)) : 0;
    }
    unsigned int getFreeSpace() const { return mSize - getDataSize(); }
    unsigned int getSize() const { return mSize; }

    // Empties the buffer: takes both locks (the only place that does), so either module may be
    // between two records, and waits while one holds its lock.
    void reset();

    // An 80-column bar of the occupancy in terminal colours.
    std::string getRepresentation();
    // A multi-line report, indented with `indent` tab characters.
    void dump(FILE* stream, int indent);

protected:
    ~RingBuffer() override;

private:
    int configureStorage(const char* caller, std::string name, unsigned int size);
    int mapStorage(const char* caller, int region);
    bool mapView(unsigned char* address, int region);
    int unmapStorage();

    // For the holder of the write or the read lock: whether there is room, or data. Looks at the
    // other side's counter only when what it showed last does not suffice.
    bool hasSpace(uint64_t size);
    bool hasData(uint64_t size);

    // The two sides write into cache lines of their own.
    static constexpr size_t CACHE_LINE = 64;

    std::string mName;
    // Bytes ever committed and ever released; sequentially consistent, as the conditions ask. 64
    // bits wide: the capacity need not divide 2^32, so narrower counters would shift every position
    // when they wrap.
    alignas(CACHE_LINE) std::atomic<uint64_t> mHead{0};
    alignas(CACHE_LINE) std::atomic<uint64_t> mTail{0};
    alignas(CACHE_LINE) unsigned int mSize = 0;  // capacity; 0 while not configured
    unsigned char* mBuffer = nullptr;            // 2 * mSize bytes of address space
    alignas(CACHE_LINE) HandoffLock mWriteLock;
    uint64_t mTailSeen = 0;  // under mWriteLock: mTail at some time before
    alignas(CACHE_LINE) HandoffLock mReadLock;
    uint64_t mHeadSeen = 0;                                // under mReadLock: the same of mHead
    alignas(CACHE_LINE) HandoffCondition mSpaceAvailable;  // waited on under mWriteLock
    alignas(CACHE_LINE) HandoffCondition mDataAvailable;   // waited on under mReadLock
};

}  // namespace OrvPlayer
