// What a player does, command by command.

#include <algorithm>
#include <utility>

#include "PictureHalves.h"
#include "PlayerImpl.h"
#include "binder/CallTimeout.h"

using android::status_t;
using orvhost::CallTimeout;

namespace orvclient {

namespace {

using Result = ClientEvents::Result;

constexpr std::chrono::hours LONGEST{24 * 7};
constexpr int LOUDEST_PERCENT = 150;

// Milliseconds as the wire has them; what no content is as long as becomes the longest one.
int32_t wireMs(std::chrono::milliseconds time) {
    return static_cast<int32_t>(
        std::clamp<std::chrono::milliseconds>(time, -LONGEST, LONGEST).count());
}

Status nothingPlays() {
    return {Status::REFUSED, "nothing plays"};
}

}  // namespace

Status Player::Impl::openUri(wire::OpenType type, const std::string& uri, Content content) {
    mQueue.dropCaptions();
    mContent = content;
    return command(
        Result::OPEN,
        [&](BpCOrvPlayer& player) {
            keepRecording(*present());
            return player.openUri(type, uri);
        },
        "the player cannot set up these streams");
}

Status Player::Impl::start() {
    return command(
        Result::START, [](BpCOrvPlayer& player) { return player.start(); },
        "the player cannot start");
}

// A service that is told to stop while nothing is open takes it for a fault and ends.
Status Player::Impl::stop() {
    mQueue.dropCaptions();
    return tell([this](BpCOrvPlayer& player) {
        keepRecording(*present());
        int32_t state = 0;
        const status_t status = player.getState(&state);
        const bool isIdle = state != static_cast<int32_t>(State::OPEN) &&
                            state != static_cast<int32_t>(State::PLAYING) &&
                            state != static_cast<int32_t>(State::PAUSED);
        return status != android::OK || isIdle ? status : player.stop();
    });
}

Status Player::Impl::close() {
    mQueue.dropCaptions();
    return tell([this](BpCOrvPlayer& player) {
        keepRecording(*present());
        return player.close();
    });
}

Status Player::Impl::pause() {
    const State now = state();
    if (now == State::PAUSED) {
        return {};
    }
    return now == State::PLAYING
               ? command(
                     Result::PAUSE, [](BpCOrvPlayer& player) { return player.pause(); },
                     "the player cannot pause")
               : nothingPlays();
}

Status Player::Impl::resume() {
    const State now = state();
    if (now == State::PLAYING) {
        return {};
    }
    return now == State::PAUSED
               ? command(
                     Result::RESUME, [](BpCOrvPlayer& player) { return player.resume(); },
                     "the player cannot go on")
               : nothingPlays();
}

Status Player::Impl::seek(std::chrono::milliseconds position) {
    if (const State now = state(); now != State::PLAYING && now != State::PAUSED) {
        return nothingPlays();
    }
    const Status status = command(
        Result::SEEK, [&](BpCOrvPlayer& player) { return player.seek(wireMs(position)); },
        "the player cannot go there");
    return status.code > 0 ? Status{Status::REFUSED, status.message} : status;
}

std::chrono::milliseconds Player::Impl::duration() {
    switch (mContent) {
        case Content::RECORDING:
            return std::chrono::milliseconds(mRecordingMs);
        case Content::FILE:
            return std::chrono::milliseconds(figures().mediaDurationMs);
        default:
            return std::chrono::milliseconds(0);
    }
}

State Player::Impl::state() {
    const std::shared_ptr<Session> session = present();
    int32_t state = 0;
    const CallTimeout bound(mOptions.commandTimeout);
    if (session == nullptr || session->player().getState(&state) != android::OK ||
        state < static_cast<int32_t>(State::IDLE) || state > static_cast<int32_t>(State::PAUSED)) {
        return State::IDLE;
    }
    return static_cast<State>(state);
}

Status Player::Impl::setSurface(PictureQueue* queue) {
    {
        std::lock_guard<std::mutex> guard(mLock);
        mSettings.surface = queue;
    }
    const auto session = present();
    if (session != nullptr) {
        session->events().setPictures(queue);
    }
    const auto producer =
        queue != nullptr ? android::IInterface::asBinder(queue->halves().producer()) : nullptr;
    return ask(
        [&](BpCOrvPlayer& player, int32_t* code) { return player.setSurface(producer, code); },
        "the player does not take this surface");
}

Status Player::Impl::setCrop(int left, int top, int right, int bottom, bool useOriginal) {
    return ask(
        [&](BpCOrvPlayer& player, int32_t* code) {
            return player.setCropRect(left, top, right, bottom, useOriginal ? 1 : 0, code);
        },
        "the player does not take this part of the picture");
}

Status Player::Impl::setAudioEnabled(bool enabled) {
    {
        std::lock_guard<std::mutex> guard(mLock);
        mSettings.audioEnabled = enabled;
    }
    return tell([&](BpCOrvPlayer& player) { return player.setAudioEnable(enabled ? 1 : 0); });
}

Status Player::Impl::setAudioOnly(bool audioOnly) {
    return ask([&](BpCOrvPlayer& player,
                   int32_t* code) { return player.setAudioOnlyMode(audioOnly ? 1 : 0, code); },
               "the player does not go on that way");
}

Status Player::Impl::setAudioPid(uint16_t pid) {
    return tell([&](BpCOrvPlayer& player) { return player.setAudioPID(pid); });
}

Status Player::Impl::setCaptionPid(uint16_t pid) {
    mQueue.dropCaptions();
    return tell([&](BpCOrvPlayer& player) { return player.setCCPID(pid); });
}

Status Player::Impl::setAvOffset(std::chrono::milliseconds offset) {
    const int32_t offsetMs = wireMs(offset);
    {
        std::lock_guard<std::mutex> guard(mLock);
        mSettings.avOffsetMs = offsetMs;
    }
    return ask(
        [&](BpCOrvPlayer& player, int32_t* code) {
            return player.setAVSync(offsetMs + wire::AV_SYNC_BIAS_MS, code);
        },
        "the player does not take this offset");
}

Status Player::Impl::requestStills(int count, std::chrono::milliseconds every) {
    if (!mOptions.registerForEvents) {
        return {Status::REFUSED, "this player only looks on: it gets no stills"};
    }
    if (count < 1 || every.count() < 0) {
        return {Status::REFUSED, "at least one still, and no time before it"};
    }
    return tell([&](BpCOrvPlayer& player) { return player.getFrame(count, wireMs(every)); });
}

Status Player::Impl::cancelStills() {
    return tell([](BpCOrvPlayer& player) { return player.cancelCaptureFrame(); });
}

// The service answers the call before it knows; what became of it comes as an event.
Status Player::Impl::startRecording(const std::string& uri, int* number) {
    const char* const failure = "the player cannot record";
    int begun = 0;
    const Status status = await(
        Result::RECORD,
        [&](BpCOrvPlayer& player) {
            int32_t code = 0;
            const status_t called = player.startRecorder(uri, &code);
            return called != android::OK ? called : code;
        },
        failure, &begun);
    if (!status.ok()) {
        return status;
    }
    if (begun == ClientEvents::NOT_RECORDED) {
        // Until then the service has it for one that is under way.
        tell([](BpCOrvPlayer& player) {
            int32_t unused = 0;
            return player.stopRecorder(0, &unused);
        });
        return {Status::REFUSED, describe(RecordingFailure::NOT_BEGUN)};
    }
    if (number != nullptr) {
        *number = begun;
    }
    return {};
}

Status Player::Impl::stopRecording(bool keep) {
    const auto session = present();
    if (session == nullptr || !session->events().isRecording()) {
        return {Status::REFUSED, "nothing is being recorded"};
    }
    int cleanly = 0;
    const Status status = await(
        Result::RECORD_STOP,
        [&](BpCOrvPlayer& player) {
            int32_t unused = 0;
            return player.stopRecorder(keep ? 1 : 0, &unused);
        },
        "the player cannot end the recording", &cleanly);
    return !status.ok() || cleanly == 1
               ? status
               : Status{Status::REFUSED, "the recording was not ended as it should be"};
}

int Player::Impl::frameRate() {
    const std::shared_ptr<Session> session = present();
    const CallTimeout bound(mOptions.commandTimeout);
    int32_t rate = -1;
    return session != nullptr && session->player().getFrameRate(&rate) == android::OK ? rate : -1;
}

int64_t Player::Impl::streamTime90k() {
    const std::shared_ptr<Session> session = present();
    const CallTimeout bound(mOptions.commandTimeout);
    int64_t time = 0;
    return session != nullptr && session->player().getPCRValue(&time) == android::OK ? time : 0;
}

Status Player::Impl::setVolume(std::optional<int> percent, std::optional<bool> isMuted) {
    std::string error;
    const std::shared_ptr<Session> session = this->session(&error);
    Volume volume;
    {
        std::lock_guard<std::mutex> guard(mLock);
        volume = mSettings.volume.value_or(volume);
        volume.percent = std::clamp(percent.value_or(volume.percent), 0, LOUDEST_PERCENT);
        volume.isMuted = isMuted.value_or(volume.isMuted);
        mSettings.volume = volume;
    }
    const CallTimeout bound(mOptions.commandTimeout);
    const auto monitor = session != nullptr ? session->monitor(&error) : nullptr;
    if (monitor == nullptr) {
        return {Status::LOST, error};
    }
    const status_t status = monitor->setVolume(volume.percent, volume.isMuted);
    return status == android::OK ? Status() : failed(status, *session);
}

Player::Impl::Volume Player::Impl::volume() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mSettings.volume.value_or(Volume());
}

