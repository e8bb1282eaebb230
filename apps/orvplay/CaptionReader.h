#pragma once

#include <string>

#include "common/RingBuffer.h"
#include "decoder/ClosedCaptionDecoder.h"

namespace orvplay {

// The player's caption decoder, fed one PES packet after the other on the caller's thread.
class CaptionReader {
public:
    CaptionReader();
    CaptionReader(const CaptionReader&) = delete;  // one decoder, with a state over packets
    CaptionReader& operator=(const CaptionReader&) = delete;

    // False when memory is lacking.
    bool open();

    // What the packet shows, in UTF-8; empty when that is nothing.
    std::string read(OrvPlayer::PESData& record);

private:
    android::sp<OrvPlayer::RingBuffer> mText;
    android::sp<OrvPlayer::ClosedCaptionDecoder> mDecoder;
};

}  // namespace orvplay
