#include "audio/PulseStream.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "audio/MasterVolume.h"
#include "audio/OutputKind.h"
#include "audio/PlaybackTrack.h"
#include "audio/PulseServer.h"
#include "trace/HostLog.h"

namespace orvhost {
namespace {

constexpr int64_t NS_PER_SECOND = 1'000'000'000;
constexpr int64_t NS_PER_US = 1000;

// How much sound the server holds: enough for its thread to be late, and well below the latency
// that the track is to have.
constexpr int64_t SERVER_BUFFER_NS = 80'000'000;
constexpr uint32_t REQUESTS_PER_BUFFER = 4;

// Beyond this the rate would take too long: jump, once it is sure.
constexpr double FAR_OFF_MS = 30;
constexpr int FAR_OFF_TIMES = 3;

pa_channel_map channelMap(audio_channel_mask_t mask) {
    // In the order of the mask's bits.
    static constexpr pa_channel_position_t POSITIONS[] = {PA_CHANNEL_POSITION_FRONT_LEFT,
                                                          PA_CHANNEL_POSITION_FRONT_RIGHT,
                                                          PA_CHANNEL_POSITION_FRONT_CENTER,
                                                          PA_CHANNEL_POSITION_LFE,
                                                          PA_CHANNEL_POSITION_REAR_LEFT,
                                                          PA_CHANNEL_POSITION_REAR_RIGHT,
                                                          PA_CHANNEL_POSITION_FRONT_LEFT_OF_CENTER,
                                                          PA_CHANNEL_POSITION_FRONT_RIGHT_OF_CENTER,
                                                          PA_CHANNEL_POSITION_REAR_CENTER,
                                                          PA_CHANNEL_POSITION_SIDE_LEFT,
                                                          PA_CHANNEL_POSITION_SIDE_RIGHT};
    pa_channel_map map;
    pa_channel_map_init(&map);
    if (mask == AUDIO_CHANNEL_OUT_MONO) {
        return *pa_channel_map_init_mono(&map);
    }
    for (size_t bit = 0; bit < std::size(POSITIONS); bit++) {
        if ((mask >> bit & 1) != 0) {
            map.map[map.channels++] = POSITIONS[bit];
        }
    }
    return map;
}

// The server's scale is as ours, from none to PA_VOLUME_NORM.
pa_cvolume serverVolume(const MasterVolume& volume, unsigned channels) {
    pa_cvolume result;
    pa_cvolume_set(
        &result, channels,
        static_cast<pa_volume_t>(static_cast<int64_t>(PA_VOLUME_NORM) * volume.percent / 100));
    return result;
}

}  // namespace

PulseStream::PulseStream(PulseServer& server, std::shared_ptr<PlaybackTrack> pTrack)
    : mServer(server),
      mpTrack(std::move(pTrack)),
      mRate(mpTrack->sampleRate()),
      mRateControl(mpTrack->sampleRate()) {
    const PulseServer::Lock lock(mServer);
    mServer.attach(this);
}

PulseStream::~PulseStream() {
    const PulseServer::Lock lock(mServer);
    disconnect();
    mServer.detach(this);
}

void PulseStream::start() {
    const PulseServer::Lock lock(mServer);
    mIsWanted = true;
    connect();
}

void PulseStream::stop() {
    const PulseServer::Lock lock(mServer);
    mIsWanted = false;
    disconnect();
    mServer.onStreamChanged();
}

void PulseStream::flush() {
    const PulseServer::Lock lock(mServer);
    if (isPlaying()) {
        PulseServer::forget(pa_stream_flush(mpStream, nullptr, nullptr));
    }
}

void PulseStream::connect() {
    pa_context* const pContext = mServer.context();
    if (mpStream != nullptr && !PA_STREAM_IS_GOOD(pa_stream_get_state(mpStream))) {
        disconnect();
    }
    if (!mIsWanted || pContext == nullptr || mpStream != nullptr) {
        return;
    }
    const pa_sample_spec spec = {PA_SAMPLE_S16NE, mpTrack->sampleRate(),
                                 static_cast<uint8_t>(mpTrack->channelCount())};
    const pa_channel_map map = channelMap(mpTrack->channelMask());
    pa_proplist* const pProperties = pa_proplist_new();
    pa_proplist_sets(pProperties, PA_PROP_MEDIA_ROLE, "video");
    mpStream = pa_stream_new_with_proplist(pContext, "Television", &spec, &map, pProperties);
    pa_proplist_free(pProperties);
    if (mpStream == nullptr) {
        HOST_LOGE("%s: no stream: %s", __func__, pa_strerror(pa_context_errno(pContext)));
        return;
    }
    mIsTimed = false;
    mIsAligned = false;
    mIsMoved = false;
    mFills = 0;
    mRate = mpTrack->sampleRate();
    pa_stream_set_state_callback(mpStream, onState, this);
    pa_stream_set_write_callback(mpStream, onWritable, this);
    pa_stream_set_moved_callback(mpStream, onMoved, this);
    const int64_t bufferNs = std::min(SERVER_BUFFER_NS, mpTrack->nominalLatencyNs() / 2);
    pa_buffer_attr buffer;
    buffer.maxlength = UINT32_MAX;
    buffer.tlength = static_cast<uint32_t>(
        pa_usec_to_bytes(static_cast<pa_usec_t>(bufferNs / NS_PER_US), &spec));
    buffer.minreq = static_cast<uint32_t>(pa_usec_to_bytes(
        static_cast<pa_usec_t>(bufferNs / NS_PER_US / REQUESTS_PER_BUFFER), &spec));
    buffer.prebuf = buffer.minreq;  // after an underrun of the server it waits only for this
    buffer.fragsize = UINT32_MAX;
    // Its volume is the server's to remember until one is chosen, and then that from the first
    // sample on.
    const auto chosen = masterVolume();
    const pa_cvolume volume = serverVolume(chosen.value_or(MasterVolume()), map.channels);
    const unsigned muting = !chosen.has_value() ? 0
                            : chosen->isMuted   ? PA_STREAM_START_MUTED
                                                : PA_STREAM_START_UNMUTED;
    const auto flags =
        static_cast<pa_stream_flags_t>(PA_STREAM_INTERPOLATE_TIMING | PA_STREAM_AUTO_TIMING_UPDATE |
                                       PA_STREAM_ADJUST_LATENCY | PA_STREAM_VARIABLE_RATE | muting);
    if (pa_stream_connect_playback(mpStream, nullptr, &buffer, flags,
                                   chosen.has_value() ? &volume : nullptr, nullptr) < 0) {
        HOST_LOGE("%s: stream refused: %s", __func__, pa_strerror(pa_context_errno(pContext)));
        disconnect();
    }
}

void PulseStream::disconnect() {
    if (mpStream == nullptr) {
        return;
    }
    dropTimingRequest();
    pa_stream_set_state_callback(mpStream, nullptr, nullptr);
    pa_stream_set_write_callback(mpStream, nullptr, nullptr);
    pa_stream_set_moved_callback(mpStream, nullptr, nullptr);
    pa_stream_disconnect(mpStream);
    pa_stream_unref(mpStream);
    mpStream = nullptr;
    forgetDevice();
}

void PulseStream::forgetDevice() {
    mpTrack->setDeviceLatency(0);
    mpTrack->setBluetooth(false);
}

bool PulseStream::isPlaying() const {
    return mpStream != nullptr && pa_stream_get_state(mpStream) == PA_STREAM_READY;
}

uint32_t PulseStream::sinkIndex() const {
    return isPlaying() ? pa_stream_get_device_index(mpStream) : PA_INVALID_INDEX;
}

uint32_t PulseStream::streamIndex() const {
    return isPlaying() ? pa_stream_get_index(mpStream) : PA_INVALID_INDEX;
}

void PulseStream::onDeviceChanged(audio_devices_t device) {
    mpTrack->setBluetooth(isBluetooth(device));
}

void PulseStream::applyVolume() {
    const auto chosen = masterVolume();
    if (!chosen.has_value() || !isPlaying()) {
        return;
    }
    const pa_cvolume volume = serverVolume(*chosen, pa_stream_get_sample_spec(mpStream)->channels);
    pa_context* const pContext = mServer.context();
    PulseServer::forget(
        pa_context_set_sink_input_volume(pContext, streamIndex(), &volume, nullptr, nullptr));
    PulseServer::forget(pa_context_set_sink_input_mute(pContext, streamIndex(),
                                                       chosen->isMuted ? 1 : 0, nullptr, nullptr));
}

void PulseStream::onState(pa_stream* pStream, void* pSelf) {
    auto* const pThis = static_cast<PulseStream*>(pSelf);
    switch (pa_stream_get_state(pStream)) {
        case PA_STREAM_READY:
            pThis->askForTiming();
            pThis->applyVolume();  // it may have been changed meanwhile
            pThis->mServer.onStreamChanged();
            break;
        case PA_STREAM_FAILED:
        case PA_STREAM_TERMINATED:
            // Its output went away and the server found no other one, or the server is going.
            HOST_LOGW("%s: the sound server ended the stream: playing in silence", __func__);
            pThis->forgetDevice();
            break;
        default:
            break;
    }
}

void PulseStream::onMoved(pa_stream* /*pStream*/, void* pSelf) {
    auto* const pThis = static_cast<PulseStream*>(pSelf);
    pThis->mIsTimed = false;
    pThis->mIsAligned = false;
    pThis->mFills = 0;
    pThis->mServer.onStreamChanged();
}

void PulseStream::onWritable(pa_stream* pStream, size_t bytes, void* pSelf) {
    auto* const pThis = static_cast<PulseStream*>(pSelf);
    const size_t frameBytes = pThis->mpTrack->channelCount() * sizeof(int16_t);
    while (bytes >= frameBytes) {
        void* pBlock = nullptr;
        size_t blockBytes = bytes;
        if (pa_stream_begin_write(pStream, &pBlock, &blockBytes) < 0 || pBlock == nullptr) {
            return;
        }
        blockBytes -= blockBytes % frameBytes;
        if (blockBytes == 0) {
            pa_stream_cancel_write(pStream);
            return;
        }
        pThis->fill(static_cast<int16_t*>(pBlock), blockBytes / frameBytes);
        if (pa_stream_write(pStream, pBlock, blockBytes, nullptr, 0, PA_SEEK_RELATIVE) < 0) {
            return;
        }
        bytes -= std::min(bytes, blockBytes);
    }
    pThis->askForTiming();
}

void PulseStream::askForTiming() {
    if (mpTimingAsked == nullptr && isPlaying()) {
        mpTimingAsked = pa_stream_update_timing_info(mpStream, onTiming, this);
    }
}

void PulseStream::dropTimingRequest() {
    if (mpTimingAsked != nullptr) {
        pa_operation_cancel(mpTimingAsked);
        pa_operation_unref(mpTimingAsked);
        mpTimingAsked = nullptr;
    }
}

void PulseStream::onTiming(pa_stream* pStream, int isSuccess, void* pSelf) {
    auto* const pThis = static_cast<PulseStream*>(pSelf);
    PulseServer::forget(pThis->mpTimingAsked);
    pThis->mpTimingAsked = nullptr;
    const pa_timing_info* const pTiming = pa_stream_get_timing_info(pStream);
    if (isSuccess == 0 || pTiming == nullptr || pTiming->write_index_corrupt != 0 ||
        pTiming->read_index_corrupt != 0) {
        return;
    }
    // What the server holds, then what its output holds; the answer itself took some time to come.
    const auto frameBytes = static_cast<int64_t>(pThis->mpTrack->channelCount() * sizeof(int16_t));
    const int64_t queued = (pTiming->write_index - pTiming->read_index) / frameBytes;
    const int64_t nowNs = pThis->mpTrack->clock().nowNs();
    pThis->mNextHeardNs = nowNs + queued * NS_PER_SECOND / pThis->mpTrack->sampleRate() +
                          static_cast<int64_t>(pTiming->sink_usec) * NS_PER_US -
                          static_cast<int64_t>(pTiming->transport_usec) * NS_PER_US;
    pThis->mIsTimed = true;
    pThis->correct(nowNs);
    pThis->noteLatency();
}

void PulseStream::fill(int16_t* pPcm, size_t frames) {
    const PlaybackTrack::Position position = mpTrack->positionAt(mNextHeardNs);
    mIsAligned = mIsAligned && position.run == mRun;
    if (!mIsAligned && mIsTimed && position.isDue) {
        mIsAligned = true;
        mRun = position.run;
        mNextFrame = position.frame;
        mFarOffCount = 0;
        mRateControl.restart();
    }
    mNextHeardNs += static_cast<int64_t>(frames) * NS_PER_SECOND / mpTrack->sampleRate();
    if (!mIsAligned) {
        std::memset(pPcm, 0, frames * mpTrack->channelCount() * sizeof(int16_t));
        return;
    }
    mpTrack->read(mRun, mNextFrame, pPcm, frames);
    mNextFrame += static_cast<int64_t>(frames);
}

// With fresh news of when the next frame is heard: nudges the rate, or aligns anew with the next
// fill.
void PulseStream::correct(int64_t nowNs) {
    const PlaybackTrack::Position position = mpTrack->positionAt(mNextHeardNs);
    if (!mIsAligned || !position.isDue || position.run != mRun) {
        return;
    }
    if (mNextFrame <= 0) {
        mNextFrame = position.frame;  // still the silence before the first frame: free to move
        return;
    }
    const double aheadMs =
        static_cast<double>(mNextFrame - position.frame) * 1000 / mpTrack->sampleRate();
    mFarOffCount = std::abs(aheadMs) > FAR_OFF_MS ? mFarOffCount + 1 : 0;
    if (mFarOffCount >= FAR_OFF_TIMES) {
        HOST_LOGW("%s: sound was %.0f ms off its time", __func__, aheadMs);
        mIsAligned = false;
        return;
    }
    const uint32_t rate = mRateControl.update(nowNs, aheadMs);
    if (rate != mRate) {
        mRate = rate;
        PulseServer::forget(pa_stream_update_sample_rate(mpStream, rate, nullptr, nullptr));
    }
}

// The smallest of the last few: one late answer of the server is no reason to move all sound.
void PulseStream::noteLatency() {
    if (!isPlaying() || !mIsTimed) {
        return;
    }
    mLatenciesNs[mFills++ % mLatenciesNs.size()] = mNextHeardNs - mpTrack->clock().nowNs();
    const auto pEnd =
        mLatenciesNs.begin() + static_cast<std::ptrdiff_t>(std::min(mFills, mLatenciesNs.size()));
    mpTrack->setDeviceLatency(*std::min_element(mLatenciesNs.begin(), pEnd));
}

}  // namespace orvhost
