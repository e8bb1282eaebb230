#pragma once

#include <binder/IInterface.h>

#include <string>

#include "recording/RecordingDetails.h"

namespace orvhost {

// What the importing client is told, on threads of the binder pool: derive from it. One-way calls.
//
//   code  call        arguments after the token
//   1     onProgress  int64 bytes done, int64 bytes in all
//   2     onDone      result, recording
class BnImportListener : public android::BBinder {
public:
    static const android::String16& descriptor;

    enum Code : uint32_t { PROGRESS = android::IBinder::FIRST_CALL_TRANSACTION, DONE };

    virtual void onProgress(int64_t done, int64_t total) = 0;
    // Once, and last.
    virtual void onDone(const RecordingResult& result, const RecordingDetails& imported) = 0;

    const android::String16& getInterfaceDescriptor() const override { return descriptor; }

protected:
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;
};

// How the copy of a file is to be called; empty labels: as stream and file name say.
struct ImportLabels {
    std::string stationName;
    std::string programmeName;
    int32_t storageType = 0;
};

// The catalogue as a binder service, "OrvRecordings". Any thread; what calls wait for is storage.
//
//   code  operation    request after the token                              reply
//   1     list         int32 number, int32 count                            result, recordings
//   2     find         int32 number                                         result, recording
//   3     open         int32 number                                         result, recording,
//                                                                           descriptor if ok
//   4     setLabels    int32 number, two texts                              result, recording
//   5     remove       int32 number                                         result
//   6     importFile   listener, descriptor, text, two texts, int32 type    result
//   7     cancelImport listener                                             -
//   8     repair       -                                                    report
//   9     setPosition  int32 number, int64 milliseconds                     result
//
// RecordingParcel.h tells how structures stand in a parcel.
class IRecordings : public android::IInterface {
public:
    static const android::String16& descriptor;
    static android::sp<IRecordings> asInterface(const android::sp<android::IBinder>& binder);

    static constexpr char SERVICE_NAME[] = "OrvRecordings";

    // The most that one page has.
    static constexpr int MAX_PAGE = 500;

    enum Code : uint32_t {
        LIST = android::IBinder::FIRST_CALL_TRANSACTION,
        FIND,
        OPEN,
        SET_LABELS,
        REMOVE,
        IMPORT_FILE,
        CANCEL_IMPORT,
        REPAIR,
        SET_POSITION,
    };

    // A page: those with numbers above `afterNumber`, `count` at most. It may have fewer, so that
    // it fits into a message; an empty one is the end.
    virtual RecordingList list(int afterNumber, int count) = 0;
    virtual RecordingResult find(int number, RecordingDetails* details) = 0;
    // Its NAME.ts for reading, also in a folder that the caller cannot enter. `fd` is close-on-exec
    // and the caller's; -1 on failure.
    virtual RecordingResult open(int number, RecordingDetails* details, int* fd) = 0;
    virtual RecordingResult setLabels(int number, const std::string& stationName,
                                      const std::string& programmeName,
                                      RecordingDetails* details) = 0;
    virtual RecordingResult remove(int number) = 0;
    // Begins to copy a regular file among the recordings. Once this answers Ok, the listener hears
    // how it goes on and ends. The descriptor stays the caller's and may be closed. One at a time:
    // InUse. The death of the listener's process cancels it.
    virtual RecordingResult importFile(const android::sp<android::IBinder>& listener, int fd,
                                       const std::string& displayName,
                                       const ImportLabels& labels) = 0;
    // For who began it.
    virtual void cancelImport(const android::sp<android::IBinder>& listener) = 0;
    // See Catalogue::repair(); reads recordings that have no index, so it can last minutes. One at
    // a time: InUse.
    virtual RepairReport repair() = 0;
    // Where playback stopped, for the next time.
    virtual RecordingResult setPosition(int number, int64_t positionMs) = 0;
};

// The side that implements takes parcels apart here; whatever a hostile parcel holds, an operation
// is called with values in their ranges, or not at all (BAD_VALUE).
class BnRecordings : public android::BnInterface<IRecordings> {
protected:
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;
};

}  // namespace orvhost
