#include "recording/RecordingParcel.h"

#include <algorithm>

#include "dtv/TunerParcel.h"
#include "recording/IRecordings.h"

namespace orvhost {

namespace {

using android::Parcel;

constexpr size_t MAX_LIST_BYTES = 512 * 1024;
constexpr auto LAST_STATE = static_cast<int32_t>(RecordingState::Missing);
constexpr auto LAST_STATUS = static_cast<int32_t>(RecordingStatus::ServiceLost);
constexpr int32_t LAST_PID = 0x1FFF;

// The next number, when it lies in [low, high].
template <typename T>
bool readIn(const Parcel& parcel, int32_t low, int32_t high, T* value) {
    int32_t number = 0;
    if (parcel.readInt32(&number) != android::OK || number < low || number > high) {
        return false;
    }
    *value = static_cast<T>(number);
    return true;
}

bool readCount(const Parcel& parcel, int64_t* value) {
    return parcel.readInt64(value) == android::OK && *value >= 0;
}

}  // namespace

void writeRecording(Parcel* parcel, const RecordingDetails& details) {
    parcel->writeInt32(details.number);
    writeText(parcel, details.path);
    parcel->writeInt32(static_cast<int32_t>(details.state));
    writeText(parcel, details.stationName);
    writeText(parcel, details.programmeName);
    for (const int64_t value : {details.creationTimeS, details.startTimeS, details.endTimeS,
                                details.durationMs, details.sizeBytes}) {
        parcel->writeInt64(value);
    }
    for (const int32_t value : {details.mode, details.storageType, int32_t{details.canPlay ? 1 : 0},
                                details.videoPid, details.audioPid, details.audioFraming}) {
        parcel->writeInt32(value);
    }
    parcel->writeInt64(details.positionMs);
}

bool readRecording(const Parcel& parcel, RecordingDetails* details) {
    return readIn(parcel, 0, INT32_MAX, &details->number) && readText(parcel, &details->path) &&
           readIn(parcel, 0, LAST_STATE, &details->state) &&
           readText(parcel, &details->stationName) && readText(parcel, &details->programmeName) &&
           readCount(parcel, &details->creationTimeS) && readCount(parcel, &details->startTimeS) &&
           readCount(parcel, &details->endTimeS) && readCount(parcel, &details->durationMs) &&
           readCount(parcel, &details->sizeBytes) &&
           readIn(parcel, INT32_MIN, INT32_MAX, &details->mode) &&
           readIn(parcel, INT32_MIN, INT32_MAX, &details->storageType) &&
           readIn(parcel, 0, 1, &details->canPlay) &&
           readIn(parcel, -1, LAST_PID, &details->videoPid) &&
           readIn(parcel, -1, LAST_PID, &details->audioPid) &&
           readIn(parcel, INT32_MIN, INT32_MAX, &details->audioFraming) &&
           readCount(parcel, &details->positionMs);
}

void writeRecordingResult(Parcel* parcel, const RecordingResult& result) {
    parcel->writeInt32(static_cast<int32_t>(result.status));
    writeText(parcel, result.message);
}

bool readRecordingResult(const Parcel& parcel, RecordingResult* result) {
    return readIn(parcel, 0, LAST_STATUS, &result->status) && readText(parcel, &result->message);
}

void writeRecordingList(Parcel* parcel, const RecordingList& list) {
    writeRecordingResult(parcel, list.result);
    const size_t countAt = parcel->dataPosition();
    int32_t count = 0;
    parcel->writeInt32(count);
    for (const RecordingDetails& details : list.recordings) {
        if (count == IRecordings::MAX_PAGE || parcel->dataSize() > MAX_LIST_BYTES) {
            break;
        }
        writeRecording(parcel, details);
        ++count;
    }
    const size_t end = parcel->dataPosition();
    parcel->setDataPosition(countAt);
    parcel->writeInt32(count);
    parcel->setDataPosition(end);
}

// The list grows with what is really there: a count alone costs nothing.
bool readRecordingList(const Parcel& parcel, RecordingList* list) {
    int32_t count = 0;
    if (!readRecordingResult(parcel, &list->result) ||
        !readIn(parcel, 0, IRecordings::MAX_PAGE, &count)) {
        return false;
    }
    list->recordings.clear();
    for (int32_t i = 0; i < count; ++i) {
        if (!readRecording(parcel, &list->recordings.emplace_back())) {
            return false;
        }
    }
    return true;
}

void writeRepairReport(Parcel* parcel, const RepairReport& report) {
    writeRecordingResult(parcel, report.result);
    for (const int32_t count : {report.repaired, report.missing, report.found, report.takenIn,
                                report.inUse, int32_t{report.rebuilt ? 1 : 0}}) {
        parcel->writeInt32(count);
    }
}

bool readRepairReport(const Parcel& parcel, RepairReport* report) {
    if (!readRecordingResult(parcel, &report->result)) {
        return false;
    }
    for (int32_t* const count :
         {&report->repaired, &report->missing, &report->found, &report->takenIn, &report->inUse}) {
        if (!readIn(parcel, 0, INT32_MAX, count)) {
            return false;
        }
    }
    return readIn(parcel, 0, 1, &report->rebuilt);
}

}  // namespace orvhost
