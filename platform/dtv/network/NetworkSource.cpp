#include "dtv/network/NetworkSource.h"

#include <dtv/TunerTypes.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "dtv/TsPacket.h"

namespace orvhost {

namespace {

constexpr int64_t MS = 1'000'000;

// After so much silence the group is joined again, and again.
constexpr int64_t SILENCE_NS = 5000 * MS;

}  // namespace

std::unique_ptr<NetworkSource> NetworkSource::over(std::unique_ptr<DatagramSocket> socket,
                                                   HostClock& clock, TuneResult& result) {
    if (socket == nullptr) {
        return nullptr;
    }
    const int wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake < 0) {
        result = {TuneStatus::CannotOpen, std::string("no event counter: ") + std::strerror(errno)};
        return nullptr;
    }
    return std::unique_ptr<NetworkSource>(new NetworkSource(std::move(socket), wake, clock));
}

NetworkSource::NetworkSource(std::unique_ptr<DatagramSocket> socket, int wake, HostClock& clock)
    : mSocket(std::move(socket)),
      mWake(wake),
      mClock(clock),
      mMemory(std::make_unique_for_overwrite<uint8_t[]>(SLOTS * SLOT_STRIDE)),
      mContents(SLOTS),
      mArrivedNs(SLOTS),
      mLastCameNs(clock.nowNs()) {
    mFree.reserve(SLOTS);
    mReady.reserve(SLOTS);
    for (size_t slot = SLOTS; slot > 0; --slot) {
        mFree.push_back(static_cast<int>(slot - 1));
    }
}

NetworkSource::~NetworkSource() {
    close(mWake);
}

void NetworkSource::interrupt() {
    mInterrupted.store(true, std::memory_order_relaxed);
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(mWake, &one, sizeof one);
}

NetworkStatistics NetworkSource::network() const {
    std::lock_guard lock(mMutex);
    return mPublished;
}

void NetworkSource::publish() {
    mCounts.lost = mReorder.lost();
    mCounts.reordered = mReorder.reordered();
    mCounts.duplicates = mReorder.duplicates();
    mCounts.restarts = mReorder.restarts();
    mCounts.kernelDrops = mSocket->kernelDrops();
    mCounts.jitterUs = mJitter.jitterUs();
    std::lock_guard lock(mMutex);
    mPublished = mCounts;
}

ssize_t NetworkSource::read(uint8_t* data, size_t size, int timeoutMs) {
    size_t got = copyReady(data, size);
    if (got == 0 && timeoutMs > 0 && !waitForData(timeoutMs)) {
        return mInterrupted.load(std::memory_order_relaxed) ? -EINTR : -EAGAIN;
    }
    if (mInterrupted.load(std::memory_order_relaxed)) {
        return -EINTR;
    }
    if (mReadyFirst == mReady.size()) {
        receive();
        got += copyReady(data + got, size - got);
    }
    return got > 0 ? static_cast<ssize_t>(got) : -EAGAIN;
}

// True when datagrams came, or held ones have waited long enough.
bool NetworkSource::waitForData(int timeoutMs) {
    const int64_t nowNs = mClock.nowNs();
    const int64_t heldNs = mReorder.deadlineNs(INT64_MAX) - nowNs;
    const bool heldFirst = heldNs < timeoutMs * MS;
    const int waitMs =
        heldFirst ? static_cast<int>(std::max<int64_t>((heldNs + MS - 1) / MS, 0)) : timeoutMs;
    pollfd fds[] = {{mSocket->descriptor(), POLLIN, 0}, {mWake, POLLIN, 0}};
    const int ready = poll(fds, 2, waitMs);
    return (ready > 0 && fds[1].revents == 0) || (ready == 0 && heldFirst);
}

void NetworkSource::receive() {
    std::array<Datagram, DatagramSocket::BATCH> datagrams;
    const size_t most = std::min(datagrams.size(), mFree.size());
    for (size_t i = 0; i < most; ++i) {
        datagrams[i].bytes = bytesOf(mFree[mFree.size() - 1 - i]);
    }
    const size_t count = mSocket->receive(datagrams.data(), most);
    const int64_t nowNs = mClock.nowNs();
    std::array<int, DatagramSocket::BATCH> slots;
    for (size_t i = 0; i < count; ++i) {
        slots[i] = mFree.back();
        mFree.pop_back();
    }
    for (size_t i = 0; i < count; ++i) {
        sort(slots[i], datagrams[i], nowNs);
    }
    takeFromReorder(nowNs);
    if (count > 0) {
        mLastCameNs = nowNs;
        mCounts.datagrams += count;
        publish();
    } else if (nowNs - mLastCameNs > SILENCE_NS) {
        mLastCameNs = nowNs;
        mSocket->joinAgain();
    }
}

// Decides about one datagram; its slot goes on or becomes free.
void NetworkSource::sort(int slot, const Datagram& datagram, int64_t nowNs) {
    const DatagramContent content = DatagramContent::of(datagram.bytes, datagram.size);
    const auto index = static_cast<size_t>(slot);
    mArrivedNs[index] = datagram.arrivedNs != 0 ? datagram.arrivedNs : nowNs;
    bool goesOn = false;
    switch (content.kind) {
        case DatagramContent::Kind::Bare:
            goesOn = makeReady(slot, 0, datagram.size);
            mCounts.badDatagrams += goesOn ? 0 : 1;
            break;
        case DatagramContent::Kind::Rtp:
            // A stranger's number must not be taken for that of the sender.
            if (!hasPackets(datagram.bytes + content.begin, content.size)) {
                ++mCounts.badDatagrams;
                break;
            }
            mContents[index] = content;
            goesOn = mReorder.offer(content.ssrc, content.number, nowNs, slot);
            takeFromReorder(nowNs);
            break;
        case DatagramContent::Kind::Control:
            break;
    }
    if (!goesOn) {
        mFree.push_back(slot);
    }
}

void NetworkSource::takeFromReorder(int64_t nowNs) {
    for (int slot = mReorder.take(nowNs); slot != RtpReorder::NONE; slot = mReorder.take(nowNs)) {
        const DatagramContent& content = mContents[static_cast<size_t>(slot)];
        if (!makeReady(slot, content.begin, content.size)) {
            mFree.push_back(slot);
        }
    }
}

bool NetworkSource::makeReady(int slot, size_t begin, size_t size) {
    uint8_t* const payload = bytesOf(slot) + begin;
    const size_t packets = compactPackets(payload, size);
    if (packets == 0) {
        return false;
    }
    mJitter.add(payload, packets, mArrivedNs[static_cast<size_t>(slot)]);
    mReady.push_back({slot, begin, packets * TS_PACKET_BYTES});
    return true;
}

size_t NetworkSource::copyReady(uint8_t* data, size_t size) {
    size_t copied = 0;
    size = size / TS_PACKET_BYTES * TS_PACKET_BYTES;
    while (mReadyFirst < mReady.size() && copied < size) {
        Ready& next = mReady[mReadyFirst];
        const size_t part = std::min(next.size, size - copied);
        std::memcpy(data + copied, bytesOf(next.slot) + next.begin, part);
        copied += part;
        next.begin += part;
        next.size -= part;
        if (next.size == 0) {
            mFree.push_back(next.slot);
            ++mReadyFirst;
        }
    }
    if (mReadyFirst == mReady.size()) {
        mReady.clear();
        mReadyFirst = 0;
    }
    return copied;
}

}  // namespace orvhost
