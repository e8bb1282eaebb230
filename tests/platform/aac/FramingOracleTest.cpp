// Streams of an independent maker: libavcodec encodes, libavformat frames, and what comes out of
// the transport decoder is what the encoder made, byte for byte.

#include <aac/TransportDecoder.h>

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

#include "support/AacFrames.h"

namespace {

using orvtest::Bytes;

struct Encoded {
    std::vector<Bytes> units;
    Bytes framed;
};

struct Format {
    const char* name;
    const char* muxer;
    TRANSPORT_TYPE type;
    int sampleRate;
    int channels;
    bool programConfig;  // channels described by a program_config_element
    const char* muxerOption;
    const char* muxerValue;
};

void PrintTo(const Format& format, std::ostream* out) {
    *out << format.name;
}

class Encoder {
public:
    explicit Encoder(const Format& format) {
        const AVCodec* codec = avcodec_find_encoder_by_name("aac");
        mContext = avcodec_alloc_context3(codec);
        mContext->sample_rate = format.sampleRate;
        mContext->sample_fmt = AV_SAMPLE_FMT_FLTP;
        mContext->bit_rate = 64000 * format.channels;
        mContext->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        av_channel_layout_default(&mContext->ch_layout, format.channels);
        av_opt_set_int(mContext->priv_data, "aac_pce", format.programConfig, 0);
        mIsOpen = codec != nullptr && avcodec_open2(mContext, codec, nullptr) == 0 &&
                  avformat_alloc_output_context2(&mMuxer, nullptr, format.muxer, nullptr) == 0;
        if (!mIsOpen) {
            return;
        }
        AVStream* stream = avformat_new_stream(mMuxer, nullptr);
        avcodec_parameters_from_context(stream->codecpar, mContext);
        stream->time_base = {1, format.sampleRate};
        avio_open_dyn_buf(&mMuxer->pb);
        AVDictionary* options = nullptr;
        if (format.muxerOption != nullptr) {
            av_dict_set(&options, format.muxerOption, format.muxerValue, 0);
        }
        mIsOpen = avformat_write_header(mMuxer, &options) >= 0;
        av_dict_free(&options);
    }
    ~Encoder() {
        if (mMuxer != nullptr) {
            uint8_t* buffer = nullptr;
            avio_close_dyn_buf(mMuxer->pb, &buffer);
            av_free(buffer);
        }
        avformat_free_context(mMuxer);
        avcodec_free_context(&mContext);
    }

    // A sweep, a little different in each channel, so that unit sizes vary.
    Encoded run(int frames) {
        Encoded result;
        if (!mIsOpen) {
            return result;
        }
        std::unique_ptr<AVFrame, void (*)(AVFrame*)> frame(av_frame_alloc(),
                                                           [](AVFrame* f) { av_frame_free(&f); });
        for (int i = 0; i < frames; i++) {
            frame->nb_samples = mContext->frame_size;
            frame->format = mContext->sample_fmt;
            frame->sample_rate = mContext->sample_rate;
            av_channel_layout_copy(&frame->ch_layout, &mContext->ch_layout);
            av_frame_get_buffer(frame.get(), 0);
            for (int channel = 0; channel < mContext->ch_layout.nb_channels; channel++) {
                auto* samples = reinterpret_cast<float*>(frame->extended_data[channel]);
                for (int n = 0; n < frame->nb_samples; n++) {
                    const double t = i * 1024 + n;
                    samples[n] = static_cast<float>(0.4 * std::sin(t * t * 1e-7 * (channel + 1)) +
                                                    0.1 * std::sin(t * t * t));
                }
            }
            frame->pts = i * mContext->frame_size;
            avcodec_send_frame(mContext, frame.get());
            av_frame_unref(frame.get());
            collect(&result);
        }
        avcodec_send_frame(mContext, nullptr);
        collect(&result);
        av_write_trailer(mMuxer);
        uint8_t* buffer = nullptr;
        const int size = avio_get_dyn_buf(mMuxer->pb, &buffer);
        result.framed.assign(buffer, buffer + size);
        return result;
    }

private:
    void collect(Encoded* result) {
        std::unique_ptr<AVPacket, void (*)(AVPacket*)> packet(
            av_packet_alloc(), [](AVPacket* p) { av_packet_free(&p); });
        while (avcodec_receive_packet(mContext, packet.get()) == 0) {
            result->units.emplace_back(packet->data, packet->data + packet->size);
            av_write_frame(mMuxer, packet.get());
            av_packet_unref(packet.get());
        }
    }

