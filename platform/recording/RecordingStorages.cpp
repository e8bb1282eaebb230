#include "recording/RecordingStorages.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace orvhost {

namespace {

std::string variable(const char* name) {
    const char* const value = getenv(name);
    return value != nullptr ? value : "";
}

}  // namespace

RecordingStorages RecordingStorages::ofHost() {
    RecordingStorages storages;
    const std::string chosen = variable("ORV_RECORDING_DIR");
    const std::string data = dataFolder();
    if (!chosen.empty()) {
        storages.set(0, chosen);
    } else if (!data.empty()) {
        storages.set(0, data + "/recordings");
    }
    return storages;
}

std::string RecordingStorages::dataFolder() {
    // The XDG base directory specification: a relative path is to be passed over.
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

RecordingResult RecordingStorages::prepare(int type) const {
    const std::string folder = folderOf(type);
    if (folder.empty()) {
        return {RecordingStatus::NoSuchStorage,
                "no folder is set for recordings of storage type " + std::to_string(type) +
                    "; set the property orv.recording.dir." + std::to_string(type)};
    }
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        return {error.value() == EROFS || error.value() == EACCES ? RecordingStatus::ReadOnly
                                                                  : RecordingStatus::NoFolder,
                folder + ": cannot be made: " + strerror(error.value())};
    }
    if (access(folder.c_str(), W_OK | X_OK) != 0) {
        return storageFailure(errno, folder);
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
