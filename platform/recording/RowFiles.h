#pragma once

#include "recording/CatalogueDatabase.h"

// What is done to a row and its files together, inside a transaction that writes. Each can be done
// again by whoever finds the row after its process has died.
namespace orvhost {

// Sidecar first: when the process dies before the row is committed, the sidecar already tells what
// the row is to become, and the row's own state has the next repair look at it again.
RecordingResult storeRow(CatalogueRows& rows, const CatalogueRow& row);

// Ends the renaming to row->nextPath. Where another file has that name the recording keeps its own.
RecordingResult finishMove(CatalogueRows& rows, CatalogueRow* row);

// Ends the removal. `folder` is the catalogue's: it keeps the last number that was given.
RecordingResult finishRemoval(CatalogueRows& rows, const CatalogueRow& row,
                              const std::string& folder);

// Gives the row a number that no recording of this folder's catalogues ever had.
bool insertNew(CatalogueRows& rows, CatalogueRow* row, const std::string& folder);

}  // namespace orvhost
