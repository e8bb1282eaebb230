#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "platform/recording/RecordingBuilder.h"
#include "recording/Catalogue.h"
#include "recording/RecordingStorages.h"

namespace orvtest {

// A folder with a catalogue and two storages, gone with the object; in memory where there is such a
// place, as each change of a catalogue waits for the disk.
class RecordingFolder {
public:
    RecordingFolder() {
        if (access("/dev/shm", W_OK | X_OK) == 0) {
            mPath = "/dev/shm/orvtest-recordings-XXXXXX";
        }
        EXPECT_NE(mkdtemp(mPath.data()), nullptr);
        storages.set(0, path("tv"));
        storages.set(1, path("card"));
        storages.nameTemplate = "{channel} - {programme}";
    }
    ~RecordingFolder() { std::filesystem::remove_all(mPath); }
    RecordingFolder(const RecordingFolder&) = delete;  // owns the folder
    RecordingFolder& operator=(const RecordingFolder&) = delete;

    std::string path(const std::string& name) const { return mPath + "/" + name; }
    // A connection of its own, as another process would have.
    std::unique_ptr<orvhost::Catalogue> open() const {
        orvhost::RecordingResult result;
        auto catalogue = orvhost::Catalogue::open(path("catalogue"), storages, &result);
        EXPECT_NE(catalogue, nullptr) << result.message;
        return catalogue;
    }

    orvhost::RecordingStorages storages;

private:
    std::string mPath = "/tmp/orvtest-recordings-XXXXXX";
};

inline void writeBytes(int fd, const Bytes& bytes) {
    EXPECT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}

inline std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void writeFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

}  // namespace orvtest
