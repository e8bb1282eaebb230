// An encoder's own packets as the oracle: what it calls an access unit must come out as one.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "decoder/H264MediaExtractor.h"
#include "decoder/PesRing.h"
#include "support/TestStreams.h"
#include "support/TraceCapture.h"

namespace OrvPlayer {
namespace {

using Bytes = std::vector<uint8_t>;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr int WIDTH = 176;
constexpr int HEIGHT = 144;
constexpr int FRAMES = 60;

struct Variant {
    const char* name;
    std::string parameters;
    long long frameDuration;  // as derived from what the encoder signals
};

class H264EncoderTest : public testing::TestWithParam<Variant> {
protected:
    void SetUp() override {
        static std::map<std::string, std::vector<orvtest::Unit>> encoded;
        mPackets = encoded[GetParam().name];
        if (mPackets.empty()) {
            const std::string parameters = "aud=1:b-adapt=0:force-cfr=1:" + GetParam().parameters;
            mPackets = orvtest::encodeVideo({.width = WIDTH,
                                             .height = HEIGHT,
                                             .frames = FRAMES,
                                             .x264 = parameters,
                                             .noise = true})
                           .units;
            encoded[GetParam().name] = mPackets;
        }
        ASSERT_EQ(mPackets.size(), size_t{FRAMES});
        uint64_t total = 0;
        for (const orvtest::Unit& packet : mPackets) {
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
    long long pts90k(size_t index) const {
        return mPackets[index].timeUs / orvtest::FRAME_US * 3003;
    }
    void feed(long long pts, const Bytes& payload) {
        mRing.push(static_cast<uint64_t>(pts), payload);
        for (PesRing::Unit& unit : mRing.drain(*mExtractor, 1 << 20)) {
            mUnits.push_back(std::move(unit));
        }
    }
    PesRing::Unit expected(size_t index, const Bytes& bytes, long long pts) const {
        unsigned flags = index % orvtest::GROUP_FRAMES == 0 ? H264MediaExtractor::FLAG_IDR : 0;
        flags |= index == 0 ? H264MediaExtractor::FLAG_NEW_SPS : 0;
        return {bytes, pts, flags};
    }

    orvtest::TraceCapture mTrace;
    std::vector<orvtest::Unit> mPackets;  // in decoding order
    PesRing mRing{20};
    android::sp<H264MediaExtractor> mExtractor = new H264MediaExtractor(mRing.buffer);
    std::vector<PesRing::Unit> mUnits;
};

TEST_P(H264EncoderTest, OneUnitPerPes) {
    std::vector<PesRing::Unit> all;
    for (size_t i = 0; i < mPackets.size(); ++i) {
        feed(pts90k(i), mPackets[i].bytes);
        all.push_back(expected(i, mPackets[i].bytes, pts90k(i)));
    }
    EXPECT_THAT(mUnits, ElementsAreArray(all));
}

// The further units of a PES follow the first one in time, frame by frame, in decoding order.
TEST_P(H264EncoderTest, SeveralUnitsPerPes) {
    std::vector<PesRing::Unit> all;
    size_t next = 0;
    for (size_t count = 1; next < mPackets.size(); count = count % 7 + 1) {
        const long long pts = pts90k(next);
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
TEST_P(H264EncoderTest, UnitsRunOverPesEnds) {
    std::vector<PesRing::Unit> all;
    Bytes payload;
    long long pts = pts90k(0);
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
    Encoder, H264EncoderTest,
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
