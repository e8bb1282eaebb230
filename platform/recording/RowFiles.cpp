#include "recording/RowFiles.h"

#include <cstdlib>
#include <fstream>

#include "recording/RecordingFiles.h"

namespace orvhost {

namespace {

// Numbers of removed recordings would come again when a damaged catalogue is made anew from the
// sidecars that are left.
std::string numberPath(const std::string& folder) {
    return folder + "/last-number";
}

int readLastNumber(const std::string& folder) {
    std::ifstream file(numberPath(folder));
    int number = 0;
    return file >> number && number > 0 ? number : 0;
}

}  // namespace

RecordingResult storeRow(CatalogueRows& rows, const CatalogueRow& row) {
    RecordingResult result = writeSidecar(row);
    if (result.ok()) {
        rows.replace(row);
    }
    return result;
}

RecordingResult finishMove(CatalogueRows& rows, CatalogueRow* row) {
    if (row->nextPath.empty()) {
        return {};
    }
    RecordingResult result = moveRecordingFiles(row->details.path, row->nextPath);
    if (result.ok()) {
        row->details.path = row->nextPath;
    }
    row->nextPath.clear();
    rows.replace(*row);
    return result;
}

RecordingResult finishRemoval(CatalogueRows& rows, const CatalogueRow& row,
                              const std::string& folder) {
    RecordingResult result = removeRecordingFiles(row.details.path);
    if (result.ok() && rows.lastNumber() > readLastNumber(folder)) {
        result = replaceFile(numberPath(folder), std::to_string(rows.lastNumber()) + "\n");
    }
    if (result.ok()) {
        rows.erase(row.details.number);
    }
    return result;
}

bool insertNew(CatalogueRows& rows, CatalogueRow* row, const std::string& folder) {
    rows.raiseLastNumber(readLastNumber(folder));
    row->details.number = 0;
    return rows.insert(row);
}

}  // namespace orvhost
