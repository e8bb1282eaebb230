#include "recording/RecordingRepair.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <system_error>

#include "recording/Catalogue.h"
#include "recording/FileBytes.h"
#include "recording/RecordingFiles.h"
#include "recording/RecordingIndex.h"
#include "recording/RowFiles.h"
#include "trace/HostLog.h"

namespace orvhost {

namespace {

// Numbers of sidecars beyond this are not taken over: numbers ascend, and must not run out.
constexpr int MAX_TAKEN_NUMBER = 1'000'000'000;

bool isAtWork(RecordingState state) {
    return state == RecordingState::Recording;
}

std::vector<CatalogueRow> allRows(CatalogueDatabase& database, RecordingResult* result) {
    std::vector<CatalogueRow> found;
    *result = database.read([&](CatalogueRows& rows) -> RecordingResult {
        found = rows.all();
        return {};
    });
    return found;
}

}  // namespace

RepairReport Catalogue::repair() {
    return RecordingRepair(*mDatabase, *mStorages).run();
}

RepairReport RecordingRepair::run() {
    mReport.rebuilt = mDatabase.replaceIfDamaged(&mReport.result);
    if (!mReport.result.ok()) {
        return mReport;
    }
    RecordingResult result;
    std::map<std::string, int> folders;  // and the storage type of each
    for (const auto& [type, folder] : mStorages.folders()) {
        std::error_code error;
        const std::filesystem::path whole = std::filesystem::canonical(folder, error);
        folders.emplace(error ? folder : whole.string(), type);
    }
    for (const CatalogueRow& row : allRows(mDatabase, &result)) {
        if (row.stage != CatalogueRow::Ready || !row.nextPath.empty() ||
            isAtWork(row.details.state)) {
            endWhatWasBegun(row.details.number);
        }
        folders.emplace(std::filesystem::path(row.details.path).parent_path().string(),
                        row.details.storageType);
    }
    note(result);
    for (const auto& [folder, type] : folders) {
        takeInFolder(folder, type);
    }
    checkPresence();
    HOST_LOGI("%s: %d repaired, %d missing, %d found, %d taken in, %d in use\n", __func__,
              mReport.repaired, mReport.missing, mReport.found, mReport.takenIn, mReport.inUse);
    return mReport;
}

// The first failure is told; the others are traced.
bool RecordingRepair::note(const RecordingResult& result) {
    if (!result.ok()) {
        HOST_LOGE("%s: %s\n", __func__, result.message.c_str());
        mReport.result = mReport.result.ok() ? result : mReport.result;
    }
    return result.ok();
}

// True when there is nothing left to do with it.
bool RecordingRepair::endWhatWasBegun(int number) {
    CatalogueRow row;
    UniqueFd file;
    Openness openness = Openness::Gone;
    bool known = false;
    const bool done = note(mDatabase.write([&](CatalogueRows& rows) -> RecordingResult {
        // What its process, or another repair, has ended meanwhile is not looked at again.
        known = rows.get(number, &row);
        if (!known) {
            return {};
        }
        openness = openUnused(row.details.path, &file);
        if (row.stage == CatalogueRow::Removing ||
            (row.stage == CatalogueRow::Importing && openness != Openness::InUse)) {
            known = false;
            return finishRemoval(rows, row, mDatabase.folder());
        }
        if (row.nextPath.empty()) {
            return {};
        }
        // Where the renaming cannot be ended the recording keeps its name.
        const RecordingResult moved = finishMove(rows, &row);
        openness = openness == Openness::Gone ? openUnused(row.details.path, &file) : openness;
        return openness == Openness::Gone ? RecordingResult() : storeRow(rows, row);
    }));
    if (!done || !known || !isAtWork(row.details.state) || row.stage != CatalogueRow::Ready) {
        return done;
    }
    if (openness == Openness::InUse) {
        ++mReport.inUse;
    }
    return openness != Openness::Opened || endRecording(row, file.get());
}

// The lock is ours: nobody else writes, and no other repair does this.
bool RecordingRepair::endRecording(const CatalogueRow& row, int fd) {
    const int number = row.details.number;
    const int64_t size = trimToPackets(fd);
    if (size < 0) {
        return note(storageFailure(errno, row.details.path));
    }
    struct stat status = {};
    fstat(fd, &status);
    const auto index = loadOrRebuildIndex(row.details.path, true, nullptr);
    return note(mDatabase.write([&](CatalogueRows& rows) -> RecordingResult {
        CatalogueRow ended;
        if (!rows.get(number, &ended) || !isAtWork(ended.details.state)) {
            return {};
        }
        RecordingDetails& details = ended.details;
        details.sizeBytes = size;
        details.durationMs = index ? index->durationMs() : 0;
        details.canPlay = index.has_value() && size > 0;
        details.endTimeS = std::max<int64_t>(details.startTimeS + details.durationMs / 1000,
                                             size > 0 ? status.st_mtime : 0);
        details.state = RecordingState::Repaired;
        ++mReport.repaired;
        HOST_LOGI("%s: %s: %lld bytes, %lld ms\n", "endRecording", details.path.c_str(),
                  static_cast<long long>(size), static_cast<long long>(details.durationMs));
        return storeRow(rows, ended);
    }));
}

// In the order of their numbers, so that a catalogue that is made anew gives each its own again.
void RecordingRepair::takeInFolder(const std::string& folder, int storageType) {
    RecordingResult result;
    std::set<std::string> known;
    for (const CatalogueRow& row : allRows(mDatabase, &result)) {
        known.insert(row.details.sidecarPath());
    }
    if (!note(result)) {
        return;
    }
    std::vector<Sidecar> unknown;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string path = entry->path().string();
        const bool unfinished = path.ends_with(".json.new");
        const std::string sidecarPath = unfinished ? path.substr(0, path.size() - 4) : path;
        if (!sidecarPath.ends_with(".json") || known.contains(sidecarPath)) {
            continue;
        }
        Sidecar sidecar;
        if (!readSidecar(path, &sidecar)) {
            removeIfUnfinished(unfinished ? path : "");
        } else {
            sidecar.details.path = sidecarPath.substr(0, sidecarPath.size() - 5) + ".ts";
            sidecar.details.storageType = storageType;
            unknown.push_back(sidecar);
        }
    }
    std::sort(unknown.begin(), unknown.end(), [](const Sidecar& a, const Sidecar& b) {
        return a.details.number < b.details.number;
    });
    for (const Sidecar& sidecar : unknown) {
        takeIn(sidecar);
    }
}

