#include <fcntl.h>
#include <sys/stat.h>
#include <trace/OneSegPGL.h>
#include <unistd.h>

#include <cerrno>

int OneSegPGL_CheckFile(const char* path) {
    return OneSegPGL_GetFileSize(path) >= 0 ? 1 : 0;
}

long OneSegPGL_GetFileSize(const char* path) {
    struct stat file = {};
    const bool isFile = path != nullptr && stat(path, &file) == 0 && S_ISREG(file.st_mode);
    return isFile ? file.st_size : -1;
}

long OneSegPGL_ReadFile(const char* path, void* buffer, long size) {
    if (OneSegPGL_CheckFile(path) == 0 || buffer == nullptr || size < 0) {
        return -1;
    }
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) {
        return -1;
    }
    long total = 0;
    while (total < size) {
        const ssize_t count =
            read(fd, static_cast<char*>(buffer) + total, static_cast<size_t>(size - total));
        if (count == 0) {
            break;
        }
        if (count > 0) {
            total += count;
        } else if (errno != EINTR) {
            total = -1;
            break;
        }
    }
    close(fd);
    return total;
}
