#include "recording/TsRecorder.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "trace/HostLog.h"

namespace orvhost {

namespace {

std::string textOf(const char* text, uint32_t length) {
    return text == nullptr ? std::string() : std::string(text, strnlen(text, length));
}

uint32_t seconds32(int64_t seconds) {
    return static_cast<uint32_t>(std::max<int64_t>(seconds, 0));
}

// One allocation: the record, then both names.
recDetails* recordOf(const RecordingDetails& known) {
    const std::string& station = known.stationName;
    const std::string& programme = known.programmeName;
    const size_t size = sizeof(recDetails) + station.size() + 1 + programme.size() + 1;
    auto* record = static_cast<recDetails*>(std::calloc(1, size));
    if (record == nullptr) {
        return nullptr;
    }
    char* text = reinterpret_cast<char*>(record + 1);
    record->stationName = text;
    record->stationNameLength = static_cast<uint32_t>(station.size());
    std::memcpy(text, station.c_str(), station.size() + 1);
    text += station.size() + 1;
    record->prgName = text;
    record->prgNameLength = static_cast<uint32_t>(programme.size());
    std::memcpy(text, programme.c_str(), programme.size() + 1);
    record->creationTime = seconds32(known.creationTimeS);
    record->durationOfRec = seconds32(known.durationMs / 1000);
    record->sizeOfRec = static_cast<uint32_t>(std::min<int64_t>(known.sizeBytes >> 10, UINT32_MAX));
    record->recMode = known.mode;
    record->recLocation = known.storageType;
    record->bCanPlay = known.canPlay ? 1 : 0;
    record->recStartTime = seconds32(known.startTimeS);
    record->recEndTime = seconds32(known.endTimeS);
    record->iV_PID = known.videoPid;
    record->iA_PID = known.audioPid;
    record->isLATM = known.audioFraming;
    record->fileNumName = known.number;
    return record;
}

}  // namespace

TsRecorder::TsRecorder(Tuner& tuner, CatalogueOf catalogue, RecordingStorages storages,
                       const RecordingWriter::Options& options)
    : mTuner(tuner),
      mCatalogue(std::move(catalogue)),
      mStorages(std::move(storages)),
      mOptions(options) {}

TsRecorder::~TsRecorder() {
    remove();
}

std::shared_ptr<RecordingWriter> TsRecorder::writer() const {
    std::lock_guard lock(mMutex);
    return mWriter;
}

bool TsRecorder::create(const NewRecording& recording, RecPlayerBinder_EventCallback callback,
                        void* userData) {
    const std::string folder = mStorages.folderOf(recording.storageType);
    std::lock_guard lock(mMutex);
    if (mCreated || folder.empty()) {
        HOST_LOGE("%s: %s\n", __func__,
                  mCreated ? "there is a recorder already" : "no folder for this storage type");
        mRefused = mCreated ? std::this_thread::get_id() : std::thread::id();
        return false;
    }
    mRefused = {};
    mCreated = true;
    mRecording = recording;
    mCallback = callback;
    mUserData = userData;
    return true;
}

bool TsRecorder::hasRoom() const {
    int type = 0;
    {
        std::lock_guard lock(mMutex);
        type = mRecording.storageType;
    }
    return mStorages.prepare(type).ok() &&
           orvhost::hasRoom(mStorages.folderOf(type), mOptions.space);
}

bool TsRecorder::start() {
    NewRecording recording;
    RecordingWriter::EventCallback tell;
    {
        std::lock_guard lock(mMutex);
        if (!mCreated || mStarting || mWriter != nullptr ||
            mRefused == std::this_thread::get_id()) {
            return false;
        }
        mStarting = true;
        recording = mRecording;
        tell = [callback = mCallback, userData = mUserData](int event) {
            if (callback != nullptr) {
                callback(event, userData);
            }
        };
    }
    RecordingResult result;
    std::shared_ptr<RecordingWriter> begun;
    Catalogue* catalogue = mCatalogue();
    auto programme = mTuner.findProgramme(recording.videoPid, recording.audioPid);
    if (catalogue == nullptr) {
        result = {RecordingStatus::CatalogueError, "there is no catalogue of recordings"};
    } else if (!programme) {
        result = {RecordingStatus::BadFile, "no service of the tuned source has these PIDs"};
    } else {
        begun = RecordingWriter::begin(mTuner.demultiplexer(), *catalogue, recording,
                                       std::move(*programme), mOptions, std::move(tell), &result);
    }
    if (begun == nullptr) {
        HOST_LOGE("%s: %s\n", __func__, result.message.c_str());
    }
    std::lock_guard lock(mMutex);
    mStarting = false;
    mWriter = std::move(begun);
    return mWriter != nullptr;
}

recDetails* TsRecorder::details() const {
    const auto present = writer();
    return present == nullptr ? nullptr : recordOf(present->details());
}

bool TsRecorder::setDetails(const recDetails& details) {
    const auto present = writer();
    return present != nullptr &&
           present
               ->setLabels(textOf(details.stationName, details.stationNameLength),
                           textOf(details.prgName, details.prgNameLength))
               .ok();
}

// Who is told that this failed does not remove the recorder: it goes by itself then.
bool TsRecorder::stop(bool keep) {
    const auto present = writer();
    const bool done = present != nullptr && present->stop(keep);
    if (!done) {
        remove();
    }
    return done;
}

bool TsRecorder::remove() {
    std::shared_ptr<RecordingWriter> gone;
    {
        std::lock_guard lock(mMutex);
        if (mRefused == std::this_thread::get_id()) {
            mRefused = {};
            return false;
        }
        if (!mCreated) {
            return false;
        }
        mCreated = false;
        gone = std::exchange(mWriter, nullptr);
    }
    if (gone != nullptr) {
        gone->stop(true);
    }
    return true;
}

}  // namespace orvhost
