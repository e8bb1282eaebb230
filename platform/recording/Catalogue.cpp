#include "recording/Catalogue.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <system_error>

#include "recording/CatalogueDatabase.h"
#include "recording/RecordingFiles.h"
#include "recording/RecordingName.h"
#include "recording/RecordingStorages.h"
#include "recording/RowFiles.h"
#include "trace/HostLog.h"

namespace orvhost {

namespace {

RecordingResult notFound(int number) {
    return {RecordingStatus::NoSuchRecording,
            "there is no recording " + std::to_string(number) + "; list the recordings"};
}

RecordingResult notFound(const std::string& path) {
    return {RecordingStatus::NoSuchRecording, path + ": not in the catalogue of recordings"};
}

std::string nameOf(const RecordingDetails& details, const std::string& nameTemplate) {
    return recordingName(nameTemplate,
                         {details.creationTimeS, details.stationName, details.programmeName});
}

// What the file has so far is newer than what the row knows.
void refreshSize(RecordingDetails* details) {
    if (details->state == RecordingState::Recording) {
        details->sizeBytes = std::max(details->sizeBytes, fileSize(details->path));
    }
}

}  // namespace

Catalogue::Catalogue(std::unique_ptr<CatalogueDatabase> database, const RecordingStorages& storages)
    : mDatabase(std::move(database)), mStorages(std::make_unique<RecordingStorages>(storages)) {}

Catalogue::~Catalogue() = default;

std::unique_ptr<Catalogue> Catalogue::open(const std::string& folder,
                                           const RecordingStorages& storages,
                                           RecordingResult* result) {
    std::unique_ptr<CatalogueDatabase> database = CatalogueDatabase::open(folder, result);
    if (database == nullptr) {
        return nullptr;
    }
    const bool isNew = database->isNew();
    std::unique_ptr<Catalogue> catalogue(new Catalogue(std::move(database), storages));
    if (isNew) {
        catalogue->repair();
    }
    return catalogue;
}

Catalogue* Catalogue::instance(RecordingResult* result) {
    static std::mutex mutex;
    static Catalogue* catalogue = nullptr;  // never destroyed: threads may use it while we exit
    RecordingResult unasked;
    RecordingResult* const answer = result != nullptr ? result : &unasked;
    std::lock_guard lock(mutex);
    *answer = {};
    if (catalogue == nullptr) {
        const std::string folder = RecordingStorages::dataFolder();
        if (folder.empty()) {
            *answer = {RecordingStatus::NoFolder, "no place for recordings: set XDG_DATA_HOME"};
            return nullptr;
        }
        catalogue = open(folder, RecordingStorages::ofHost(), answer).release();
    }
    return catalogue;
}

RecordingResult Catalogue::begin(const NewRecording& recording, BegunRecording* begun) {
    return beginAs(CatalogueRow::Ready, recording, begun);
}

RecordingResult Catalogue::beginAs(int stage, const NewRecording& recording,
                                   BegunRecording* begun) {
    std::string folder;
    RecordingResult result = mStorages->prepare(recording.storageType, &folder);
    if (!result.ok()) {
        return result;
    }
    CatalogueRow row;
    row.uid = newUid();
    row.stage = static_cast<CatalogueRow::Stage>(stage);
    RecordingDetails& details = row.details;
    details.stationName = cleanText(recording.stationName);
    details.programmeName = cleanText(recording.programmeName);
    details.creationTimeS = recording.creationTimeS > 0 ? recording.creationTimeS : time(nullptr);
    details.startTimeS = details.creationTimeS;
    details.mode = recording.mode;
    details.storageType = recording.storageType;
    details.videoPid = recording.videoPid;
    details.audioPid = recording.audioPid;
    details.audioFraming = recording.audioFraming;
    int fd = -1;
    result =
        mDatabase->write([&](CatalogueRows& rows) { return beginNamed(rows, &row, folder, &fd); });
    if (!result.ok() && fd >= 0) {
        removeRecordingFiles(details.path);
        close(fd);
        return result;
    }
    begun->fd = fd;
    begun->details = details;
    return result;
}

// A process that dies in here leaves at most a sidecar and an empty file: the sidecar comes first,
// so that a repair knows what they are. The file is locked before its row can be seen.
RecordingResult Catalogue::beginNamed(CatalogueRows& rows, CatalogueRow* row,
                                      const std::string& folder, int* fd) {
    RecordingResult result;
    RecordingDetails& details = row->details;
    CatalogueRow other;
    const auto take = [&](const std::string& name) {
        details.path = folder + "/" + name + ".ts";
        if (rows.getByPath(details.path, &other) || isNameTaken(details.path)) {
            return false;
        }
        if (!insertNew(rows, row, mDatabase->folder())) {
            return true;
        }
        result = writeSidecar(*row);
        *fd = result.ok() ? createRecordingFile(details.path) : -1;
        if (*fd >= 0 || !result.ok()) {
            return true;
        }
        const int error = errno;
        unlink(details.sidecarPath().c_str());
        rows.erase(details.number);
        if (error != EEXIST) {
            result = storageFailure(error, details.path);
        }
        return error != EEXIST;
    };
    if (firstFreeName(nameOf(details, mStorages->nameTemplate), take).empty()) {
        return {RecordingStatus::StorageError, details.path + ": too many of this name"};
    }
    return result;
}

RecordingResult Catalogue::change(int number, const std::function<void(CatalogueRow&)>& change) {
    return mDatabase->write([&](CatalogueRows& rows) -> RecordingResult {
        CatalogueRow row;
        if (!rows.get(number, &row) || row.stage == CatalogueRow::Removing) {
            return notFound(number);
        }
        const RecordingState before = row.details.state;
        change(row);
        if (row.details.state != before) {
            return storeRow(rows, row);
        }
        rows.replace(row);
        return {};
    });
}

RecordingResult Catalogue::update(int number, int64_t durationMs, int64_t sizeBytes) {
    return change(number, [&](CatalogueRow& row) {
        row.details.durationMs = durationMs;
        row.details.sizeBytes = sizeBytes;
    });
}

RecordingResult Catalogue::finish(int number, const RecordingEnd& end) {
    return change(number, [&](CatalogueRow& row) {
        row.details.durationMs = end.durationMs;
        row.details.sizeBytes = end.sizeBytes;
        row.details.canPlay = end.canPlay;
        row.details.endTimeS = time(nullptr);
        row.details.state = RecordingState::Whole;
    });
}

RecordingResult Catalogue::setPosition(int number, int64_t positionMs) {
    return change(number, [&](CatalogueRow& row) { row.details.positionMs = positionMs; });
}

RecordingResult Catalogue::discard(int number) {
    return removeRow(number);
}

RecordingResult Catalogue::remove(int number) {
    RecordingDetails details;
    if (const RecordingResult result = find(number, &details); !result.ok()) {
        return result;
    }
    UniqueFd file;  // with the lock, until it is removed
    if (openUnused(details.path, &file) == Openness::InUse) {
        return {RecordingStatus::InUse,
                "recording " + std::to_string(number) + " is being written; stop it first"};
    }
    return removeRow(number);
}

// In two steps: what dies after the first is ended by a repair.
RecordingResult Catalogue::removeRow(int number) {
    RecordingResult result =
        change(number, [](CatalogueRow& row) { row.stage = CatalogueRow::Removing; });
    if (!result.ok()) {
        return result;
    }
    result = mDatabase->write([&](CatalogueRows& rows) -> RecordingResult {
        CatalogueRow row;
        // A repair of another process may have been quicker.
        return rows.get(number, &row) ? finishRemoval(rows, row, mDatabase->folder())
                                      : RecordingResult();
    });
    if (!result.ok()) {
        mDatabase->write([&](CatalogueRows& rows) -> RecordingResult {
            CatalogueRow row;
            if (rows.get(number, &row)) {
                row.stage = CatalogueRow::Ready;
                rows.replace(row);
            }
            return {};
        });
    }
    return result;
}

RecordingResult Catalogue::setLabels(int number, const std::string& stationName,
                                     const std::string& programmeName, RecordingDetails* renamed) {
    // First what is to happen, then that it happens: in between a repair can end it.
    RecordingResult result = mDatabase->write([&](CatalogueRows& rows) -> RecordingResult {
        CatalogueRow row;
        if (!rows.get(number, &row) || row.stage == CatalogueRow::Removing) {
            return notFound(number);
        }
        row.details.stationName = cleanText(stationName);
        row.details.programmeName = cleanText(programmeName);
        chooseNewName(rows, &row);
        rows.replace(row);
        return {};
    });
    if (!result.ok()) {
        return result;
    }
    return mDatabase->write([&](CatalogueRows& rows) -> RecordingResult {
        CatalogueRow row;
        if (!rows.get(number, &row)) {
            return notFound(number);
        }
        if (const RecordingResult moved = finishMove(rows, &row); !moved.ok()) {
            HOST_LOGW("%s: %s\n", __func__, moved.message.c_str());
        }
        if (renamed != nullptr) {
            *renamed = row.details;
        }
        return row.details.state == RecordingState::Missing ? RecordingResult()
                                                            : storeRow(rows, row);
    });
}

// The path that the row's labels ask for, when it is another one. A recording whose file is not
// there keeps its own.
void Catalogue::chooseNewName(CatalogueRows& rows, CatalogueRow* row) const {
    const std::filesystem::path old(row->details.path);
    const std::string name = nameOf(row->details, mStorages->nameTemplate);
    CatalogueRow other;
    const auto take = [&](const std::string& candidate) {
        row->nextPath = old.parent_path() / (candidate + ".ts");
        return row->nextPath == old ||
               (!rows.getByPath(row->nextPath, &other) && !isNameTaken(row->nextPath));
    };
    if (!exists(old) || firstFreeName(name, take).empty() || row->nextPath == old) {
        row->nextPath.clear();
    }
}

RecordingList Catalogue::list(int afterNumber, int count) {
    RecordingList list;
    list.result = mDatabase->read([&](CatalogueRows& rows) -> RecordingResult {
        list.recordings = rows.list(afterNumber, std::max(count, 0));
        return {};
    });
    std::for_each(list.recordings.begin(), list.recordings.end(),
                  [](RecordingDetails& details) { refreshSize(&details); });
    return list;
}

RecordingResult Catalogue::find(int number, RecordingDetails* details) {
    return mDatabase->read([&](CatalogueRows& rows) -> RecordingResult {
        CatalogueRow row;
        if (!rows.get(number, &row) || row.stage != CatalogueRow::Ready) {
            return notFound(number);
        }
        *details = row.details;
        refreshSize(details);
        return {};
    });
}

RecordingResult Catalogue::findByPath(const std::string& path, RecordingDetails* details) {
    std::error_code error;
    const std::string whole = std::filesystem::weakly_canonical(path, error).string();
    return mDatabase->read([&](CatalogueRows& rows) -> RecordingResult {
        CatalogueRow row;
        if (!rows.getByPath(error ? path : whole, &row) || row.stage != CatalogueRow::Ready) {
            return notFound(path);
        }
        *details = row.details;
        refreshSize(details);
        return {};
    });
}

RecordingResult Catalogue::checkStorage(int storageType) const {
    return mStorages->prepare(storageType);
}

}  // namespace orvhost
