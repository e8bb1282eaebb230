#include "recording/RecordingFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "dtv/TsPacket.h"
#include "recording/FileBytes.h"
#include "recording/SoundEdges.h"

namespace orvhost {

namespace {

constexpr int64_t MB = 1 << 20;
constexpr int64_t LEAST_FREE = 8 * MB;
constexpr int64_t MOST_FREE = 256 * MB;
constexpr int64_t START_BYTES = MB;  // of dirty pages, before their way to the storage begins
// What is changed afterwards lies no further from either end.
constexpr int64_t EDGE_BYTES =
    (4 * MB) / static_cast<int64_t>(TS_PACKET_BYTES) * static_cast<int64_t>(TS_PACKET_BYTES);

bool hasFree(const struct statvfs& storage, const RecordingSpace& space) {
    const auto unit = static_cast<int64_t>(storage.f_frsize);
    const int64_t total = static_cast<int64_t>(storage.f_blocks) * unit;
    const int64_t keep = space.keepFreeBytes > 0 ? space.keepFreeBytes
                                                 : std::clamp(total / 100, LEAST_FREE, MOST_FREE);
    return static_cast<int64_t>(storage.f_bavail) * unit >= keep + space.stepBytes;
}

}  // namespace

bool hasRoom(const std::string& folder, const RecordingSpace& space) {
    struct statvfs storage {};
    return statvfs(folder.c_str(), &storage) == 0 && hasFree(storage, space);
}

RecordingFile::Status RecordingFile::fail(int error) {
    mError = error;
    const bool isFull = error == ENOSPC || error == EDQUOT || error == EFBIG;
    return isFull ? Status::Full : Status::Failed;
}

// A file without a name goes on taking bytes that nobody will ever see.
bool RecordingFile::isGone() const {
    struct stat file {};
    return fstat(mFd, &file) != 0 || file.st_nlink == 0;
}

RecordingFile::Status RecordingFile::reserve(int64_t bytes) {
    while (mSize + bytes > mReserved) {
        struct statvfs storage {};
        if (fstatvfs(mFd, &storage) == 0 && !hasFree(storage, mSpace)) {
            return fail(ENOSPC);
        }
        if (mCanReserve && fallocate(mFd, FALLOC_FL_KEEP_SIZE, mReserved, mSpace.stepBytes) != 0) {
            if (errno == EINTR) {
                continue;
            }
            if (errno == ENOSPC || errno == EDQUOT || errno == EFBIG) {
                return fail(errno);
            }
            mCanReserve = false;  // not a gift of every file system
        }
        mReserved += mSpace.stepBytes;
    }
    return Status::Ok;
}

RecordingFile::Status RecordingFile::write(const uint8_t* packets, size_t count) {
    if (isGone()) {
        return fail(ENOENT);
    }
    const auto bytes = static_cast<int64_t>(count * TS_PACKET_BYTES);
    if (const Status status = reserve(bytes); status != Status::Ok) {
        return status;
    }
    int64_t done = 0;
    int error = 0;
    while (done < bytes && error == 0) {
        const ssize_t n =
            pwrite(mFd, packets + done, static_cast<size_t>(bytes - done), mSize + done);
        if (n > 0) {
            done += n;
        } else if (n == 0 || errno != EINTR) {
            error = n == 0 ? EIO : errno;
        }
    }
    mSize += done - done % static_cast<int64_t>(TS_PACKET_BYTES);
    if (error != 0) {
        // What is left of a packet goes. Where that fails the next repair does it.
        (void)!ftruncate(mFd, mSize);
        return fail(error);
    }
    if (mSize - mStarted >= START_BYTES) {
        sync_file_range(mFd, mStarted, mSize - mStarted, SYNC_FILE_RANGE_WRITE);
        mStarted = mSize;
    }
    return Status::Ok;
}

void RecordingFile::edit(int64_t from, int64_t to, const Change& change) {
    std::vector<uint8_t> packets(static_cast<size_t>(to - from));
    const size_t got = readAllAt(mFd, packets.data(), packets.size(), static_cast<size_t>(from));
    const size_t count = got / TS_PACKET_BYTES;
    const std::vector<uint8_t> before = packets;
    change(packets.data(), count);
    for (size_t at = 0; at < count * TS_PACKET_BYTES; at += TS_PACKET_BYTES) {
        const uint8_t* packet = packets.data() + at;
        if (std::memcmp(packet, before.data() + at, TS_PACKET_BYTES) != 0) {
            writeAllAt(mFd, packet, TS_PACKET_BYTES, static_cast<size_t>(from) + at);
        }
    }
}

void RecordingFile::blank(uint16_t pid, uint64_t offset) {
    const auto from = static_cast<int64_t>(offset);
    if (from >= mSize || mSize - from > EDGE_BYTES) {
        return;
    }
    edit(from, mSize, [pid](uint8_t* packets, size_t count) {
        for (size_t i = 0; i < count; ++i) {
            uint8_t* packet = packets + i * TS_PACKET_BYTES;
            if (pidOf(packet) == pid) {
                makeNull(packet);
            }
        }
    });
}

void RecordingFile::trimSound(uint16_t pid) {
    const int64_t edge = std::min(mSize, EDGE_BYTES);
    edit(0, edge, [pid](uint8_t* packets, size_t count) { beginWithFrame(packets, count, pid); });
    edit(mSize - edge, mSize,
         [pid](uint8_t* packets, size_t count) { endWithFrame(packets, count, pid); });
}

RecordingFile::Status RecordingFile::sync() {
    return isGone() ? fail(ENOENT) : fdatasync(mFd) == 0 ? Status::Ok : fail(errno);
}

RecordingFile::Status RecordingFile::finish() {
    if (mReserved > mSize && ftruncate(mFd, mSize) != 0) {
        return fail(errno);
    }
    mReserved = mSize;
    return sync();
}

}  // namespace orvhost
