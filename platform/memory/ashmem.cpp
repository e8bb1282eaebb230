#include <cutils/ashmem.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <string>

namespace {

// Linux 5.1; older C library headers lack it.
#ifndef F_SEAL_FUTURE_WRITE
constexpr int F_SEAL_FUTURE_WRITE = 0x0010;
#endif

constexpr size_t NAME_BYTES = 249;  // what memfd_create takes

}  // namespace

int ashmem_create_region(const char* name, size_t size) {
    const std::string label = std::string(name != nullptr ? name : "").substr(0, NAME_BYTES);
    int fd = memfd_create(label.c_str(), MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (fd < 0) {
        return -1;
    }
    // The size is final: a mapping can never lose the pages under it.
    if (size > static_cast<size_t>(LLONG_MAX) || ftruncate(fd, static_cast<off_t>(size)) != 0 ||
        fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW) != 0) {
        const int error = size > static_cast<size_t>(LLONG_MAX) ? EINVAL : errno;
        close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

int ashmem_set_prot_region(int fd, int prot) {
    const int seals = fcntl(fd, F_GET_SEALS);
    if (seals < 0) {
        return -1;
    }
    const bool sealed = (seals & F_SEAL_FUTURE_WRITE) != 0;
    if (prot & PROT_WRITE) {
        if (sealed) {
            errno = EINVAL;
            return -1;
        }
        return 0;
    }
    return sealed ? 0 : fcntl(fd, F_ADD_SEALS, F_SEAL_FUTURE_WRITE);
}

int ashmem_get_size_region(int fd) {
    struct stat status;
    if (fstat(fd, &status) != 0) {
        return -1;
    }
    return static_cast<int>(status.st_size);
}
