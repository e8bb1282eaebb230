// What the extractor takes from an SPS against what libavcodec's decoder takes from it.

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "decoder/H264MediaExtractor.h"
#include "decoder/PesRing.h"
#include "media/Av.h"
#include "support/H264Builder.h"
#include "support/TraceCapture.h"

namespace OrvPlayer {
namespace {

using namespace h264;

// How the extractor's frame duration compares to the reciprocal of libavcodec's frame rate. The
// size is the same whenever there is a duration.
enum class Duration {
    Same,
    // One tick, half a frame: only a fixed frame rate together with a picture structure or a field
    // picture makes two ticks of it. libavcodec takes every frame for two ticks.
    OneTick,
    // None: pictures are not told apart, and the PES goes out whole.
    None,
};

struct Variant {
    std::string name;
    std::function<void(SpsFields&)> change = [](SpsFields&) {};
    Duration duration = Duration::OneTick;
    bool fieldPic = false;
    unsigned picStruct = 0;  // of the SEI, where the SPS announces one
};

void PrintTo(const Variant& variant, std::ostream* out) {
    *out << variant.name;
}

struct Reading {
    uint32_t width = 0;
    uint32_t height = 0;
    long long duration = 0;  // 90 kHz, rounded down; 0: none
    size_t units = 0;

    bool operator==(const Reading&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const Reading& r) {
        return out << r.width << "x" << r.height << ", " << r.duration << ", " << r.units
                   << " units";
    }
};

class H264TimingTest : public testing::TestWithParam<Variant> {
protected:
    void SetUp() override {
        const Variant& variant = GetParam();
        variant.change(mSps);
        mSlice = {.type = 5, .frameNumBits = static_cast<unsigned>(mSps.frameNumCode) + 4};
        if (!mSps.frameMbsOnly) {
            mSlice.fieldPic = variant.fieldPic;
        }
        mHead = aud() + sps(mSps) + pps();
        if (mSps.picStruct) {
            mHead = mHead + picTiming(variant.picStruct);
        }
    }

    // The rest of a slice header, too, can be read from bytes of 0xFF.
    Bytes slice() const { return h264::slice(0xFF, mSlice, 64); }

    Reading byExtractor() {
        PesRing ring;
        android::sp<H264MediaExtractor> extractor = new H264MediaExtractor(ring.buffer);
        ring.push(90000, mHead + slice() + aud() + slice());
        const auto units = ring.drain(*extractor);
        Reading reading;
        reading.units = units.size();
        reading.duration = units.size() == 2 ? units[1].pts - units[0].pts : 0;
        extractor->getVideoResolution(&reading.width, &reading.height);
        return reading;
    }

    Reading byLibavcodec() {
        av_log_set_level(AV_LOG_QUIET);
        const orvhost::AvContext context(
            avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_H264)));
        context->thread_count = 1;
        EXPECT_EQ(avcodec_open2(context.get(), nullptr, nullptr), 0);
        Bytes bytes = mHead + slice();
        const orvhost::AvPacket packet(av_packet_alloc());
        EXPECT_EQ(av_new_packet(packet.get(), static_cast<int>(bytes.size())), 0);
        std::copy(bytes.begin(), bytes.end(), packet->data);
        avcodec_send_packet(context.get(), packet.get());  // the slice data is none
        Reading reading{static_cast<uint32_t>(context->width),
                        static_cast<uint32_t>(context->height)};
        if (context->framerate.num != 0) {
            reading.duration = 90000LL * context->framerate.den / context->framerate.num;
            mTick = 45000LL * context->framerate.den / context->framerate.num;
        }
        return reading;
    }

    SpsFields mSps;
    SliceFields mSlice;
    Bytes mHead;
    long long mTick = 0;  // of libavcodec, in 90 kHz
};

