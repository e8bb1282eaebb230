#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace orvhost {

// Who holds which permission on this host. Root and the user whom this process runs as hold every
// one; others what a small file says, a permission and its holders a line:
//
//   # the living-room account and everyone in group video may use the player
//   org.orvplayer.permission.CALL   tv 1001 @video
//   android.permission.DUMP         @adm
//
// A holder is a user's name, a user's number, or @ and a group's name. Lines of one permission add
// up. A line that is no such line, or names a user or group that does not exist, is skipped with
// one warning that says where and why; so is the whole file when it is not a regular file, too
// long, or when others than root and this process's user may change it.
//
// The file is looked at with the questions, at most once a second, and read again when it has
// changed; without one there are the two rules above alone. A user's groups are looked up once per
// reading of the file. Any thread.
class PermissionPolicy {
public:
    // Who may make calls at all.
    static constexpr const char* CALL = "org.orvplayer.permission.CALL";

    using Clock = int64_t (*)();  // ms, never back

    // That of this process: $ORV_PERMISSIONS, else /etc/orvplayer/permissions.conf. Never
    // destroyed.
    static PermissionPolicy& instance();
    static bool mayCall(uid_t uid) { return instance().holds(CALL, uid); }

    explicit PermissionPolicy(std::string path, Clock clockMs = &steadyMs);
    PermissionPolicy(const PermissionPolicy&) = delete;  // asked by everyone at one place
    PermissionPolicy& operator=(const PermissionPolicy&) = delete;

    bool holds(const std::string& permission, uid_t uid);

    // How many warnings the file is worth as it stands.
    size_t faults();

    // Where the file of this process is looked for.
    static std::string path();

private:
    struct Holders {
        std::set<uid_t> users;
        std::set<gid_t> groups;
    };

    static int64_t steadyMs();

    void refresh();
    void load(const struct stat& seen);
    void warn(unsigned line, const std::string& text);
    void readLine(unsigned number, const std::string& line);
    const std::vector<gid_t>& groupsOf(uid_t uid);

    const std::string mPath;
    const Clock mClockMs;
    std::mutex mMutex;
    // With the mutex.
    std::map<std::string, Holders> mHolders;
    std::map<uid_t, std::vector<gid_t>> mGroups;
    int64_t mLookedAtMs;
    struct stat mSeen = {};  // all 0: no file
    size_t mFaults = 0;
};

}  // namespace orvhost
