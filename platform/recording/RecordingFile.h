#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace orvhost {

// How the space of a storage is used.
struct RecordingSpace {
    // Reserved at a time, before it is written: what is announced can be written.
    int64_t stepBytes = 16 << 20;
    // Left free, for catalogue and system; 0: a hundredth of the storage, 8 MiB at least and 256
    // MiB at most.
    int64_t keepFreeBytes = 0;
};

// Whether a recording can begin in this folder, as far as space goes.
bool hasRoom(const std::string& folder, const RecordingSpace& space);

// A recording that is written: NAME.ts, whole packets, at any moment. What was written is on its
// way to the storage within a second, and there within five. One thread; every call may wait for
// the storage.
class RecordingFile {
public:
    enum class Status {
        Ok,
        Full,    // the space that may be used is used up
        Failed,  // the storage refuses, or the file is not in its folder any more
    };

    // The descriptor, of an empty file, stays the caller's.
    RecordingFile(int fd, const RecordingSpace& space) : mFd(fd), mSpace(space) {}
    RecordingFile(const RecordingFile&) = delete;  // one owner of what is reserved
    RecordingFile& operator=(const RecordingFile&) = delete;

    // Appends whole packets. On failure as many of them as went are there, and whole.
    Status write(const uint8_t* packets, size_t count);

    // The packets of the PID from this place on become null packets.
    void blank(uint16_t pid, uint64_t offset);
    // Sound begins and ends with whole frames, see SoundEdges.h. After blank().
    void trimSound(uint16_t pid);

    // Everything is on the storage afterwards.
    Status sync();
    // The same, and gives back what was reserved.
    Status finish();

    // Whether nothing in any folder leads to it any more.
    bool isGone() const;
    int64_t sizeBytes() const { return mSize; }
    // Of the last failure, errno.
    int error() const { return mError; }

private:
    // Packets that change are written again.
    using Change = std::function<void(uint8_t* packets, size_t count)>;
    void edit(int64_t from, int64_t to, const Change& change);
    Status reserve(int64_t bytes);
    Status fail(int error);

    const int mFd;
    const RecordingSpace mSpace;
    int64_t mSize = 0;
    int64_t mReserved = 0;
    int64_t mStarted = 0;  // so much is on its way to the storage
    bool mCanReserve = true;
    int mError = 0;
};

}  // namespace orvhost