TEST_P(H264TimingTest, ReadsTheSpsAsLibavcodecDoes) {
    const orvtest::TraceCapture trace;
    const Reading theirs = byLibavcodec();
    const Reading ours = byExtractor();
    EXPECT_NE(theirs.width, 0u);
    switch (GetParam().duration) {
        case Duration::Same:
            EXPECT_EQ(ours, (Reading{theirs.width, theirs.height, theirs.duration, 2}));
            break;
        case Duration::OneTick:
            EXPECT_EQ(ours, (Reading{theirs.width, theirs.height, mTick, 2}));
            break;
        case Duration::None:
            EXPECT_EQ(ours.duration, 0);
            EXPECT_EQ(ours.units, 1u);
            break;
    }
}

// The chroma fields of a high profile; `lists` stands for the scaling matrix.
Bits chroma(uint64_t format, uint64_t depth, const Bits& lists = Bits()) {
    Bits out;
    out.ue(format);
    if (format == 3) {
        out.u(1, 0);
    }
    out.ue(depth - 8).ue(depth - 8).u(1, 0);
    return lists.bytes().empty() ? out.u(1, 0) : out.u(1, 1).append(lists);
}

auto high(unsigned profile, uint64_t format, uint64_t depth, const Bits& lists = Bits()) {
    return [=](SpsFields& f) {
        f.profile = profile;
        f.chroma = chroma(format, depth, lists);
    };
}

// Every second list is there: of flat differences, or one that stops early.
Bits scalingLists(int count) {
    Bits out;
    for (int list = 0; list < count; ++list) {
        out.u(1, list % 2 == 0);
        if (list % 4 == 2) {
            out.se(-8);
        }
        for (int i = 0; list % 4 == 0 && i < (list < 6 ? 16 : 64); ++i) {
            out.se(i % 3 - 1);
        }
    }
    return out;
}

std::vector<Variant> rates() {
    struct {
        const char* name;
        uint32_t units, scale;
    } static const RATES[] = {
        {"24", 1, 48},        {"25", 1, 50},           {"29_97", 1001, 60000},
        {"30", 1, 60},        {"50", 1, 100},          {"59_94", 1001, 120000},
        {"60", 3000, 360000}, {"23_976", 1001, 48000}, {"12_5", 2, 50}};
    std::vector<Variant> variants;
    for (const auto& rate : RATES) {
        const auto timing = [=](bool fixed, bool picStruct, bool frameMbsOnly) {
            return [=](SpsFields& f) {
                f.timing = Timing{rate.units, rate.scale, fixed};
                f.picStruct = picStruct;
                f.frameMbsOnly = frameMbsOnly;
            };
        };
        const auto add = [&](const char* kind, const Variant& v) {
            variants.push_back(v);
            variants.back().name = std::string("Rate") + rate.name + kind;
        };
        add("Fixed", {"", timing(true, false, true)});
        add("Variable", {"", timing(false, false, true)});
        add("FixedFields", {"", timing(true, false, false), Duration::Same, true});
        add("FixedFrame", {"", timing(true, true, true)});
        add("FixedTopBottom", {"", timing(true, true, false), Duration::Same, false, 3});
        add("VariableTopBottom", {"", timing(false, true, false), Duration::OneTick, false, 3});
    }
    return variants;
}

const auto poc(const Bits& bits) {
    return [=](SpsFields& f) { f.poc = bits; };
}

auto sized(uint64_t widthMbs, uint64_t mapUnits, bool frameMbsOnly,
           const std::vector<uint64_t>& crop) {
    return [=](SpsFields& f) {
        f.widthMbs = widthMbs;
        f.mapUnits = mapUnits;
        f.frameMbsOnly = frameMbsOnly;
        if (!crop.empty()) {
            f.crop = crop;
        }
    };
}

auto both(const std::function<void(SpsFields&)>& first,
          const std::function<void(SpsFields&)>& second) {
    return [=](SpsFields& f) {
        first(f);
        second(f);
    };
}

auto hrd(bool nal, bool vcl) {
    return [=](SpsFields& f) {
        if (nal) {
            f.nalHrd = HrdFields{2};
        }
        if (vcl) {
            f.vclHrd = HrdFields{1};
        }
    };
}

