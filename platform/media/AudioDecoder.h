#pragma once

#include "media/StreamDecoder.h"

namespace orvhost {

// AAC or MPEG audio through libavcodec. Sound keeps the channels and the rate that the decoder
// finds: nothing is mixed or resampled, only brought into interleaved 16-bit samples.
class AudioDecoder : public StreamDecoder {
public:
    explicit AudioDecoder(AVCodecID codec) : mCodec(codec) {}

    Status open(std::span<const uint8_t> configuration) override;
    Status feed(AVPacket* packet) override;
    Status take(DecodedOutput& output) override;
    void writePcm(uint8_t* out) override;

private:
    bool prepareConversion();

    const AVCodecID mCodec;
    AvContext mContext;
    AvFrame mBlock;  // the sound that take() announced
    int64_t mNextTimeUs = 0;
    Resampler mConverter;  // for blocks of mConverted
    StreamFormat mConverted;
    int mConvertedSampleFormat = AV_SAMPLE_FMT_NONE;
};

}  // namespace orvhost
