#include "support/TestStreams.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "media/Av.h"
#include "support/AacFrames.h"
extern "C" {
#include <libavutil/opt.h>
}

namespace orvtest {

using orvhost::AvContext;
using orvhost::AvFrame;
using orvhost::AvPacket;

namespace {

AvContext makeEncoder(const std::string& name) {
    const AVCodec* encoder = avcodec_find_encoder_by_name(name.c_str());
    EXPECT_NE(encoder, nullptr) << name;
    return AvContext(avcodec_alloc_context3(encoder));
}

void collect(AVCodecContext* context, const AVFrame* frame, Stream* stream) {
    ASSERT_EQ(avcodec_send_frame(context, frame), 0);
    AvPacket packet(av_packet_alloc());
    while (avcodec_receive_packet(context, packet.get()) == 0) {
        const int64_t timeUs = av_rescale_q(packet->pts, context->time_base, orvhost::MICROSECONDS);
        stream->units.push_back({{packet->data, packet->data + packet->size}, timeUs});
        av_packet_unref(packet.get());
    }
}

void fillTone(AVFrame* frame, int firstSample) {
    const bool planar = av_sample_fmt_is_planar(static_cast<AVSampleFormat>(frame->format)) != 0;
    const bool real = frame->format == AV_SAMPLE_FMT_FLTP;
    const int channels = frame->ch_layout.nb_channels;
    for (int i = 0; i < frame->nb_samples; ++i) {
        const double value =
            0.5 * std::sin(2 * M_PI * 440 * (firstSample + i) / frame->sample_rate);
        for (int channel = 0; channel < channels; ++channel) {
            uint8_t* plane = frame->extended_data[planar ? channel : 0];
            const int at = planar ? i : i * channels + channel;
            if (real) {
                reinterpret_cast<float*>(plane)[at] = static_cast<float>(value);
            } else {
                reinterpret_cast<int16_t*>(plane)[at] = static_cast<int16_t>(value * 32767);
            }
        }
    }
}

}  // namespace

std::vector<int64_t> Stream::timesInOrder() const {
    std::vector<int64_t> times;
    for (const Unit& unit : units) {
        times.push_back(unit.timeUs);
    }
    std::ranges::sort(times);
    return times;
}

Stream Stream::delayed(int64_t byUs) const {
    Stream later = *this;
    for (Unit& unit : later.units) {
        unit.timeUs += byUs;
    }
    return later;
}

int lumaOfFrame(int frame) {
    return 32 + (frame * 4) % 192;
}

Stream encodeVideo(const VideoOptions& options) {
    AvContext context = makeEncoder("libx264");
    context->width = options.width;
    context->height = options.height;
    context->pix_fmt = AV_PIX_FMT_YUV420P;
    context->time_base = {static_cast<int>(FRAME_US), 1000000};
    context->framerate = {30000, 1001};
    context->gop_size = GROUP_FRAMES;
    context->sample_aspect_ratio = {4, 3};
    context->colorspace = AVCOL_SPC_BT709;
    if (options.interlaced) {
        context->flags |= AV_CODEC_FLAG_INTERLACED_DCT;
    }
    av_opt_set(context->priv_data, "preset", "ultrafast", 0);
    av_opt_set(context->priv_data, "x264-params", ("threads=1:scenecut=0:" + options.x264).c_str(),
               0);
    Stream stream;
    if (avcodec_open2(context.get(), nullptr, nullptr) != 0) {
        ADD_FAILURE() << "no encoder for " << options.x264;
        return stream;
    }
    uint32_t noise = 1;
    for (int number = 0; number < options.frames; ++number) {
        AvFrame frame(av_frame_alloc());
        frame->width = options.width;
        frame->height = options.height;
        frame->format = AV_PIX_FMT_YUV420P;
        frame->interlaced_frame = options.interlaced ? 1 : 0;
        frame->top_field_first = options.interlaced ? 1 : 0;
        frame->pts = number;
        av_frame_get_buffer(frame.get(), 0);
        const int values[3] = {lumaOfFrame(number), 90, 160};
        for (int plane = 0; plane < 3; ++plane) {
            const int rows = plane == 0 ? options.height : (options.height + 1) / 2;
            const auto bytes =
                static_cast<size_t>(frame->linesize[plane]) * static_cast<size_t>(rows);
            memset(frame->data[plane], values[plane], bytes);
            for (size_t i = 0; options.noise && i < bytes; ++i) {
                noise = noise * 1664525 + 1013904223;
                frame->data[plane][i] = static_cast<uint8_t>((noise >> 27) + i % 97);
            }
        }
        collect(context.get(), frame.get(), &stream);
    }
    collect(context.get(), nullptr, &stream);
    return stream;
}

Stream encodeAudio(const AudioOptions& options) {
    AvContext context = makeEncoder(options.encoder);
    context->sample_rate = options.sampleRate;
    context->bit_rate = 64000 * options.channels;
    context->time_base = {1, options.sampleRate};
    av_channel_layout_default(&context->ch_layout, options.channels);
    const AVSampleFormat* formats = context->codec->sample_fmts;
    context->sample_fmt = formats[0];
    for (; *formats != AV_SAMPLE_FMT_NONE; ++formats) {
        if (*formats == AV_SAMPLE_FMT_FLTP) {
            context->sample_fmt = *formats;
        }
    }
    context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    Stream stream;
    if (avcodec_open2(context.get(), nullptr, nullptr) != 0) {
        ADD_FAILURE() << "no encoder " << options.encoder;
        return stream;
    }
    if (options.encoder == "aac") {
        stream.configuration.assign(context->extradata,
                                    context->extradata + context->extradata_size);
    }
    for (int block = 0; block < options.blocks; ++block) {
        AvFrame frame(av_frame_alloc());
        frame->nb_samples = context->frame_size;
        frame->sample_rate = options.sampleRate;
        frame->format = context->sample_fmt;
        av_channel_layout_copy(&frame->ch_layout, &context->ch_layout);
        frame->pts = int64_t{block} * context->frame_size;
        av_frame_get_buffer(frame.get(), 0);
        fillTone(frame.get(), block * context->frame_size);
        collect(context.get(), frame.get(), &stream);
    }
    collect(context.get(), nullptr, &stream);
    return stream;
}

Stream framedAsAdts(const Stream& aac) {
    Stream framed;
    for (const Unit& unit : aac.units) {
        framed.units.push_back({Adts().frame({unit.bytes}), unit.timeUs});
    }
    return framed;
}

}  // namespace orvtest
