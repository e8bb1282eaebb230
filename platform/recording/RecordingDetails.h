#pragma once

#include <cstdint>
#include <string>
#include <vector>

// What is known of recordings, in plain types: for their users on either side of a process border.
namespace orvhost {

enum class RecordingState {
    Recording,  // being written; or its writer is gone, until the next repair
    Whole,      // finished by its writer
    Repaired,   // its writer went without finishing it: cut to whole packets, times from the stream
    Missing,    // known, but its file is not there
};

// One recording. On disk it is three files of one name: NAME.ts, a transport stream of one
// programme in packets of 188 bytes; NAME.json, the sidecar; NAME.index, where playback can begin.
struct RecordingDetails {
    int number = 0;    // 1 and up; never given to another recording; 0: none
    std::string path;  // of NAME.ts, absolute
    RecordingState state = RecordingState::Recording;
    std::string stationName;  // UTF-8, as is the next
    std::string programmeName;
    int64_t creationTimeS = 0;  // since 1970, as are the next two
    int64_t startTimeS = 0;
    int64_t endTimeS = 0;    // 0 while it is recorded
    int64_t durationMs = 0;  // of the stream
    int64_t sizeBytes = 0;   // of NAME.ts
    int32_t mode = 0;
    int32_t storageType = 0;
    bool canPlay = false;
    int32_t videoPid = -1;
    int32_t audioPid = -1;
    int32_t audioFraming = 0;  // 0 AAC in LATM, 1 AAC in ADTS, 2 MPEG audio
    int64_t positionMs = 0;    // where playback stopped last

    std::string sidecarPath() const { return pathWith(".json"); }
    std::string indexPath() const { return pathWith(".index"); }

private:
    // A path always ends with ".ts".
    std::string pathWith(const char* extension) const {
        return path.substr(0, path.size() < 3 ? 0 : path.size() - 3) + extension;
    }
};

enum class RecordingStatus {
    Ok,
    NoSuchRecording,
    NoSuchStorage,  // a storage type that no folder is set for
    NoFolder,       // the storage's folder is not there and cannot be made
    ReadOnly,       // the storage cannot be written
    NoSpace,
    InUse,           // a live process writes this recording
    BadFile,         // a file to import has no transport stream in it, or cannot be read
    Cancelled,       // by the progress callback
    StorageError,    // the storage answers with another error
    CatalogueError,  // the catalogue's database does
    ServiceLost,     // the process of the service is gone, or did not understand
};

// How a request ended, with one line for the user that says what to do about a failure.
struct RecordingResult {
    RecordingStatus status = RecordingStatus::Ok;
    std::string message;

    bool ok() const { return status == RecordingStatus::Ok; }
};

struct RecordingList {
    RecordingResult result;
    std::vector<RecordingDetails> recordings;  // by number, ascending
};

// What a repair found, in recordings.
struct RepairReport {
    RecordingResult result;
    int32_t repaired = 0;  // left by a writer that is gone, completed
    int32_t missing = 0;   // whose file is not there
    int32_t found = 0;     // that were missing, or stood in the catalogue under another path
    int32_t takenIn = 0;   // with a sidecar, that the catalogue did not know
    int32_t inUse = 0;     // being written by a live process: left alone
    bool rebuilt = false;  // the database was damaged: set aside, made new from sidecars
};

}  // namespace orvhost
