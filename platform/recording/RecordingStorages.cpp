#include "recording/RecordingStorages.h"

#include <cutils/properties.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "trace/HostLog.h"

namespace orvhost {

namespace {

std::string variable(const char* name) {
    const char* const value = getenv(name);
    return value != nullptr ? value : "";
}

// Empty for a value that may have been cut.
std::string property(const std::string& name) {
    char value[PROPERTY_VALUE_MAX] = "";
    if (property_get(name.c_str(), value, "") >= PROPERTY_VALUE_MAX - 1) {
        HOST_LOGW("%s: %s is too long, passed over\n", __func__, name.c_str());
        return "";
    }
    return value;
}

}  // namespace

RecordingStorages RecordingStorages::ofHost() {
    RecordingStorages storages;
    if (const std::string data = dataFolder(); !data.empty()) {
        storages.set(0, data + "/recordings");
    }
    for (int type = 0; type <= MAX_TYPE; ++type) {
        const std::string folder = property("orv.recording.dir." + std::to_string(type));
        if (!folder.empty() && folder[0] != '/') {
            HOST_LOGW("%s: storage type %d is no absolute path, passed over: %s\n", __func__, type,
                      folder.c_str());
        } else if (!folder.empty()) {
            storages.set(type, folder);
        }
    }
    storages.nameTemplate = property("orv.recording.name");
    return storages;
}

std::string RecordingStorages::dataFolder() {
    // By the rules of XDG base directories a relative path is to be passed over.
    const std::string data = variable("XDG_DATA_HOME");
    if (!data.empty() && data[0] == '/') {
        return data + "/orvplayer";
    }
    const std::string home = variable("HOME");
    return home.empty() || home[0] != '/' ? "" : home + "/.local/share/orvplayer";
}

std::string RecordingStorages::folderOf(int type) const {
    const auto found = mFolders.find(type);
    return found != mFolders.end() ? found->second : "";
}

RecordingResult RecordingStorages::prepare(int type, std::string* canonical) const {
    const std::string folder = folderOf(type);
    if (folder.empty()) {
        return {RecordingStatus::NoSuchStorage,
                "no folder is set for recordings of storage type " + std::to_string(type) +
                    "; set the property orv.recording.dir." + std::to_string(type)};
    }
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        return error.value() == ENOENT || error.value() == EEXIST || error.value() == ENOTDIR
                   ? RecordingResult{RecordingStatus::NoFolder,
                                     folder + ": cannot be made a folder"}
                   : storageFailure(error.value(), folder);
    }
    const std::string whole = std::filesystem::canonical(folder, error).string();
    if (error || access(whole.c_str(), W_OK | X_OK) != 0) {
        return storageFailure(error ? error.value() : errno, folder);
    }
    if (canonical != nullptr) {
        *canonical = whole;
    }
    return {};
}

RecordingResult storageFailure(int error, const std::string& path) {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
            return {RecordingStatus::NoFolder, path + ": the folder is not there"};
        case EROFS:
        case EACCES:
        case EPERM:
            return {RecordingStatus::ReadOnly,
                    path + ": cannot be written; choose another folder or mend its permissions"};
        case ENOSPC:
        case EDQUOT:
            return {RecordingStatus::NoSpace, path + ": no space left; remove recordings first"};
        default:
            return {RecordingStatus::StorageError, path + ": " + strerror(error)};
    }
}

}  // namespace orvhost
