// Draws and compresses the pictures of one service: H.264 in Annex B form, one access unit per
// call, in decoding order.
//
// Every access unit starts with a delimiter and carries a picture-timing SEI message; parameter
// sets with VUI timing (fixed frame rate, pic_struct present, no buffer model parameters unless
// asked for) stand before every IDR picture; groups of pictures are closed. One thread encodes:
// with two and a bounded buffer the encoder's output differs from run to run.

#pragma once

#include <cstdint>
#include <vector>

#include "mksample/Libav.h"
#include "mksample/Options.h"
#include "mksample/TestPicture.h"

namespace mksample {

struct VideoSettings {
    int width = 0;
    int height = 0;
    FrameRate fps;
    bool interlaced = false;
    bool highProfile = true;  // else Baseline, without reordering
    bool hrd = false;
    int gop = 15;
    int64_t bitRate = 0;
    int64_t frameCount = 0;
};

struct VideoUnit {
    std::vector<uint8_t> bytes;
    int64_t ptsFrames = 0;
    int64_t dtsFrames = 0;  // may be negative at the start
    bool idr = false;
};

class VideoEncoder {
public:
    // Throws Failure when the encoder is missing or refuses the settings.
    explicit VideoEncoder(const VideoSettings& settings);

    // The next access unit; false after the last one.
    bool next(VideoUnit* unit);

private:
    void sendNextPicture();

    const VideoSettings mSettings;
    TestPicture mPicture;
    CodecContextPtr mContext;
    PacketPtr mPacket;
    int64_t mSent = 0;
    bool mFlushed = false;
};

}  // namespace mksample
