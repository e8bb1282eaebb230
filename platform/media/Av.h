#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/pixdesc.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <memory>
#include <span>

// Owners of the libraries' objects.
namespace orvhost {

struct AvDeleter {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(SwrContext* context) const { swr_free(&context); }
    void operator()(SwsContext* context) const { sws_freeContext(context); }
};

using AvContext = std::unique_ptr<AVCodecContext, AvDeleter>;
using AvFrame = std::unique_ptr<AVFrame, AvDeleter>;
using AvPacket = std::unique_ptr<AVPacket, AvDeleter>;
using Resampler = std::unique_ptr<SwrContext, AvDeleter>;
using Scaler = std::unique_ptr<SwsContext, AvDeleter>;

// Times of packets and frames on both sides of a decoder.
constexpr AVRational MICROSECONDS = {1, 1000000};

// Sends the libraries' own messages to the trace, at the level that is off unless asked for: a
// damaged stream makes thousands of them. Any number of calls, from any thread.
void routeLibraryMessages();

// A decoder with our time base, not opened yet; null without memory or without such a decoder.
AvContext makeDecoder(AVCodecID codec);

// Replaces the configuration bytes of a context that is not opened yet. False without memory.
bool setExtradata(AVCodecContext* context, std::span<const uint8_t> bytes);

}  // namespace orvhost
