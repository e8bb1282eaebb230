#pragma once

#include <map>
#include <string>

#include "recording/CatalogueDatabase.h"
#include "recording/RecordingStorages.h"

namespace orvhost {

// One repair: rows, sidecars and files are made to agree. In this order:
//   1. what processes that are gone had begun is ended: renamings, removals, imports, recordings
//   2. files with a sidecar that the catalogue does not know are taken in, or found again
//   3. rows learn whether their file is there
// A recording that a live process writes is left alone, in each of them. Any number of processes
// may repair at once, and die in the middle: each step can be done again.
class RecordingRepair {
public:
    RecordingRepair(CatalogueDatabase& database, const RecordingStorages& storages)
        : mDatabase(database), mStorages(storages) {}

    RepairReport run();

private:
    bool endWhatWasBegun(int number);
    bool endRecording(const CatalogueRow& row, int fd);
    void takeInFolder(const std::string& folder, int storageType);
    void takeIn(Sidecar sidecar);
    RecordingResult takeInRow(CatalogueRows& rows, Sidecar sidecar, int* number);
    bool passesOver(const Sidecar& sidecar);
    void removeIfUnfinished(const std::string& path);
    void checkPresence();
    RecordingResult notePresence(CatalogueRows& rows, CatalogueRow row);
    bool note(const RecordingResult& result);

    CatalogueDatabase& mDatabase;
    const RecordingStorages& mStorages;
    RepairReport mReport;
};

}  // namespace orvhost
