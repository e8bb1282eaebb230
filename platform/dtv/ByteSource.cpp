#include "dtv/ByteSource.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "dtv/SourceFile.h"
#include "dtv/Tuner.h"

namespace orvhost {

namespace {

constexpr int PIPE_BYTES = 1 << 20;

class OwnedDescriptor {
public:
    explicit OwnedDescriptor(int fd) : mFd(fd) {}
    ~OwnedDescriptor() {
        if (mFd >= 0) {
            close(mFd);
        }
    }
    OwnedDescriptor(OwnedDescriptor&& other) noexcept : mFd(std::exchange(other.mFd, -1)) {}
    OwnedDescriptor& operator=(OwnedDescriptor&&) = delete;
    int get() const { return mFd; }

private:
    int mFd;
};

// Positioned reads: the offset of a descriptor shared with others never moves.
class FileSource : public ByteSource {
public:
    FileSource(OwnedDescriptor fd, off_t start) : mFd(std::move(fd)), mStart(start), mAt(start) {
        posix_fadvise(mFd.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    }

    ssize_t read(uint8_t* data, size_t size, int) override {
        ssize_t got = -1;
        do {
            if (mInterrupted.load(std::memory_order_relaxed)) {
                return -EINTR;
            }
            got = pread(mFd.get(), data, size, mAt);
        } while (got < 0 && errno == EINTR);
        if (got < 0) {
            return -errno;
        }
        mAt += got;
        return got;
    }

    bool rewind() override {
        mAt = mStart;
        return true;
    }

    bool seek(uint64_t offset) override {
        if (offset > INT64_MAX) {
            return false;
        }
        mAt = static_cast<off_t>(offset);
        return true;
    }

    int duplicate() const override { return fcntl(mFd.get(), F_DUPFD_CLOEXEC, 0); }

    void interrupt() override { mInterrupted.store(true, std::memory_order_relaxed); }

private:
    OwnedDescriptor mFd;
    const off_t mStart;
    off_t mAt;
    std::atomic<bool> mInterrupted{false};
};

// Pipes, sockets, terminals. They are polled rather than made non-blocking: that flag would be
// shared with whoever else holds the same open description.
class PipeSource : public ByteSource {
public:
    PipeSource(OwnedDescriptor fd, OwnedDescriptor wake)
        : mFd(std::move(fd)), mWake(std::move(wake)) {
        fcntl(mFd.get(), F_SETPIPE_SZ, PIPE_BYTES);  // fewer wake-ups; refused by other kinds
    }

    ssize_t read(uint8_t* data, size_t size, int timeoutMs) override {
        pollfd fds[] = {{mFd.get(), POLLIN, 0}, {mWake.get(), POLLIN, 0}};
        const int ready = poll(fds, 2, timeoutMs);
        if (ready < 0) {
            return errno == EINTR ? -EAGAIN : -errno;
        }
        if (fds[1].revents != 0) {
            return -EINTR;
        }
        if (fds[0].revents == 0) {
            return -EAGAIN;
        }
        const ssize_t got = ::read(mFd.get(), data, size);
        if (got >= 0) {
            return got;
        }
        return errno == EINTR ? -EAGAIN : -errno;
    }

    bool rewind() override { return false; }
    bool seek(uint64_t) override { return false; }
    int duplicate() const override { return -1; }

    void interrupt() override {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = write(mWake.get(), &one, sizeof(one));
    }

private:
    OwnedDescriptor mFd;
    OwnedDescriptor mWake;
};

std::unique_ptr<ByteSource> wrap(OwnedDescriptor fd, const std::string& name, TuneResult& result) {
    struct stat status;
    if (fstat(fd.get(), &status) != 0) {
        failSource(result, name, errno);
        return nullptr;
    }
    if (S_ISDIR(status.st_mode)) {
        failSource(result, name, EISDIR);
        return nullptr;
    }
    if (S_ISREG(status.st_mode)) {
        const off_t start = lseek(fd.get(), 0, SEEK_CUR);
        return std::make_unique<FileSource>(std::move(fd), start > 0 ? start : 0);
    }
    OwnedDescriptor wake(eventfd(0, EFD_CLOEXEC));
    if (wake.get() < 0) {
        failSource(result, name, errno);
        return nullptr;
    }
    return std::make_unique<PipeSource>(std::move(fd), std::move(wake));
}

}  // namespace

NetworkStatistics ByteSource::network() const {
    return {};
}

FrontendStatistics ByteSource::frontend() const {
    return {};
}

std::string ByteSource::silence() const {
    return "no data came; is its sender running?";
}

std::vector<SourceFault> ByteSource::takeFaults() {
    return {};
}

std::unique_ptr<ByteSource> openByteSource(const std::string& path, TuneResult& result) {
    OwnedDescriptor fd(openSourceFile(path, result));
    return fd.get() >= 0 ? wrap(std::move(fd), sourceNameOf(path), result) : nullptr;
}

std::unique_ptr<ByteSource> adoptByteSource(int descriptor, const std::string& name,
                                            TuneResult& result) {
    OwnedDescriptor fd(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
    if (fd.get() < 0) {
        failSource(result, name, errno);
        return nullptr;
    }
    return wrap(std::move(fd), name, result);
}

}  // namespace orvhost
