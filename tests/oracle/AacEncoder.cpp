#include "oracle/AacEncoder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "media/Av.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
}

namespace orvtest {

namespace {

using orvhost::AvContext;
using orvhost::AvFrame;
using orvhost::AvPacket;

constexpr int BLOCKS = 100;

AvContext openEncoder(const AacFormat& format) {
    av_log_set_level(AV_LOG_ERROR);
    const AVCodec* codec = avcodec_find_encoder_by_name("aac");
    AvContext context(avcodec_alloc_context3(codec));
    context->sample_rate = format.sampleRate;
    context->sample_fmt = AV_SAMPLE_FMT_FLTP;
    context->bit_rate = 64000 * format.channels;
    context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    av_channel_layout_default(&context->ch_layout, format.channels);
    av_opt_set_int(context->priv_data, "aac_pce", format.programConfig, 0);
    EXPECT_EQ(avcodec_open2(context.get(), codec, nullptr), 0);
    return context;
}

// Frames of the muxer, in memory.
class Muxer {
public:
    Muxer(const AacFormat& format, const AVCodecContext* encoder) {
        EXPECT_GE(avformat_alloc_output_context2(&mContext, nullptr, format.muxer, nullptr), 0);
        AVStream* stream = avformat_new_stream(mContext, nullptr);
        avcodec_parameters_from_context(stream->codecpar, encoder);
        stream->time_base = {1, format.sampleRate};
        EXPECT_EQ(avio_open_dyn_buf(&mContext->pb), 0);
        AVDictionary* options = nullptr;
        if (format.muxerOption != nullptr) {
            av_dict_set(&options, format.muxerOption, format.muxerValue, 0);
        }
        EXPECT_GE(avformat_write_header(mContext, &options), 0);
        av_dict_free(&options);
    }
    Muxer(const Muxer&) = delete;
    ~Muxer() { avformat_free_context(mContext); }

    void write(AVPacket* packet) { EXPECT_EQ(av_write_frame(mContext, packet), 0); }

    Bytes finish() {
        av_write_trailer(mContext);
        uint8_t* buffer = nullptr;
        const int size = avio_close_dyn_buf(mContext->pb, &buffer);
        const Bytes framed(buffer, buffer + size);
        av_free(buffer);
        return framed;
    }

private:
    AVFormatContext* mContext = nullptr;
};

AvFrame makeBlock(const AVCodecContext* encoder, int number) {
    AvFrame frame(av_frame_alloc());
    frame->nb_samples = encoder->frame_size;
    frame->format = encoder->sample_fmt;
    frame->sample_rate = encoder->sample_rate;
    frame->pts = int64_t{number} * encoder->frame_size;
    av_channel_layout_copy(&frame->ch_layout, &encoder->ch_layout);
    av_frame_get_buffer(frame.get(), 0);
    for (int channel = 0; channel < encoder->ch_layout.nb_channels; channel++) {
        auto* samples = reinterpret_cast<float*>(frame->extended_data[channel]);
        for (int i = 0; i < frame->nb_samples; i++) {
            const auto t = static_cast<double>(frame->pts + i);
            samples[i] = static_cast<float>(0.4 * std::sin(t * t * 1e-7 * (channel + 1)) +
                                            0.1 * std::sin(t * t * t));
        }
    }
    return frame;
}

}  // namespace

EncodedAac encodeAac(const AacFormat& format) {
    const AvContext encoder = openEncoder(format);
    Muxer muxer(format, encoder.get());
    EncodedAac encoded;
    for (int number = 0; number <= BLOCKS; number++) {
        const AvFrame frame = number < BLOCKS ? makeBlock(encoder.get(), number) : nullptr;
        EXPECT_EQ(avcodec_send_frame(encoder.get(), frame.get()), 0);
        AvPacket packet(av_packet_alloc());
        while (avcodec_receive_packet(encoder.get(), packet.get()) == 0) {
            encoded.units.emplace_back(packet->data, packet->data + packet->size);
            muxer.write(packet.get());
            av_packet_unref(packet.get());
        }
    }
    encoded.framed = muxer.finish();
    return encoded;
}

}  // namespace orvtest
