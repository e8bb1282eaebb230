#include "media/VideoDecoder.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "media/CodecStatistics.h"

namespace orvhost {

namespace {

// One thread decodes 1080i at 18 Mbit/s about three times as fast as it is shown. Two slice threads
// take 2 to 5 % more processor time for the same pictures (most where pictures are cut into
// slices), two frame threads 5 % and a picture of memory each.
constexpr int THREADS = 1;

// Frame size of the highest H.264 level that a broadcast uses (5.1: 36,864 macroblocks). A forged
// parameter set must not make us allocate more.
constexpr int64_t MAX_PIXELS = 36864 * 256;

// A stream refreshed bit by bit never has a picture that stands by itself: it starts anyway.
constexpr int MAX_HELD_BACK = 60;

// ITU-T H.264, table 7-1, nal_unit_type: slices and their partitions.
constexpr int FIRST_SLICE = 1;
constexpr int IDR_SLICE = 5;

}  // namespace

StreamDecoder::Status VideoDecoder::open(std::span<const uint8_t> configuration) {
    mContext = makeDecoder(AV_CODEC_ID_H264);
    if (mContext == nullptr || !setExtradata(mContext.get(), configuration)) {
        mContext.reset();
        return Status::Failed;
    }
    mContext->thread_count = THREADS;
    mContext->max_pixels = MAX_PIXELS;
    // Cropping exact to the sample, and pictures shown in spite of damage.
    mContext->flags |= AV_CODEC_FLAG_UNALIGNED | AV_CODEC_FLAG_OUTPUT_CORRUPT;
    // Without this the decoder finds out about reordering by giving out pictures too early.
    mContext->strict_std_compliance = FF_COMPLIANCE_STRICT;
    mSynchronized = false;
    mHeldBack = 0;
    if (avcodec_open2(mContext.get(), nullptr, nullptr) < 0) {
        mContext.reset();
        return configuration.empty() ? Status::Failed : Status::Damaged;
    }
    return Status::Ok;
}

StreamDecoder::Status VideoDecoder::feed(AVPacket* packet) {
    if (mContext == nullptr) {
        return Status::Damaged;
    }
    // Memory that runs out costs this picture: a forged size asks for it, and the next is smaller.
    return avcodec_send_packet(mContext.get(), packet) < 0 ? Status::Damaged : Status::Ok;
}

StreamDecoder::Status VideoDecoder::take(DecodedOutput& output) {
    if (mContext == nullptr) {
        return Status::Again;
    }
    AvFrame picture(av_frame_alloc());
    if (picture == nullptr) {
        return Status::Failed;
    }
    do {
        const int result = avcodec_receive_frame(mContext.get(), picture.get());
        if (result == AVERROR_EOF) {
            avcodec_flush_buffers(mContext.get());
            mSynchronized = false;
            mHeldBack = 0;
            return Status::EndOfStream;
        }
        if (result == AVERROR(EAGAIN)) {
            return Status::Again;
        }
        if (result < 0) {
            return Status::Damaged;
        }
    } while (isHeldBack(*picture));

    if (picture->pts != AV_NOPTS_VALUE) {
        mLastTimeUs = picture->pts;
    } else if (picture->best_effort_timestamp != AV_NOPTS_VALUE) {
        mLastTimeUs = picture->best_effort_timestamp;
    }
    output.timeUs = mLastTimeUs;
    output.format = {.width = picture->width, .height = picture->height};
    output.picture = std::move(picture);
    return Status::Ok;
}

bool VideoDecoder::isIdr(std::span<const uint8_t> unit) {
    constexpr uint8_t START_CODE[] = {0, 0, 1};
    const auto next = [&](auto from) {
        return std::search(from, unit.end(), std::begin(START_CODE), std::end(START_CODE));
    };
    for (auto at = next(unit.begin()); unit.end() - at > 3; at = next(at + 3)) {
        const int type = at[3] & 0x1F;
        if (type >= FIRST_SLICE && type <= IDR_SLICE) {
            return type == IDR_SLICE;
        }
    }
    return false;
}

bool VideoDecoder::isHeldBack(const AVFrame& picture) {
    if (!mSynchronized) {
        mSynchronized = picture.key_frame != 0 || picture.pict_type == AV_PICTURE_TYPE_I ||
                        ++mHeldBack > MAX_HELD_BACK;
        if (!mSynchronized) {
            codecStatistics().picturesHeldBack.fetch_add(1, std::memory_order_relaxed);
        }
    }
    return !mSynchronized;
}

}  // namespace orvhost
