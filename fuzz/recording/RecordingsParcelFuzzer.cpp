// What a hostile process asks of the recordings, and what it answers and tells when asked.
//
//   byte 0   code of the request
//   byte 1   bit 0: with the interface's token, 1: with a binder, 2: with a descriptor
//   rest     the bytes of the parcel behind them, and of every answer

#include <binder/Parcel.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

#include "dtv/TunerParcel.h"
#include "recording/IRecordings.h"
#include "recording/RecordingParcel.h"

namespace {

using android::IBinder;
using android::Parcel;
using android::sp;
using orvhost::RecordingDetails;
using orvhost::RecordingResult;

void check(bool holds) {
    if (!holds) {
        abort();
    }
}

// Gets values in their ranges or is not called.
class StrictRecordings : public orvhost::BnRecordings {
public:
    orvhost::RecordingList list(int afterNumber, int count) override {
        check(afterNumber >= 0 && count >= 0 && count <= MAX_PAGE);
        return {};
    }
    RecordingResult find(int number, RecordingDetails*) override { return answer(number); }
    RecordingResult open(int number, RecordingDetails*, int* fd) override {
        *fd = -1;
        return answer(number);
    }
    RecordingResult setLabels(int number, const std::string& station, const std::string& programme,
                              RecordingDetails*) override {
        check(station.size() <= orvhost::MAX_TUNER_TEXT &&
              programme.size() <= orvhost::MAX_TUNER_TEXT);
        return answer(number);
    }
    RecordingResult setPosition(int number, int64_t positionMs) override {
        check(positionMs >= 0);
        return answer(number);
    }
    RecordingResult remove(int number) override { return answer(number); }
    RecordingResult importFile(const sp<IBinder>& listener, int fd, const std::string& name,
                               const orvhost::ImportLabels&) override {
        check(listener != nullptr && fcntl(fd, F_GETFD) >= 0);
        return {orvhost::RecordingStatus::BadFile, name};
    }
    void cancelImport(const sp<IBinder>&) override {}
    orvhost::RepairReport repair() override { return {}; }

private:
    static RecordingResult answer(int number) {
        check(number >= 0);
        return {};
    }
};

class Listener : public orvhost::BnImportListener {
public:
    void onProgress(int64_t done, int64_t total) override { check(done >= 0 && done <= total); }
    void onDone(const RecordingResult&, const RecordingDetails& imported) override {
        check(imported.number >= 0 && imported.sizeBytes >= 0);
    }
};

// Answers everything with the same bytes.
class Echo : public android::BBinder {
public:
    Echo(const uint8_t* bytes, size_t size) : mBytes(bytes), mSize(size) {}

protected:
    android::status_t onTransact(uint32_t, const Parcel&, Parcel* reply, uint32_t) override {
        return reply->setData(mBytes, mSize);
    }

private:
    const uint8_t* const mBytes;
    const size_t mSize;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) {
        return 0;
    }
    static const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const uint8_t* const bytes = data + 2;
    size -= 2;
    const sp<StrictRecordings> recordings(new StrictRecordings);
    const sp<Listener> listener(new Listener);
    for (IBinder* const target :
         {static_cast<IBinder*>(recordings.get()), static_cast<IBinder*>(listener.get())}) {
        Parcel request;
        if ((data[1] & 1) != 0) {
            request.writeInterfaceToken(target->getInterfaceDescriptor());
        }
        if ((data[1] & 2) != 0) {
            request.writeStrongBinder(listener);
        }
        if ((data[1] & 4) != 0) {
            request.writeFileDescriptor(fd);
        }
        request.write(bytes, size);
        Parcel reply;
        target->transact(data[0], request, &reply);
    }

    const sp<orvhost::IRecordings> remote =
        orvhost::IRecordings::asInterface(new Echo(bytes, size));
    const orvhost::RecordingList list = remote->list(0, 1);
    check(list.recordings.size() <= orvhost::IRecordings::MAX_PAGE);
    Parcel parcel;
    orvhost::writeRecordingList(&parcel, list);
    parcel.setDataPosition(0);
    orvhost::RecordingList again;
    check(orvhost::readRecordingList(parcel, &again));
    RecordingDetails details;
    int opened = 0;
    remote->open(1, &details, &opened);
    check(opened == -1);
    check(remote->repair().missing >= 0);
    return 0;
}
