#include "media/AudioDecoder.h"

#include <cstring>

namespace orvhost {

StreamDecoder::Status AudioDecoder::open(std::span<const uint8_t> configuration) {
    mContext = makeDecoder(mCodec);
    mBlock.reset(av_frame_alloc());
    if (mContext == nullptr || mBlock == nullptr || !setExtradata(mContext.get(), configuration)) {
        mContext.reset();
        return Status::Failed;
    }
    mContext->request_sample_fmt = AV_SAMPLE_FMT_S16;
    const int result = avcodec_open2(mContext.get(), nullptr, nullptr);
    if (result < 0) {
        mContext.reset();
        return result == AVERROR(ENOMEM) || configuration.empty() ? Status::Failed
                                                                  : Status::Damaged;
    }
    return Status::Ok;
}

StreamDecoder::Status AudioDecoder::feed(AVPacket* packet) {
    if (mContext == nullptr) {
        return Status::Damaged;
    }
    const int result = avcodec_send_packet(mContext.get(), packet);
    if (result == AVERROR(ENOMEM)) {
        return Status::Failed;
    }
    return result < 0 ? Status::Damaged : Status::Ok;
}

StreamDecoder::Status AudioDecoder::take(DecodedOutput& output) {
    if (mContext == nullptr) {
        return Status::Again;
    }
    const int result = avcodec_receive_frame(mContext.get(), mBlock.get());
    if (result == AVERROR_EOF) {
        avcodec_flush_buffers(mContext.get());
        return Status::EndOfStream;
    }
    if (result == AVERROR(EAGAIN)) {
        return Status::Again;
    }
    if (result < 0) {
        return result == AVERROR(ENOMEM) ? Status::Failed : Status::Damaged;
    }
    if (mBlock->sample_rate <= 0 || mBlock->ch_layout.nb_channels <= 0) {
        return Status::Damaged;
    }
    if (!prepareConversion()) {
        return Status::Failed;
    }
    // A unit of several blocks has one time: the later blocks follow the first.
    if (mBlock->pts != AV_NOPTS_VALUE) {
        mNextTimeUs = mBlock->pts;
    }
    output.timeUs = mNextTimeUs;
    mNextTimeUs += av_rescale(mBlock->nb_samples, 1000000, mBlock->sample_rate);
    output.format = mConverted;
    output.pcmBytes = static_cast<size_t>(mBlock->nb_samples) *
                      static_cast<size_t>(mConverted.channels) * sizeof(int16_t);
    return Status::Ok;
}

bool AudioDecoder::prepareConversion() {
    const StreamFormat format = {.sampleRate = mBlock->sample_rate,
                                 .channels = mBlock->ch_layout.nb_channels};
    if (format == mConverted && mBlock->format == mConvertedSampleFormat) {
        return true;
    }
    mConverter.reset();
    if (mBlock->format != AV_SAMPLE_FMT_S16) {
        // Only the sample format is converted. Giving both sides the same plain layout keeps the
        // channels as they are, also where the stream's own layout has no name.
        AVChannelLayout layout = {};
        av_channel_layout_default(&layout, format.channels);
        SwrContext* converter = nullptr;
        const int result = swr_alloc_set_opts2(
            &converter, &layout, AV_SAMPLE_FMT_S16, format.sampleRate, &layout,
            static_cast<AVSampleFormat>(mBlock->format), format.sampleRate, 0, nullptr);
        av_channel_layout_uninit(&layout);
        mConverter.reset(converter);
        if (result < 0 || swr_init(converter) < 0) {
            mConverted = {};
            return false;
        }
    }
    mConverted = format;
    mConvertedSampleFormat = mBlock->format;
    return true;
}

void AudioDecoder::writePcm(uint8_t* out) {
    if (mConverter == nullptr) {
        memcpy(out, mBlock->data[0],
               static_cast<size_t>(mBlock->nb_samples) * static_cast<size_t>(mConverted.channels) *
                   sizeof(int16_t));
        return;
    }
    const auto** planes = const_cast<const uint8_t**>(mBlock->extended_data);
    swr_convert(mConverter.get(), &out, mBlock->nb_samples, planes, mBlock->nb_samples);
}

}  // namespace orvhost
