#include "decoder/H264MediaExtractor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <string>
#include <vector>

#include "decoder/PesRing.h"
#include "support/H264Builder.h"
#include "support/TraceCapture.h"

namespace OrvPlayer {
namespace {

using namespace h264;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr unsigned IDR = H264MediaExtractor::FLAG_IDR;
constexpr unsigned NEW_SPS = H264MediaExtractor::FLAG_NEW_SPS;
constexpr long long TICKS = 1501;  // of a frame of the usual SPS

Bytes idr(uint8_t tag) {
    return slice(tag, {.type = 5});
}
Bytes furtherSlice(uint8_t tag) {
    return slice(tag, {.firstMb = 60});
}
SpsFields withPicStruct() {
    SpsFields fields;
    fields.timing = Timing{1001, 60000, true};
    fields.picStruct = true;
    return fields;
}

struct Durations : FrameRateListener {
    void onFrameDuration(uint64_t duration) override { told.push_back(duration); }
    std::vector<uint64_t> told;
};

class H264MediaExtractorTest : public testing::Test {
protected:
    H264MediaExtractorTest() { mExtractor->setFrameRateListener(&mDurations); }

    std::vector<PesRing::Unit> feed(long long pts, const Bytes& payload,
                                    unsigned long capacity = 65536) {
        mRing.push(static_cast<uint64_t>(pts), payload);
        return mRing.drain(*mExtractor, capacity);
    }
    // The bytes of the units of one payload.
    std::vector<Bytes> cut(const Bytes& payload) {
        std::vector<Bytes> units;
        for (PesRing::Unit& unit : feed(0, payload)) {
            units.push_back(std::move(unit.bytes));
        }
        return units;
    }
    void startWorkaround() {
        for (int block = 0; block < 31; ++block) {
            feed(0, slice(1) + slice(2));
        }
        EXPECT_THAT(mTrace.take(), ElementsAre("getNextAccessUnit: apply workaround"));
    }

