// Owning handles for the objects of libavcodec, and its errors as text.

#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libavutil/opt.h>
}

#include <memory>
#include <string>

#include "mksample/Options.h"

namespace mksample {

struct LibavDeleter {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

using CodecContextPtr = std::unique_ptr<AVCodecContext, LibavDeleter>;
using FramePtr = std::unique_ptr<AVFrame, LibavDeleter>;
using PacketPtr = std::unique_ptr<AVPacket, LibavDeleter>;

inline std::string libavError(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof(text));
    return text;
}

// Takes the next packet of an encoder, giving it input by sendNext() for as long as it wants some
// and `flushed` is not set. False at the end of the stream; throws a Failure, as of `kind`.
template <typename SendNext>
bool receivePacket(AVCodecContext* encoder, AVPacket* packet, const bool& flushed, const char* kind,
                   SendNext sendNext) {
    int result = AVERROR(EAGAIN);
    while ((result = avcodec_receive_packet(encoder, packet)) == AVERROR(EAGAIN) && !flushed) {
        sendNext();
    }
    if (result < 0 && result != AVERROR_EOF) {
        throw Failure(std::string(kind) + " encoding failed: " + libavError(result));
    }
    return result != AVERROR_EOF;
}

}  // namespace mksample