    AVCodecContext* mContext = nullptr;
    AVFormatContext* mMuxer = nullptr;
    bool mIsOpen = false;
};

class FramingOracleTest : public testing::TestWithParam<Format> {};

TEST_P(FramingOracleTest, GivesBackTheEncodersPackets) {
    const Format& format = GetParam();
    const Encoded encoded = Encoder(format).run(100);
    ASSERT_GT(encoded.units.size(), 90u);

    CSAudioSpecificConfig config;
    HANDLE_TRANSPORTDEC decoder = transportDec_Open(format.type, 1, 1);
    transportDec_RegisterAscCallback(
        decoder,
        [](void* context, const CSAudioSpecificConfig* asc, unsigned char, unsigned char*) {
            *static_cast<CSAudioSpecificConfig*>(context) = *asc;
            return 0;
        },
        &config);
    std::vector<Bytes> units;
    for (size_t at = 0; at < encoded.framed.size(); at += 184) {
        auto valid = static_cast<unsigned>(std::min<size_t>(184, encoded.framed.size() - at));
        transportDec_FillData(decoder, encoded.framed.data() + at, valid, &valid, 0);
        int result;
        while ((result = transportDec_ReadAccessUnit(decoder, 0)) == TRANSPORTDEC_OK) {
            // Bit by bit for some, to hold the two ways of reading against each other.
            Bytes unit(static_cast<size_t>(transportDec_GetAuBitsTotal(decoder, 0)) / 8);
            HANDLE_FDK_BITSTREAM bits = transportDec_GetBitstream(decoder, 0);
            if (units.size() % 4 == 0) {
                for (uint8_t& byte : unit) {
                    byte = static_cast<uint8_t>(FDKreadBits(bits, 3) << 5);
                    byte = static_cast<uint8_t>(byte | FDKreadBits(bits, 5));
                }
            } else {
                FDKreadBytes(bits, unit.data(), static_cast<unsigned>(unit.size()));
            }
            EXPECT_EQ(FDKgetValidBits(bits), 0u);
            units.push_back(unit);
        }
        ASSERT_EQ(result, TRANSPORTDEC_NOT_ENOUGH_BITS);
    }
    transportDec_Close(&decoder);

    ASSERT_EQ(units.size(), encoded.units.size());
    for (size_t i = 0; i < units.size(); i++) {
        // The muxer of ADTS puts the program_config_element in front of the first block.
        const bool hasElement = format.type == TT_MP4_ADTS && format.programConfig;
        const Bytes& made = encoded.units[i];
        ASSERT_GE(units[i].size(), made.size()) << i;
        EXPECT_TRUE(std::equal(made.rbegin(), made.rend(), units[i].rbegin())) << i;
        EXPECT_TRUE(units[i].size() == made.size() || (hasElement && i == 0)) << i;
    }
    EXPECT_EQ(config.m_aot, 2);
    EXPECT_EQ(config.m_samplingFrequency, static_cast<uint32_t>(format.sampleRate));
    EXPECT_EQ(config.m_samplesPerFrame, 1024u);
    EXPECT_EQ(config.m_channelCount, format.channels);
    EXPECT_EQ(config.m_channelConfiguration == 0, format.programConfig);
}

const Format kFormats[] = {
    {"Latm48Stereo", "latm", TT_MP4_LOAS, 48000, 2, false, nullptr, nullptr},
    {"LatmConfigInEachFrame", "latm", TT_MP4_LOAS, 24000, 1, false, "smc-interval", "1"},
    {"Latm44Surround", "latm", TT_MP4_LOAS, 44100, 6, false, nullptr, nullptr},
    {"LatmProgramConfig", "latm", TT_MP4_LOAS, 48000, 2, true, nullptr, nullptr},
    {"Adts48Stereo", "adts", TT_MP4_ADTS, 48000, 2, false, nullptr, nullptr},
    {"Adts32Mono", "adts", TT_MP4_ADTS, 32000, 1, false, "write_mpeg2", "1"},
    {"AdtsProgramConfig", "adts", TT_MP4_ADTS, 48000, 6, true, nullptr, nullptr},
};

INSTANTIATE_TEST_SUITE_P(Formats, FramingOracleTest, testing::ValuesIn(kFormats),
                         [](const auto& param) { return std::string(param.param.name); });

}  // namespace
