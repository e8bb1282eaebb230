#include "binder/PermissionPolicy.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <sstream>
#include <utility>

#include "trace/HostLog.h"

namespace orvhost {

namespace {

constexpr const char* DEFAULT_PATH = "/etc/orvplayer/permissions.conf";
constexpr int64_t LOOK_EVERY_MS = 1000;
constexpr off_t MAX_FILE_BYTES = 64 * 1024;
constexpr size_t MAX_CACHED_USERS = 256;
constexpr size_t NAME_SERVICE_BYTES = 16 * 1024;  // of one entry of a user or group
constexpr int MAX_GROUPS = 1024;                  // of one user

std::optional<uid_t> userNamed(const std::string& name) {
    uid_t number = 0;
    const char* const end = name.data() + name.size();
    const auto [stop, error] = std::from_chars(name.data(), end, number);
    // The highest number stands for "no user" in system calls.
    if (error == std::errc() && stop == end && number != static_cast<uid_t>(-1)) {
        return number;
    }
    std::vector<char> text(NAME_SERVICE_BYTES);
    struct passwd entry;
    struct passwd* found = nullptr;
    getpwnam_r(name.c_str(), &entry, text.data(), text.size(), &found);
    return found != nullptr ? std::optional(found->pw_uid) : std::nullopt;
}

std::optional<gid_t> groupNamed(const std::string& name) {
    std::vector<char> text(NAME_SERVICE_BYTES);
    struct group entry;
    struct group* found = nullptr;
    getgrnam_r(name.c_str(), &entry, text.data(), text.size(), &found);
    return found != nullptr ? std::optional(found->gr_gid) : std::nullopt;
}

bool sameFile(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino &&
           one.st_size == other.st_size && one.st_mode == other.st_mode &&
           one.st_uid == other.st_uid && one.st_mtim.tv_sec == other.st_mtim.tv_sec &&
           one.st_mtim.tv_nsec == other.st_mtim.tv_nsec;
}

// Why a file cannot be a policy; null when it can.
const char* refusal(const struct stat& file) {
    if (!S_ISREG(file.st_mode)) {
        return "not a regular file";
    }
    if (file.st_size > MAX_FILE_BYTES) {
        return "longer than 64 KiB";
    }
    if ((file.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return "others may write to it";
    }
    if (file.st_uid != 0 && file.st_uid != getuid()) {
        return "it belongs to another user";
    }
    return nullptr;
}

}  // namespace

PermissionPolicy& PermissionPolicy::instance() {
    static auto* const self = new PermissionPolicy(path());
    return *self;
}

std::string PermissionPolicy::path() {
    const char* const path = getenv("ORV_PERMISSIONS");
    return path != nullptr && *path != '\0' ? path : DEFAULT_PATH;
}

PermissionPolicy::PermissionPolicy(std::string path, Clock clockMs)
    : mPath(std::move(path)), mClockMs(clockMs), mLookedAtMs(clockMs() - LOOK_EVERY_MS) {}

int64_t PermissionPolicy::steadyMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

bool PermissionPolicy::holds(const std::string& permission, uid_t uid) {
    if (uid == 0 || uid == getuid()) {
        return true;
    }
    const std::lock_guard<std::mutex> lock(mMutex);
    refresh();
    const auto found = mHolders.find(permission);
    if (found == mHolders.end()) {
        return false;
    }
    const Holders& holders = found->second;
    if (holders.users.count(uid) != 0) {
        return true;
    }
    if (holders.groups.empty()) {
        return false;
    }
    const std::vector<gid_t>& groups = groupsOf(uid);
    return std::any_of(groups.begin(), groups.end(),
                       [&holders](gid_t group) { return holders.groups.count(group) != 0; });
}

size_t PermissionPolicy::faults() {
    const std::lock_guard<std::mutex> lock(mMutex);
    refresh();
    return mFaults;
}

void PermissionPolicy::refresh() {
    const int64_t nowMs = mClockMs();
    if (nowMs - mLookedAtMs < LOOK_EVERY_MS) {
        return;
    }
    mLookedAtMs = nowMs;
    struct stat file = {};
    if (stat(mPath.c_str(), &file) != 0) {
        file = {};
    }
    if (!sameFile(file, mSeen)) {
        load(file);
    }
}

void PermissionPolicy::load(const struct stat& seen) {
    mSeen = seen;
    mHolders.clear();
    mGroups.clear();
    mFaults = 0;
    if (seen.st_ino == 0) {
        return;
    }
    // A pipe must not stop us here.
    const int fd = open(mPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    struct stat file = {};
    if (fd < 0 || fstat(fd, &file) != 0) {
        HOST_LOGW("%s: cannot be read (%s): no permissions from it\n", mPath.c_str(),
                  strerror(errno));
        ++mFaults;
    } else if (const char* const why = refusal(file)) {
        HOST_LOGW("%s: %s: no permissions from it\n", mPath.c_str(), why);
        ++mFaults;
    } else {
        std::string text(static_cast<size_t>(MAX_FILE_BYTES), '\0');
        const ssize_t got = read(fd, text.data(), text.size());
        text.resize(static_cast<size_t>(std::max<ssize_t>(got, 0)));
        std::istringstream lines(text);
        std::string line;
        for (unsigned number = 1; std::getline(lines, line); ++number) {
            readLine(number, line.substr(0, line.find('#')));
        }
    }
    if (fd >= 0) {
        close(fd);
    }
}

void PermissionPolicy::readLine(unsigned number, const std::string& line) {
    std::istringstream words(line);
    std::string permission;
    if (!(words >> permission)) {
        return;
    }
    Holders holders;
    std::string word;
    while (words >> word) {
        if (word[0] == '@') {
            const auto group = groupNamed(word.substr(1));
            if (!group) {
                return warn(number, "no group \"" + word.substr(1) + "\"");
            }
            holders.groups.insert(*group);
        } else {
            const auto user = userNamed(word);
            if (!user) {
                return warn(number, "no user \"" + word + "\"");
            }
            holders.users.insert(*user);
        }
    }
    if (holders.users.empty() && holders.groups.empty()) {
        return warn(number, "nobody after \"" + permission + "\"");
    }
    mHolders[permission].users.merge(holders.users);
    mHolders[permission].groups.merge(holders.groups);
}

void PermissionPolicy::warn(unsigned line, const std::string& text) {
    ++mFaults;
    HOST_LOGW("%s:%u: %s: line skipped\n", mPath.c_str(), line, text.c_str());
}

const std::vector<gid_t>& PermissionPolicy::groupsOf(uid_t uid) {
    const auto known = mGroups.find(uid);
    if (known != mGroups.end()) {
        return known->second;
    }
    if (mGroups.size() >= MAX_CACHED_USERS) {
        mGroups.clear();
    }
    std::vector<gid_t>& groups = mGroups[uid];
    std::vector<char> text(NAME_SERVICE_BYTES);
    struct passwd entry;
    struct passwd* found = nullptr;
    getpwuid_r(uid, &entry, text.data(), text.size(), &found);
    if (found != nullptr) {
        int count = MAX_GROUPS;
        groups.resize(static_cast<size_t>(count));
        if (getgrouplist(found->pw_name, found->pw_gid, groups.data(), &count) < 0) {
            count = MAX_GROUPS;  // the first ones
        }
        groups.resize(static_cast<size_t>(count));
    }
    return groups;
}

}  // namespace orvhost
