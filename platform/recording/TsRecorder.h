#pragma once

#include <dtv/RecPlayerBinder.h>

#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "dtv/Tuner.h"
#include "recording/Catalogue.h"
#include "recording/RecordingStorages.h"
#include "recording/RecordingWriter.h"

namespace orvhost {

// The recorder of this process, behind the recorder's functions of <dtv/RecPlayerBinder.h>: their
// contracts are its own. Any thread.
class TsRecorder {
public:
    // The catalogue may be null as long as there is none: nothing can be recorded then.
    using CatalogueOf = std::function<Catalogue*()>;

    TsRecorder(Tuner& tuner, CatalogueOf catalogue, RecordingStorages storages,
               const RecordingWriter::Options& options = {});
    ~TsRecorder();
    TsRecorder(const TsRecorder&) = delete;  // one recorder
    TsRecorder& operator=(const TsRecorder&) = delete;

    bool create(const NewRecording& recording, RecPlayerBinder_EventCallback callback,
                void* userData);
    bool hasRoom() const;
    bool start();
    recDetails* details() const;
    bool setDetails(const recDetails& details);
    bool stop(bool keep);
    bool remove();

private:
    std::shared_ptr<RecordingWriter> writer() const;
    bool isRefused();

    Tuner& mTuner;
    const CatalogueOf mCatalogue;
    const RecordingStorages mStorages;
    const RecordingWriter::Options mOptions;

    mutable std::mutex mMutex;  // never held while the storage or a callback is waited for
    bool mCreated = false;
    bool mStarting = false;
    NewRecording mRecording;
    RecPlayerBinder_EventCallback mCallback = nullptr;
    void* mUserData = nullptr;
    std::shared_ptr<RecordingWriter> mWriter;
    // Who was refused a second recorder: what that thread starts and removes next is not there.
    std::thread::id mRefused;
};

}  // namespace orvhost
