#include <orvclient/Player.h>

#include <unistd.h>

#include <utility>

#include "PlayerImpl.h"
#include "PlayerUri.h"

namespace orvclient {

const char* describe(RecordingFailure failure) {
    switch (failure) {
        case RecordingFailure::NOT_BEGUN:
            return "the recording cannot be written; check its storage: the folder, and the room "
                   "there";
        case RecordingFailure::NOT_WRITTEN:
            return "the storage of the recording does not take it any more; check its folder";
        case RecordingFailure::STORAGE_FULL:
            return "the storage is full; remove recordings (orvplay record rm N)";
        case RecordingFailure::NO_INPUT:
            return "nothing of the recorded service came any more";
    }
    return "the recording failed";
}

Player::Player(std::unique_ptr<Impl> impl) : mImpl(std::move(impl)) {}

Player::~Player() = default;

std::unique_ptr<Player> Player::create(const Options& options, Callbacks callbacks,
                                       std::string* error) {
    auto impl = std::make_unique<Impl>(
        options, std::move(callbacks),
        [options](std::string* failure) { return Session::start(options, failure); });
    std::string failure;
    if (impl->session(&failure) == nullptr) {
        if (error != nullptr) {
            *error = failure;
        }
        return nullptr;
    }
    return std::make_unique<Player>(std::move(impl));
}

Tuner& Player::tuner() {
    return mImpl->tuner();
}

Recordings& Player::recordings() {
    return mImpl->recordings();
}

Status Player::open(const LiveSource& source) {
    return mImpl->openUri(wire::OPEN_URI_SOURCE, liveUri(source));
}

Status Player::openRecording(const std::string& path, const LiveSource& source) {
    std::string uri;
    std::string error;
    if (!recordingUri(path, source, &uri, &error)) {
        return {Status::REFUSED, error};
    }
    return mImpl->openUri(wire::OPEN_URI_SOURCE, uri, Impl::Content::RECORDING);
}

orvhost::TuneResult Player::tuneRecording(int number, orvhost::RecordingDetails* details) {
    int fd = -1;
    const orvhost::RecordingResult found = mImpl->recordings().open(number, details, &fd);
    if (!found.ok()) {
        const bool isLost = found.status == orvhost::RecordingStatus::ServiceLost;
        return {isLost ? orvhost::TuneStatus::ServiceLost : orvhost::TuneStatus::NoSuchFile,
                found.message};
    }
    orvhost::TuneOptions tuning;
    tuning.recorded = true;
    const orvhost::TuneResult tuned = mImpl->tuner().tune(fd, details->path, tuning);
    ::close(fd);
    const bool isWritten = details->state == orvhost::RecordingState::Recording;
    mImpl->setRecordingLength(std::chrono::milliseconds(isWritten ? 0 : details->durationMs));
    return tuned;
}

Status Player::openRecording(int number) {
    constexpr int TABLES_MS = 3000;
    orvhost::RecordingDetails details;
    orvhost::TuneResult tuned = tuneRecording(number, &details);
    orvhost::ServiceList list;
    if (tuned.ok()) {
        list = tuner().services(TABLES_MS);
        tuned = list.result;
    }
    if (!list.services.empty()) {
        return openRecording(details.path, liveSourceOf(list.services.front()));
    }
    const bool isLost = tuned.status == orvhost::TuneStatus::ServiceLost;
    return {isLost ? Status::LOST : Status::REFUSED, tuned.message};
}

Status Player::openFile(const std::string& path) {
    std::string absolute;
    std::string error;
    if (!mediaFile(path, &absolute, &error)) {
        return {Status::REFUSED, error};
    }
    return mImpl->openUri(wire::OPEN_MEDIA_FILE, absolute, Impl::Content::FILE);
}

Status Player::start() {
    return mImpl->start();
}

Status Player::stop() {
    return mImpl->stop();
}

Status Player::close() {
    return mImpl->close();
}

Status Player::pause() {
    return mImpl->pause();
}

Status Player::resume() {
    return mImpl->resume();
}

Status Player::seek(std::chrono::milliseconds position) {
    return mImpl->seek(position);
}

std::chrono::milliseconds Player::elapsed() const {
    const auto session = mImpl->present();
    return session != nullptr ? session->events().elapsed() : std::chrono::milliseconds(0);
}

std::chrono::milliseconds Player::duration() {
    return mImpl->duration();
}

State Player::state() {
    return mImpl->state();
}

Status Player::setSurface(PictureQueue* queue) {
    return mImpl->setSurface(queue);
}

Status Player::setCrop(int left, int top, int right, int bottom, bool useOriginal) {
    return mImpl->setCrop(left, top, right, bottom, useOriginal);
}

Status Player::setAudioEnabled(bool enabled) {
    return mImpl->setAudioEnabled(enabled);
}

Status Player::setAudioOnly(bool audioOnly) {
    return mImpl->setAudioOnly(audioOnly);
}

Status Player::setAudioPid(uint16_t pid) {
    return mImpl->setAudioPid(pid);
}

Status Player::setCaptionPid(uint16_t pid) {
    return mImpl->setCaptionPid(pid);
}

Status Player::setAvOffset(std::chrono::milliseconds offset) {
    return mImpl->setAvOffset(offset);
}

void Player::setCaptionDelay(std::chrono::milliseconds delay) {
    mImpl->setCaptionDelay(delay);
}

Status Player::requestStills(int count, std::chrono::milliseconds every) {
    return mImpl->requestStills(count, every);
}

Status Player::cancelStills() {
    return mImpl->cancelStills();
}

Status Player::startRecording(const RecordingLabels& labels, int* number) {
    std::string uri;
    std::string error;
    return recorderUri(labels, &uri, &error) ? mImpl->startRecording(uri, number)
                                             : Status{Status::REFUSED, error};
}

Status Player::stopRecording(bool keep) {
    return mImpl->stopRecording(keep);
}

bool Player::isRecording() const {
    const auto session = mImpl->present();
    return session != nullptr && session->events().isRecording();
}

int Player::frameRate() {
    return mImpl->frameRate();
}

int64_t Player::streamTime90k() {
    return mImpl->streamTime90k();
}

Status Player::setVolume(int percent) {
    return mImpl->setVolume(percent, std::nullopt);
}

Status Player::setMuted(bool isMuted) {
    return mImpl->setVolume(std::nullopt, isMuted);
}

int Player::volume() const {
    return mImpl->volume().percent;
}

bool Player::isMuted() const {
    return mImpl->volume().isMuted;
}

bool Player::presentation(orvhost::PresentationReport* report) {
    return mImpl->presentation(report);
}

PlaybackFigures Player::figures() {
    return mImpl->figures();
}

Status Player::dump(int fd) {
    return mImpl->dump(fd);
}

int Player::servicePid() const {
    const auto session = mImpl->present();
    return session != nullptr ? session->servicePid() : -1;
}

}  // namespace orvclient
