#pragma once

#include <map>
#include <string>

#include "recording/RecordingDetails.h"

namespace orvhost {

// Where recordings go: a folder for each storage type, and how their files are named.
//
// As the host is configured:
//   orv.recording.dir.N                  property: the folder of storage type N, 0 to 15
//   orv.recording.name                   property: the template of names, see RecordingName.h
//   $XDG_DATA_HOME/orvplayer/recordings  storage type 0 where nothing is set
class RecordingStorages {
public:
    static constexpr int MAX_TYPE = 15;

    // As the host is configured.
    static RecordingStorages ofHost();
    // $XDG_DATA_HOME/orvplayer, where the catalogue's database stands; empty when there is neither
    // that variable nor a home.
    static std::string dataFolder();

    void set(int type, const std::string& folder) { mFolders[type] = folder; }
    const std::map<int, std::string>& folders() const { return mFolders; }
    // Empty for a type that is not set.
    std::string folderOf(int type) const;

    // Whether files can be made there; makes the folder where it is not. `canonical` has it without
    // symbolic links then; may be null.
    RecordingResult prepare(int type, std::string* canonical = nullptr) const;

    std::string nameTemplate;  // empty: the default one

private:
    std::map<int, std::string> mFolders;
};

// What a failed system call on a recording's file or folder means, with `path` in its line.
RecordingResult storageFailure(int error, const std::string& path);

}  // namespace orvhost
