#include "tools/SampleDecoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <atomic>
#include <cmath>
#include <memory>
#include <stdexcept>

#include "pattern/TestPattern.h"

namespace orvtest {
namespace {

std::atomic<int> errorMessages{0};

void countErrors(void* /*context*/, int level, const char* /*format*/, va_list /*arguments*/) {
    if (level <= AV_LOG_ERROR) {
        ++errorMessages;
    }
}

struct Deleter {
    void operator()(AVFormatContext* input) const { avformat_close_input(&input); }
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
template <typename T>
using Owned = std::unique_ptr<T, Deleter>;

Owned<AVFormatContext> openFile(const std::string& path) {
    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, path.c_str(), nullptr, nullptr) < 0) {
        throw std::runtime_error("cannot open " + path);
    }
    Owned<AVFormatContext> input(raw);
    if (avformat_find_stream_info(raw, nullptr) < 0) {
        throw std::runtime_error("no streams in " + path);
    }
    return input;
}

AVStream* findStream(AVFormatContext* input, int serviceId, AVMediaType type) {
    for (unsigned p = 0; p < input->nb_programs; ++p) {
        const AVProgram* program = input->programs[p];
        for (unsigned i = 0; program->id == serviceId && i < program->nb_stream_indexes; ++i) {
            AVStream* stream = input->streams[program->stream_index[i]];
            if (stream->codecpar->codec_type == type) {
                return stream;
            }
        }
    }
    throw std::runtime_error("the service has no such stream");
}

Owned<AVCodecContext> openDecoder(const AVStream* stream) {
    const AVCodec* codec = avcodec_find_decoder(stream->codecpar->codec_id);
    Owned<AVCodecContext> context(avcodec_alloc_context3(codec));
    avcodec_parameters_to_context(context.get(), stream->codecpar);
    context->pkt_timebase = stream->time_base;
    context->thread_count = 1;
    if (codec == nullptr || avcodec_open2(context.get(), codec, nullptr) < 0) {
        throw std::runtime_error("no decoder");
    }
    return context;
}

int64_t toUs(int64_t pts, const AVStream* stream) {
    return av_rescale_q(pts, stream->time_base, {1, 1'000'000});
}

// The first channel as 16-bit samples, whatever the decoder gives.
std::vector<int16_t> firstChannel(const AVFrame* frame) {
    std::vector<int16_t> samples;
    const int step = av_sample_fmt_is_planar(static_cast<AVSampleFormat>(frame->format)) != 0
                         ? 1
                         : frame->ch_layout.nb_channels;
    for (int i = 0; i < frame->nb_samples; ++i) {
        switch (frame->format) {
            case AV_SAMPLE_FMT_FLT:
            case AV_SAMPLE_FMT_FLTP: {
                const float value = reinterpret_cast<const float*>(frame->data[0])[i * step];
                samples.push_back(static_cast<int16_t>(std::lround(value * 32767.0F)));
                break;
            }
            case AV_SAMPLE_FMT_S16:
            case AV_SAMPLE_FMT_S16P:
                samples.push_back(reinterpret_cast<const int16_t*>(frame->data[0])[i * step]);
                break;
            default:
                throw std::runtime_error("unexpected sample format");
        }
    }
    return samples;
}

template <typename TakeFrame>
void decode(AVCodecContext* context, const AVPacket* packet, DecodedService* out,
            const TakeFrame& take) {
    if (avcodec_send_packet(context, packet) < 0) {
        ++out->errors;
        return;
    }
    const Owned<AVFrame> frame(av_frame_alloc());
    while (avcodec_receive_frame(context, frame.get()) >= 0) {
        take(frame.get());
    }
}

}  // namespace

DecodedService decodeService(const std::string& path, int serviceId,
                             const std::function<void(const DecodedFrame&, const AVFrame&)>& look) {
    errorMessages = 0;
    av_log_set_callback(countErrors);
    DecodedService out;
    const auto input = openFile(path);
    const AVStream* video = findStream(input.get(), serviceId, AVMEDIA_TYPE_VIDEO);
    const AVStream* audio = findStream(input.get(), serviceId, AVMEDIA_TYPE_AUDIO);
    const auto videoDecoder = openDecoder(video);
    const auto audioDecoder = openDecoder(audio);
    out.audioCodec = avcodec_get_name(audio->codecpar->codec_id);

    const auto takePicture = [&](const AVFrame* frame) {
        DecodedFrame picture;
        picture.number =
            readFrameNumber(frame->data[0], frame->linesize[0], frame->width, frame->height);
        picture.flash = isFlash(frame->data[0], frame->linesize[0], frame->width, frame->height);
        picture.interlaced = frame->interlaced_frame != 0 && frame->top_field_first != 0;
        picture.ptsUs = toUs(frame->pts, video);
        out.frames.push_back(picture);
        if (look) {
            look(picture, *frame);
        }
    };
    std::optional<BeepDetector> detector;
    const auto takeSound = [&](const AVFrame* frame) {
        if (!detector) {
            detector.emplace(frame->sample_rate, 1);
        }
        const auto samples = firstChannel(frame);
        out.audioSamples += frame->nb_samples;
        for (const int64_t onset :
             detector->feed(samples.data(), samples.size(), toUs(frame->pts, audio))) {
            out.beepsUs.push_back(onset);
        }
    };

    const Owned<AVPacket> packet(av_packet_alloc());
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        if (packet->stream_index == video->index) {
            decode(videoDecoder.get(), packet.get(), &out, takePicture);
        } else if (packet->stream_index == audio->index) {
            decode(audioDecoder.get(), packet.get(), &out, takeSound);
        }
        av_packet_unref(packet.get());
    }
    decode(videoDecoder.get(), nullptr, &out, takePicture);
    decode(audioDecoder.get(), nullptr, &out, takeSound);
    out.errors += errorMessages;
    return out;
}

}  // namespace orvtest
