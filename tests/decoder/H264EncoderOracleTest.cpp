// An encoder's own packets as the oracle: what it calls an access unit must come out as one.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "decoder/H264MediaExtractor.h"
#include "decoder/PesRing.h"
#include "support/TraceCapture.h"

namespace OrvPlayer {
namespace {

using Bytes = std::vector<uint8_t>;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr int WIDTH = 176;
constexpr int HEIGHT = 144;
constexpr int FRAMES = 60;
constexpr int GOP_FRAMES = 20;

struct Packet {
    Bytes bytes;
    long long pts90k;
};

// Noise, so that slices are long and every byte value comes up.
void paint(AVFrame& frame, int number) {
    auto state = static_cast<uint32_t>(number + 1);
    for (int plane = 0; plane < 3; ++plane) {
        const int height = plane == 0 ? HEIGHT : HEIGHT / 2;
        for (int i = 0; i < height * frame.linesize[plane]; ++i) {
            state = state * 1664525 + 1013904223;
            frame.data[plane][i] = static_cast<uint8_t>((state >> 27) + i % 97);
        }
    }
}

void takePackets(AVCodecContext& codec, std::vector<Packet>& packets) {
    std::unique_ptr<AVPacket, void (*)(AVPacket*)> packet(av_packet_alloc(),
                                                          [](AVPacket* p) { av_packet_free(&p); });
    while (avcodec_receive_packet(&codec, packet.get()) == 0) {
        packets.push_back({Bytes(packet->data, packet->data + packet->size), packet->pts * 3003});
        av_packet_unref(packet.get());
    }
}

std::vector<Packet> encode(const std::string& parameters) {
    std::vector<Packet> packets;
    av_log_set_level(AV_LOG_QUIET);
    const AVCodec* encoder = avcodec_find_encoder_by_name("libx264");
    if (encoder == nullptr) {
        return packets;
    }
    std::unique_ptr<AVCodecContext, void (*)(AVCodecContext*)> codec(
        avcodec_alloc_context3(encoder), [](AVCodecContext* c) { avcodec_free_context(&c); });
    codec->width = WIDTH;
    codec->height = HEIGHT;
    codec->pix_fmt = AV_PIX_FMT_YUV420P;
    codec->time_base = {1001, 30000};
    codec->framerate = {30000, 1001};
    codec->gop_size = GOP_FRAMES;
    codec->thread_count = 1;
    av_opt_set(codec->priv_data, "preset", "veryfast", 0);
    const std::string all = "aud=1:b-adapt=0:scenecut=0:force-cfr=1:" + parameters;
    av_opt_set(codec->priv_data, "x264-params", all.c_str(), 0);
    if (avcodec_open2(codec.get(), encoder, nullptr) != 0) {
        return packets;
    }
    std::unique_ptr<AVFrame, void (*)(AVFrame*)> frame(av_frame_alloc(),
                                                       [](AVFrame* f) { av_frame_free(&f); });
    frame->format = codec->pix_fmt;
    frame->width = WIDTH;
    frame->height = HEIGHT;
    for (int number = 0; number < FRAMES; ++number) {
        av_frame_unref(frame.get());
        frame->format = codec->pix_fmt;
        frame->width = WIDTH;
        frame->height = HEIGHT;
        if (av_frame_get_buffer(frame.get(), 0) != 0) {
            return packets;
        }
        paint(*frame, number);
        frame->pts = number;
        avcodec_send_frame(codec.get(), frame.get());
        takePackets(*codec, packets);
    }
    avcodec_send_frame(codec.get(), nullptr);
    takePackets(*codec, packets);
    return packets;
}

struct Variant {
    const char* name;
    std::string parameters;
    long long frameDuration;  // as derived from what the encoder signals
};

class H264EncoderOracleTest : public testing::TestWithParam<Variant> {
protected:
    void SetUp() override {
        static std::map<std::string, std::vector<Packet>> encoded;
        mPackets = encoded[GetParam().name];
        if (mPackets.empty()) {
            mPackets = encoded[GetParam().name] = encode(GetParam().parameters);
        }
        ASSERT_EQ(mPackets.size(), size_t{FRAMES});
        uint64_t total = 0;
        for (const Packet& packet : mPackets) {
            total += packet.bytes.size();
        }
        ASSERT_GT(total / FRAMES, 1000u);
    }
    void TearDown() override {
        uint32_t width = 0, height = 0;
        EXPECT_TRUE(mExtractor->getVideoResolution(&width, &height));
        EXPECT_EQ(width, uint32_t{WIDTH});
        EXPECT_EQ(height, uint32_t{HEIGHT});
        EXPECT_THAT(mTrace.take(), IsEmpty());
    }
    void feed(long long pts, const Bytes& payload) {
        mRing.push(static_cast<uint64_t>(pts), payload);
        for (PesRing::Unit& unit : mRing.drain(*mExtractor, 1 << 20)) {
            mUnits.push_back(std::move(unit));
        }
    }
    PesRing::Unit expected(size_t index, const Bytes& bytes, long long pts) const {
        unsigned flags = index % GOP_FRAMES == 0 ? H264MediaExtractor::FLAG_IDR : 0;
        flags |= index == 0 ? H264MediaExtractor::FLAG_NEW_SPS : 0;
        return {bytes, pts, flags};
    }

