#include "StateFiles.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "channels/ChannelList.h"

namespace orvplay {

namespace {

std::string stateFolder() {
    const char* const state = getenv("XDG_STATE_HOME");
    if (state != nullptr && state[0] == '/') {
        return std::string(state) + "/orvplay";
    }
    const char* const home = getenv("HOME");
    return std::string(home != nullptr ? home : "") + "/.local/state/orvplay";
}

// A descriptor that is closed with its scope.
class File {
public:
    File(const std::string& path, int flags) : mFd(open(path.c_str(), flags | O_CLOEXEC, 0600)) {}
    ~File() {
        if (mFd >= 0) {
            close(mFd);
        }
    }
    File(const File&) = delete;  // owns the descriptor
    File& operator=(const File&) = delete;

    bool lock() const {
        int result = mFd >= 0 ? 0 : -1;
        while (mFd >= 0 && (result = flock(mFd, LOCK_EX)) != 0 && errno == EINTR) {
        }
        return result == 0;
    }

    bool write(const std::string& text) const {
        size_t at = 0;
        while (mFd >= 0 && at < text.size()) {
            const ssize_t written = ::write(mFd, text.data() + at, text.size() - at);
            if (written < 0 && errno != EINTR) {
                return false;
            }
            at += written > 0 ? static_cast<size_t>(written) : 0;
        }
        return mFd >= 0;
    }

private:
    const int mFd;
};

}  // namespace

std::string readStateFile(const std::string& name) {
    std::string text;
    return readWhole(stateFolder() + "/" + name, &text) ? text : std::string();
}

bool changeStateFile(const std::string& name,
                     const std::function<std::string(const std::string& text)>& change,
                     std::string* error) {
    const std::string folder = stateFolder();
    const std::string path = folder + "/" + name;
    const std::string fresh = path + ".new";
    std::error_code failure;
    std::filesystem::create_directories(folder, failure);
    const File lock(folder + "/.lock", O_RDWR | O_CREAT);
    const bool written =
        lock.lock() &&
        File(fresh, O_WRONLY | O_CREAT | O_TRUNC).write(change(readStateFile(name))) &&
        rename(fresh.c_str(), path.c_str()) == 0;
    if (!written) {
        *error = path + ": cannot be written: " + strerror(errno);
        unlink(fresh.c_str());
    }
    return written;
}

}  // namespace orvplay
