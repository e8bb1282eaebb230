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

#include "dtv/TsPacket.h"

namespace orvhost {

class PacketTap;

// The table of PID filters with their queues, between one feeding thread and any number of readers.
//
//   feed() -- PID table --> [queue of filter 3] -- read() -->
//                      `--> [queue of filter 7] -- read() -->
//
// One lock per batch on either side; a packet costs a table look-up and, live, one copy per filter.
// Readers are woken once per batch. Where a pump is set, the readers themselves fetch what is to be
// fed: a reader that finds its queues empty runs it, on its own thread.
class Demultiplexer {
public:
    Demultiplexer();
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
    // The same where packets of a long time come at once: PCR filters get their last one alone, of
    // the `following` ones as well, which other filters do not get.
    void feedAtOnce(const uint8_t* packets, size_t count, size_t following);

    // Lossless, and without a copy of its own: the filters refer to the packets until takeBack().
    void lend(const uint8_t* packets, size_t count);
    // Ends the last loan: what no reader has taken yet is copied into the queues. False when one of
    // them, or the tap, has no room; the loan goes on then.
    bool takeBack();

    // Waits until what was full in takeBack() has room again, was stopped, or wakeFeeder() was
    // called since the last return.
    void waitForRoom();
    void wakeFeeder();

    // Whether readers have taken everything that was fed.
    bool isDrained() const;

    // Drops what all queues hold, a loan included.
    void flush();

    // `pump` feeds more, waiting at most timeoutMs; false when nothing came of that. Runs on a
    // reader's thread, perhaps on several at once, without a lock held. Set it before use.
    void setPump(std::function<bool(int timeoutMs)> pump);

    // Has readers that wait run the pump again.
    void wakeReaders();
    // Has readers that wait return without data: there is no more for now.
    void releaseReaders();

    // One tap at a time, beside the filters; false when there is one. After stopTap() has returned
    // no call to it runs and none comes. A tap without filters keeps the feed going.
    bool startTap(PacketTap& tap);
    void stopTap(const PacketTap& tap);
    bool isTapped() const { return mIsTapped.load(std::memory_order_acquire); }
    // The tap had no room and has it again.
    void tapHasRoom();
    // Tells the tap that the source was left.
    void leaveSource();

    // `callback` runs after a filter or the tap was started or stopped, and when readerArrived()
    // turns true, on the thread that did it. Set it before use.
    void setFilterCallback(std::function<void()> callback);

    size_t filterCount() const { return mFilterCount.load(std::memory_order_acquire); }
    uint64_t droppedPackets() const { return mDropped.load(std::memory_order_relaxed); }

    // Packets that came twice in a row (ISO/IEC 13818-1 2.4.3.3); PES and video filters get one.
    uint64_t repeatedPackets() const { return mRepeated.load(std::memory_order_relaxed); }

    // True once a reader asked for data since the first of the running filters was started: the
    // filters that belong together are all there.
    bool readerArrived() const { return mReaderArrived.load(std::memory_order_acquire); }

    // The PID of the first running filter of that kind, PID_NONE without one.
    uint16_t filterPid(int kind) const;

private:
    struct Filter;

    Filter* find(int handle) const;
    int freeHandle();
    void deliver(const uint8_t* packet, bool withClock);
    void lendOne(const uint8_t* packet);
    void callTap(const uint8_t* packet);
    void markTapped();
    void endBatch(std::unique_lock<std::mutex>& lock);
    void callBack() const;
    int keepReady(DemuxBinder_HandleSet* set) const;
    void noteReader();
    void noteRoom();

    mutable std::mutex mMutex;          // all below that is not atomic
    std::condition_variable mDataWake;  // select()
    std::condition_variable mRoomWake;  // waitForRoom()
    std::array<std::unique_ptr<Filter>, DEMUX_HANDLE_COUNT> mFilters;
    std::array<Filter*, PID_COUNT> mByPid{};   // filters of one PID are chained
    std::array<uint8_t, PID_COUNT> mWanted{};  // who wants the PID, see Demultiplexer.cpp
    PacketTap* mTap = nullptr;
    std::vector<uint16_t> mTappedPids;
    int mNextHandle = 0;
    int mWaitingReaders = 0;
    bool mRoom = false;  // for waitForRoom(): something was taken out, or the feeder is wanted
    std::atomic<size_t> mFilterCount{0};
    std::atomic<bool> mReaderArrived{false};
    std::atomic<bool> mIsTapped{false};
    std::atomic<uint64_t> mDropped{0};
    std::atomic<uint64_t> mRepeated{0};
    uint64_t mReleases = 0;
    uint64_t mWakeUps = 0;  // calls for the readers, so that none is missed on the way to a wait
    std::function<void()> mFilterCallback;  // fixed before use
    std::function<bool(int)> mPump;         // fixed before use
};

}  // namespace orvhost
