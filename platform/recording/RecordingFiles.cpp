#include "recording/RecordingFiles.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <iterator>

#include "dtv/TsPacket.h"
#include "recording/RecordingStorages.h"

namespace orvhost {

namespace {

constexpr const char* EXTENSIONS[] = {".ts", ".index", ".json"};

std::string withExtension(const std::string& path, const char* extension) {
    return path.substr(0, path.size() - 3) + extension;
}

// Never over another file. 0, or an error number.
int renameToNew(const std::string& from, const std::string& to) {
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return errno;
    }
    // A file system that cannot do it in one step.
    if (exists(to)) {
        return EEXIST;
    }
    return rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

}  // namespace

bool exists(const std::string& path) {
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0;
}

int64_t fileSize(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_size : 0;
}

bool isNameTaken(const std::string& path) {
    return std::any_of(std::begin(EXTENSIONS), std::end(EXTENSIONS), [&](const char* extension) {
        return exists(withExtension(path, extension));
    });
}

int createRecordingFile(const std::string& path) {
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        close(fd);
        unlink(path.c_str());
        errno = error;
        return -1;
    }
    return fd;
}

Openness openUnused(const std::string& path, UniqueFd* file) {
    *file = UniqueFd(open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
    if (!*file) {
        return errno == ENOENT || errno == ENOTDIR ? Openness::Gone : Openness::Failed;
    }
    if (flock(file->get(), LOCK_EX | LOCK_NB) == 0) {
        return Openness::Opened;
    }
    return errno == EWOULDBLOCK ? Openness::InUse : Openness::Failed;
}

RecordingResult moveRecordingFiles(const std::string& from, const std::string& to) {
    for (const char* extension : EXTENSIONS) {
        const std::string old = withExtension(from, extension);
        const int error = exists(old) ? renameToNew(old, withExtension(to, extension)) : 0;
        if (error != 0 && error != ENOENT) {
            if (extension != EXTENSIONS[0]) {
                unlink(old.c_str());  // can be made again
            } else if (error == EEXIST) {
                return {RecordingStatus::StorageError, to + ": another file has this name"};
            } else {
                return storageFailure(error, to);
            }
        }
    }
    return {};
}

RecordingResult removeRecordingFiles(const std::string& path) {
    for (const char* extension : EXTENSIONS) {
        const std::string one = withExtension(path, extension);
        if (unlink(one.c_str()) != 0 && errno != ENOENT && errno != ENOTDIR) {
            return storageFailure(errno, one);
        }
    }
    unlink((withExtension(path, ".json") + ".new").c_str());
    return {};
}

int64_t trimToPackets(int fd) {
    struct stat status = {};
    if (fstat(fd, &status) != 0) {
        return -1;
    }
    constexpr auto PACKET = static_cast<int64_t>(TS_PACKET_BYTES);
    int64_t size = status.st_size / PACKET * PACKET;
    std::array<uint8_t, TS_PACKET_BYTES * 512> block;
    bool found = false;
    while (size > 0 && !found) {
        const int64_t start = std::max<int64_t>(0, size - static_cast<int64_t>(block.size()));
        const auto wanted = static_cast<size_t>(size - start);
        if (readAllAt(fd, block.data(), wanted, static_cast<uint64_t>(start)) != wanted) {
            return -1;
        }
        while (size > start && !found) {
            found = block[static_cast<size_t>(size - start) - TS_PACKET_BYTES] == TS_SYNC_BYTE;
            size -= found ? 0 : PACKET;
        }
    }
    // Also where the size stays: what a writer had reserved behind the end goes.
    if (ftruncate(fd, size) != 0) {
        return -1;
    }
    const timespec times[] = {status.st_atim, status.st_mtim};  // when the writer was there last
    (void)futimens(fd, times);
    return size;
}

}  // namespace orvhost
