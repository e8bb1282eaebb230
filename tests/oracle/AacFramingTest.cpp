// Streams of independent makers: what comes out of the AAC framing is what their encoder made, byte
// for byte, and decodes to the samples that another decoder reads from the framed stream by itself.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>

#include "decoder/AACMediaExtractor.h"
#include "decoder/PesRing.h"
#include "oracle/AacEncoder.h"
#include "oracle/FdkAac.h"

namespace OrvPlayer {
namespace {

using namespace orvtest;
using Made = EncodedAac;

struct Variant {
    const char* name;
    AACMediaExtractor::transportLayer_t layer;
    std::function<Made()> make;
    enum { SAME_SAMPLES, UNITS_ALONE } compare = SAME_SAMPLES;
};

void PrintTo(const Variant& variant, std::ostream* out) {
    *out << variant.name;
}

std::vector<Bytes> unitsOf(const Variant& variant, const Bytes& framed) {
    HANDLE_TRANSPORTDEC decoder = transportDec_Open(
        variant.layer == AACMediaExtractor::LOAS ? TT_MP4_LOAS : TT_MP4_ADTS, 1, 1);
    std::vector<Bytes> units;
    for (size_t at = 0; at < framed.size(); at += 184) {
        auto valid = static_cast<unsigned>(std::min<size_t>(184, framed.size() - at));
        transportDec_FillData(decoder, framed.data() + at, valid, &valid, 0);
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
        EXPECT_EQ(result, TRANSPORTDEC_NOT_ENOUGH_BITS);
    }
    transportDec_Close(&decoder);
    return units;
}

// The configuration first, then the units behind the one that gave way to it.
std::vector<Bytes> extractedOf(const Variant& variant, const Bytes& framed) {
    PesRing ring(20);
    android::sp<AACMediaExtractor> extractor = new AACMediaExtractor(ring.buffer, variant.layer);
    std::vector<Bytes> units;
    constexpr long SIZES[] = {1000, 7, 2500, 184, 1};
    auto at = framed.begin();
    for (size_t i = 0; at != framed.end(); i++) {
        const auto end = at + std::min<long>(SIZES[i % std::size(SIZES)], framed.end() - at);
        ring.push(0, Bytes(at, end));
        at = end;
        while (ring.buffer->getDataSize() > 0) {
            Bytes out(8192);
            unsigned long size = 0;
            long long pts = 0;
            unsigned char flags = 0;
            extractor->getDecodableUnit(out.data(), out.size(), &size, &pts, &flags);
            if (size > 0) {
                EXPECT_EQ(flags != 0, units.empty());
                units.emplace_back(out.begin(), out.begin() + static_cast<long>(size));
            }
        }
    }
    return units;
}

class AacFramingTest : public testing::TestWithParam<Variant> {
protected:
    void SetUp() override {
        if (!fdk::isAvailable() && std::string(GetParam().name).starts_with("Fdk")) {
            GTEST_SKIP() << "made by libfdk-aac, which this build does not have";
        }
        mMade = GetParam().make();
        mUnits = unitsOf(GetParam(), mMade.framed);
        mExtracted = extractedOf(GetParam(), mMade.framed);
        ASSERT_GT(mUnits.size(), 50u);
        ASSERT_EQ(mExtracted.size(), mUnits.size());
    }