// A sidecar that cannot be read and whose writer died while writing it.
void RecordingRepair::removeIfUnfinished(const std::string& path) {
    if (path.empty()) {
        return;
    }
    // Sidecars are written inside transactions: within this one it cannot be half written.
    note(mDatabase.write([&](CatalogueRows&) -> RecordingResult {
        Sidecar sidecar;
        if (!readSidecar(path, &sidecar)) {
            unlink(path.c_str());
        }
        return {};
    }));
}

void RecordingRepair::takeIn(Sidecar sidecar) {
    int number = 0;
    const bool good = note(mDatabase.write(
        [&](CatalogueRows& rows) { return takeInRow(rows, std::move(sidecar), &number); }));
    if (good && number != 0) {
        endWhatWasBegun(number);
    }
}

// Whether it is to be left as it is: another process, of another catalogue maybe, writes it; or its
// file is not there; or it is what a recording leaves that died while it began, which goes.
bool RecordingRepair::passesOver(const Sidecar& sidecar) {
    UniqueFd file;
    const Openness openness = openUnused(sidecar.details.path, &file);
    const bool empty = openness == Openness::Gone || fileSize(sidecar.details.path) == 0;
    if (openness != Openness::InUse && empty && isAtWork(sidecar.details.state)) {
        note(removeRecordingFiles(sidecar.details.path));
    }
    return openness != Openness::Opened || empty;
}

// `number`: of the row that it has in the end; 0 for none.
RecordingResult RecordingRepair::takeInRow(CatalogueRows& rows, Sidecar sidecar, int* number) {
    CatalogueRow row;
    if (rows.getByPath(sidecar.details.path, &row) || passesOver(sidecar)) {
        return {};
    }
    const RecordingState state = sidecar.details.state;
    if (rows.getByUid(sidecar.uid, &row)) {
        if (!exists(row.details.path)) {
            row.details.path = sidecar.details.path;
            row.details.storageType = sidecar.details.storageType;
            row.details.state =
                state == RecordingState::Missing ? RecordingState::Recording : state;
            ++mReport.found;
            *number = row.details.number;
            return storeRow(rows, row);
        }
        sidecar.uid = newUid();  // a copy
        sidecar.details.number = 0;
    }
    row = {};
    static_cast<Sidecar&>(row) = std::move(sidecar);
    row.details.state = state == RecordingState::Missing ? RecordingState::Recording : state;
    const bool keepsNumber = row.details.number > rows.lastNumber() &&
                             row.details.number <= MAX_TAKEN_NUMBER && rows.insert(&row);
    if (keepsNumber || insertNew(rows, &row, mDatabase.folder())) {
        ++mReport.takenIn;
        *number = row.details.number;
    }
    return storeRow(rows, row);
}

void RecordingRepair::checkPresence() {
    RecordingResult result;
    std::vector<int> changed;
    for (const CatalogueRow& row : allRows(mDatabase, &result)) {
        const bool isThere = exists(row.details.path);
        const bool wasThere = row.details.state != RecordingState::Missing;
        mReport.missing += row.stage == CatalogueRow::Ready && !isThere ? 1 : 0;
        if (row.stage == CatalogueRow::Ready &&
            (isThere != wasThere || (isThere && !exists(row.details.sidecarPath())))) {
            changed.push_back(row.details.number);
        }
    }
    note(result);
    for (const int number : changed) {
        const bool good = note(mDatabase.write([&](CatalogueRows& rows) -> RecordingResult {
            CatalogueRow row;
            return rows.get(number, &row) ? notePresence(rows, row) : RecordingResult();
        }));
        if (good) {
            endWhatWasBegun(number);
        }
    }
}

RecordingResult RecordingRepair::notePresence(CatalogueRows& rows, CatalogueRow row) {
    if (!exists(row.details.path)) {
        row.details.state = RecordingState::Missing;
        row.details.canPlay = false;
        rows.replace(row);
        return {};
    }
    Sidecar sidecar;
    if (row.details.state == RecordingState::Missing) {
        const bool told = readSidecar(row.details.sidecarPath(), &sidecar) &&
                          sidecar.uid == row.uid && !isAtWork(sidecar.details.state);
        // Otherwise it is looked at like one whose writer is gone.
        row.details.state = told ? sidecar.details.state : RecordingState::Recording;
        row.details.canPlay = told && sidecar.details.canPlay;
        ++mReport.found;
    }
    return storeRow(rows, row);
}

}  // namespace orvhost
