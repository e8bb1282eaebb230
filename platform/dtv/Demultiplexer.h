#pragma once

#include <dtv/DemuxBinder.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "dtv/HostClock.h"
#include "dtv/TsPacket.h"

namespace orvhost {

// The table of PID filters with their queues, between one feeding thread and any number of readers.
//
//   feed() -- PID table --> [queue of filter 3] -- read() -->
//                      `--> [queue of filter 7] -- read() -->
//
// One lock per batch on either side; a packet costs a table look-up and one copy per filter.
// Readers are woken once per batch.
class Demultiplexer {
public:
    explicit Demultiplexer(HostClock& clock);
    ~Demultiplexer();
    Demultiplexer(const Demultiplexer&) = delete;  // waiting threads know us by address
    Demultiplexer& operator=(const Demultiplexer&) = delete;

    // Reader side, any thread: the contracts of <dtv/DemuxBinder.h>.
    int startFiltering(uint16_t pid, int kind);
    int stopFiltering(int handle);
    int select(DemuxBinder_HandleSet* set, int timeoutMs);
    int readData(int handle, uint8_t* data, int size);

    // Feeding side, one thread. Live: takes all `count` packets; a full queue loses its oldest
    // ones.
    void feedLive(const uint8_t* packets, size_t count);

    // Lossless: takes packets up to the first one for which a queue has no room; returns how many.
    size_t feedLossless(const uint8_t* packets, size_t count);

    // Waits until a queue that refused a packet has room again, was stopped, or wakeFeeder() was
    // called since the last return.
    void waitForRoom();
    void wakeFeeder();

    // Drops what all queues hold.
    void flush();

    // `callback` runs after a filter was started or stopped, without a lock held. Set it before
    // use; null to take it away, after which it is not running any more.
    void setFilterCallback(std::function<void()> callback);

    size_t filterCount() const { return mFilterCount.load(std::memory_order_acquire); }
    uint64_t droppedPackets() const { return mDropped.load(std::memory_order_relaxed); }

    // The PID of a running PCR filter, PID_NONE without one.
    uint16_t pcrFilterPid() const;

private:
    struct Filter;

    int freeHandle();
    int markReady(DemuxBinder_HandleSet* set) const;
    void notifyFilterCallback();

    HostClock& mClock;
    mutable std::mutex mMutex;          // all below that is not atomic
    std::condition_variable mDataWake;  // select()
    std::condition_variable mRoomWake;  // waitForRoom()
    std::array<std::unique_ptr<Filter>, DEMUX_HANDLE_COUNT> mFilters;
    std::array<Filter*, PID_COUNT> mByPid{};  // filters of one PID are chained
    int mNextHandle = 0;
    int mWaitingReaders = 0;
    bool mRoom = false;
    std::atomic<size_t> mFilterCount{0};
    std::atomic<uint64_t> mDropped{0};
    std::mutex mCallbackMutex;
    std::function<void()> mFilterCallback;
};

}  // namespace orvhost
