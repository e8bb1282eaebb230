#pragma once

#include "media/StreamDecoder.h"

namespace orvhost {

// H.264 in Annex B form: frames, field pairs, any number of slices.
//
// Pictures come out in the order of presentation from the first one on, whatever the stream says
// about its reordering, and start with a picture that stands by itself: what a viewer would see of
// a group of pictures whose start was missed is held back (and counted). After that a damaged
// picture is shown as the library conceals it.
class VideoDecoder : public StreamDecoder {
public:
    Status open(std::span<const uint8_t> configuration) override;
    Status feed(AVPacket* packet) override;
    Status take(DecodedOutput& output) override;

    // Whether the unit is an IDR picture: its first slice says so.
    static bool isIdr(std::span<const uint8_t> unit);

private:
    bool isHeldBack(const AVFrame& picture);

    AvContext mContext;
    bool mSynchronized = false;  // a picture has been handed out since open()
    int mHeldBack = 0;
    int64_t mLastTimeUs = 0;
};

}  // namespace orvhost