    orvtest::TraceCapture mTrace;
    std::vector<Packet> mPackets;  // in decoding order
    PesRing mRing{20};
    android::sp<H264MediaExtractor> mExtractor = new H264MediaExtractor(mRing.buffer);
    std::vector<PesRing::Unit> mUnits;
};

TEST_P(H264EncoderOracleTest, OneUnitPerPes) {
    std::vector<PesRing::Unit> all;
    for (size_t i = 0; i < mPackets.size(); ++i) {
        feed(mPackets[i].pts90k, mPackets[i].bytes);
        all.push_back(expected(i, mPackets[i].bytes, mPackets[i].pts90k));
    }
    EXPECT_THAT(mUnits, ElementsAreArray(all));
}

// The further units of a PES follow the first one in time, frame by frame, in decoding order.
TEST_P(H264EncoderOracleTest, SeveralUnitsPerPes) {
    std::vector<PesRing::Unit> all;
    size_t next = 0;
    for (size_t count = 1; next < mPackets.size(); count = count % 7 + 1) {
        const long long pts = mPackets[next].pts90k;
        Bytes payload;
        for (size_t i = 0; i < count && next < mPackets.size(); ++i, ++next) {
            const Bytes& bytes = mPackets[next].bytes;
            payload.insert(payload.end(), bytes.begin(), bytes.end());
            all.push_back(
                expected(next, bytes, pts + static_cast<long long>(i) * GetParam().frameDuration));
        }
        feed(pts, payload);
    }
    EXPECT_THAT(mUnits, ElementsAreArray(all));
}

// PES packets that end inside a slice: the unit ends with the PES, its rest is passed over.
TEST_P(H264EncoderOracleTest, UnitsRunOverPesEnds) {
    std::vector<PesRing::Unit> all;
    Bytes payload;
    long long pts = mPackets[0].pts90k;
    size_t unitsInPes = 0;
    for (size_t i = 0; i < mPackets.size(); ++i) {
        const Bytes& bytes = mPackets[i].bytes;
        const long long unitPts =
            pts + static_cast<long long>(unitsInPes++) * GetParam().frameDuration;
        if (i % 3 != 2) {
            payload.insert(payload.end(), bytes.begin(), bytes.end());
            all.push_back(expected(i, bytes, unitPts));
            continue;
        }
        const auto cut = bytes.end() - static_cast<long>(bytes.size() / 16) - 1;
        payload.insert(payload.end(), bytes.begin(), cut);
        all.push_back(expected(i, Bytes(bytes.begin(), cut), unitPts));
        feed(pts, payload);
        payload.assign(cut, bytes.end());
        pts = 1000 * static_cast<long long>(i);
        unitsInPes = 0;
    }
    EXPECT_THAT(mUnits, ElementsAreArray(all));
}

constexpr char HRD_PARAMETERS[] = "nal-hrd=vbr:vbv-maxrate=3000:vbv-bufsize=3000:";

INSTANTIATE_TEST_SUITE_P(
    Encoder, H264EncoderOracleTest,
    testing::Values(Variant{"Progressive", "bframes=2", 1501},
                    Variant{"Slices", "slices=4:bframes=0", 1501},
                    Variant{"PicStruct", "pic-struct=1:bframes=1", 1501},
                    Variant{"Interlaced", "tff=1:bframes=2:slices=2", 3003},
                    Variant{"BottomFieldFirst", "bff=1:cabac=0", 3003},
                    // The flag for picture structures is not found behind an HRD.
                    Variant{"InterlacedHrd", std::string(HRD_PARAMETERS) + "tff=1", 1501}),
    [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace OrvPlayer
