#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "Sample.h"

namespace orvbench {

// One of libavcodec's parsers, fed as libavformat feeds it: PES payload by PES payload.
class LibavParser {
public:
    explicit LibavParser(AVCodecID codec)
        : mParser(av_parser_init(codec)), mContext(avcodec_alloc_context3(nullptr)) {
        if (mParser == nullptr || mContext == nullptr) {
            abort();
        }
        mContext->codec_id = codec;
    }
    LibavParser(const LibavParser&) = delete;  // owns the parser
    LibavParser& operator=(const LibavParser&) = delete;
    ~LibavParser() {
        av_parser_close(mParser);
        avcodec_free_context(&mContext);
    }

    // Returns the units that came out. Behind `size` bytes there are AV_INPUT_BUFFER_PADDING_SIZE
    // more that may be read.
    int parse(const uint8_t* bytes, uint32_t size) {
        int units = 0;
        while (size > 0) {
            uint8_t* unit = nullptr;
            int unitSize = 0;
            const int used =
                av_parser_parse2(mParser, mContext, &unit, &unitSize, bytes, static_cast<int>(size),
                                 AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
            bytes += used;
            size -= static_cast<uint32_t>(used);
            units += unitSize > 0 ? 1 : 0;
        }
        return units;
    }

private:
    AVCodecParserContext* mParser;
    AVCodecContext* mContext;
};

// The payloads of the first `count` records, each with the padding that libavcodec asks for.
inline std::vector<Bytes> paddedPayloads(const SampleStream& stream, size_t count) {
    std::vector<Bytes> payloads;
    for (size_t i = 0; i < count; ++i) {
        uint32_t size;
        const uint8_t* bytes = SampleStream::payload(stream.records[i], &size);
        payloads.emplace_back(bytes, bytes + size);
        payloads.back().resize(size + AV_INPUT_BUFFER_PADDING_SIZE);
    }
    return payloads;
}

}  // namespace orvbench
