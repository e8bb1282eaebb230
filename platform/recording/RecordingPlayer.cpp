#include "recording/RecordingPlayer.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

#include "recording/PlayedRecording.h"
#include "recording/Sidecar.h"
#include "trace/HostLog.h"

namespace orvhost {

namespace {

// How long the player's commands wait for the scan of a recording that has no index. A gigabyte
// takes about as long.
constexpr int DURATION_WAIT_MS = 300;
constexpr int SEEK_WAIT_MS = 1000;
constexpr int TABLES_WAIT_MS = 500;

IndexedProgramme programmeOf(const RecordedSource& source, const std::vector<Service>& services,
                             int fd) {
    IndexedProgramme programme = services.empty() ? findProgramme(fd, source.options.serviceId)
                                                  : programmeOf(services, source.options.serviceId);
    if (source.options.pcrPid != PID_NONE) {
        programme.pcrPid = source.options.pcrPid;
    }
    return programme;
}

bool isSameFile(int fd, const std::string& path) {
    struct stat one;
    struct stat other;
    return fstat(fd, &one) == 0 && stat(path.c_str(), &other) == 0 && one.st_dev == other.st_dev &&
           one.st_ino == other.st_ino;
}

// What the tables say where the sidecar does not.
void addService(const std::vector<Service>& services, uint16_t serviceId,
                RecordingDetails* details) {
    const auto service = std::find_if(services.begin(), services.end(), [&](const Service& one) {
        return one.serviceId == serviceId;
    });
    if (service == services.end()) {
        return;
    }
    if (details->stationName.empty()) {
        details->stationName = service->name;
    }
    const bool hasPids = details->videoPid >= 0 || details->audioPid >= 0;
    for (const ElementaryStream& stream : service->streams) {
        const bool isSound =
            stream.kind >= StreamKind::AudioLatm && stream.kind <= StreamKind::AudioMpeg;
        if (stream.kind == StreamKind::Video && !hasPids && details->videoPid < 0) {
            details->videoPid = stream.pid;
        } else if (isSound && !hasPids && details->audioPid < 0) {
            details->audioPid = stream.pid;
            details->audioFraming =
                static_cast<int>(stream.kind) - static_cast<int>(StreamKind::AudioLatm);
        }
    }
}

// What the file, and the sidecar where there is one, tell.
RecordingDetails describe(PlayedRecording& recording) {
    RecordingDetails details;
    const std::string path = pathOf(recording.fd());
    Sidecar sidecar;
    if (path.ends_with(".ts")) {
        details.path = path;
        if (readSidecar(details.sidecarPath(), &sidecar)) {
            details = sidecar.details;
        }
    }
    struct stat status;
    if (fstat(recording.fd(), &status) == 0) {
        details.sizeBytes = status.st_size;
        if (details.creationTimeS == 0) {
            details.creationTimeS = status.st_mtime;
        }
    }
    details.path = path;
    details.canPlay = true;
    details.durationMs = recording.durationMs(DURATION_WAIT_MS);
    return details;
}

}  // namespace

RecordingPlayer& RecordingPlayer::instance() {
    // Never destroyed, like the tuner.
    static auto* const player = new RecordingPlayer(Tuner::instance());
    return *player;
}

RecordingPlayer::RecordingPlayer(Tuner& tuner) : mTuner(tuner) {
    mTuner.setPlaybackListener(this);
}

RecordingPlayer::~RecordingPlayer() {
    mTuner.untune();
    mTuner.setPlaybackListener(nullptr);
}

void RecordingPlayer::onPlaybackEvent(int event) {
    if (mTuner.demultiplexer().filterCount() > 0) {
        mEvents.post(event);
    }
}

void RecordingPlayer::onFiltersStopped() {
    mEvents.silence();
}

std::shared_ptr<PlayedRecording> RecordingPlayer::played(const RecordedSource& source) {
    std::lock_guard lock(mMutex);
    if (mTuning != source.tuning) {
        mPlayed = nullptr;
        UniqueFd fd(mTuner.duplicateSource());
        if (!fd) {
            return nullptr;
        }
        mTuning = source.tuning;
        mPositionMs = 0;
        const IndexedProgramme programme =
            programmeOf(source, mTuner.services(TABLES_WAIT_MS).services, fd.get());
        mPlayed = std::make_shared<PlayedRecording>(std::move(fd), programme);
    }
    return mPlayed;
}

bool RecordingPlayer::begin(RecPlayerBinder_EventCallback callback, void* userData) {
    mEvents.listen(callback, userData);
    const bool seekAsked = mSeekAsked.exchange(false);
    const auto source = mTuner.recording();
    if (!source || played(*source) == nullptr) {
        return false;
    }
    if (mTuner.demultiplexer().filterCount() == 0) {
        if (!seekAsked) {
            mTuner.setPaused(false);
        }
        if (source->wasFed) {  // a seek that succeeded leaves nothing fed
            goTo(*source, mPositionMs);
        }
    }
    return true;
}

bool RecordingPlayer::setPaused(bool paused) {
    return mTuner.setPaused(paused);
}

bool RecordingPlayer::canSeek() {
    const auto source = mTuner.recording();
    const auto recording = source ? played(*source) : nullptr;
    return recording != nullptr && recording->canSeek();
}

bool RecordingPlayer::goTo(const RecordedSource& source, int64_t positionMs) {
    const auto recording = played(source);
    const auto offset =
        recording == nullptr ? std::nullopt : recording->offsetOf(positionMs, SEEK_WAIT_MS);
    return offset && mTuner.reposition(source.tuning, *offset);
}

bool RecordingPlayer::seek(int64_t positionMs) {
    mSeekAsked = true;
    const auto source = mTuner.recording();
    if (positionMs < 0 || !source || !goTo(*source, positionMs)) {
        HOST_LOGW("%s: no way to %lld ms\n", __func__, static_cast<long long>(positionMs));
        return false;
    }
    mPositionMs = static_cast<uint32_t>(positionMs);
    return true;
}

bool RecordingPlayer::details(const std::string& path, RecordingDetails* details) {
    const auto source = mTuner.recording();
    std::shared_ptr<PlayedRecording> recording = source ? played(*source) : nullptr;
    std::vector<Service> services;
    if (recording != nullptr && (source->name == path || isSameFile(recording->fd(), path))) {
        services = mTuner.services(TABLES_WAIT_MS).services;
    } else {
        UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
        if (!fd || sizeOfFile(fd.get()) == 0) {
            return false;
        }
        services = findServices(fd.get());
        const IndexedProgramme programme = programmeOf(services, 0);
        recording = std::make_shared<PlayedRecording>(std::move(fd), programme);
    }
    *details = describe(*recording);
    addService(services, recording->programme().serviceId, details);
    return details->durationMs > 0 || !services.empty();
}

}  // namespace orvhost
