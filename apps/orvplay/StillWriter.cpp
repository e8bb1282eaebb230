#include "StillWriter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>

namespace orvplay {

namespace {

constexpr int LAST_NUMBER = 9999;

bool writeAll(int descriptor, const std::vector<uint8_t>& bytes) {
    for (size_t at = 0; at < bytes.size();) {
        const ssize_t written = write(descriptor, bytes.data() + at, bytes.size() - at);
        if (written < 0 && errno != EINTR) {
            return false;
        }
        at += written > 0 ? static_cast<size_t>(written) : 0;
    }
    return true;
}

std::string numbered(const std::string& path, int number) {
    const std::filesystem::path whole(path);
    return number == 0 ? path
                       : (whole.parent_path() / whole.stem()).string() + "-" +
                             std::to_string(number) + whole.extension().string();
}

// Opens a file of that name which nobody has, and tells the name; negative, and errno set, when
// that fails.
int createNew(const std::string& path, std::string* name) {
    int descriptor = -1;
    for (int number = 0; number <= LAST_NUMBER; ++number) {
        *name = numbered(path, number);
        descriptor = open(name->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (descriptor >= 0 || errno != EEXIST) {
            break;
        }
    }
    return descriptor;
}

// Something that is there and takes bytes without losing any: a pipe, a terminal, a device.
bool isSink(const std::string& path) {
    struct stat found {};
    return stat(path.c_str(), &found) == 0 && !S_ISREG(found.st_mode) && !S_ISDIR(found.st_mode);
}

}  // namespace

std::string stillName(const std::string& service, std::chrono::system_clock::time_point time) {
    constexpr size_t LONGEST = 80;  // bytes of the service's name
    std::string name;
    for (const char c : service) {
        const auto byte = static_cast<uint8_t>(c);
        const bool isPlain = isalnum(byte) != 0 || c == '_' || c == '.' || c == '+' || byte >= 0x80;
        if (name.size() >= LONGEST && (byte & 0xC0) != 0x80) {
            break;  // not inside a character
        }
        if (isPlain) {
            name.push_back(c);
        } else if (!name.empty() && name.back() != '-') {
            name.push_back('-');
        }
    }
    if (!name.empty() && name.back() != '-') {
        name.push_back('-');
    }
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm local{};
    localtime_r(&seconds, &local);
    char date[32];
    strftime(date, sizeof date, "%Y-%m-%d-%H%M%S", &local);
    return "orvplay-" + name + date + ".png";
}

bool writeStill(const Still& still, const StillLabels& labels, int descriptor, std::string* error) {
    const std::vector<uint8_t> bytes = encodePng(still, labels, error);
    if (bytes.empty()) {
        return false;
    }
    if (!writeAll(descriptor, bytes)) {
        *error = strerror(errno);
        return false;
    }
    return true;
}

std::string writeStill(const Still& still, const StillLabels& labels, const std::string& path,
                       std::string* error) {
    std::error_code ignored;
    const bool isFolder = std::filesystem::is_directory(path, ignored);
    const std::string wanted =
        isFolder ? (std::filesystem::path(path) / stillName(labels.service, still.takenAt)).string()
                 : path;
    const bool isKept = isSink(wanted);
    std::string name = wanted;
    const int descriptor =
        isKept ? open(wanted.c_str(), O_WRONLY | O_CLOEXEC) : createNew(wanted, &name);
    if (descriptor < 0) {
        *error = wanted + ": " + strerror(errno);
        return {};
    }
    std::string reason;
    bool isWritten = writeStill(still, labels, descriptor, &reason);
    if (close(descriptor) != 0 && isWritten) {
        reason = strerror(errno);
        isWritten = false;
    }
    if (!isWritten) {
        if (!isKept) {
            unlink(name.c_str());
        }
        *error = name + ": " + reason;
        return {};
    }
    return name;
}

}  // namespace orvplay
