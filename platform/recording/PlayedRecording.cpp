#include "recording/PlayedRecording.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdlib>

#include "dtv/StreamClock.h"
#include "recording/IndexState.h"
#include "recording/PacketWalk.h"
#include "recording/RecordingFiles.h"

namespace orvhost {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto PUBLISH_INTERVAL = std::chrono::milliseconds(50);
constexpr int64_t TICKS_PER_MS = PCR_HZ / 1000;
constexpr uint64_t SAMPLE_BYTES = 2 << 20;  // of a file's ends, for an estimate

// What a file that is written grows by while somebody asks.
constexpr uint64_t SMALL_GROWTH_BYTES = 64 << 10;

}  // namespace

std::atomic<int>& indexPercent() {
    static std::atomic<int> percent{-1};
    return percent;
}

std::string pathOf(int fd) {
    char path[PATH_MAX];
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t size = readlink(link.c_str(), path, sizeof(path));
    return size > 0 && path[0] == '/' ? std::string(path, static_cast<size_t>(size)) : "";
}

PlayedRecording::PlayedRecording(UniqueFd fd, const IndexedProgramme& programme)
    : mFd(std::move(fd)), mProgramme(programme) {
    mIndex.programme = programme;
    std::lock_guard lock(mMutex);
    refresh();
}

PlayedRecording::~PlayedRecording() {
    {
        std::lock_guard lock(mMutex);
        mEnding = true;
    }
    if (mThread.joinable()) {
        mThread.join();
    }
}

// Has the file scanned from where the index ends. With the lock.
void PlayedRecording::refresh() {
    const uint64_t size = sizeOfFile(mFd.get());
    const bool isCovered = mIndex.scannedBytes > 0 && size >= mIndex.scannedBytes &&
                           size - mIndex.scannedBytes < SMALL_GROWTH_BYTES;
    if (mScanning || isCovered) {
        return;
    }
    // Whoever writes the recording may have gone on with the file meanwhile.
    const std::string path = pathOf(mFd.get());
    auto written =
        path.empty() ? std::nullopt : readIndex(indexPathOf(path), mFd.get(), mProgramme);
    if (written && written->scannedBytes >= mIndex.scannedBytes) {
        mIndex = std::move(*written);
    } else if (size < mIndex.scannedBytes) {
        mIndex = {};
        mIndex.programme = mProgramme;
    }
    if (mIndex.scannedBytes == size && size > 0) {
        return;
    }
    if (mThread.joinable()) {
        mThread.join();  // it has ended
    }
    mScanning = true;
    mThread = std::thread(&PlayedRecording::scan, this, mIndex);
}

void PlayedRecording::scan(RecordingIndex index) {
    pthread_setname_np(pthread_self(), "RecIndex");
    auto published = Clock::now();
    const bool done = extendIndex(mFd.get(), &index, [&](uint64_t scanned, uint64_t total) {
        if (Clock::now() < published + PUBLISH_INTERVAL) {
            return true;
        }
        published = Clock::now();
        indexPercent() = total > 0 ? static_cast<int>(scanned * 100 / total) : 0;
        return publish(index);
    });
    indexPercent() = -1;
    publish(index);
    {
        std::lock_guard lock(mMutex);
        mScanning = false;
    }
    mScanned.notify_all();
    if (done) {
        keep(index);
    }
}

