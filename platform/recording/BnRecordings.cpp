#include <binder/Parcel.h>

#include <algorithm>

#include "dtv/TunerParcel.h"
#include "recording/IRecordings.h"
#include "recording/RecordingParcel.h"

namespace orvhost {

namespace {

using android::Parcel;
using android::status_t;

status_t takeLabels(IRecordings& recordings, int number, const Parcel& data, Parcel* answer) {
    std::string stationName;
    std::string programmeName;
    if (!readText(data, &stationName) || !readText(data, &programmeName)) {
        return android::BAD_VALUE;
    }
    RecordingDetails details;
    writeRecordingResult(answer,
                         recordings.setLabels(number, stationName, programmeName, &details));
    writeRecording(answer, details);
    return android::OK;
}

status_t takeImport(IRecordings& recordings, const Parcel& data, Parcel* answer) {
    const android::sp<android::IBinder> listener = data.readStrongBinder();
    const int fd = data.readFileDescriptor();
    std::string name;
    ImportLabels labels;
    if (listener == nullptr || fd < 0 || !readText(data, &name) ||
        !readText(data, &labels.stationName) || !readText(data, &labels.programmeName) ||
        data.readInt32(&labels.storageType) != android::OK) {
        return android::BAD_VALUE;
    }
    writeRecordingResult(answer, recordings.importFile(listener, fd, name, labels));
    return android::OK;
}

// What begins with the number of a recording, or one that recordings come after.
status_t takeNumbered(IRecordings& recordings, uint32_t code, const Parcel& data, Parcel* answer) {
    int32_t number = 0;
    if (data.readInt32(&number) != android::OK || number < 0) {
        return android::BAD_VALUE;
    }
    RecordingDetails details;
    switch (code) {
        case IRecordings::LIST: {
            int32_t count = 0;
            if (data.readInt32(&count) != android::OK || count < 0) {
                return android::BAD_VALUE;
            }
            writeRecordingList(answer,
                               recordings.list(number, std::min(count, IRecordings::MAX_PAGE)));
            return android::OK;
        }
        case IRecordings::FIND:
            writeRecordingResult(answer, recordings.find(number, &details));
            writeRecording(answer, details);
            return android::OK;
        case IRecordings::OPEN: {
            int fd = -1;
            writeRecordingResult(answer, recordings.open(number, &details, &fd));
            writeRecording(answer, details);
            return fd >= 0 ? answer->writeFileDescriptor(fd, true) : android::OK;
        }
        case IRecordings::SET_LABELS:
            return takeLabels(recordings, number, data, answer);
        case IRecordings::SET_POSITION: {
            int64_t positionMs = 0;
            if (data.readInt64(&positionMs) != android::OK || positionMs < 0) {
                return android::BAD_VALUE;
            }
            writeRecordingResult(answer, recordings.setPosition(number, positionMs));
            return android::OK;
        }
        default:
            writeRecordingResult(answer, recordings.remove(number));
            return android::OK;
    }
}

}  // namespace

status_t BnRecordings::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                  uint32_t flags) {
    if (code < LIST || code > SET_POSITION) {
        return BBinder::onTransact(code, data, reply, flags);
    }
    if (!data.checkInterface(this)) {
        return android::PERMISSION_DENIED;
    }
    Parcel unasked;  // of a one-way call
    Parcel* const answer = reply != nullptr ? reply : &unasked;
    switch (code) {
        case IMPORT_FILE:
            return takeImport(*this, data, answer);
        case CANCEL_IMPORT:
            cancelImport(data.readStrongBinder());
            return android::OK;
        case REPAIR:
            writeRepairReport(answer, repair());
            return android::OK;
        default:
            return takeNumbered(*this, code, data, answer);
    }
}

}  // namespace orvhost
