#pragma once

#include <binder/Parcel.h>

#include "recording/RecordingDetails.h"

// How recordings stand in a parcel: fields in the order of declaration, numbers of 32 bits,
// enumerators and flags as int32, others as int64, text as an int32 length and a blob, a list as an
// int32 count and its elements; a list follows its result.
//
// Writers cut what is longer than readers take. Readers answer false for anything out of its range,
// and may have written half of what they read into; they take no more memory than the parcel is
// long, times a small factor.
namespace orvhost {

void writeRecording(android::Parcel* parcel, const RecordingDetails& details);
bool readRecording(const android::Parcel& parcel, RecordingDetails* details);

void writeRecordingResult(android::Parcel* parcel, const RecordingResult& result);
bool readRecordingResult(const android::Parcel& parcel, RecordingResult* result);

// What does not fit into a message is left out at the end.
void writeRecordingList(android::Parcel* parcel, const RecordingList& list);
bool readRecordingList(const android::Parcel& parcel, RecordingList* list);

void writeRepairReport(android::Parcel* parcel, const RepairReport& report);
bool readRepairReport(const android::Parcel& parcel, RepairReport* report);

}  // namespace orvhost
