#include "mksample/AudioEncoder.h"

extern "C" {
#include <libavutil/channel_layout.h>
}

#include <algorithm>
#include <string>

namespace mksample {
namespace {

// Converts interleaved samples to what the encoder takes.
void store(const std::vector<int16_t>& samples, int count, AVFrame* frame) {
    switch (frame->format) {
        case AV_SAMPLE_FMT_S16:
            std::copy_n(samples.data(), static_cast<ptrdiff_t>(count) * kChannels,
                        reinterpret_cast<int16_t*>(frame->data[0]));
            break;
        case AV_SAMPLE_FMT_FLTP:
            for (int channel = 0; channel < kChannels; ++channel) {
                auto* out = reinterpret_cast<float*>(frame->data[channel]);
                for (int i = 0; i < count; ++i) {
                    out[i] = static_cast<float>(samples[i * kChannels + channel]) / 32768.0F;
                }
            }
            break;
        default:
            throw Failure("the audio encoder wants a sample format that is not supported");
    }
}

}  // namespace

AudioEncoder::AudioEncoder(const AudioSettings& settings)
    : mSettings(settings),
      mSound(settings.fps, kSampleRate, settings.silent, settings.pitch),
      mPacket(av_packet_alloc()) {
    const AVCodec* codec = nullptr;
    if (settings.coding == AudioCoding::MpegLayer2) {
        codec = avcodec_find_encoder(AV_CODEC_ID_MP2);
    } else {
        if (settings.coding == AudioCoding::AacForMobile) {
            codec = avcodec_find_encoder_by_name("libfdk_aac");
            mHighEfficiency = codec != nullptr;
        }
        if (codec == nullptr) {
            codec = avcodec_find_encoder_by_name("aac");
        }
    }
    if (codec == nullptr || codec->sample_fmts == nullptr) {
        throw Failure("libavcodec was built without the audio encoder that is needed");
    }
    open(codec);
}

void AudioEncoder::open(const AVCodec* codec) {
    mContext.reset(avcodec_alloc_context3(codec));
    if (!mContext || !mPacket) {
        throw Failure("out of memory");
    }
    AVCodecContext* context = mContext.get();
    context->sample_fmt = codec->sample_fmts[0];
    context->sample_rate = kSampleRate;
    context->ch_layout = AV_CHANNEL_LAYOUT_STEREO;
    context->time_base = {1, kSampleRate};
    context->bit_rate = mSettings.bitRate;
    context->profile = mHighEfficiency ? FF_PROFILE_AAC_HE : FF_PROFILE_UNKNOWN;
    // A global header keeps the encoder from framing the units itself; bit exactness keeps its
    // version out of them.
    context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER | AV_CODEC_FLAG_BITEXACT;
    const int error = avcodec_open2(context, codec, nullptr);
    if (error < 0) {
        throw Failure("the audio encoder refuses " + std::to_string(mSettings.bitRate) +
                      " bit/s: " + libavError(error));
    }
    if (context->frame_size <= 0) {
        throw Failure("the audio encoder has no fixed frame size");
    }
}

void AudioEncoder::sendNextSamples() {
    if (mSent >= mSettings.sampleCount) {
        mFlushed = true;
        avcodec_send_frame(mContext.get(), nullptr);
        return;
    }
    const FramePtr frame(av_frame_alloc());
    if (!frame) {
        throw Failure("out of memory");
    }
    const int count = mContext->frame_size;
    frame->format = mContext->sample_fmt;
    frame->ch_layout = AV_CHANNEL_LAYOUT_STEREO;
    frame->sample_rate = kSampleRate;
    frame->nb_samples = count;
    if (av_frame_get_buffer(frame.get(), 0) < 0) {
        throw Failure("out of memory");
    }
    std::vector<int16_t> samples(static_cast<size_t>(count) * kChannels);
    mSound.fill(mSent, count, samples.data());
    store(samples, count, frame.get());
    frame->pts = mSent;
    mSent += count;
    const int error = avcodec_send_frame(mContext.get(), frame.get());
    if (error < 0) {
        throw Failure("audio encoding failed: " + libavError(error));
    }
}

bool AudioEncoder::next(AudioUnit* unit) {
    if (!receivePacket(mContext.get(), mPacket.get(), mFlushed, "audio",
                       [this] { sendNextSamples(); })) {
        return false;
    }
    unit->bytes.assign(mPacket->data, mPacket->data + mPacket->size);
    unit->positionSamples = mPacket->pts;
    av_packet_unref(mPacket.get());
    return true;
}

}  // namespace mksample