std::vector<Variant> fields() {
    const Bits cycle = Bits().ue(1).u(1, 0).se(-3).se(4).ue(2).se(-9).se(9);
    return {
        {"Size1920x1080", sized(120, 68, true, {0, 0, 0, 4})},
        {"Size1920x1080Fields", sized(120, 34, false, {0, 0, 0, 2})},
        {"Size1440x1080Fields", sized(90, 34, false, {0, 0, 0, 2})},
        {"Size1920x1088", sized(120, 68, true, {})},
        {"Size720x480Fields", sized(45, 15, false, {})},
        {"Size320x180", sized(20, 12, true, {0, 0, 0, 6})},
        {"SizeCroppedAllAround", sized(20, 12, true, {1, 2, 3, 4})},
        {"SizeOdd444", both(high(244, 3, 8), sized(20, 12, true, {1, 2, 3, 4}))},
        {"SizeOdd444Fields", both(high(244, 3, 8), sized(20, 6, false, {0, 1, 0, 1}))},
        {"SizeOddMonochrome", both(high(100, 0, 8), sized(20, 12, true, {0, 1, 0, 1}))},
        {"Size422Fields", both(high(122, 2, 8), sized(20, 6, false, {0, 3, 0, 3}))},
        {"Profile66", [](auto& f) { f.profile = 66; }},
        {"Profile77", [](auto& f) { f.profile = 77; }},
        {"Profile88", [](auto& f) { f.profile = 88; }},
        {"Profile100", high(100, 1, 8)},
        {"Profile110Depth10", high(110, 1, 10)},
        {"Profile122Depth10", high(122, 2, 10)},
        {"Profile244Depth9", high(244, 3, 9)},
        // Deliberately read like the simple profiles.
        {"Profile138", high(138, 1, 8), Duration::None},
        {"ScalingMatrix", high(100, 1, 8, scalingLists(8))},
        {"ScalingMatrix422", high(122, 2, 10, scalingLists(8))},
        // Eight lists are read of twelve.
        {"ScalingMatrix444", high(244, 3, 8, scalingLists(12)), Duration::None},
        {"PocType0", poc(Bits().ue(0).ue(4))},
        {"PocType1", poc(cycle)},
        {"PocType2", poc(Bits().ue(2))},
        {"LongFrameNum", [](auto& f) { f.frameNumCode = 12; }},
        {"SixteenReferences", [](auto& f) { f.refFrames = 16; }},
        {"AspectRatioWritten", [](auto& f) { f.aspectRatio = 255; }},
        {"SignalTypeAndRestrictions",
         [](auto& f) {
             f.overscanToChromaLoc =
                 Bits().u(2, 3).u(1, 1).u(4, 5).u(1, 1).u(24, 0x010101).u(1, 1).ue(2).ue(3);
             f.restrictions = {{1, 2, 11, 12, 3, 4}};
         }},
        {"HrdNal", hrd(true, false)},
        {"HrdVcl", hrd(false, true)},
        {"HrdBoth", hrd(true, true)},
        // The last fields of an HRD are read with five bits too many, so that the flag for picture
        // structures is not found.
        {"HrdNalTopBottom",
         both(hrd(true, false),
              [](auto& f) {
                  f.picStruct = true;
                  f.frameMbsOnly = false;
              }),
         Duration::OneTick, false, 3},
        // No timing, no duration; the standard leaves it open then.
        {"NoVui", [](auto& f) { f.vui = false; }, Duration::None},
        {"NoTiming", [](auto& f) { f.timing.reset(); }, Duration::None},
    };
}

constexpr auto nameOf = [](const auto& test) { return test.param.name; };
INSTANTIATE_TEST_SUITE_P(Rates, H264TimingTest, testing::ValuesIn(rates()), nameOf);
INSTANTIATE_TEST_SUITE_P(Fields, H264TimingTest, testing::ValuesIn(fields()), nameOf);

}  // namespace
}  // namespace OrvPlayer
