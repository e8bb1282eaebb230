#pragma once

#include <fdk-aac/aacdecoder_lib.h>

#include <memory>
#include <type_traits>
#include <vector>

#include "media/StreamDecoder.h"

namespace orvhost {

// AAC through libfdk-aac: raw units behind an AudioSpecificConfig. The output has no delay beyond
// that of the coding itself, so each block keeps the time of its unit; loudness is left alone.
// A damaged unit is replaced by the library's concealment once a good one was there.
class FdkAacDecoder : public StreamDecoder {
public:
    Status open(std::span<const uint8_t> configuration) override;
    Status feed(AVPacket* packet) override;
    Status take(DecodedOutput& output) override;
    void writePcm(uint8_t* out) override;

private:
    struct Closer {
        void operator()(AAC_DECODER_INSTANCE* decoder) const { aacDecoder_Close(decoder); }
    };

    std::unique_ptr<AAC_DECODER_INSTANCE, Closer> mDecoder;
    std::vector<INT_PCM> mPcm;
    StreamFormat mFormat;
    size_t mPcmBytes = 0;
    int64_t mTimeUs = 0;
    bool mHasBlock = false;
    bool mAtEnd = false;
};

}  // namespace orvhost
