#include "channels/ChannelList.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>

#include "channels/DvbChannelFile.h"
#include "channels/M3u.h"
#include "channels/SearchText.h"

namespace orvplay {

namespace {

constexpr size_t MAX_FILE_BYTES = 16 << 20;

std::string configFolder() {
    const char* config = getenv("XDG_CONFIG_HOME");
    if (config != nullptr && config[0] == '/') {
        return std::string(config) + "/orvplayer";
    }
    const char* home = getenv("HOME");
    return std::string(home != nullptr ? home : "") + "/.config/orvplayer";
}

// Of one process, or one thread with a list of its own, at a time.
class FileLock {
public:
    explicit FileLock(const std::string& path)
        : mFd(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
        while (mFd >= 0 && flock(mFd, LOCK_EX) != 0 && errno == EINTR) {
        }
    }
    ~FileLock() {
        if (mFd >= 0) {
            close(mFd);
        }
    }
    FileLock(const FileLock&) = delete;  // the descriptor is the lock
    FileLock& operator=(const FileLock&) = delete;

    bool isHeld() const { return mFd >= 0; }

private:
    const int mFd;
};

bool makeFolders(const std::string& path) {
    for (size_t at = path.find('/', 1); at != std::string::npos; at = path.find('/', at + 1)) {
        mkdir(path.substr(0, at).c_str(), 0755);
    }
    return mkdir(path.c_str(), 0755) == 0 || errno == EEXIST;
}

bool writeWhole(const std::string& path, const std::string& text) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    size_t at = 0;
    bool good = fd >= 0;
    while (good && at < text.size()) {
        const ssize_t n = write(fd, text.data() + at, text.size() - at);
        good = n > 0 || (n < 0 && errno == EINTR);
        at += n > 0 ? static_cast<size_t>(n) : 0;
    }
    return (fd < 0 || close(fd) == 0) && good;
}

// Puts a finished file in another one's place, in one step and for good.
bool replace(const std::string& path, const std::function<bool(const std::string&)>& write,
             std::string* error) {
    const std::string fresh = path + ".new";
    if (!write(fresh)) {
        unlink(fresh.c_str());
        return false;
    }
    const int fd = open(fresh.c_str(), O_RDONLY | O_CLOEXEC);
    const bool stored = fd >= 0 && fsync(fd) == 0;
    if (fd >= 0) {
        close(fd);
    }
    if (!stored || rename(fresh.c_str(), path.c_str()) != 0) {
        *error = path + ": cannot be written: " + strerror(errno);
        unlink(fresh.c_str());
        return false;
    }
    return true;
}

bool isNumber(const std::string& text) {
    return !text.empty() && text.size() < 10 &&
           text.find_first_not_of("0123456789") == std::string::npos;
}

bool sameNumber(const std::string& a, const std::string& b) {
    return isNumber(a) && isNumber(b) && atoi(a.c_str()) == atoi(b.c_str());
}

bool hasEachWord(const std::string& text, const std::string& words) {
    for (size_t at = 0; at < words.size();) {
        const size_t end = std::min(words.find(' ', at), words.size());
        if (text.find(words.substr(at, end - at)) == std::string::npos) {
            return false;
        }
        at = end + 1;
    }
    return true;
}

}  // namespace

bool readWhole(const std::string& path, std::string* text) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    char piece[16384];
    ssize_t got = 1;
    while (text->size() < MAX_FILE_BYTES && (got > 0 || errno == EINTR)) {
        got = read(fd, piece, sizeof piece);
        if (got == 0) {
            break;
        }
        text->append(piece, got > 0 ? static_cast<size_t>(got) : 0);
    }
    const int reason = errno;
    close(fd);
    errno = reason;
    return got >= 0;
}

ChannelList::ChannelList(std::string folder)
    : mFolder(folder.empty() ? configFolder() : std::move(folder)) {}

