#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "Checks.h"
#include "dtv/network/DatagramSocket.h"

namespace orvdoctor {

namespace {

using State = Finding::State;

constexpr rlim_t ENOUGH_FILES = 256;  // pictures, buffers and sockets of one player are about 60
constexpr size_t PICTURE_BYTES = 4 << 20;

// A picture's memory as the player and its window share it: 0, or an errno.
int trySharedMemory() {
    const int fd = memfd_create("orvplay-doctor", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (fd < 0) {
        return errno;
    }
    int error = ftruncate(fd, PICTURE_BYTES) != 0 ||
                        fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW) != 0 ||
                        fcntl(fd, F_ADD_SEALS, F_SEAL_FUTURE_WRITE) != 0
                    ? errno
                    : 0;
    if (error == 0) {
        error = fallocate(fd, 0, 0, PICTURE_BYTES) != 0 ? errno : 0;
    }
    close(fd);
    return error;
}

Finding checkMemory() {
    if (const int error = trySharedMemory(); error != 0) {
        return {"memory", State::MISSING,
                std::string("no sealed shared memory for pictures (") + strerror(error) +
                    "): needs Linux 5.1",
                "sudo apt-get install linux-image-$(dpkg --print-architecture)"};
    }
    return {"memory", State::OK, "shared memory for pictures", ""};
}

Finding checkFiles() {
    rlimit files = {};
    getrlimit(RLIMIT_NOFILE, &files);
    if (files.rlim_cur < ENOUGH_FILES) {
        return {"files", State::WARNING,
                "only " + std::to_string(files.rlim_cur) + " descriptors for a program",
                "ulimit -n " + std::to_string(1024)};
    }
    return {"files", State::OK, "enough descriptors for a program", ""};
}

Finding checkReceiveBuffer() {
    constexpr int WANTED = orvhost::DatagramSocket::WANTED_BUFFER_BYTES;
    int most = 0;
    std::ifstream("/proc/sys/net/core/rmem_max") >> most;
    if (most < WANTED) {
        return {"network", State::NOTE,
                "receive buffers of " + std::to_string(most >> 10) +
                    " KiB: a busy machine may lose packets of udp:// and rtp:// sources",
                "sudo sysctl -w net.core.rmem_max=" + std::to_string(WANTED)};
    }
    return {"network", State::OK, "receive buffers for a whole multiplex", ""};
}

}  // namespace

Findings checkLimits() {
    return {checkMemory(), checkFiles(), checkReceiveBuffer()};
}

}  // namespace orvdoctor
