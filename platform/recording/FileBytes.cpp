#include "recording/FileBytes.h"

#include <sys/stat.h>

#include <cerrno>

namespace orvhost {

size_t readAllAt(int fd, uint8_t* data, size_t size, uint64_t offset) {
    size_t done = 0;
    errno = 0;
    while (done < size) {
        const ssize_t got = pread(fd, data + done, size - done, static_cast<off_t>(offset + done));
        if (got > 0) {
            done += static_cast<size_t>(got);
        } else if (got == 0 || errno != EINTR) {
            break;
        }
    }
    return done;
}

bool writeAllAt(int fd, const uint8_t* data, size_t size, uint64_t offset) {
    size_t done = 0;
    while (done < size) {
        const ssize_t put = pwrite(fd, data + done, size - done, static_cast<off_t>(offset + done));
        if (put > 0) {
            done += static_cast<size_t>(put);
        } else if (put == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

uint64_t sizeOfFile(int fd) {
    struct stat status;
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode)
               ? static_cast<uint64_t>(status.st_size)
               : 0;
}

}  // namespace orvhost
