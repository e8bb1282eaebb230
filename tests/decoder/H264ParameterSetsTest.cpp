#include "decoder/H264ParameterSets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "support/H264Builder.h"
#include "support/TraceCapture.h"

namespace OrvPlayer {
namespace {

using namespace h264;
using testing::TestWithParam;

// The chroma fields of a high profile: no scaling matrix.
Bits chroma(uint64_t format, uint64_t luma = 0, uint64_t chromaDepth = 0) {
    Bits out;
    out.ue(format);
    if (format == 3) {
        out.u(1, 0);
    }
    return out.ue(luma).ue(chromaDepth).u(2, 0);
}

class H264ParameterSetsTest : public testing::Test {
protected:
    // Decodes exactly these bytes: an access behind them is found by the address sanitizer.
    int decode(const Bytes& payload, uint32_t sizeBeyond = 4) {
        const Bytes exact(payload);
        return decodeSPS({exact.data(), static_cast<uint32_t>(exact.size() + sizeBeyond),
                          static_cast<uint32_t>(exact.size())},
                         true, &mSps);
    }
    int decode(const SpsFields& fields) { return decode(escaped(fields.payload())); }

    orvtest::TraceCapture mTrace;
    SPS mSps;
};

TEST_F(H264ParameterSetsTest, DecodesAFullHdBroadcast) {
    SpsFields fields;
    fields.profile = 100;
    fields.chroma = chroma(1);
    fields.id = 31;
    fields.frameNumCode = 5;
    fields.poc = Bits().ue(0).ue(12);
    fields.refFrames = 16;
    fields.mapUnits = 34;
    fields.frameMbsOnly = false;
    fields.crop = {{0, 0, 0, 2}};
    fields.aspectRatio = 255;
    fields.overscanToChromaLoc =
        Bits().u(2, 3).u(1, 1).u(4, 5).u(1, 1).u(24, 0x010203).u(1, 1).ue(2).ue(3);
    fields.timing = Timing{1001, 60000, true};
    fields.picStruct = true;
    fields.restrictions = {{1, 2, 11, 12, 3, 4}};
    ASSERT_EQ(decode(fields), 0);
    EXPECT_EQ(mSps.log2MaxFrameNum, 9);
    EXPECT_EQ(mSps.log2MaxPocLsb, 16);
    EXPECT_EQ(mSps.maxNumRefFrames, 16);
    EXPECT_EQ(mSps.width, 1920u);
    EXPECT_EQ(mSps.height, 1080u);
    EXPECT_EQ(mSps.numUnitsInTick, 1001u);
    EXPECT_EQ(mSps.timeScale, 60000u);
    EXPECT_EQ(mSps.fixedFrameRateFlag, 1);
    EXPECT_EQ(mSps.picStructPresentFlag, 1);
    EXPECT_EQ(mSps.maxDecFrameBuffering, 4u);
    EXPECT_THAT(mTrace.take(), testing::IsEmpty());
}

struct SpsCase {
    const char* name;
    std::function<void(SpsFields&)> change;
    const char* error;  // its first line; empty: decodes
    std::function<bool(const SPS&)> check = [](const SPS&) { return true; };
};

class SpsLimits : public TestWithParam<SpsCase> {};

// Every limit, on both sides, and the values that are read in an unusual way.
TEST_P(SpsLimits, Decode) {
    orvtest::TraceCapture trace;
    SpsFields fields;
    GetParam().change(fields);
    const Bytes payload = escaped(fields.payload());
    SPS sps;
    sps.width = 77;
    const int status = decodeSPS({payload.data(), static_cast<uint32_t>(payload.size()),
                                  static_cast<uint32_t>(payload.size())},
                                 true, &sps);
    const auto lines = trace.take();
    if (*GetParam().error != '\0') {
        EXPECT_EQ(status, 1);
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines.front(), GetParam().error);
        EXPECT_EQ(sps.width, 77u) << "a failed SPS was kept";
    } else {
        EXPECT_EQ(status, 0);
        EXPECT_THAT(lines, testing::IsEmpty());
        EXPECT_TRUE(GetParam().check(sps));
    }
}

const auto chromaOf(uint64_t format, uint64_t luma, uint64_t chromaDepth) {
    return [=](SpsFields& f) {
        f.profile = 100;
        f.chroma = chroma(format, luma, chromaDepth);
    };
}

INSTANTIATE_TEST_SUITE_P(
    Fields, SpsLimits,
    testing::Values(
        SpsCase{"Profile138HasNoChroma", [](auto& f) { f.profile = 138; }, "",
                [](const SPS& s) { return s.width == 1920 && s.bitDepthChroma == 8; }},
        SpsCase{"Id32", [](auto& f) { f.id = 32; }, "decodeSPS: SPS number (32) is out of range"},
        SpsCase{"Id256CountsAs0", [](auto& f) { f.id = 256; }, ""},
        SpsCase{"Chroma4", chromaOf(4, 0, 0), "decodeSPS: Chroma Format IDC 4 is not valid"},
        SpsCase{"Depth14", chromaOf(1, 6, 6), "",
                [](const SPS& s) { return s.bitDepthLuma == 14 && s.bitDepthChroma == 14; }},
        SpsCase{"Depth15", chromaOf(1, 7, 7), "decodeSPS: Illegal bit depth values (15, 15)"},
        SpsCase{"UnequalDepths", chromaOf(1, 0, 1), "decodeSPS: Illegal bit depth values (8, 9)"},
        SpsCase{"FrameNum17", [](auto& f) { f.frameNumCode = 13; },
                "decodeSPS; Max frame num invalid range out of range (4-16): 17"},
        SpsCase{"FrameNumWraps", [](auto& f) { f.frameNumCode = 252; },
                "decodeSPS; Max frame num invalid range out of range (4-16): 0"},
        SpsCase{"FrameNum256CountsAs0", [](auto& f) { f.frameNumCode = 256; }, "",
                [](const SPS& s) { return s.log2MaxFrameNum == 4; }},
        SpsCase{"PocLsb17", [](auto& f) { f.poc = Bits().ue(0).ue(13); },
                "decodeSPS: log2MaxPOCLSB (17) is out of range"},
        SpsCase{"PocCycle",
                [](auto& f) { f.poc = Bits().ue(1).u(1, 0).se(-3).se(4).ue(2).se(-9).se(9); }, "",
                [](const SPS& s) { return s.numRefFramesInPocCycle == 2 && s.width == 1920; }},
        SpsCase{"PocCycle256", [](auto& f) { f.poc = Bits().ue(1).u(1, 0).se(0).se(0).ue(256); },
                "decodeSPS: Poc Cycle Length out of bounds: 256"},
        SpsCase{"PocType3", [](auto& f) { f.poc = Bits().ue(3); }, "decodeSPS: illegal POC type 3"},
        SpsCase{"RefFrames17", [](auto& f) { f.refFrames = 17; },
                "decodeSPS: Reference frames invalid: 17"},
        SpsCase{"LargestSize",
                [](auto& f) {
                    f.widthMbs = 0x7FFFFFE;
                    f.mapUnits = 0x7FFFFFE;
                    f.frameMbsOnly = false;
                },
                "", [](const SPS& s) { return s.width == 0x7FFFFFE0 && s.height == 0xFFFFFFC0; }},
        SpsCase{"TooHigh", [](auto& f) { f.mapUnits = 0x7FFFFFF; },
                "decodeSPS: macro block width or height overflow: 120 134217727"},
        SpsCase{"TooWide", [](auto& f) { f.widthMbs = 0x7FFFFFF; },
                "decodeSPS: macro block width or height overflow: 134217727 68"},
        SpsCase{"WidthWraps", [](auto& f) { f.widthMbs = 0xFFFFFFFF; },
                "decodeSPS: macro block width or height overflow: -1 68"},
        SpsCase{"CropBelow0",
                [](auto& f) {
                    f.crop = {{961, 0, 0, 0}};
                },
                "", [](const SPS& s) { return s.width == 0xFFFFFFFE; }},
        SpsCase{"Crop422",
                [](auto& f) {
                    chromaOf(2, 0, 0)(f);
                    f.crop = {{1, 2, 3, 4}};
                },
                "", [](const SPS& s) { return s.width == 1914 && s.height == 1088 - 7; }},
        SpsCase{"CropMonochromeFields",
                [](auto& f) {
                    chromaOf(0, 0, 0)(f);
                    f.frameMbsOnly = false;
                    f.crop = {{1, 2, 3, 4}};
                },
                "", [](const SPS& s) { return s.width == 1917 && s.height == 2176 - 14; }},
        SpsCase{"NoVui", [](auto& f) { f.vui = false; }, "decodeSPS: VUI is not present"},
        SpsCase{"AspectRatio17", [](auto& f) { f.aspectRatio = 17; }, "",
                [](const SPS& s) { return s.timeScale == 60000; }},
        SpsCase{"AspectRatio18", [](auto& f) { f.aspectRatio = 18; },
                "decodeVUI: Illegal Aspect Ratio: 18"},
        SpsCase{"NoTicks",
                [](auto& f) {
                    f.timing = Timing{0, 50, true};
                },
                "decodeVUI: Illegal TimeScale or Number of Ticks (50, 0)"},
        SpsCase{"NoTimeScale",
                [](auto& f) {
                    f.timing = Timing{1, 0, true};
                },
                "decodeVUI: Illegal TimeScale or Number of Ticks (0, 1)"},
        SpsCase{"LargestTiming",
                [](auto& f) {
                    f.timing = Timing{0xFFFFFFFF, 0xFFFFFFFF, true};
                },
                "", [](const SPS& s) { return s.numUnitsInTick == 0xFFFFFFFF; }}),
    [](const auto& test) { return test.param.name; });

// Seven lists are skipped right, the last one stops early (its next scale becomes 0).
Bits scalingLists(int count) {
    Bits out;
    for (int list = 0; list < count; ++list) {
        out.u(1, list % 2 == 0);
        for (int i = 0; list % 2 == 0 && i < (list < 6 ? 16 : 64); ++i) {
            out.se(i % 3 - 1);
        }
    }
    return out;
}

TEST_F(H264ParameterSetsTest, SkipsScalingLists) {
    SpsFields fields;
    fields.profile = 100;
    fields.chroma = Bits().ue(1).ue(0).ue(0).u(2, 1).append(scalingLists(7)).u(1, 1).se(-8);
    EXPECT_EQ(decode(fields), 0);
    EXPECT_EQ(mSps.width, 1920u);
    // A difference far outside the standard's range wraps modulo 256.
    fields.chroma = Bits().ue(1).ue(0).ue(0).u(2, 1).append(scalingLists(7)).u(1, 1);
    fields.chroma.se(0x7FFFFFFF).se(-0x7FFFFFFF + 248);
    EXPECT_EQ(decode(fields), 0) << "8, 7, 0";
    EXPECT_EQ(mSps.width, 1920u);
}

// 4:4:4 has twelve lists; eight are read.
TEST_F(H264ParameterSetsTest, EightScalingListsIn444) {
    SpsFields fields;
    fields.profile = 244;
    fields.chroma = Bits().ue(3).u(1, 0).ue(0).ue(0).u(2, 1).u(8, 0);
    EXPECT_EQ(decode(fields), 0);
    EXPECT_EQ(mSps.width, 1920u);
}

// The HRD ends in five fields of five bits where the standard has four.
TEST_F(H264ParameterSetsTest, HrdTailIs25Bits) {
    SpsFields fields;
    fields.nalHrd = HrdFields{2, 5, 6, 7, 8};
    fields.picStruct = true;
    ASSERT_EQ(decode(fields), 0);
    EXPECT_EQ(mSps.nalHrd.cpbCntMinus1, 1u);
    EXPECT_EQ(mSps.nalHrd.cpbSizeValueMinus1[1], 2001u);
    EXPECT_EQ(mSps.nalHrd.cbrFlag[1], 1);
    EXPECT_EQ(mSps.nalHrd.initialCpbRemovalDelayLengthMinus1, 4);
    EXPECT_EQ(mSps.nalHrd.cpbRemovalDelayLengthMinus1, 5);
    EXPECT_EQ(mSps.nalHrd.dpbOutputDelayLengthMinus1, 8) << "time_offset_length in truth";
    // vcl flag 0, low delay 0, pic_struct 1, restriction 0, stop bit 1: read as the length.
    EXPECT_EQ(mSps.nalHrd.timeOffsetLength, 0b00101);
    EXPECT_EQ(mSps.picStructPresentFlag, 0);

    // With the missing five bits put in, everything behind is in place again.
    Bits padded = fields.headBits();
    padded.u(1, 0).append(fields.overscanToChromaLoc);
    padded.u(1, 1).u(32, 1001).u(32, 60000).u(1, 1);
    padded.u(1, 1).ue(0).u(8, 0).ue(1).ue(2).u(1, 1).u(5, 4).u(5, 5).u(5, 6).u(5, 7).u(5, 8);
    padded.u(1, 1).ue(0).u(8, 0).ue(3).ue(4).u(1, 0).u(5, 9).u(5, 10).u(5, 11).u(5, 12).u(5, 13);
    padded.u(1, 1).u(1, 1).u(1, 0);
    ASSERT_EQ(decode(escaped(padded.trailing().bytes())), 0);
    EXPECT_EQ(mSps.nalHrd.timeOffsetLength, 8);
    EXPECT_EQ(mSps.vclHrd.bitRateValueMinus1[0], 3u);
    EXPECT_EQ(mSps.vclHrd.timeOffsetLength, 13);
    EXPECT_EQ(mSps.lowDelayHrdFlag, 1);
    EXPECT_EQ(mSps.picStructPresentFlag, 1);
}

// Behind the timing nothing fails: what is absurd or missing leaves the rest 0.
TEST_F(H264ParameterSetsTest, TailNeverFails) {
    SpsFields fields;
    fields.timing = Timing{1, 50, true};
    Bits upToTiming = fields.headBits();
    upToTiming.u(1, 0).append(fields.overscanToChromaLoc).u(1, 1).u(32, 1).u(32, 50).u(1, 1);
    mSps.nalHrd.timeOffsetLength = 31;  // of an SPS before
    mSps.picStructPresentFlag = 1;
    for (const uint64_t count : {uint64_t{32}, uint64_t{0xFFFFFFFE}, uint64_t{0xFFFFFFFF}}) {
        Bits bits = upToTiming;
        bits.u(1, 1).ue(count).u(64, ~uint64_t{0});
        EXPECT_EQ(decode(escaped(bits.bytes())), 0) << count;
        EXPECT_EQ(mSps.timeScale, 50u);
        EXPECT_EQ(mSps.nalHrdParametersPresentFlag, 1);
        EXPECT_LE(mSps.nalHrd.cpbCntMinus1, 31u);
        EXPECT_EQ(mSps.nalHrd.timeOffsetLength, 0);
        EXPECT_EQ(mSps.picStructPresentFlag, 0);
    }
    Bits zeros = upToTiming;
    zeros.u(1, 1).u(64, 0);  // no code ends in time
    EXPECT_EQ(decode(escaped(zeros.bytes())), 0);
    EXPECT_EQ(mSps.vclHrdParametersPresentFlag, 0);
    EXPECT_THAT(mTrace.take(), testing::IsEmpty());
}

// Cut anywhere: an error up to the timing, a success behind it, and no read past the bytes.
TEST_F(H264ParameterSetsTest, CutAnywhere) {
    SpsFields fields;
    fields.profile = 100;
    fields.chroma = chroma(1);
    fields.poc = Bits().ue(1).u(1, 0).se(0).se(0).ue(3).se(1).se(2).se(3);
    fields.aspectRatio = 255;
    fields.picStruct = true;
    fields.restrictions = {{1, 2, 11, 12, 3, 4}};
    const Bytes whole = escaped(fields.payload());
    SpsFields noTail = fields;
    noTail.picStruct = false;
    noTail.restrictions.reset();
    const size_t timingEnd =
        escaped(noTail.payload()).size() - 1;  // the tail's four bits and the stop bit
    for (size_t length = 0; length < whole.size(); ++length) {
        mSps = SPS();
        const Bytes cut(whole.begin(), whole.begin() + static_cast<long>(length));
        if (length < timingEnd) {
            EXPECT_EQ(decode(cut, 0), 1) << length;
            EXPECT_EQ(mSps.width, 0u) << length;
        } else if (length > timingEnd) {
            EXPECT_EQ(decode(cut, 0), 0) << length;
            EXPECT_EQ(mSps.timeScale, 60000u);
        }
    }
    mTrace.take();
    EXPECT_EQ(decode(Bytes(3, 0x64), 0), 1);
    EXPECT_THAT(mTrace.take(),
                testing::ElementsAre("decodeNALUnit: NAL Unit with less than 4 bytes?",
                                     "decodeSPS: Error decoding NAL Unit"));
}

// Emulation prevention goes from the fifth byte on only.
TEST(RBSPReaderTest, TakesOutEmulationPrevention) {
    struct {
        Bytes in, out;
    } static const CASES[] = {
        {{0, 0, 3, 1}, {0, 0, 3, 1}},
        {{1, 0, 0, 3, 1}, {1, 0, 0, 3, 1}},
        {{1, 2, 3, 0, 0, 3, 1}, {1, 2, 3, 0, 0, 3, 1}},
        {{1, 2, 3, 4, 0, 0, 3, 1}, {1, 2, 3, 4, 0, 0, 1}},
        {{1, 2, 3, 4, 0, 0, 3, 0, 0, 3, 3}, {1, 2, 3, 4, 0, 0, 0, 0, 3}},
        {{1, 2, 3, 4, 0, 0, 0, 3, 3}, {1, 2, 3, 4, 0, 0, 0, 3}},
        {{1, 2, 3, 4, 0, 0, 3}, {1, 2, 3, 4, 0, 0}},
        {{1, 2, 3, 4, 0, 3, 0, 0}, {1, 2, 3, 4, 0, 3, 0, 0}},
    };
    for (const auto& test : CASES) {
        const auto size = static_cast<uint32_t>(test.in.size());
        const RBSP rbsp = decodeNALUnit({test.in.data(), size, size});
        ASSERT_NE(rbsp.bytes, nullptr);
        EXPECT_EQ(Bytes(rbsp.bytes.get(), rbsp.bytes.get() + rbsp.size), test.out);
    }
}

TEST(RBSPReaderTest, Golomb) {
    Bits bits;
    const std::vector<uint64_t> unsignedValues = {0, 1, 2, 7, 254, 65535, 0x7FFFFFFF, 0xFFFFFFFE};
    const std::vector<int64_t> signedValues = {0, 1, -1, 2, -2, 0x7FFFFFFF, -0x7FFFFFFF};
    for (const uint64_t value : unsignedValues) {
        bits.ue(value);
    }
    for (const int64_t value : signedValues) {
        bits.se(value);
    }
    const Bytes bytes = bits.bytes();
    RBSPReader reader(bytes.data(), static_cast<unsigned>(bytes.size()));
    for (const uint64_t value : unsignedValues) {
        EXPECT_EQ(reader.parseUEGolomb(), value);
    }
    for (const int64_t value : signedValues) {
        EXPECT_EQ(reader.parseSEGolomb(), value);
    }
    EXPECT_FALSE(reader.hasOverrun());
}

// A code that ends nowhere, or needs more than 31 zeros, ends the payload.
TEST(RBSPReaderTest, GolombWithoutEnd) {
    const Bytes CASES[] = {{}, {0x00}, {0x02}, Bits().u(32, 0).u(33, ~uint64_t{0}).bytes()};
    for (const Bytes& bytes : CASES) {
        RBSPReader reader(bytes.data(), static_cast<unsigned>(bytes.size()));
        EXPECT_EQ(reader.parseUEGolomb(), 0u);
        EXPECT_TRUE(reader.hasOverrun());
        EXPECT_EQ(reader.readBits(8), 0u);
        EXPECT_EQ(reader.parseSEGolomb(), 0);
    }
}

}  // namespace
}  // namespace OrvPlayer
