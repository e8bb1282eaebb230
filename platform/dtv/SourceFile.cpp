#include "dtv/SourceFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace orvhost {

int openSourceFile(const std::string& path, TuneResult& result) {
    // Without O_NONBLOCK the open of a FIFO waits for its writer, for ever if none comes.
    const int fd = path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                               : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    struct stat status;
    int error = fd < 0 || fstat(fd, &status) != 0 ? errno : 0;
    if (error == 0 && S_ISDIR(status.st_mode)) {
        error = EISDIR;
    }
    if (error == 0) {
        return fd;
    }
    failSource(result, sourceNameOf(path), error);
    if (fd >= 0) {
        close(fd);
    }
    return -1;
}

std::string sourceNameOf(const std::string& path) {
    return path == "-" ? "standard input" : path;
}

void failSource(TuneResult& result, const std::string& name, int error) {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
            result = {TuneStatus::NoSuchFile, name + ": no such file; check the path"};
            break;
        case EISDIR:
            result = {TuneStatus::IsDirectory, name + ": is a directory; name a file in it"};
            break;
        case EACCES:
        case EPERM:
            result = {TuneStatus::PermissionDenied,
                      name + ": permission denied; make it readable for this user"};
            break;
        default:
            result = {TuneStatus::ReadError, name + ": cannot be read: " + std::strerror(error)};
    }
}

}  // namespace orvhost
