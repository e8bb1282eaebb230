#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>

#include "recording/Catalogue.h"
#include "recording/IRecordings.h"

namespace orvhost {

// The catalogue of this process for other processes. Any thread.
//
// An import runs on a thread of its own and belongs to the client that began it: it ends early with
// that client's process, or with the service.
class RecordingsService : public BnRecordings {
public:
    // Answers null, with the reason, where there is no catalogue.
    using FindCatalogue = std::function<Catalogue*(RecordingResult* result)>;

    explicit RecordingsService(FindCatalogue catalogue);

    // Repairs aside, where there is a catalogue to repair: none is made for it.
    static void repairAtStart();

    RecordingList list(int afterNumber, int count) override;
    RecordingResult find(int number, RecordingDetails* details) override;
    RecordingResult open(int number, RecordingDetails* details, int* fd) override;
    RecordingResult setLabels(int number, const std::string& stationName,
                              const std::string& programmeName, RecordingDetails* details) override;
    RecordingResult remove(int number) override;
    RecordingResult importFile(const android::sp<android::IBinder>& listener, int fd,
                               const std::string& displayName, const ImportLabels& labels) override;
    void cancelImport(const android::sp<android::IBinder>& listener) override;
    RepairReport repair() override;
    RecordingResult setPosition(int number, int64_t positionMs) override;

protected:
    ~RecordingsService() override;

private:
    class OwnerDeath;

    struct Import {
        android::sp<android::IBinder> listener;
        int fd = -1;
        std::string name;
        NewRecording recording;
        Catalogue* catalogue = nullptr;
    };

    void runImport(const Import& import);
    void onOwnerDied(const android::wp<android::IBinder>& who);

    const FindCatalogue mFindCatalogue;
    const android::sp<android::IBinder::DeathRecipient> mDeath;
    std::atomic<bool> mRepairing{false};
    std::mutex mMutex;                        // guards what follows
    android::sp<android::IBinder> mImporter;  // null: no import runs
    std::condition_variable mImportEnded;
    std::atomic<bool> mCancelled{false};  // read without the lock
};

}  // namespace orvhost
