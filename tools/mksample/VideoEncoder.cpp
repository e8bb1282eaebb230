#include "mksample/VideoEncoder.h"

#include <algorithm>
#include <string>

namespace mksample {
namespace {

constexpr uint8_t kNalSei = 6;
constexpr uint8_t kSeiUserDataUnregistered = 5;

// Offset of the next start code (00 00 01) at or after from, its size at the end of the data.
size_t findStartCode(const uint8_t* data, size_t size, size_t from) {
    for (size_t i = from; i + 3 <= size; ++i) {
        if (data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 1) {
            return i;
        }
    }
    return size;
}

// Copies an access unit without the encoder's description of itself, which no broadcast carries
// and which would tie the bytes to the encoder's build.
std::vector<uint8_t> withoutUserData(const uint8_t* data, size_t size) {
    std::vector<uint8_t> kept;
    kept.reserve(size);
    size_t at = findStartCode(data, size, 0);
    kept.insert(kept.end(), data, data + at);
    while (at < size) {
        const size_t end = findStartCode(data, size, at + 3);
        const bool drop = at + 4 < size && (data[at + 3] & 0x1F) == kNalSei &&
                          data[at + 4] == kSeiUserDataUnregistered;
        if (!drop) {
            kept.insert(kept.end(), data + at, data + end);
        }
        at = end;
    }
    return kept;
}

std::string x264Params(const VideoSettings& settings) {
    const std::string gop = std::to_string(settings.gop);
    std::string params = "aud=1:pic-struct=1:force-cfr=1:repeat-headers=1:open-gop=0:scenecut=0";
    params += ":keyint=" + gop + ":min-keyint=" + gop;
    params += ":b-adapt=0:b-pyramid=none:rc-lookahead=0:sync-lookahead=0:mbtree=0:sliced-threads=0";
    params += settings.highProfile ? ":cabac=1:8x8dct=1:bframes=2" : ":cabac=0:8x8dct=0:bframes=0";
    if (settings.interlaced) {
        params += ":tff=1";
    }
    if (settings.hrd) {
        params += ":nal-hrd=vbr";
    }
    return params;
}

AVRational sampleAspect(const VideoSettings& settings) {
    // 1440x1080 is the one broadcast format here that is not sent with square pixels.
    return settings.width == 1440 && settings.height == 1080 ? AVRational{4, 3} : AVRational{1, 1};
}

}  // namespace

VideoEncoder::VideoEncoder(const VideoSettings& settings)
    : mSettings(settings),
      mPicture(settings.width, settings.height, settings.interlaced, settings.fps.nominal()),
      mPacket(av_packet_alloc()) {
    const AVCodec* codec = avcodec_find_encoder_by_name("libx264");
    if (codec == nullptr) {
        throw Failure("libavcodec was built without libx264");
    }
    mContext.reset(avcodec_alloc_context3(codec));
    if (!mContext || !mPacket) {
        throw Failure("out of memory");
    }
    AVCodecContext* context = mContext.get();
    context->width = settings.width;
    context->height = settings.height;
    context->pix_fmt = AV_PIX_FMT_YUV420P;
    context->time_base = {settings.fps.den, settings.fps.num};
    context->framerate = {settings.fps.num, settings.fps.den};
    context->sample_aspect_ratio = sampleAspect(settings);
    context->color_range = AVCOL_RANGE_MPEG;
    context->color_primaries = AVCOL_PRI_BT709;
    context->color_trc = AVCOL_TRC_BT709;
    context->colorspace = AVCOL_SPC_BT709;
    context->bit_rate = settings.bitRate;
    context->rc_max_rate = settings.bitRate;
    // Half a second: an access unit of that size still arrives within the lead over the clock.
    context->rc_buffer_size = static_cast<int>(settings.bitRate / 2);
    context->thread_count = 1;
    context->flags |= AV_CODEC_FLAG_CLOSED_GOP | AV_CODEC_FLAG_BITEXACT;
    if (settings.interlaced) {
        context->flags |= AV_CODEC_FLAG_INTERLACED_DCT | AV_CODEC_FLAG_INTERLACED_ME;
        context->field_order = AV_FIELD_TT;
    }
    av_opt_set(context->priv_data, "preset", "ultrafast", 0);
    av_opt_set(context->priv_data, "profile", settings.highProfile ? "high" : "baseline", 0);
    av_opt_set(context->priv_data, "x264-params", x264Params(settings).c_str(), 0);
    const int error = avcodec_open2(context, codec, nullptr);
    if (error < 0) {
        throw Failure("the video encoder refuses the settings: " + libavError(error));
    }
}

void VideoEncoder::sendNextPicture() {
    if (mSent >= mSettings.frameCount) {
        mFlushed = true;
        avcodec_send_frame(mContext.get(), nullptr);
        return;
    }
    const FramePtr frame(av_frame_alloc());
    if (!frame) {
        throw Failure("out of memory");
    }
    frame->format = AV_PIX_FMT_YUV420P;
    frame->width = mSettings.width;
    frame->height = mSettings.height;
    if (av_frame_get_buffer(frame.get(), 0) < 0) {
        throw Failure("out of memory");
    }
    mPicture.draw(static_cast<uint32_t>(mSent),
                  {{frame->data[0], frame->data[1], frame->data[2]},
                   {frame->linesize[0], frame->linesize[1], frame->linesize[2]}});
    frame->interlaced_frame = mSettings.interlaced ? 1 : 0;
    frame->top_field_first = mSettings.interlaced ? 1 : 0;
    frame->pts = mSent++;
    const int error = avcodec_send_frame(mContext.get(), frame.get());
    if (error < 0) {
        throw Failure("video encoding failed: " + libavError(error));
    }
}

bool VideoEncoder::next(VideoUnit* unit) {
    if (!receivePacket(mContext.get(), mPacket.get(), mFlushed, "video",
                       [this] { sendNextPicture(); })) {
        return false;
    }
    unit->bytes = withoutUserData(mPacket->data, static_cast<size_t>(mPacket->size));
    unit->ptsFrames = mPacket->pts;
    unit->dtsFrames = mPacket->dts;
    unit->idr = (mPacket->flags & AV_PKT_FLAG_KEY) != 0;
    av_packet_unref(mPacket.get());
    return true;
}

}  // namespace mksample