    Made mMade;
    std::vector<Bytes> mUnits;      // of the transport decoder
    std::vector<Bytes> mExtracted;  // of the extractor, a configuration in place of the first
};

TEST_P(AacFramingTest, GivesBackTheEncodersUnits) {
    if (!mMade.units.empty()) {
        ASSERT_EQ(mUnits.size(), mMade.units.size());
    }
    for (size_t i = 0; i < mMade.units.size(); i++) {
        // The muxer of ADTS puts a program_config_element in front of the first block.
        const Bytes& unit = mMade.units[i];
        ASSERT_GE(mUnits[i].size(), unit.size()) << i;
        EXPECT_TRUE(std::equal(unit.rbegin(), unit.rend(), mUnits[i].rbegin())) << i;
        EXPECT_TRUE(mUnits[i].size() == unit.size() || i == 0) << i;
    }
    EXPECT_TRUE(std::equal(mExtracted.begin() + 1, mExtracted.end(), mUnits.begin() + 1));
}

class AacSamplesTest : public AacFramingTest {};

// The unit that gave way to the configuration is put back in its place: both decoders then start
// with the same unit, and every sample counts.
TEST_P(AacSamplesTest, UnitsDecodeToTheSamplesOfTheFramedStream) {
    if (!fdk::isAvailable()) {
        GTEST_SKIP() << "needs libfdk-aac, which this build does not have";
    }
    const auto framing =
        GetParam().layer == AACMediaExtractor::LOAS ? fdk::Framing::Loas : fdk::Framing::Adts;
    const std::vector<fdk::Block> expected = fdk::decodeFramed(framing, mMade.framed);
    const std::vector<fdk::Block> blocks = fdk::decodeUnits(mExtracted.front(), mUnits);
    EXPECT_EQ(expected.size(), mUnits.size());
    ASSERT_EQ(blocks.size(), expected.size());
    for (size_t i = 0; i < blocks.size(); i++) {
        EXPECT_TRUE(blocks[i] == expected[i]) << i;
    }
}

std::function<Made()> muxed(const AacFormat& format) {
    return [=] { return encodeAac(format); };
}
std::function<Made()> byFdk(fdk::Framing framing, const fdk::EncoderOptions& options) {
    return [=] { return Made{{}, fdk::encodeFramed(framing, options)}; };
}

// Real units in frames of other kinds than the muxers write.
std::function<Made()> rebuilt(const std::function<Bytes(const std::vector<Bytes>&)>& frame,
                              size_t unitsPerFrame, size_t fixedSize = 0) {
    return [=] {
        Made made = encodeAac({.muxer = "latm"});
        made.framed.clear();
        for (size_t at = 0; at < made.units.size(); at += unitsPerFrame) {
            const size_t end = std::min(at + unitsPerFrame, made.units.size());
            std::vector<Bytes> units;
            for (size_t i = at; i < end; i++) {
                made.units[i].resize(std::max(made.units[i].size(), fixedSize));
                units.push_back(made.units[i]);
            }
            made.framed = made.framed + frame(units);
        }
        return made;
    };
}

constexpr auto LOAS = AACMediaExtractor::LOAS;
constexpr auto ADTS = AACMediaExtractor::ADTS;

const Variant VARIANTS[] = {
    {"Latm48Stereo", LOAS, muxed({.muxer = "latm"})},
    {"Latm24MonoConfigInEachFrame", LOAS,
     muxed({.muxer = "latm",
            .sampleRate = 24000,
            .channels = 1,
            .muxerOption = "smc-interval",
            .muxerValue = "1"})},
    {"Latm44Surround", LOAS, muxed({.muxer = "latm", .sampleRate = 44100, .channels = 6})},
    // The configuration given out has room for no program_config_element, and libfdk-aac takes none
    // without one where the channels are described that way.
    {"LatmProgramConfig", LOAS, muxed({.muxer = "latm", .programConfig = true}),
     Variant::UNITS_ALONE},
    {"Adts48Stereo", ADTS, muxed({.muxer = "adts"})},
    {"Adts32Mono", ADTS,
     muxed({.muxer = "adts",
            .sampleRate = 32000,
            .channels = 1,
            .muxerOption = "write_mpeg2",
            .muxerValue = "1"})},
    {"AdtsProgramConfig", ADTS, muxed({.muxer = "adts", .channels = 6, .programConfig = true}),
     Variant::UNITS_ALONE},
    {"LatmSubFrames", LOAS, rebuilt([](const auto& units) { return LoasMux().frame(units); }, 4)},
    {"LatmVersion1OtherDataCrc", LOAS,
     rebuilt(
         [](const auto& units) {
             return LoasMux{.version = 1, .ascFillBits = 5, .otherDataBits = 20, .hasCrc = true}
                 .frame(units);
         },
         2)},
    // libfdk-aac reads units of variable length alone.
    {"LatmFixedLength", LOAS,
     rebuilt([](const auto& units) { return LoasMux{.fixedLength = 531}.frame(units); }, 1, 531),
     Variant::UNITS_ALONE},
    {"FdkLatmHeaderPeriod", LOAS, byFdk(fdk::Framing::Loas, {.headerPeriod = 10})},
    {"FdkLatmSubFrames", LOAS, byFdk(fdk::Framing::Loas, {.subFrames = 2})},
    {"FdkLatmVersion1", LOAS, byFdk(fdk::Framing::Loas, {.audioMuxVersion = 1})},
    {"FdkLatmVersion2", LOAS, byFdk(fdk::Framing::Loas, {.audioMuxVersion = 2})},
    {"FdkLatmHe", LOAS, byFdk(fdk::Framing::Loas, {.objectType = 5, .bitRate = 48000})},
    {"FdkLatmHeImplicit", LOAS,
     byFdk(fdk::Framing::Loas, {.objectType = 5, .bitRate = 48000, .signalling = 1})},
    {"FdkLatmHeBehind", LOAS,
     byFdk(fdk::Framing::Loas,
           {.objectType = 5, .bitRate = 48000, .signalling = 2, .audioMuxVersion = 1})},
    {"FdkLatmHeV2", LOAS, byFdk(fdk::Framing::Loas, {.objectType = 29, .bitRate = 32000})},
    {"FdkLatmSurround", LOAS, byFdk(fdk::Framing::Loas, {.channels = 6, .bitRate = 320000})},
    {"FdkAdtsCrc", ADTS, byFdk(fdk::Framing::Adts, {.crc = true})},
    {"FdkAdtsCrcBlocks", ADTS, byFdk(fdk::Framing::Adts, {.subFrames = 4, .crc = true})},
    {"FdkAdtsHe", ADTS, byFdk(fdk::Framing::Adts, {.objectType = 5, .bitRate = 48000})},
    {"FdkAdts96", ADTS, byFdk(fdk::Framing::Adts, {.sampleRate = 96000, .bitRate = 192000})},
    {"FdkAdts8", ADTS,
     byFdk(fdk::Framing::Adts, {.sampleRate = 8000, .channels = 1, .bitRate = 16000})},
};

constexpr auto nameOf = [](const auto& test) { return std::string(test.param.name); };

std::vector<Variant> decodedByBoth() {
    std::vector<Variant> variants(std::begin(VARIANTS), std::end(VARIANTS));
    std::erase_if(variants, [](const Variant& v) { return v.compare == Variant::UNITS_ALONE; });
    return variants;
}

INSTANTIATE_TEST_SUITE_P(Makers, AacFramingTest, testing::ValuesIn(VARIANTS), nameOf);
INSTANTIATE_TEST_SUITE_P(Makers, AacSamplesTest, testing::ValuesIn(decodedByBoth()), nameOf);

}  // namespace
}  // namespace OrvPlayer
