#include "oracle/FdkAac.h"

#ifdef ORV_HAVE_FDK_AAC

#include <fdk-aac/aacdecoder_lib.h>
#include <fdk-aac/aacenc_lib.h>
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <span>

namespace orvtest::fdk {

namespace {

struct Closer {
    void operator()(AAC_DECODER_INSTANCE* decoder) const { aacDecoder_Close(decoder); }
    void operator()(AACENCODER* encoder) const { aacEncClose(&encoder); }
};
using Decoder = std::unique_ptr<AAC_DECODER_INSTANCE, Closer>;

constexpr size_t MOST_SAMPLES = 8 * 2048;
constexpr size_t MOST_FRAME_BYTES = 8191;

TRANSPORT_TYPE typeOf(Framing framing) {
    return framing == Framing::Adts ? TT_MP4_ADTS : TT_MP4_LOAS;
}

// The number of bytes taken.
size_t fill(AAC_DECODER_INSTANCE* decoder, std::span<const uint8_t> from) {
    Bytes bytes(from.begin(), from.end());
    UCHAR* data = bytes.data();
    const UINT size = static_cast<UINT>(bytes.size());
    UINT left = size;
    EXPECT_EQ(aacDecoder_Fill(decoder, &data, &size, &left), AAC_DEC_OK);
    return size - left;
}

// False when there is no further unit, or it is damaged.
bool decode(AAC_DECODER_INSTANCE* decoder, std::vector<Block>* blocks) {
    std::vector<INT_PCM> pcm(MOST_SAMPLES);
    const AAC_DECODER_ERROR result =
        aacDecoder_DecodeFrame(decoder, pcm.data(), static_cast<INT>(pcm.size()), 0);
    if (result == AAC_DEC_NOT_ENOUGH_BITS || result == AAC_DEC_TRANSPORT_SYNC_ERROR) {
        return false;
    }
    EXPECT_EQ(result, AAC_DEC_OK) << std::hex << result << " after " << blocks->size();
    const CStreamInfo* info = aacDecoder_GetStreamInfo(decoder);
    if (result != AAC_DEC_OK || info == nullptr) {
        return false;
    }
    pcm.resize(static_cast<size_t>(info->frameSize) * static_cast<size_t>(info->numChannels));
    blocks->push_back({info->sampleRate, info->numChannels, {pcm.begin(), pcm.end()}});
    return true;
}

}  // namespace

bool isAvailable() {
    return true;
}

std::vector<Block> decodeFramed(Framing framing, Bytes stream) {
    // In the middle of an ADTS frame the library asks for as many bytes as the whole frame has.
    stream.resize(stream.size() + MOST_FRAME_BYTES);
    const Decoder decoder(aacDecoder_Open(typeOf(framing), 1));
    std::vector<Block> blocks;
    for (size_t at = 0; at < stream.size() && !testing::Test::HasFailure();) {
        at += fill(decoder.get(), std::span(stream).subspan(at));
        while (decode(decoder.get(), &blocks)) {
        }
    }
    return blocks;
}

std::vector<Block> decodeUnits(const Bytes& configuration, const std::vector<Bytes>& units) {
    const Decoder decoder(aacDecoder_Open(TT_MP4_RAW, 1));
    Bytes bytes = configuration;
    UCHAR* data = bytes.data();
    const UINT size = static_cast<UINT>(bytes.size());
    EXPECT_EQ(aacDecoder_ConfigRaw(decoder.get(), &data, &size), AAC_DEC_OK);
    std::vector<Block> blocks;
    for (const Bytes& unit : units) {
        EXPECT_EQ(fill(decoder.get(), unit), unit.size());
        if (!decode(decoder.get(), &blocks)) {
            break;
        }
        aacDecoder_SetParam(decoder.get(), AAC_TPDEC_CLEAR_BUFFER, 1);
    }
    return blocks;
}

Bytes encodeFramed(Framing framing, const EncoderOptions& options) {
    HANDLE_AACENCODER handle = nullptr;
    EXPECT_EQ(aacEncOpen(&handle, 0, options.channels), AACENC_OK);
    const std::unique_ptr<AACENCODER, Closer> encoder(handle);
    const auto set = [&](AACENC_PARAM parameter, unsigned value) {
        EXPECT_EQ(aacEncoder_SetParam(handle, parameter, value), AACENC_OK) << parameter;
    };
    set(AACENC_AOT, options.objectType);
    set(AACENC_SAMPLERATE, options.sampleRate);
    set(AACENC_CHANNELMODE, options.channels);
    set(AACENC_CHANNELORDER, 1);
    set(AACENC_BITRATE, options.bitRate);
    set(AACENC_TRANSMUX, static_cast<unsigned>(typeOf(framing)));
    set(AACENC_TPSUBFRAMES, options.subFrames);
    set(AACENC_AUDIOMUXVER, options.audioMuxVersion);
    set(AACENC_PROTECTION, options.crc);
    if (options.headerPeriod != 0) {
        set(AACENC_HEADER_PERIOD, options.headerPeriod);
    }
    if (options.signalling != 0) {
        set(AACENC_SIGNALING_MODE, options.signalling - 1);
    }
    EXPECT_EQ(aacEncEncode(handle, nullptr, nullptr, nullptr, nullptr), AACENC_OK);
    AACENC_InfoStruct info = {};
    EXPECT_EQ(aacEncInfo(handle, &info), AACENC_OK);
    if (testing::Test::HasFailure()) {
        return {};
    }

    constexpr unsigned FRAMES = 60;
    Bytes stream;
    std::vector<INT_PCM> samples(info.frameLength * options.channels);
    Bytes out(info.maxOutBufBytes * options.subFrames);
    for (unsigned frame = 0; frame < FRAMES; frame++) {
        for (size_t i = 0; i < samples.size(); i++) {
            const double t = static_cast<double>(frame * info.frameLength + i / options.channels);
            const auto channel = static_cast<double>(i % options.channels + 1);
            samples[i] = static_cast<INT_PCM>(9000 * std::sin(t * t * 1e-7 * channel) +
                                              3000 * std::sin(t * t * t));
        }
        void* inBuffers[] = {samples.data()};
        INT inIds[] = {IN_AUDIO_DATA};
        INT inSizes[] = {static_cast<INT>(samples.size() * sizeof(INT_PCM))};
        INT inElements[] = {sizeof(INT_PCM)};
        const AACENC_BufDesc in = {1, inBuffers, inIds, inSizes, inElements};
        void* outBuffers[] = {out.data()};
        INT outIds[] = {OUT_BITSTREAM_DATA};
        INT outSizes[] = {static_cast<INT>(out.size())};
        INT outElements[] = {1};
        const AACENC_BufDesc written = {1, outBuffers, outIds, outSizes, outElements};
        const AACENC_InArgs arguments = {static_cast<INT>(samples.size()), 0};
        AACENC_OutArgs result = {};
        EXPECT_EQ(aacEncEncode(handle, &in, &written, &arguments, &result), AACENC_OK);
        stream.insert(stream.end(), out.begin(), out.begin() + result.numOutBytes);
    }
    return stream;
}

}  // namespace orvtest::fdk

#else

namespace orvtest::fdk {

bool isAvailable() {
    return false;
}
std::vector<Block> decodeFramed(Framing, Bytes) {
    return {};
}
std::vector<Block> decodeUnits(const Bytes&, const std::vector<Bytes>&) {
    return {};
}
Bytes encodeFramed(Framing, const EncoderOptions&) {
    return {};
}

}  // namespace orvtest::fdk

#endif
