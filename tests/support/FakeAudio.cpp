#include "support/FakeAudio.h"

#include <media/AudioSystem.h>
#include <media/AudioTrack.h>

#include <string>
#include <utility>

// What the library's AudioTrack holds; this one needs nothing of it.
namespace orvhost {
class PlaybackTrack {};
class PulseStream {};
}  // namespace orvhost

namespace orvtest {

FakeAudio& FakeAudio::instance() {
    static FakeAudio only;
    return only;
}

void FakeAudio::reset() {
    std::lock_guard<std::mutex> guard(mLock);
    mTracks.clear();
    mDevices.clear();
    mWaiting.reset();
    mResult.reset();
    mOpen = false;
    mTrackStatus = 0;
    mFlushes = 0;
    mVolume = -1;
    mRouting.clear();
}

void FakeAudio::failTracks(int status) {
    std::lock_guard<std::mutex> guard(mLock);
    mTrackStatus = status;
}

void FakeAudio::setDevice(uint32_t device, bool connected) {
    std::lock_guard<std::mutex> guard(mLock);
    if (connected) {
        mDevices.insert(device);
    } else {
        mDevices.erase(device);
    }
}

bool FakeAudio::pass(Write* write, std::optional<long> result) {
    std::unique_lock<std::mutex> guard(mLock);
    if (!mChanged.wait_for(guard, LIMIT, [this] { return mWaiting.has_value(); })) {
        return false;
    }
    *write = *std::exchange(mWaiting, std::nullopt);
    mResult = result.value_or(static_cast<long>(write->size));
    mChanged.notify_all();
    return true;
}

void FakeAudio::open() {
    std::lock_guard<std::mutex> guard(mLock);
    mOpen = true;
    mChanged.notify_all();
}

long FakeAudio::write(const void* bytes, size_t size) {
    std::unique_lock<std::mutex> guard(mLock);
    if (!mRunning) {
        return android::INVALID_OPERATION;
    }
    if (mOpen) {
        return static_cast<long>(size);
    }
    mWaiting = Write{size, size > 0 ? *static_cast<const uint8_t*>(bytes) : -1};
    mChanged.notify_all();
    mChanged.wait(guard, [this] { return mOpen || !mRunning || mResult.has_value(); });
    mWaiting.reset();
    const long otherwise = mRunning ? static_cast<long>(size) : long{android::INVALID_OPERATION};
    return std::exchange(mResult, std::nullopt).value_or(otherwise);
}

std::vector<FakeAudio::Track> FakeAudio::tracks() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mTracks;
}

size_t FakeAudio::living() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mLiving;
}

size_t FakeAudio::flushes() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mFlushes;
}

float FakeAudio::volume() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mVolume;
}

int FakeAudio::addTrack(const Track& track) {
    std::lock_guard<std::mutex> guard(mLock);
    mTracks.push_back(track);
    ++mLiving;
    return mTrackStatus != 0 ? mTrackStatus : static_cast<int>(mTracks.size());
}

void FakeAudio::removeTrack() {
    std::lock_guard<std::mutex> guard(mLock);
    --mLiving;
}

void FakeAudio::addFlush() {
    std::lock_guard<std::mutex> guard(mLock);
    ++mFlushes;
}

void FakeAudio::setRunning(bool running) {
    std::lock_guard<std::mutex> guard(mLock);
    mRunning = running;
    mChanged.notify_all();
}

void FakeAudio::setVolume(float volume) {
    std::lock_guard<std::mutex> guard(mLock);
    mVolume = volume;
}

bool FakeAudio::isConnected(uint32_t device) const {
    std::lock_guard<std::mutex> guard(mLock);
    return mDevices.count(device) != 0;
}

void FakeAudio::addRouting(const std::string& request) {
    std::lock_guard<std::mutex> guard(mLock);
    mRouting += (mRouting.empty() ? "" : " ") + request;
}

std::string FakeAudio::takeRouting() {
    std::lock_guard<std::mutex> guard(mLock);
    return std::exchange(mRouting, "");
}

}  // namespace orvtest

using orvtest::FakeAudio;

namespace android {

// The session is the track's number from 1 on, or the negative status of initCheck().
AudioTrack::AudioTrack(audio_stream_type_t, uint32_t rate, audio_format_t,
                       audio_channel_mask_t mask, size_t, audio_output_flags_t, callback_t, void*,
                       int32_t, audio_session_t, transfer_type, const audio_offload_info_t*, uid_t,
                       pid_t, const audio_attributes_t*, bool, float)
    : mSessionId(FakeAudio::instance().addTrack({rate, mask})) {}

AudioTrack::~AudioTrack() {
    FakeAudio::instance().removeTrack();
}

status_t AudioTrack::initCheck() const {
    return mSessionId < 0 ? mSessionId : NO_ERROR;
}
status_t AudioTrack::start() {
    FakeAudio::instance().setRunning(true);
    return NO_ERROR;
}
void AudioTrack::stop() {
    FakeAudio::instance().setRunning(false);
}
void AudioTrack::flush() {
    FakeAudio::instance().addFlush();
}
status_t AudioTrack::setVolume(float left, float) {
    FakeAudio::instance().setVolume(left);
    return NO_ERROR;
}
ssize_t AudioTrack::write(const void* bytes, size_t size, bool) {
    return FakeAudio::instance().write(bytes, size);
}
audio_session_t AudioTrack::getSessionId() const {
    return mSessionId;
}

audio_policy_dev_state_t AudioSystem::getDeviceConnectionState(audio_devices_t device,
                                                               const char*) {
    return FakeAudio::instance().isConnected(device) ? AUDIO_POLICY_DEVICE_STATE_AVAILABLE
                                                     : AUDIO_POLICY_DEVICE_STATE_UNAVAILABLE;
}

status_t AudioSystem::setForceUse(audio_policy_force_use_t usage,
                                  audio_policy_forced_cfg_t config) {
    FakeAudio::instance().addRouting("force(" + std::to_string(usage) + "," +
                                     std::to_string(config) + ")");
    return config < 0 ? BAD_VALUE : NO_ERROR;
}

status_t AudioSystem::setParameters(audio_io_handle_t output, const String8& keyValuePairs) {
    FakeAudio::instance().addRouting("parameters(" + std::to_string(output) + "," +
                                     keyValuePairs.string() + ")");
    return NO_ERROR;
}

}  // namespace android
