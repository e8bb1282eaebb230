#include "dtv/Demultiplexer.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <new>
#include <utility>

#include "dtv/PacketTap.h"
#include "dtv/Services.h"

namespace orvhost {

namespace {

constexpr size_t MAX_FILTERS = 128;

// Depths in packets. Live, a queue covers a reader that is late by a second or two at the highest
// rates; lossless, a shallow one stays in the processor's cache.
constexpr size_t PCR_DEPTH = 512;
constexpr size_t PES_DEPTH = 4096;
constexpr size_t VIDEO_DEPTH = 24576;
constexpr size_t LOSSLESS_DEPTH = 2048;

// Bits of mWanted: one byte decides of a packet that nobody wants.
constexpr uint8_t BY_FILTERS = 1;
constexpr uint8_t BY_TAP = 2;

size_t depthOf(int kind) {
    switch (kind) {
        case DEMUX_FILTER_PCR:
            return PCR_DEPTH;
        case DEMUX_FILTER_VIDEO:
            return VIDEO_DEPTH;
        default:
            return PES_DEPTH;
    }
}

// Header and adaptation field of a packet with a PCR, as a packet without payload.
void cutToPcr(uint8_t* out, const uint8_t* packet) {
    const size_t fieldBytes = packet[4];
    out[0] = TS_SYNC_BYTE;
    out[1] = packet[1] & 0x3F;  // neither error nor start
    out[2] = packet[2];
    out[3] = 0x20;  // adaptation field only, clear, counter 0
    out[4] = 183;
    std::memcpy(out + 5, packet + 5, fieldBytes);
    std::memset(out + 5 + fieldBytes, 0xFF, TS_PACKET_BYTES - 5 - fieldBytes);
}

// ISO/IEC 13818-1 2.4.3.3: a packet with payload may be sent twice in a row, the same but for its
// PCR.
bool isSentTwice(const uint8_t* first, const uint8_t* second) {
    if (first[3] != second[3] || !hasPayload(second)) {
        return false;  // nearly always: the counter steps
    }
    const bool both = hasPcr(first) && hasPcr(second);
    const size_t head = both ? 6 : 4;
    const size_t rest = both ? 12 : 4;
    return std::memcmp(first, second, head) == 0 &&
           std::memcmp(first + rest, second + rest, TS_PACKET_BYTES - rest) == 0;
}

}  // namespace

// One PID filter and its queue: a ring of whole packets, and behind them those that are lent.
struct Demultiplexer::Filter {
    int handle = -1;
    uint16_t pid = PID_NONE;
    int kind = DEMUX_FILTER_PES;
    size_t depth = 0;
    std::unique_ptr<uint8_t[]> ring;
    size_t first = 0;
    size_t count = 0;
    std::vector<const uint8_t*> lent;
    size_t lentTaken = 0;           // of them, by the reader
    const uint8_t* last = nullptr;  // the newest packet: in the ring, lent, or below
    uint8_t lastLent[TS_PACKET_BYTES];
    Filter* next = nullptr;  // on the same PID

    bool takes(const uint8_t* packet) const { return kind != DEMUX_FILTER_PCR || hasPcr(packet); }

    // Only for a packet that it takes.
    bool hadLast(const uint8_t* packet) const {
        return last != nullptr && kind != DEMUX_FILTER_PCR && isSentTwice(last, packet);
    }

    bool isEmpty() const { return count == 0 && lentTaken == lent.size(); }

    void refer(const uint8_t* packet) {
        lent.push_back(packet);
        last = packet;
    }

    // Copies what is lent into the ring; false when that is full.
    bool keepLent() {
        if (lent.empty()) {
            return true;
        }
        for (; lentTaken < lent.size(); ++lentTaken) {
            if (count >= std::min(depth, LOSSLESS_DEPTH)) {
                return false;
            }
            push(lent[lentTaken]);
        }
        std::memcpy(lastLent, lent.back(), TS_PACKET_BYTES);
        last = lastLent;
        forgetLent();
        return true;
    }

    void forgetLent() {
        lent.clear();
        lentTaken = 0;
    }

    void copy(uint8_t* out, const uint8_t* packet) const {
        if (kind == DEMUX_FILTER_PCR) {
            cutToPcr(out, packet);
        } else {
            std::memcpy(out, packet, TS_PACKET_BYTES);
        }
    }

    // True when the oldest packet had to go.
    bool push(const uint8_t* packet) {
        const bool full = count == depth;
        if (full) {
            first = first + 1 == depth ? 0 : first + 1;
            --count;
        }
        const size_t free = first + count;
        uint8_t* slot = ring.get() + (free < depth ? free : free - depth) * TS_PACKET_BYTES;
        copy(slot, packet);
        last = slot;
        ++count;
        return full;
    }

