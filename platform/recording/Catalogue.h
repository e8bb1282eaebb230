#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "recording/RecordingDetails.h"

namespace orvhost {

class CatalogueDatabase;
class CatalogueRows;
struct CatalogueRow;
class RecordingStorages;

// What a recording begins with.
struct NewRecording {
    int32_t storageType = 0;
    int32_t mode = 0;
    int32_t videoPid = -1;
    int32_t audioPid = -1;
    int32_t audioFraming = 0;
    std::string stationName;  // may come later: setLabels()
    std::string programmeName;
    int64_t creationTimeS = 0;  // 0: the present
};

// A recording that has begun. The descriptor is of NAME.ts, empty, for reading and writing,
// close-on-exec; it is the caller's, who writes through it and closes it after finish() or
// discard(). While it, or a duplicate, is open the recording is locked: other processes leave it
// alone. When its process dies the lock goes, and the next repair completes the recording.
struct BegunRecording {
    int fd = -1;
    RecordingDetails details;
};

// How a recording ended.
struct RecordingEnd {
    int64_t durationMs = 0;
    int64_t sizeBytes = 0;
    bool canPlay = true;
};

// The recordings of this user, in a database that several processes use at once, and their files.
//
//   begin()  ->  setLabels()  ->  update() ...  ->  finish()  or  discard()
//
// A process that dies anywhere in between loses no recording: repair() completes it. Every function
// may be called from any thread; all wait for storage, so none belongs on a thread that feeds the
// player. Labels may be given, and recordings renamed, while they are written or played: open
// descriptors stay good, paths do not.
class Catalogue {
public:
    // Of bytes: how far it is, of how much. False cancels. On the caller's thread.
    using Progress = std::function<bool(int64_t done, int64_t total)>;

    // Opens, or makes, the catalogue in this folder. A database that is damaged is set aside, and
    // its rows come back from the sidecars with the next repair(). Null with one line for the user.
    static std::unique_ptr<Catalogue> open(const std::string& folder,
                                           const RecordingStorages& storages,
                                           RecordingResult* result);

    // The catalogue of this process's user, opened with the first call as the host is configured
    // (RecordingStorages.h) and never destroyed. Null with the reason when it cannot be opened; the
    // next call tries again.
    static Catalogue* instance(RecordingResult* result = nullptr);

    ~Catalogue();
    Catalogue(const Catalogue&) = delete;  // owns the connection to the database
    Catalogue& operator=(const Catalogue&) = delete;

    // Makes the recording's files and row. On failure there is none of them.
    RecordingResult begin(const NewRecording& recording, BegunRecording* begun);
    // What a listing shows while it is recorded; seldom, it is not free.
    RecordingResult update(int number, int64_t durationMs, int64_t sizeBytes);
    RecordingResult finish(int number, const RecordingEnd& end);
    // For who writes it: it is thrown away, all of it.
    RecordingResult discard(int number);

    // Names it, and its files with it. `renamed` has its details afterwards; may be null.
    RecordingResult setLabels(int number, const std::string& stationName,
                              const std::string& programmeName,
                              RecordingDetails* renamed = nullptr);
    RecordingResult setPosition(int number, int64_t positionMs);

    // Up to `count` recordings with numbers above `afterNumber`.
    RecordingList list(int afterNumber, int count);
    RecordingResult find(int number, RecordingDetails* details);
    RecordingResult findByPath(const std::string& path, RecordingDetails* details);
    // Files, row and all. InUse while it is written.
    RecordingResult remove(int number);

    // Copies a transport stream of any packet size into a storage, as a recording under its own
    // name; labels may be empty. The descriptor stays the caller's.
    RecordingResult importFile(int fd, const std::string& displayName,
                               const NewRecording& recording, const Progress& progress,
                               RecordingDetails* imported);

    // Completes what writers that are gone left, and makes catalogue and storages agree. At the
    // start of a service, and on demand.
    RepairReport repair();

    // Where the recordings of a storage type go, and whether they can.
    RecordingResult checkStorage(int storageType) const;

private:
    Catalogue(std::unique_ptr<CatalogueDatabase> database, const RecordingStorages& storages);

    RecordingResult beginNamed(CatalogueRows& rows, CatalogueRow* row, const std::string& folder,
                               int* fd);
    RecordingResult beginAs(int stage, const NewRecording& recording, BegunRecording* begun);
    RecordingResult change(int number, const std::function<void(CatalogueRow& row)>& change);
    void chooseNewName(CatalogueRows& rows, CatalogueRow* row) const;
    RecordingResult removeRow(int number);

    const std::unique_ptr<CatalogueDatabase> mDatabase;
    const std::unique_ptr<RecordingStorages> mStorages;
};

}  // namespace orvhost