    orvtest::TraceCapture mTrace;
    PesRing mRing;
    Durations mDurations;
    android::sp<H264MediaExtractor> mExtractor = new H264MediaExtractor(mRing.buffer);
};

// Delimiters cut; the units of one PES are a frame duration apart, the next PES has its own time.
TEST_F(H264MediaExtractorTest, CutsAtDelimiters) {
    const Bytes first = aud() + sps() + pps() + idr(0xA1) + furtherSlice(0xA2);
    const Bytes second = aud() + slice(0xB1);
    const Bytes third = aud() + slice(0xC1) + furtherSlice(0xC2);
    EXPECT_THAT(feed(90000, first + second + third),
                ElementsAre(PesRing::Unit{first, 90000, IDR | NEW_SPS},
                            PesRing::Unit{second, 90000 + TICKS, 0},
                            PesRing::Unit{third, 90000 + 2 * TICKS, 0}));
    EXPECT_THAT(feed(180000, aud() + idr(0xD1)),
                ElementsAre(PesRing::Unit{aud() + idr(0xD1), 180000, IDR}));
    EXPECT_THAT(mDurations.told, ElementsAre(TICKS));
    EXPECT_THAT(mTrace.take(), IsEmpty());
    uint32_t width = 0, height = 0;
    EXPECT_TRUE(mExtractor->getVideoResolution(&width, &height));
    EXPECT_EQ(width, 1920u);
    EXPECT_EQ(height, 1088u);
}

TEST_F(H264MediaExtractorTest, CutsInManyForms) {
    feed(0, aud() + sps() + idr(0));  // known from here on
    struct {
        const char* name;
        Bytes payload;
        std::vector<Bytes> units;
    } const CASES[] = {
        {"SPS first, without delimiters",
         sps() + pps() + idr(1) + sps() + pps() + idr(2),
         {sps() + pps() + idr(1), sps() + pps() + idr(2)}},
        {"short start codes",
         aud(3) + slice(1, {.startCodeBytes = 3}) + aud(3) + slice(2),
         {aud(3) + slice(1, {.startCodeBytes = 3}), aud(3) + slice(2)}},
        {"rest of the picture before",
         Bytes{7, 8, 9} + furtherSlice(1) + aud() + slice(2),
         {aud() + slice(2)}},
        {"a picture's end without a delimiter",
         aud() + slice(1) + slice(2) + aud() + slice(3),
         {aud() + slice(1), aud()}},  // Deliberate: the picture of 2 stays open behind it
        {"first slices alone: every second one",
         slice(1) + slice(2) + slice(3) + slice(4),
         {slice(2), slice(4)}},
        {"delimiter without a picture",
         aud() + pps() + aud() + slice(1),
         {aud() + pps() + aud() + slice(1)}},
        {"data partitions, fillers and end codes are passed over",
         aud() + slice(1) + nal(2, {0x80, 1}) + nal(3, {0x80}) + nal(4, {0x80}) + nal(12, {0xFF}) +
             nal(10, {}) + nal(11, {}) + aud() + slice(2),
         {aud() + slice(1) + nal(2, {0x80, 1}) + nal(3, {0x80}) + nal(4, {0x80}) + nal(12, {0xFF}) +
              nal(10, {}) + nal(11, {}),
          aud() + slice(2)}},
        {"nothing", {}, {}},
        {"no start code", {1, 2, 3, 0, 0, 0}, {}},
    };
    for (const auto& test : CASES) {
        EXPECT_EQ(cut(test.payload), test.units) << test.name;
    }
    EXPECT_EQ(mDurations.told.size(), 1u);
}

// Deliberate: emulation prevention stays in slice headers. Here its byte stands where the flag of
// field pictures is looked for, and turns it on.
TEST_F(H264MediaExtractorTest, SliceHeadersAreReadAsTheyStand) {
    SpsFields fields;
    fields.frameMbsOnly = false;
    fields.frameNumCode = 12;
    const Bytes header = Bits().ue(0).ue(7).ue(127).u(16, 0).u(1, 0).u(8, 0).trailing().bytes();
    EXPECT_NE(escaped(header), header);
    feed(0, aud() + sps(fields) + nal(1, header));
    EXPECT_THAT(mDurations.told, ElementsAre(3003));
}

struct DurationCase {
    Timing timing;
    int picStruct;  // -1: none in the stream
    std::optional<bool> fieldPic;
    std::vector<uint64_t> durations;
};

TEST_F(H264MediaExtractorTest, FrameDuration) {
    const DurationCase CASES[] = {
        {{1001, 60000, true}, -1, {}, {1501}},
        {{1001, 60000, true}, -1, false, {1501}},
        {{1001, 60000, true}, -1, true, {3003}},
        {{1001, 60000, false}, -1, true, {1501}},
        {{1001, 60000, true}, 0, {}, {1501}},
        {{1001, 60000, true}, 3, {}, {3003}},
        {{1001, 60000, true}, 8, {}, {3003}},
        {{1001, 60000, true}, 0, true, {1501}},
        {{1001, 60000, false}, 3, {}, {1501}},
        {{0xFFFFFFFF, 1, true}, 3, {}, {0xFFFFFFFFull * 180000}},
        {{1, 0xFFFFFFFF, true}, -1, {}, {0}},
        {{1001, 60000, true}, 9, {}, {}},  // damaged: no picture gets out
    };
    for (const DurationCase& test : CASES) {
        SpsFields fields;
        fields.timing = test.timing;
        fields.picStruct = test.picStruct >= 0;
        fields.frameMbsOnly = !test.fieldPic.has_value();
        Bytes payload = aud() + sps(fields);
        if (test.picStruct >= 0) {
            payload = payload + picTiming(static_cast<unsigned>(test.picStruct));
        }
        payload = payload + slice(1, {.fieldPic = test.fieldPic});
        const Bytes next = aud() + slice(2, {.fieldPic = test.fieldPic});
        mExtractor->reset();
        mDurations.told.clear();
        const auto units = feed(7, payload + next);
        EXPECT_EQ(mDurations.told, test.durations);
        if (test.durations.empty()) {
            EXPECT_THAT(units, ElementsAre(PesRing::Unit{payload + next, 7, NEW_SPS}));
        } else {
            ASSERT_EQ(units.size(), 2u);
            EXPECT_EQ(units[1].pts, 7 + static_cast<long long>(test.durations[0]));
        }
    }
    // Many units of a long duration: their times add up modulo 2^64.
    mExtractor->reset();
    const auto units = feed(LLONG_MAX, aud() + sps() + slice(1) + aud() + slice(2));
    ASSERT_EQ(units.size(), 2u);
    EXPECT_EQ(units[1].pts, LLONG_MIN + TICKS - 1);
}

// Slices wait for an SPS, for a picture timing where the SPS says that there are some, and for a
// duration; a unit that began before collects everything.
TEST_F(H264MediaExtractorTest, WaitsForWhatItNeeds) {
    EXPECT_THAT(cut(aud() + slice(1) + aud() + slice(2)), IsEmpty());
    EXPECT_THAT(cut(aud() + slice(1) + sps(withPicStruct()) + slice(2)),
                ElementsAre(aud() + slice(1) + sps(withPicStruct()) + slice(2)));
    EXPECT_THAT(cut(aud() + slice(1) + aud() + slice(2)),
                ElementsAre(aud() + slice(1) + aud() + slice(2)));
    EXPECT_THAT(cut(aud() + slice(1) + aud() + picTiming(3) + slice(2) + aud() + slice(3)),
                ElementsAre(aud() + slice(1) + aud() + picTiming(3) + slice(2), aud() + slice(3)));
    EXPECT_THAT(mTrace.take(), IsEmpty());

    mExtractor->reset();
    SpsFields noTiming;
    noTiming.timing.reset();
    cut(aud() + sps(noTiming) + slice(1));
    EXPECT_THAT(mTrace.take(), ElementsAre("calculateFrameRate: Invalid timing",
                                           "getNextAccessUnit: Error calculating frame rate."));
}

TEST_F(H264MediaExtractorTest, DamagedSeiIsLogged) {
    feed(0, aud() + sps(withPicStruct()) + nal(6, {1, 0x80}) + picTiming(9) + slice(1));
    EXPECT_THAT(mTrace.take(), ElementsAre("decodeNALUnit: NAL Unit with less than 4 bytes?",
                                           "decodeSEI: Error decoding NAL Unit",
                                           "getNextAccessUnit: Error decoding SEI.",
                                           "decodePicTimingSEI: Invalid picStruct value: 9",
                                           "decodeSEI: Error decoding SEI"));
    EXPECT_THAT(mDurations.told, IsEmpty());
    // The timing found once, no message is looked at any more.
    feed(0, aud() + picTiming(3) + picTiming(9) + slice(1));
    EXPECT_THAT(mTrace.take(), IsEmpty());
    EXPECT_THAT(mDurations.told, ElementsAre(3003));
}

// A damaged first SPS counts: without its values no picture is recognised until a reset, after
// which the values last known serve the slices in front of the next SPS.
TEST_F(H264MediaExtractorTest, DamagedFirstSpsCounts) {
    SpsFields noVui;
    noVui.vui = false;
    const Bytes damaged = aud() + sps(noVui) + slice(1);
    EXPECT_THAT(feed(0, damaged), ElementsAre(PesRing::Unit{damaged, 0, 0}));
    EXPECT_THAT(mTrace.take(), testing::Contains("getNextAccessUnit: Error decoding SPS"));
    EXPECT_THAT(cut(aud() + sps() + slice(1) + aud() + slice(2)), testing::SizeIs(1));
    EXPECT_THAT(mDurations.told, IsEmpty());
    uint32_t width, height;
    EXPECT_FALSE(mExtractor->getVideoResolution(&width, &height));

    mExtractor->reset();
    EXPECT_THAT(cut(aud() + sps() + slice(1) + aud() + slice(2)), testing::SizeIs(2));
    mExtractor->reset();
    EXPECT_THAT(cut(damaged + aud() + slice(2)), ElementsAre(damaged, aud() + slice(2)));
    EXPECT_THAT(mDurations.told, ElementsAre(TICKS, TICKS));
    EXPECT_TRUE(mExtractor->getVideoResolution(&width, &height));
}

// With an HRD, whose tail takes five bits too many, the SPS ends behind its unit's last byte: in
// the start code of the next one, or in zeros where the payload ends.
TEST_F(H264MediaExtractorTest, SpsReachesFourBytesPastItsEnd) {
    SpsFields fields;
    fields.nalHrd = HrdFields{1, 24, 24, 24, 31};  // the last bit turns the VCL HRD on
    fields.picStruct = true;
    for (const Bytes& behind : {Bytes(), pps(), Bytes{0}}) {
        mExtractor->reset();
        EXPECT_THAT(feed(0, aud() + sps(fields) + behind),
                    ElementsAre(PesRing::Unit{aud() + sps(fields) + behind, 0, NEW_SPS}));
    }
    EXPECT_THAT(mTrace.take(), IsEmpty());
    EXPECT_THAT(cut(aud() + slice(1) + aud() + slice(2)),
                ElementsAre(aud() + slice(1), aud() + slice(2)));
}

TEST_F(H264MediaExtractorTest, WorkaroundCutsAtEveryFirstSlice) {
    for (int block = 0; block < 30; ++block) {
        EXPECT_THAT(cut(slice(1) + furtherSlice(2)), IsEmpty());
    }
    cut(aud());  // a unit could start: the count begins anew
    for (int block = 0; block < 62; ++block) {
        // The beginning of a group of pictures every 31 payloads: only that comes out.
        const bool first = block % 31 == 30;
        EXPECT_EQ(cut(first ? sps() + idr(1) : slice(1)).size(), first ? 1u : 0u);
    }
    EXPECT_THAT(mTrace.take(), IsEmpty());
    mExtractor->reset();
    startWorkaround();
    for (int block = 0; block < 300; ++block) {
        cut(slice(1));
    }
    EXPECT_THAT(mTrace.take(), IsEmpty()) << "once only";

    // Deliberate: the parameter sets become a unit of their own, and a unit that ends at an IDR
    // slice is marked like the one that holds it.
    EXPECT_THAT(feed(90, sps() + pps() + slice(1) + furtherSlice(2) + idr(3)),
                ElementsAre(PesRing::Unit{sps() + pps(), 90, NEW_SPS},
                            PesRing::Unit{slice(1) + furtherSlice(2), 90 + TICKS, IDR},
                            PesRing::Unit{idr(3), 90 + 2 * TICKS, IDR}));
    mExtractor->reset();
    EXPECT_THAT(cut(slice(1)), IsEmpty());
    EXPECT_THAT(cut(sps() + slice(1) + slice(2)), ElementsAre(sps(), slice(1), slice(2)));
}

// A unit that does not fit is dropped without a word; its time goes to the next one.
TEST_F(H264MediaExtractorTest, DropsUnitsThatDoNotFit) {
    const Bytes large = aud() + sps() + slice(1, {}, 500);
    const Bytes small = aud() + slice(2);
    EXPECT_THAT(feed(5, large + small, small.size()), ElementsAre(PesRing::Unit{small, 5, 0}));
    EXPECT_THAT(feed(5, small, small.size() - 1), IsEmpty());
    EXPECT_THAT(mTrace.take(), IsEmpty());
}

// reset() leaves the record unread and its bytes where they are.
TEST_F(H264MediaExtractorTest, ResetStartsTheRecordOver) {
    const Bytes first = aud() + sps() + slice(1);
    mRing.push(10, first + aud() + slice(2));
    EXPECT_EQ(mRing.next(*mExtractor).bytes, first);
    const unsigned used = mRing.buffer->getDataSize();
    mExtractor->reset();
    EXPECT_EQ(mRing.buffer->getDataSize(), used);
    unsigned char* free = mRing.buffer->read(1, RingBuffer::NON_BLOCKING);
    ASSERT_NE(free, nullptr);
    mRing.buffer->readAdvance(0);
    EXPECT_THAT(mRing.drain(*mExtractor),
                ElementsAre(PesRing::Unit{first, 10, NEW_SPS},
                            PesRing::Unit{aud() + slice(2), 10 + TICKS, 0}));
    EXPECT_THAT(mDurations.told, ElementsAre(TICKS, TICKS));
    mExtractor->reset();  // with nothing at hand
}

TEST_F(H264MediaExtractorTest, WaitsOnceForARecord) {
    unsigned long size = 1;
    long long pts = 0;
    unsigned char flags = 1;
    const auto call = [&] { return mExtractor->getDecodableUnit(nullptr, 0, &size, &pts, &flags); };
    // Each look takes its time: a record that stays bad is not met again at once.
    const auto callAndWait = [&] {
        const auto start = std::chrono::steady_clock::now();
        const int status = call();
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(90));
        return status;
    };
    EXPECT_EQ(callAndWait(), MediaExtractor::STATUS_NO_RECORD);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(flags, 0);

