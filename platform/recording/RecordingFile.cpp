#include "recording/RecordingFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "dtv/TsPacket.h"

namespace orvhost {

namespace {

constexpr int64_t MB = 1 << 20;
constexpr int64_t LEAST_FREE = 8 * MB;
constexpr int64_t MOST_FREE = 256 * MB;
constexpr int64_t START_BYTES = MB;     // of dirty pages, before their way to the storage begins
constexpr size_t BLANK_BYTES = 4 * MB;  // how far back from the end blank() goes

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

void RecordingFile::blank(uint16_t pid, uint64_t offset) {
    const auto size = static_cast<size_t>(mSize);
    if (offset >= size || size - offset > BLANK_BYTES) {
        return;
    }
    std::vector<uint8_t> tail(size - offset);
    const ssize_t got = pread(mFd, tail.data(), tail.size(), static_cast<off_t>(offset));
    for (size_t at = 0; static_cast<ssize_t>(at + TS_PACKET_BYTES) <= got; at += TS_PACKET_BYTES) {
        if (pidOf(tail.data() + at) == pid) {
            const uint8_t head[] = {TS_SYNC_BYTE, 0x1F, 0xFF, 0x10};
            (void)!pwrite(mFd, head, sizeof(head), static_cast<off_t>(offset + at));
        }
    }
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