// Saves the index of a recording of ours, unless its writer does.
void PlayedRecording::keep(const RecordingIndex& index) const {
    RecordingDetails files;
    files.path = pathOf(mFd.get());
    if (!files.path.ends_with(".ts") || !exists(files.sidecarPath())) {
        return;
    }
    const UniqueFd unwritten(open(files.path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (unwritten && flock(unwritten.get(), LOCK_SH | LOCK_NB) == 0 &&
        sizeOfFile(unwritten.get()) == index.scannedBytes) {
        saveIndex(files.indexPath(), index, mFd.get());
    }
}

bool PlayedRecording::publish(const RecordingIndex& index) {
    bool goOn = false;
    {
        std::lock_guard lock(mMutex);
        mIndex = index;
        goOn = !mEnding;
    }
    mScanned.notify_all();
    return goOn;
}

bool PlayedRecording::covers(int64_t positionMs) const {
    return !mIndex.points.empty() && mIndex.positionMsOf(mIndex.points.back()) >= positionMs;
}

int64_t PlayedRecording::durationMs(int waitMs) {
    std::unique_lock lock(mMutex);
    refresh();
    if (mScanned.wait_for(lock, std::chrono::milliseconds(waitMs), [this] { return !mScanning; })) {
        return mIndex.durationMs();
    }
    const int64_t knownMs = mIndex.durationMs();
    lock.unlock();
    return std::max(knownMs, estimateDurationMs(mFd.get(), mProgramme));
}

bool PlayedRecording::canSeek() {
    std::lock_guard lock(mMutex);
    refresh();
    return mScanning || !mIndex.points.empty();
}

std::optional<uint64_t> PlayedRecording::offsetOf(int64_t positionMs, int waitMs) {
    std::unique_lock lock(mMutex);
    refresh();
    const bool known = mScanned.wait_for(lock, std::chrono::milliseconds(waitMs),
                                         [&] { return !mScanning || covers(positionMs); });
    const RandomAccessPoint* point = mIndex.pointBefore(positionMs);
    if (point == nullptr) {
        return std::nullopt;
    }
    if (known || mIndex.durationMs() == 0) {
        return point->offset;
    }
    const double part = static_cast<double>(positionMs) / static_cast<double>(mIndex.durationMs());
    const double bytes = std::min(static_cast<double>(mIndex.scannedBytes) * part,
                                  static_cast<double>(sizeOfFile(mFd.get())));
    const uint64_t packets = static_cast<uint64_t>(bytes) / mIndex.packetBytes;
    return packets * mIndex.packetBytes + point->offset % mIndex.packetBytes;
}

namespace {

struct Samples {
    int64_t first = -1;
    int64_t last = -1;
    uint64_t firstOffset = 0;
    uint64_t lastOffset = 0;
    size_t packetBytes = 0;

    int64_t ticks() const { return pcrDistance(first, last); }
    double bytes() const { return static_cast<double>(lastOffset - firstOffset); }
};

Samples samplesIn(int fd, uint64_t from, const IndexedProgramme& programme, size_t packetBytes) {
    Samples samples;
    StreamClock clock;
    clock.setPcrPid(programme.pcrPid);
    clock.setStampPid(programme.videoPid);
    PacketWalk walk(fd, from, packetBytes);
    while (walk.offset() < from + SAMPLE_BYTES && walk.next()) {
        clock.choose(walk.contiguous(), walk.count());
        for (size_t i = 0; i < walk.count(); ++i) {
            const int64_t ticks = clock.sampleOf(walk.packet(i));
            if (ticks < 0) {
                continue;
            }
            if (samples.first < 0) {
                samples.first = ticks;
                samples.firstOffset = walk.offsetOf(i);
            }
            samples.last = ticks;
            samples.lastOffset = walk.offsetOf(i);
        }
    }
    samples.packetBytes = walk.packetBytes();
    return samples;
}

}  // namespace

int64_t estimateDurationMs(int fd, const IndexedProgramme& programme) {
    const Samples head = samplesIn(fd, 0, programme, 0);
    if (head.first < 0) {
        return 0;
    }
    const uint64_t size = sizeOfFile(fd);
    if (size <= SAMPLE_BYTES || head.bytes() <= 0) {
        return head.ticks() / TICKS_PER_MS;
    }
    const Samples tail = samplesIn(fd, size - SAMPLE_BYTES, programme, head.packetBytes);
    const double expected = static_cast<double>(head.ticks()) / head.bytes() *
                            static_cast<double>(size - head.firstOffset);
    if (tail.last >= 0) {
        const auto ticks = static_cast<double>(pcrDistance(head.first, tail.last));
        const double wraps = std::max(0.0, (expected - ticks) / static_cast<double>(PCR_WRAP));
        const double whole = ticks + static_cast<double>(PCR_WRAP) *
                                         static_cast<double>(static_cast<int64_t>(wraps + 0.5));
        if (whole > expected / 3 && whole < expected * 3) {
            return static_cast<int64_t>(whole) / TICKS_PER_MS;
        }
    }
    return static_cast<int64_t>(std::min(expected, 1e18)) / TICKS_PER_MS;
}

}  // namespace orvhost