    // A record that claims more than there is, or less than its own fixed part.
    PESData* record = mRing.push(0, aud());
    const uint32_t whole = record->mSize;
    for (const uint32_t claimed : {whole + 100, 0xFFFFFFFFu, 39u, 0u}) {
        record->mSize = claimed;
        EXPECT_EQ(callAndWait(), MediaExtractor::STATUS_FAULT);
        EXPECT_THAT(mTrace.take(), ElementsAre("getDecodableUnit: RingBuffer fatal errror: 48 " +
                                               std::to_string(claimed)));
    }
    record->mSize = whole;
    EXPECT_EQ(call(), MediaExtractor::STATUS_OK);
    EXPECT_EQ(mRing.buffer->getDataSize(), 0u);
}

// A payload that is said to lie outside its record is cut to the record.
TEST_F(H264MediaExtractorTest, PayloadStaysInsideItsRecord) {
    feed(0, aud() + sps() + slice(1));
    const Bytes unit = aud() + slice(2);
    struct {
        uint32_t offset, size;
        size_t unitBytes;
    } const CASES[] = {
        {40, 0xFFFFFFFF, unit.size()},
        {40, static_cast<uint32_t>(unit.size()) + 1, unit.size()},
        {41, 0x80000000, unit.size() - 1},
        {0xFFFFFFFF, 0xFFFFFFFF, 0},
        {40, 0, 0},
        {40 + static_cast<uint32_t>(unit.size()), 100, 0},
    };
    for (const auto& test : CASES) {
        PESData* record = mRing.push(0, unit);
        record->mOffsetES = test.offset;
        record->mSizeES = test.size;
        size_t bytes = 0;
        for (const PesRing::Unit& out : mRing.drain(*mExtractor)) {
            bytes += out.bytes.size();
        }
        EXPECT_EQ(bytes, test.unitBytes) << test.offset << ", " << test.size;
    }
}

// Zero bytes in front of the payload are not part of it.
TEST_F(H264MediaExtractorTest, NeverStepsBackOutOfThePayload) {
    feed(0, aud() + sps() + slice(1));
    const Bytes header(12, 0);
    mRing.push(0, aud(3) + slice(2), header);
    EXPECT_EQ(mRing.drain(*mExtractor)[0].bytes, aud(3) + slice(2));
    for (const Bytes& cutStart : {Bytes{1, 9, 0xF0}, Bytes{0, 1, 9, 0xF0}}) {
        mRing.push(0, cutStart + aud() + slice(3), header);
        EXPECT_EQ(mRing.drain(*mExtractor)[0].bytes, aud() + slice(3));
    }
}

// Every unit cut short at every byte, each time with its end at the record's end.
TEST_F(H264MediaExtractorTest, CutAnywhere) {
    SpsFields fields = withPicStruct();
    fields.frameMbsOnly = false;
    const Bytes whole = aud() + sps(fields) + picTiming(3) + slice(1, {.fieldPic = true}, 1) +
                        aud() + slice(2, {.fieldPic = true}, 1);
    for (size_t length = 0; length < whole.size(); ++length) {
        mExtractor->reset();
        const Bytes part(whole.begin(), whole.begin() + static_cast<long>(length));
        Bytes out;
        for (const PesRing::Unit& unit : feed(0, part)) {
            out = out + unit.bytes;
        }
        EXPECT_TRUE(out.empty() || out == part || out.size() + 1 == part.size()) << length;
    }
}

// A short slice is passed over, and so is one whose first code never ends.
TEST_F(H264MediaExtractorTest, ShortSlices) {
    feed(0, aud() + sps());
    const Bytes endless = nal(1, {0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
    EXPECT_THAT(cut(aud() + slice(1) + endless), ElementsAre(aud() + slice(1) + endless));
    EXPECT_THAT(cut(aud() + slice(1) + nal(1, {})), ElementsAre(aud() + slice(1) + nal(1, {})));
    EXPECT_THAT(cut(aud() + slice(1) + nal(1, {0x02})),
                ElementsAre(aud() + slice(1) + nal(1, {0x02})));
}

}  // namespace
}  // namespace OrvPlayer