PlaybackFigures Player::Impl::figures() {
    const std::shared_ptr<Session> session = present();
    const CallTimeout bound(mOptions.commandTimeout);
    std::string error;
    const auto monitor = session != nullptr ? session->monitor(&error) : nullptr;
    orvhost::PlaybackFigures seen;
    if (monitor == nullptr || monitor->figures(&seen) != android::OK) {
        return {};
    }
    PlaybackFigures figures;
    figures.framesTimed = seen.framesTimed;
    figures.lastFrameTimedNs = seen.lastFrameTimedNs;
    figures.picturesReleasedUnseen = seen.picturesReleasedUnseen;
    figures.picturesDroppedAtWindow = seen.picturesDroppedAtWindow;
    figures.firstIdrQueuedUs = seen.firstIdrQueuedUs;
    figures.firstIdrReadyUs = seen.firstIdrReadyUs;
    figures.firstPcrUs = seen.firstPcrUs;
    figures.firstSoundUs = seen.firstSoundUs;
    figures.audioFrames = seen.audioFrames;
    figures.heard = seen.heard;
    figures.outputLatencyMs = seen.outputLatencyMs;
    figures.audioEarlyMs = seen.audioEarlyMs;
    figures.audioEarlyCount = seen.audioEarlyCount;
    figures.beepsNs = std::move(seen.beepsNs);
    figures.mediaDurationMs = seen.mediaDurationMs;
    figures.indexPercent = seen.indexPercent;
    figures.cpuSeconds = seen.cpuSeconds;
    figures.voluntarySwitches = seen.voluntarySwitches;
    figures.maxRssKb = seen.maxRssKb;
    figures.pid = seen.pid;
    return figures;
}

bool Player::Impl::presentation(orvhost::PresentationReport* report) {
    const std::shared_ptr<Session> session = present();
    const CallTimeout bound(mOptions.commandTimeout);
    std::string error;
    const auto monitor = session != nullptr ? session->monitor(&error) : nullptr;
    return monitor != nullptr && monitor->presentation(report) == android::OK;
}

Status Player::Impl::dump(int fd) {
    std::string error;
    const std::shared_ptr<Session> session = this->session(&error);
    const CallTimeout bound(mOptions.commandTimeout);
    const auto monitor = session != nullptr ? session->monitor(&error) : nullptr;
    if (monitor == nullptr) {
        return {Status::LOST, error};
    }
    const status_t status = android::IInterface::asBinder(monitor)->dump(fd, {});
    return status == android::OK ? Status() : failed(status, *session);
}

}  // namespace orvclient
