#include "recording/IRecordings.h"

#include <binder/Parcel.h>
#include <fcntl.h>

#include "dtv/TunerParcel.h"
#include "recording/RecordingParcel.h"

namespace orvhost {

namespace {

using android::IBinder;
using android::Parcel;
using android::sp;
using android::status_t;

RecordingResult failure(status_t status) {
    const char* text =
        "the recordings gave no answer that makes sense; program and service must "
        "be of one version";
    switch (status) {
        case android::DEAD_OBJECT:
            text = "the player service is gone; start it again";
            break;
        case android::TIMED_OUT:
            text = "the player service does not answer";
            break;
        case android::PERMISSION_DENIED:
            text = "the player service refuses this user; run it as the same one";
            break;
        default:
            break;
    }
    return {RecordingStatus::ServiceLost, text};
}

class BpRecordings : public android::BpInterface<IRecordings> {
public:
    explicit BpRecordings(const sp<IBinder>& remote) : BpInterface<IRecordings>(remote) {}

    RecordingList list(int afterNumber, int count) override {
        Parcel data;
        begin(&data, afterNumber);
        data.writeInt32(count);
        Parcel reply;
        RecordingList list;
        const status_t status = remote()->transact(LIST, data, &reply);
        if (status != android::OK || !readRecordingList(reply, &list)) {
            list = {};
            list.result = failure(status);
        }
        return list;
    }

    RecordingResult find(int number, RecordingDetails* details) override {
        Parcel data;
        begin(&data, number);
        Parcel reply;
        return call(FIND, data, &reply, details);
    }

    RecordingResult open(int number, RecordingDetails* details, int* fd) override {
        Parcel data;
        begin(&data, number);
        Parcel reply;
        *fd = -1;
        RecordingResult result = call(OPEN, data, &reply, details);
        if (result.ok()) {
            // The parcel closes its own.
            *fd = fcntl(reply.readFileDescriptor(), F_DUPFD_CLOEXEC, 0);
            result = *fd >= 0 ? result : failure(android::BAD_VALUE);
        }
        return result;
    }

    RecordingResult setLabels(int number, const std::string& stationName,
                              const std::string& programmeName,
                              RecordingDetails* details) override {
        Parcel data;
        begin(&data, number);
        writeText(&data, stationName);
        writeText(&data, programmeName);
        Parcel reply;
        return call(SET_LABELS, data, &reply, details);
    }

    RecordingResult remove(int number) override {
        Parcel data;
        begin(&data, number);
        Parcel reply;
        return call(REMOVE, data, &reply, nullptr);
    }

    RecordingResult importFile(const sp<IBinder>& listener, int fd, const std::string& displayName,
                               const ImportLabels& labels) override {
        Parcel data;
        data.writeInterfaceToken(descriptor);
        data.writeStrongBinder(listener);
        if (const status_t status = data.writeFileDescriptor(fd); status != android::OK) {
            return failure(status);
        }
        writeText(&data, displayName);
        writeText(&data, labels.stationName);
        writeText(&data, labels.programmeName);
        data.writeInt32(labels.storageType);
        Parcel reply;
        return call(IMPORT_FILE, data, &reply, nullptr);
    }

    void cancelImport(const sp<IBinder>& listener) override {
        Parcel data;
        data.writeInterfaceToken(descriptor);
        data.writeStrongBinder(listener);
        Parcel reply;
        remote()->transact(CANCEL_IMPORT, data, &reply);
    }

    RepairReport repair() override {
        Parcel data;
        data.writeInterfaceToken(descriptor);
        Parcel reply;
        RepairReport report;
        const status_t status = remote()->transact(REPAIR, data, &reply);
        if (status != android::OK || !readRepairReport(reply, &report)) {
            report = {};
            report.result = failure(status);
        }
        return report;
    }

    RecordingResult setPosition(int number, int64_t positionMs) override {
        Parcel data;
        begin(&data, number);
        data.writeInt64(positionMs);
        Parcel reply;
        return call(SET_POSITION, data, &reply, nullptr);
    }

private:
    static void begin(Parcel* data, int number) {
        data->writeInterfaceToken(descriptor);
        data->writeInt32(number);
    }

    // `details`: when the answer has them; what it says of a failure is passed over.
    RecordingResult call(uint32_t code, const Parcel& data, Parcel* reply,
                         RecordingDetails* details) {
        RecordingResult result;
        RecordingDetails answered;
        const status_t status = remote()->transact(code, data, reply);
        if (status != android::OK || !readRecordingResult(*reply, &result) ||
            (details != nullptr && !readRecording(*reply, &answered))) {
            return failure(status);
        }
        if (details != nullptr && result.ok()) {
            *details = answered;
        }
        return result;
    }
};

}  // namespace

// Never destroyed: threads may look at them while the process ends.
const android::String16& IRecordings::descriptor = *new android::String16(SERVICE_NAME);
const android::String16& BnImportListener::descriptor =
    *new android::String16("OrvRecordings.ImportListener");

sp<IRecordings> IRecordings::asInterface(const sp<IBinder>& binder) {
    if (binder == nullptr) {
        return nullptr;
    }
    const sp<android::IInterface> local = binder->queryLocalInterface(descriptor);
    return local != nullptr ? sp<IRecordings>(static_cast<IRecordings*>(local.get()))
                            : new BpRecordings(binder);
}

status_t BnImportListener::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                      uint32_t flags) {
    if (code != PROGRESS && code != DONE) {
        return BBinder::onTransact(code, data, reply, flags);
    }
    if (!data.enforceInterface(descriptor)) {
        return android::PERMISSION_DENIED;
    }
    if (code == PROGRESS) {
        const int64_t done = data.readInt64();
        const int64_t total = data.readInt64();
        if (done < 0 || total < done) {
            return android::BAD_VALUE;
        }
        onProgress(done, total);
        return android::OK;
    }
    RecordingResult result;
    RecordingDetails imported;
    if (!readRecordingResult(data, &result) || !readRecording(data, &imported)) {
        return android::BAD_VALUE;
    }
    onDone(result, imported);
    return android::OK;
}

}  // namespace orvhost
