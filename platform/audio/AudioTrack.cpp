#include <media/AudioTrack.h>

#include <bit>

#include "audio/AudioOutput.h"
#include "audio/AudioSession.h"
#include "audio/PlaybackTrack.h"
#include "audio/PulseServer.h"
#include "audio/PulseStream.h"

namespace android {
namespace {

constexpr uint32_t MIN_SAMPLE_RATE = 4000;
constexpr uint32_t MAX_SAMPLE_RATE = 192000;
constexpr audio_channel_mask_t ALL_CHANNELS = 0x7FF;

bool isPlayable(uint32_t sampleRate, audio_format_t format, audio_channel_mask_t mask) {
    const bool isRate = sampleRate >= MIN_SAMPLE_RATE && sampleRate <= MAX_SAMPLE_RATE;
    const bool isPcm16 = format == AUDIO_FORMAT_DEFAULT || format == AUDIO_FORMAT_PCM_16_BIT;
    const bool isMask = mask != 0 && (mask & ~ALL_CHANNELS) == 0 && std::popcount(mask) <= 8;
    return isRate && isPcm16 && isMask;
}

}  // namespace

AudioTrack::AudioTrack(audio_stream_type_t /*streamType*/, uint32_t sampleRate,
                       audio_format_t format, audio_channel_mask_t channelMask,
                       size_t /*frameCount*/, audio_output_flags_t /*flags*/, callback_t callback,
                       void* /*user*/, int32_t /*notificationFrames*/, audio_session_t sessionId,
                       transfer_type /*transferType*/, const audio_offload_info_t* offloadInfo,
                       uid_t /*uid*/, pid_t /*pid*/, const audio_attributes_t* /*attributes*/,
                       bool /*doNotReconnect*/, float /*maxRequiredSpeed*/)
    : mSessionId(sessionId == AUDIO_SESSION_ALLOCATE ? orvhost::newAudioSession() : sessionId) {
    if (callback != nullptr || offloadInfo != nullptr ||
        !isPlayable(sampleRate, format, channelMask)) {
        return;
    }
    mpTrack = std::make_shared<orvhost::PlaybackTrack>(sampleRate, channelMask, mSessionId);
    if (orvhost::audioOutput() != orvhost::AudioOutput::SILENT) {
        mpStream = std::make_unique<orvhost::PulseStream>(orvhost::PulseServer::shared(), mpTrack);
    }
}

AudioTrack::~AudioTrack() {
    stop();
}

status_t AudioTrack::initCheck() const {
    return mpTrack ? NO_ERROR : BAD_VALUE;
}

status_t AudioTrack::start() {
    if (!mpTrack) {
        return NO_INIT;
    }
    mpTrack->start();
    if (mpStream) {
        mpStream->start();
    }
    return NO_ERROR;
}

void AudioTrack::stop() {
    if (mpTrack) {
        mpTrack->stop();
        if (mpStream) {
            mpStream->stop();
        }
    }
}

void AudioTrack::flush() {
    if (mpTrack) {
        mpTrack->flush();
        if (mpStream) {
            mpStream->flush();
        }
    }
}

status_t AudioTrack::setVolume(float left, float right) {
    if (!mpTrack) {
        return NO_INIT;
    }
    if (!(left >= 0.0F && left <= 1.0F && right >= 0.0F && right <= 1.0F)) {
        return BAD_VALUE;
    }
    mpTrack->setVolume(left, right);
    return NO_ERROR;
}

ssize_t AudioTrack::write(const void* buffer, size_t size, bool blocking) {
    if (!mpTrack) {
        return NO_INIT;
    }
    if ((buffer == nullptr && size > 0) || static_cast<ssize_t>(size) < 0) {
        return BAD_VALUE;
    }
    return mpTrack->write(buffer, size, blocking);
}

audio_session_t AudioTrack::getSessionId() const {
    return mSessionId;
}

}  // namespace android
