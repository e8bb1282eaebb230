#include "recording/RecordingsService.h"

#include <binder/Parcel.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>
#include <utility>

#include "recording/FileBytes.h"
#include "recording/RecordingFiles.h"
#include "recording/RecordingParcel.h"
#include "recording/RecordingStorages.h"
#include "trace/HostLog.h"

namespace orvhost {

namespace {

using android::IBinder;
using android::Parcel;
using android::sp;

// Told so often at most: one-way calls to a slow client queue up.
constexpr std::chrono::milliseconds PROGRESS_EVERY{100};

void tellProgress(const sp<IBinder>& listener, int64_t done, int64_t total) {
    Parcel data;
    data.writeInterfaceToken(BnImportListener::descriptor);
    data.writeInt64(done);
    data.writeInt64(total);
    listener->transact(BnImportListener::PROGRESS, data, nullptr, IBinder::FLAG_ONEWAY);
}

void tellDone(const sp<IBinder>& listener, const RecordingResult& result,
              const RecordingDetails& imported) {
    Parcel data;
    data.writeInterfaceToken(BnImportListener::descriptor);
    writeRecordingResult(&data, result);
    writeRecording(&data, imported);
    listener->transact(BnImportListener::DONE, data, nullptr, IBinder::FLAG_ONEWAY);
}

}  // namespace

class RecordingsService::OwnerDeath : public IBinder::DeathRecipient {
public:
    explicit OwnerDeath(RecordingsService* service) : mService(service) {}

    void binderDied(const android::wp<IBinder>& who) override {
        if (const sp<RecordingsService> service = mService.promote()) {
            service->onOwnerDied(who);
        }
    }

private:
    const android::wp<RecordingsService> mService;
};

RecordingsService::RecordingsService(FindCatalogue catalogue)
    : mFindCatalogue(std::move(catalogue)), mDeath(new OwnerDeath(this)) {}

RecordingsService::~RecordingsService() {
    mCancelled = true;
    std::unique_lock lock(mMutex);
    mImportEnded.wait(lock, [this] { return mImporter == nullptr; });
}

void RecordingsService::repairAtStart() {
    const std::string folder = RecordingStorages::dataFolder();
    if (folder.empty() || !exists(folder + "/catalogue.db")) {
        return;
    }
    std::thread([] {
        if (Catalogue* const catalogue = Catalogue::instance()) {
            catalogue->repair();
        }
    }).detach();
}

RecordingList RecordingsService::list(int afterNumber, int count) {
    RecordingList list;
    Catalogue* const catalogue = mFindCatalogue(&list.result);
    return catalogue != nullptr ? catalogue->list(afterNumber, count) : list;
}

RecordingResult RecordingsService::find(int number, RecordingDetails* details) {
    RecordingResult result;
    Catalogue* const catalogue = mFindCatalogue(&result);
    return catalogue != nullptr ? catalogue->find(number, details) : result;
}

RecordingResult RecordingsService::open(int number, RecordingDetails* details, int* fd) {
    *fd = -1;
    RecordingResult result = find(number, details);
    if (result.ok()) {
        *fd = ::open(details->path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        if (*fd < 0) {
            result = errno == ENOENT ? RecordingResult{RecordingStatus::NoSuchRecording,
                                                       details->path + ": the file is gone"}
                                     : storageFailure(errno, details->path);
        }
    }
    return result;
}

RecordingResult RecordingsService::setLabels(int number, const std::string& stationName,
                                             const std::string& programmeName,
                                             RecordingDetails* details) {
    RecordingResult result;
    Catalogue* const catalogue = mFindCatalogue(&result);
    return catalogue != nullptr ? catalogue->setLabels(number, stationName, programmeName, details)
                                : result;
}

RecordingResult RecordingsService::remove(int number) {
    RecordingResult result;
    Catalogue* const catalogue = mFindCatalogue(&result);
    return catalogue != nullptr ? catalogue->remove(number) : result;
}

RepairReport RecordingsService::repair() {
    RepairReport report;
    Catalogue* const catalogue = mFindCatalogue(&report.result);
    if (catalogue == nullptr) {
        return report;
    }
    if (mRepairing.exchange(true)) {
        report.result = {RecordingStatus::InUse, "the recordings are being repaired already"};
        return report;
    }
    report = catalogue->repair();
    mRepairing = false;
    return report;
}

RecordingResult RecordingsService::setPosition(int number, int64_t positionMs) {
    RecordingResult result;
    Catalogue* const catalogue = mFindCatalogue(&result);
    return catalogue != nullptr ? catalogue->setPosition(number, positionMs) : result;
}

RecordingResult RecordingsService::importFile(const sp<IBinder>& listener, int fd,
                                              const std::string& displayName,
                                              const ImportLabels& labels) {
    Import import;
    RecordingResult result;
    import.catalogue = mFindCatalogue(&result);
    if (import.catalogue == nullptr) {
        return result;
    }
    import.listener = listener;
    import.name = displayName;
    import.recording.stationName = labels.stationName;
    import.recording.programmeName = labels.programmeName;
    import.recording.storageType = labels.storageType;
    std::lock_guard lock(mMutex);
    if (mImporter != nullptr) {
        return {RecordingStatus::InUse, "another file is being imported; try again later"};
    }
    import.fd = fcntl(fd, F_DUPFD_CLOEXEC, 0);
    if (import.fd < 0) {
        return {RecordingStatus::BadFile, displayName + ": no open file"};
    }
    mImporter = listener;
    mCancelled = listener->linkToDeath(mDeath) == android::DEAD_OBJECT;
    std::thread([this, import] { runImport(import); }).detach();
    return {};
}

void RecordingsService::runImport(const Import& import) {
    const UniqueFd file(import.fd);
    auto next = std::chrono::steady_clock::now();
    RecordingDetails imported;
    const RecordingResult result = import.catalogue->importFile(
        file.get(), import.name, import.recording,
        [&](int64_t done, int64_t total) {
            const auto now = std::chrono::steady_clock::now();
            if (now >= next) {
                next = now + PROGRESS_EVERY;
                tellProgress(import.listener, done, total);
            }
            return !mCancelled;
        },
        &imported);
    {
        std::lock_guard lock(mMutex);
        import.listener->unlinkToDeath(mDeath);
        mImporter = nullptr;
        mImportEnded.notify_all();
    }  // from here on without the service, which may be gone
    tellDone(import.listener, result, imported);
}

void RecordingsService::cancelImport(const sp<IBinder>& listener) {
    std::lock_guard lock(mMutex);
    mCancelled = mCancelled || (listener != nullptr && listener == mImporter);
}

void RecordingsService::onOwnerDied(const android::wp<IBinder>& who) {
    std::lock_guard lock(mMutex);
    if (mImporter != nullptr && who == mImporter) {
        HOST_LOGI("%s: the client that imported has died\n", __func__);
        mCancelled = true;
    }
}

}  // namespace orvhost