    size_t pop(uint8_t* out, size_t most) {
        size_t taken = popQueued(out, most);
        for (; taken < most && lentTaken < lent.size(); ++taken, ++lentTaken) {
            copy(out + taken * TS_PACKET_BYTES, lent[lentTaken]);
        }
        return taken;
    }

    size_t popQueued(uint8_t* out, size_t most) {
        if (count == 0) {
            return 0;
        }
        const size_t taken = std::min(most, count);
        const size_t straight = std::min(taken, depth - first);
        std::memcpy(out, ring.get() + first * TS_PACKET_BYTES, straight * TS_PACKET_BYTES);
        std::memcpy(out + straight * TS_PACKET_BYTES, ring.get(),
                    (taken - straight) * TS_PACKET_BYTES);
        count -= taken;
        first += taken;
        if (count == 0) {
            first = 0;  // a queue that is kept empty stays in its first pages
        } else if (first >= depth) {
            first -= depth;
        }
        return taken;
    }
};

Demultiplexer::Demultiplexer() = default;
Demultiplexer::~Demultiplexer() = default;

void Demultiplexer::setPump(std::function<bool(int)> pump) {
    mPump = std::move(pump);
}

void Demultiplexer::setFilterCallback(std::function<void()> callback) {
    mFilterCallback = std::move(callback);
}

int Demultiplexer::freeHandle() {
    for (int i = 0; i < DEMUX_HANDLE_COUNT; ++i) {
        const int handle = (mNextHandle + i) % DEMUX_HANDLE_COUNT;
        if (mFilters[static_cast<size_t>(handle)] == nullptr) {
            mNextHandle = (handle + 1) % DEMUX_HANDLE_COUNT;
            return handle;
        }
    }
    return -EMFILE;
}

int Demultiplexer::startFiltering(uint16_t pid, int kind) {
    if (pid >= PID_COUNT || kind < DEMUX_FILTER_PCR || kind > DEMUX_FILTER_VIDEO) {
        return -EINVAL;
    }
    std::unique_ptr<Filter> filter(new (std::nothrow) Filter);
    if (filter == nullptr) {
        return -ENOMEM;
    }
    filter->pid = pid;
    filter->kind = kind;
    filter->depth = depthOf(kind);
    // Left untouched: only the pages that packets come to are ever backed.
    filter->ring.reset(new (std::nothrow) uint8_t[filter->depth * TS_PACKET_BYTES]);
    if (filter->ring == nullptr) {
        return -ENOMEM;
    }
    int handle = -1;
    {
        std::lock_guard lock(mMutex);
        if (mFilterCount.load(std::memory_order_relaxed) >= MAX_FILTERS) {
            return -EMFILE;
        }
        handle = freeHandle();
        if (handle < 0) {
            return handle;
        }
        filter->handle = handle;
        filter->next = std::exchange(mByPid[pid], filter.get());
        mWanted[pid] |= BY_FILTERS;
        mFilters[static_cast<size_t>(handle)] = std::move(filter);
        if (mFilterCount.load(std::memory_order_relaxed) == 0) {
            mReaderArrived.store(false, std::memory_order_release);
        }
        mFilterCount.fetch_add(1, std::memory_order_release);
    }
    callBack();
    return handle;
}

Demultiplexer::Filter* Demultiplexer::find(int handle) const {
    return handle < 0 || handle >= DEMUX_HANDLE_COUNT ? nullptr
                                                      : mFilters[static_cast<size_t>(handle)].get();
}

int Demultiplexer::stopFiltering(int handle) {
    std::unique_ptr<Filter> gone;  // its queue is freed outside the lock
    {
        std::lock_guard lock(mMutex);
        Filter* filter = find(handle);
        if (filter == nullptr) {
            return -EBADF;
        }
        Filter** link = &mByPid[filter->pid];
        while (*link != filter) {
            link = &(*link)->next;
        }
        *link = filter->next;
        if (mByPid[filter->pid] == nullptr) {
            mWanted[filter->pid] &= static_cast<uint8_t>(~BY_FILTERS);
        }
        gone = std::move(mFilters[static_cast<size_t>(handle)]);
        mFilterCount.fetch_sub(1, std::memory_order_release);
        mRoom = true;
    }
    noteRoom();
    callBack();
    return 0;
}

void Demultiplexer::callBack() const {
    if (mFilterCallback) {
        mFilterCallback();
    }
}

// ---- the tap ---------------------------------------------------------------------------------

bool Demultiplexer::startTap(PacketTap& tap) {
    {
        std::lock_guard lock(mMutex);
        if (mTap != nullptr) {
            return false;
        }
        mTap = &tap;
        markTapped();
        mIsTapped.store(true, std::memory_order_release);
    }
    callBack();
    return true;
}

void Demultiplexer::stopTap(const PacketTap& tap) {
    {
        std::lock_guard lock(mMutex);
        if (mTap != &tap) {
            return;
        }
        mTap = nullptr;
        markTapped();
        mIsTapped.store(false, std::memory_order_release);
    }
    tapHasRoom();
    callBack();
}

void Demultiplexer::tapHasRoom() {
    wakeFeeder();
    wakeReaders();
}

// The PIDs that the tap wants by now, and no others.
void Demultiplexer::markTapped() {
    for (uint16_t pid : mTappedPids) {
        mWanted[pid] &= static_cast<uint8_t>(~BY_TAP);
    }
    mTappedPids = mTap != nullptr ? mTap->pids() : std::vector<uint16_t>();
    std::erase_if(mTappedPids, [](uint16_t pid) { return pid >= PID_COUNT; });
    for (uint16_t pid : mTappedPids) {
        mWanted[pid] |= BY_TAP;
    }
}

void Demultiplexer::leaveSource() {
    std::lock_guard lock(mMutex);
    if (mTap != nullptr) {
        mTap->onSourceLeft();
    }
}

void Demultiplexer::callTap(const uint8_t* packet) {
    if (mTap->onPacket(packet)) {
        markTapped();
    }
}

// ---- reading ---------------------------------------------------------------------------------

int Demultiplexer::keepReady(DemuxBinder_HandleSet* set) const {
    int ready = 0;
    for (int word = 0; word < DEMUX_HANDLE_COUNT / 64; ++word) {
        uint64_t left = set->bits[word];
        while (left != 0) {
            const int bit = __builtin_ctzll(left);
            left &= left - 1;
            const Filter* filter = find(word * 64 + bit);
            if (filter != nullptr && !filter->isEmpty()) {
                ++ready;
            } else {
                set->bits[word] &= ~(uint64_t{1} << bit);
            }
        }
    }
    return ready;
}

// Readers say by their first request that all their filters are there.
void Demultiplexer::noteReader() {
    if (!mReaderArrived.load(std::memory_order_acquire) && filterCount() > 0 &&
        !mReaderArrived.exchange(true, std::memory_order_acq_rel) && mFilterCallback) {
        mFilterCallback();
    }
}

int Demultiplexer::select(DemuxBinder_HandleSet* set, int timeoutMs) {
    if (set == nullptr || timeoutMs < 0) {
        return -EINVAL;
    }
    noteReader();
    const DemuxBinder_HandleSet wanted = *set;
    std::unique_lock lock(mMutex);
    int ready = keepReady(set);
    using std::chrono::milliseconds;
    using std::chrono::steady_clock;
    const auto deadline = steady_clock::now() + milliseconds(timeoutMs);
    const uint64_t releases = mReleases;
    for (bool timedOut = false; ready == 0 && !timedOut && mReleases == releases;) {
        const uint64_t wakeUps = mWakeUps;
        bool fed = false;
        if (mPump) {
            lock.unlock();
            const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
            fed = mPump(static_cast<int>(std::max<int64_t>(left.count(), 0)));
            lock.lock();
        }
        if (!fed && timeoutMs > 0 && mWakeUps == wakeUps && mReleases == releases) {
            ++mWaitingReaders;
            mDataWake.wait_until(lock, deadline);
            --mWaitingReaders;
        }
        timedOut = steady_clock::now() >= deadline;
        *set = wanted;
        ready = keepReady(set);
    }
    return ready;
}

int Demultiplexer::readData(int handle, uint8_t* data, int size) {
    if (data == nullptr || size < static_cast<int>(TS_PACKET_BYTES)) {
        return -EINVAL;
    }
    noteReader();
    size_t taken = 0;
    bool roomMade = false;
    {
        std::lock_guard lock(mMutex);
        Filter* filter = find(handle);
        if (filter == nullptr) {
            return -EBADF;
        }
        taken = filter->pop(data, static_cast<size_t>(size) / TS_PACKET_BYTES);
        roomMade = taken > 0 && !std::exchange(mRoom, true);
    }
    if (roomMade) {
        noteRoom();
    }
    return static_cast<int>(taken * TS_PACKET_BYTES);
}

// Somebody may have met a full queue: the feeder, or a reader that pumps.
void Demultiplexer::noteRoom() {
    mRoomWake.notify_all();
    wakeReaders();
}

void Demultiplexer::releaseReaders() {
    {
        std::lock_guard lock(mMutex);
        ++mReleases;
    }
    mDataWake.notify_all();
}

void Demultiplexer::wakeReaders() {
    bool wake = false;
    {
        std::lock_guard lock(mMutex);
        ++mWakeUps;
        wake = mWaitingReaders > 0;
    }
    if (wake) {
        mDataWake.notify_all();
    }
}

// ---- feeding ---------------------------------------------------------------------------------

void Demultiplexer::deliver(const uint8_t* packet, bool withClock) {
    const uint16_t pid = pidOf(packet);
    const uint8_t wanted = mWanted[pid];
    if (wanted == 0) {
        return;
    }
    if ((wanted & BY_TAP) != 0) {
        callTap(packet);
    }
    for (Filter* f = mByPid[pid]; f != nullptr; f = f->next) {
        if (!f->takes(packet) || (!withClock && f->kind == DEMUX_FILTER_PCR)) {
            continue;
        }
        if (f->hadLast(packet)) {
            mRepeated.fetch_add(1, std::memory_order_relaxed);
        } else if (f->push(packet)) {
            mDropped.fetch_add(1, std::memory_order_relaxed);
        }
    }
}

void Demultiplexer::feedLive(const uint8_t* packets, size_t count) {
    std::unique_lock lock(mMutex);
    for (size_t i = 0; i < count; ++i) {
        deliver(packets + i * TS_PACKET_BYTES, true);
    }
    endBatch(lock);
}

void Demultiplexer::feedAtOnce(const uint8_t* packets, size_t count, size_t following) {
    std::unique_lock lock(mMutex);
    for (const auto& filter : mFilters) {
        if (filter == nullptr || filter->kind != DEMUX_FILTER_PCR) {
            continue;
        }
        const uint8_t* packet = packets + (count + following) * TS_PACKET_BYTES;
        while (packet > packets) {
            packet -= TS_PACKET_BYTES;
            if (pidOf(packet) == filter->pid && filter->takes(packet)) {
                filter->push(packet);
                break;
            }
        }
    }
    for (size_t i = 0; i < count; ++i) {
        deliver(packets + i * TS_PACKET_BYTES, false);
    }
    endBatch(lock);
}

void Demultiplexer::endBatch(std::unique_lock<std::mutex>& lock) {
    if (mTap != nullptr) {
        mTap->onBatchEnd();
    }
    ++mWakeUps;
    const bool wake = mWaitingReaders > 0;
    lock.unlock();
    if (wake) {
        mDataWake.notify_all();
    }
}

void Demultiplexer::lend(const uint8_t* packets, size_t count) {
    std::unique_lock lock(mMutex);
    for (size_t i = 0; i < count; ++i) {
        lendOne(packets + i * TS_PACKET_BYTES);
    }
    endBatch(lock);
}

void Demultiplexer::lendOne(const uint8_t* packet) {
    const uint16_t pid = pidOf(packet);
    const uint8_t wanted = mWanted[pid];
    if (wanted == 0) {
        return;
    }
    if ((wanted & BY_TAP) != 0) {
        callTap(packet);
    }
    for (Filter* f = mByPid[pid]; f != nullptr; f = f->next) {
        if (!f->takes(packet)) {
            continue;
        }
        if (f->hadLast(packet)) {
            mRepeated.fetch_add(1, std::memory_order_relaxed);
        } else {
            f->refer(packet);
        }
    }
}

bool Demultiplexer::takeBack() {
    std::lock_guard lock(mMutex);
    if (mTap != nullptr && !mTap->hasRoom()) {
        mRoom = false;
        return false;
    }
    for (const auto& filter : mFilters) {
        if (filter != nullptr && !filter->keepLent()) {
            mRoom = false;
            return false;
        }
    }
    return true;
}

void Demultiplexer::waitForRoom() {
    std::unique_lock lock(mMutex);
    mRoomWake.wait(lock, [this] { return mRoom; });
}

void Demultiplexer::wakeFeeder() {
    {
        std::lock_guard lock(mMutex);
        mRoom = true;
    }
    mRoomWake.notify_all();
}

bool Demultiplexer::isDrained() const {
    std::lock_guard lock(mMutex);
    return std::all_of(mFilters.begin(), mFilters.end(),
                       [](const auto& filter) { return filter == nullptr || filter->count == 0; });
}

void Demultiplexer::flush() {
    {
        std::lock_guard lock(mMutex);
        for (const auto& filter : mFilters) {
            if (filter != nullptr) {
                filter->first = 0;
                filter->count = 0;
                filter->forgetLent();
                filter->last = nullptr;
            }
        }
        mRoom = true;
    }
    mRoomWake.notify_all();
}

uint16_t Demultiplexer::filterPid(int kind) const {
    std::lock_guard lock(mMutex);
    for (const auto& filter : mFilters) {
        if (filter != nullptr && filter->kind == kind) {
            return filter->pid;
        }
    }
    return PID_NONE;
}

}  // namespace orvhost