bool ChannelList::load(std::string* error) {
    std::vector<Channel> channels;
    if (access(dvbPath().c_str(), F_OK) == 0 && !readDvbChannels(dvbPath(), &channels, error)) {
        return false;
    }
    std::string text;
    if (readWhole(m3uPath(), &text)) {
        std::vector<Channel> others = parseM3u(text);
        std::move(others.begin(), others.end(), std::back_inserter(channels));
    } else if (errno != ENOENT && errno != ENOTDIR) {
        *error = m3uPath() + ": " + strerror(errno);
        return false;
    }
    mChannels = std::move(channels);
    return true;
}

bool ChannelList::save(std::string* error) const {
    const auto isDvb = [](const Channel& channel) { return channel.dvb.isTuned(); };
    const bool hasDvb = std::any_of(mChannels.begin(), mChannels.end(), isDvb);
    if (hasDvb &&
        !replace(
            dvbPath(),
            [&](const std::string& path) { return writeDvbChannels(path, mChannels, error); },
            error)) {
        return false;
    }
    std::vector<Channel> others;
    std::remove_copy_if(mChannels.begin(), mChannels.end(), std::back_inserter(others), isDvb);
    return others.empty() || replace(
                                 m3uPath(),
                                 [&](const std::string& path) {
                                     *error = m3uPath() + ": cannot be written";
                                     return writeWhole(path, toM3u(others));
                                 },
                                 error);
}

bool ChannelList::add(const std::vector<Channel>& channels, size_t* added, std::string* error) {
    makeFolders(mFolder);
    const FileLock lock(mFolder + "/.channels.lock");
    if (!lock.isHeld()) {
        *error = mFolder + ": cannot be written: " + strerror(errno);
        return false;
    }
    if (!load(error)) {
        return false;
    }
    const size_t before = mChannels.size();
    for (const Channel& channel : channels) {
        const auto same = std::find_if(mChannels.begin(), mChannels.end(),
                                       [&](const Channel& c) { return c.isSame(channel); });
        if (same != mChannels.end()) {
            *same = channel;
        } else {
            mChannels.push_back(channel);
        }
    }
    *added = mChannels.size() - before;
    return save(error);
}

const Channel* findChannel(const std::vector<Channel>& channels, const std::string& nameOrNumber) {
    const auto first = [&channels](const std::function<bool(const Channel&)>& fits) {
        const Channel* found = nullptr;
        for (const Channel& channel : channels) {
            if (!channel.name.empty() && fits(channel) &&
                (found == nullptr || (found->oneSegment && !channel.oneSegment))) {
                found = &channel;
            }
        }
        return found;
    };
    const std::string name = searchText(nameOrNumber);
    const std::function<bool(const Channel&)> ways[] = {
        [&](const Channel& c) { return c.number == nameOrNumber && !c.number.empty(); },
        [&](const Channel& c) { return c.name == nameOrNumber; },
        [&](const Channel& c) { return !name.empty() && searchText(c.name) == name; },
        [&](const Channel& c) { return sameNumber(c.number, nameOrNumber); },
        [&](const Channel& c) {
            return isNumber(nameOrNumber) && c.number.rfind(nameOrNumber + ".", 0) == 0;
        },
        [&](const Channel& c) {
            return c.serviceId != 0 && sameNumber(std::to_string(c.serviceId), nameOrNumber);
        },
    };
    for (const auto& way : ways) {
        if (const Channel* found = first(way); found != nullptr) {
            return found;
        }
    }
    const Channel* only = nullptr;
    for (const Channel& channel : channels) {
        if (!name.empty() && searchText(channel.name).rfind(name, 0) == 0) {
            if (only != nullptr) {
                return nullptr;
            }
            only = &channel;
        }
    }
    return only;
}

std::vector<Channel> ChannelList::search(const std::string& text) const {
    const std::string words = searchText(text);
    std::vector<Channel> found;
    for (const Channel& channel : mChannels) {
        const bool byName = !words.empty() && hasEachWord(searchText(channel.name), words);
        const bool byNumber = !text.empty() && channel.number.rfind(text, 0) == 0;
        if (!channel.name.empty() && (byName || byNumber)) {
            found.push_back(channel);
        }
    }
    return found;
}

}  // namespace orvplay
