#include "ClientRecordings.h"

#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>

#include "binder/CallTimeout.h"
#include "dtv/SourceFile.h"

using android::sp;
using orvhost::CallTimeout;
using orvhost::IRecordings;
using orvhost::RecordingDetails;
using orvhost::RecordingList;
using orvhost::RecordingResult;
using orvhost::RecordingStatus;

namespace orvclient {

namespace {

constexpr std::chrono::milliseconds PROGRESS_PERIOD{100};

// Calls one operation, with a bound on its time, where there is a service.
template <typename Operation>
RecordingResult call(const ClientRecordings::FindSession& find, std::chrono::milliseconds patience,
                     Operation operation) {
    const CallTimeout bound(patience);
    std::string error;
    const std::shared_ptr<Session> session = find(&error);
    const sp<IRecordings> recordings = session != nullptr ? session->recordings(&error) : nullptr;
    return recordings != nullptr ? operation(*recordings)
                                 : RecordingResult{RecordingStatus::ServiceLost, error};
}

}  // namespace

// Hears how an import goes on, for the thread that waits for it.
class ClientRecordings::Import : public orvhost::BnImportListener {
public:
    void onProgress(int64_t done, int64_t total) override {
        std::lock_guard<std::mutex> guard(mLock);
        mDone = done;
        mTotal = total;
    }
    void onDone(const RecordingResult& result, const RecordingDetails& imported) override {
        {
            std::lock_guard<std::mutex> guard(mLock);
            mResult = result;
            mImported = imported;
            mIsOver = true;
        }
        mChanged.notify_all();
    }

    // False after a while without the end of it; how far it is goes to the application then.
    bool awaitEnd(const Progress& progress, bool* goesOn) {
        std::unique_lock<std::mutex> guard(mLock);
        if (mChanged.wait_for(guard, PROGRESS_PERIOD, [this] { return mIsOver; })) {
            return true;
        }
        const int64_t done = mDone;
        const int64_t total = mTotal;
        guard.unlock();
        *goesOn = !progress || progress(done, total);
        return false;
    }
    RecordingResult result(RecordingDetails* imported) {
        std::lock_guard<std::mutex> guard(mLock);
        *imported = mImported;
        return mResult;
    }

private:
    std::mutex mLock;
    std::condition_variable mChanged;
    int64_t mDone = 0;
    int64_t mTotal = 0;
    bool mIsOver = false;
    RecordingResult mResult;
    RecordingDetails mImported;
};

RecordingList ClientRecordings::list() {
    RecordingList all;
    bool isMore = true;
    while (isMore) {
        const int last = all.recordings.empty() ? 0 : all.recordings.back().number;
        all.result = call(mSession, mPatience, [&](IRecordings& recordings) {
            RecordingList page = recordings.list(last, IRecordings::MAX_PAGE);
            isMore = !page.recordings.empty() && page.recordings.back().number > last;
            all.recordings.insert(all.recordings.end(), page.recordings.begin(),
                                  page.recordings.end());
            return page.result;
        });
        isMore = isMore && all.result.ok();
    }
    return all;
}

RecordingResult ClientRecordings::find(int number, RecordingDetails* details) {
    return call(mSession, mPatience,
                [&](IRecordings& recordings) { return recordings.find(number, details); });
}

RecordingResult ClientRecordings::setPosition(int number, std::chrono::milliseconds position) {
    return call(mSession, mPatience, [&](IRecordings& recordings) {
        return recordings.setPosition(number, std::max<int64_t>(position.count(), 0));
    });
}

RecordingResult ClientRecordings::remove(int number) {
    return call(mSession, mPatience,
                [&](IRecordings& recordings) { return recordings.remove(number); });
}

RecordingResult ClientRecordings::open(int number, RecordingDetails* details, int* fd) {
    *fd = -1;
    return call(mSession, mPatience,
                [&](IRecordings& recordings) { return recordings.open(number, details, fd); });
}

RecordingResult ClientRecordings::importFile(const std::string& path, const RecordingLabels& labels,
                                             const Progress& progress, RecordingDetails* imported) {
    orvhost::TuneResult opened;
    const int fd = orvhost::openSourceFile(path, opened);
    if (fd < 0) {
        return {RecordingStatus::BadFile, opened.message};
    }
    const sp<Import> import = new Import;
    std::string error;
    const std::shared_ptr<Session> session = mSession(&error);
    const auto find = [&](std::string*) { return session; };
    const RecordingResult begun = call(find, mPatience, [&](IRecordings& recordings) {
        return recordings.importFile(import, fd, path,
                                     {labels.channel, labels.programme, labels.storage});
    });
    close(fd);
    if (!begun.ok()) {
        return begun.message.empty() ? RecordingResult{begun.status, error} : begun;
    }
    bool isCancelled = false;
    for (bool goesOn = true; !import->awaitEnd(progress, &goesOn);) {
        if (!session->isAlive()) {
            return {RecordingStatus::ServiceLost, session->reasonOfEnd()};
        }
        if (!goesOn && !isCancelled) {
            isCancelled = true;
            call(find, mPatience, [&](IRecordings& recordings) {
                recordings.cancelImport(import);
                return RecordingResult();
            });
        }
    }
    return import->result(imported);
}

}  // namespace orvclient
