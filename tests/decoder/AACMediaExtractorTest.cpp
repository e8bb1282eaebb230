#include "decoder/AACMediaExtractor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <optional>

#include "decoder/ASCParser.h"
#include "decoder/PesRing.h"
#include "support/AacFrames.h"
#include "support/TraceCapture.h"

static bool gIsMemoryShort = false;

extern "C" {
HANDLE_TRANSPORTDEC __real__Z17transportDec_Open14TRANSPORT_TYPEjj(TRANSPORT_TYPE, unsigned,
                                                                   unsigned);
// Linked in place of transportDec_Open(). NOLINTNEXTLINE(bugprone-reserved-identifier)
HANDLE_TRANSPORTDEC __wrap__Z17transportDec_Open14TRANSPORT_TYPEjj(TRANSPORT_TYPE type,
                                                                   unsigned flags,
                                                                   unsigned layers) {
    return gIsMemoryShort ? nullptr
                          : __real__Z17transportDec_Open14TRANSPORT_TYPEjj(type, flags, layers);
}
}

namespace {

using namespace orvtest;
using namespace OrvPlayer;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint64_t kT = 90000;     // time of the first unit
constexpr uint64_t kFrame = 1920;  // 1024 samples at 48 kHz

const Bytes kStereo48 = {0x11, 0x90, 0, 0, 0, 0, 0, 0, 0, 0};
const Bytes kRubbish(200, 0x3C);

using Unit = PesRing::Unit;

Unit unitAt(const Bytes& bytes, uint64_t pts) {
    return {bytes, static_cast<long long>(pts)};
}
Unit configAt(const Bytes& bytes, uint64_t pts) {
    return {bytes, static_cast<long long>(pts), MediaExtractor::FLAG_CODEC_CONFIG};
}

class AACMediaExtractorTest : public testing::Test {
protected:
    void open(AACMediaExtractor::transportLayer_t transport, unsigned sizeExponent = 16) {
        mRing.emplace(sizeExponent);
        mExtractor = new AACMediaExtractor(mRing->buffer, transport);
    }

    PESData* write(uint64_t pts, const Bytes& payload) {
        return mRing->push(pts, payload, Bytes(14, 0xEE));
    }
    Unit next() { return mRing->next(*mExtractor, mCapacity); }
    const std::vector<Unit>& drain() {
        for (Unit& unit : mRing->drain(*mExtractor, mCapacity)) {
            mUnits.push_back(std::move(unit));
        }
        return mUnits;
    }
    const std::vector<Unit>& feed(uint64_t pts, const Bytes& payload, int times = 1) {
        for (int i = 0; i < times; i++) {
            write(pts, payload);
            drain();
        }
        return mUnits;
    }
    bool isConsumed() const { return mRing->buffer->getDataSize() == 0; }

    bool isReadLockHeld() {
        char* text = nullptr;
        size_t size = 0;
        FILE* stream = open_memstream(&text, &size);
        mRing->buffer->dump(stream, 0);
        fclose(stream);
        const bool held = strstr(strstr(text, "ReadLock"), "Unlocked") == nullptr;
        free(text);
        return held;
    }

    TraceCapture mTrace;
    std::optional<PesRing> mRing;
    android::sp<AACMediaExtractor> mExtractor;
    std::vector<Unit> mUnits;
    size_t mCapacity = 8192;
};

const LoasMux kLoas;
const Adts kAdts;

// PES packets that end inside units 2 and 4; each is stamped with the time of the first unit that
// starts in it.
TEST_F(AACMediaExtractorTest, StampsUnitsThatRunOverPESEnds) {
    Bytes stream;
    std::vector<size_t> starts;
    for (unsigned i = 0; i < 7; i++) {
        starts.push_back(stream.size());
        stream = stream + kLoas.frame({aacUnit(i, 100 + i)});
    }
    const auto cut = [&stream](size_t from, size_t to) {
        return Bytes(stream.begin() + static_cast<long>(from),
                     stream.begin() + static_cast<long>(to));
    };
    open(AACMediaExtractor::LOAS);
    write(kT, cut(0, starts[2] + 50));
    write(kT + 3 * kFrame, cut(starts[2] + 50, starts[4] + 1));
    write(kT + 5 * kFrame, cut(starts[4] + 1, stream.size()));
    std::vector<Unit> expected = {configAt(kStereo48, kT)};
    for (unsigned i = 1; i < 7; i++) {
        expected.push_back(unitAt(aacUnit(i, 100 + i), kT + i * kFrame));
    }
    EXPECT_EQ(drain(), expected);
}

// Deliberate: a packet that ends with its unit looks like one that ended inside the next.
TEST_F(AACMediaExtractorTest, UnitsAlignedToPESAreStampedOneFrameEarly) {
    open(AACMediaExtractor::ADTS);
    for (unsigned i = 0; i < 6; i += 2) {
        write(kT + i * kFrame, kAdts.frame({aacUnit(i, 90)}) + kAdts.frame({aacUnit(i + 1, 90)}));
    }
    EXPECT_THAT(drain(), ElementsAre(configAt(kStereo48, kT),  // in place of unit 0
                                     unitAt(aacUnit(1, 90), kT + kFrame),
                                     unitAt(aacUnit(2, 90), kT + 2 * kFrame),
                                     unitAt(aacUnit(3, 90), kT + 2 * kFrame),
                                     unitAt(aacUnit(4, 90), kT + 3 * kFrame),
                                     unitAt(aacUnit(5, 90), kT + 4 * kFrame)));
}

TEST_F(AACMediaExtractorTest, GivesTheConfigurationThatTheStreamSignals) {
    LoasMux sbr;
    sbr.asc = Bits().u(5, 5).u(4, 6).u(4, 2).u(4, 3).u(5, 2).u(3, 0);
    open(AACMediaExtractor::LOAS);
    feed(kT, sbr.frame({aacUnit(0, 50)}) + sbr.frame({aacUnit(1, 50)}));
    EXPECT_THAT(mUnits, ElementsAre(configAt({0x2B, 0x11, 0x88, 0, 0, 0, 0, 0, 0, 0}, kT),
                                    unitAt(aacUnit(1, 50), kT + 2 * kFrame)));
}

// A frequency of 0 gives no duration; a later configuration changes neither it nor what reset
// gives.
TEST_F(AACMediaExtractorTest, KeepsTheFirstConfiguration) {
    LoasMux zero;
    zero.asc = Bits().u(5, 2).u(4, 15).u(24, 0).u(4, 2).u(3, 0);
    const Bytes config = {0x17, 0x80, 0x00, 0x00, 0x10, 0, 0, 0, 0, 0};
    open(AACMediaExtractor::LOAS);
    feed(kT, zero.frame({aacUnit(0, 50)}) + kLoas.frame({aacUnit(1, 50), aacUnit(2, 50)}));
    mExtractor->reset();
    feed(2 * kT, kLoas.frame({aacUnit(3, 50)}));
    EXPECT_THAT(mUnits, ElementsAre(configAt(config, kT), unitAt(aacUnit(1, 50), kT),
                                    unitAt(aacUnit(2, 50), kT), configAt(config, kT)));
}

// Tuned in behind a configuration that comes every 60 frames only, 4 frames in a packet: the next
// one is understood with its own packet, long before the framing would be doubted.
TEST_F(AACMediaExtractorTest, StartsAtTheFirstConfigurationOfTheStream) {
    open(AACMediaExtractor::LOAS);
    for (unsigned packet = 0; packet < 17; packet++) {
        Bytes payload;
        for (unsigned i = 4 * packet; i < 4 * packet + 4; i++) {
            payload = payload + kLoas.frame({aacUnit(i, 50)}, i % 60 == 59);
        }
        feed(kT + 4 * packet * kFrame, payload);
    }
    ASSERT_EQ(mUnits.size(), 9u);
    EXPECT_EQ(mUnits[0].bytes, kStereo48) << "in place of unit 59";
    EXPECT_EQ(mUnits[1].bytes, aacUnit(60, 50));
    EXPECT_EQ(mUnits.back().bytes, aacUnit(67, 50));
}

TEST_F(AACMediaExtractorTest, LosesOnlyTheDamagedUnitAndTakesTheNextPESTime) {
    Bytes damaged = kLoas.frame({aacUnit(2, 60)});
    damaged[8] ^= 0x04;  // the unit's length
    open(AACMediaExtractor::LOAS);
    feed(kT, kLoas.frame({aacUnit(0, 60)}) + kLoas.frame({aacUnit(1, 60)}) + damaged);
    feed(kT + 3 * kFrame, kLoas.frame({aacUnit(3, 60)}) + kLoas.frame({aacUnit(4, 60)}));
    EXPECT_THAT(mUnits, ElementsAre(configAt(kStereo48, kT), unitAt(aacUnit(1, 60), kT + kFrame),
                                    unitAt(aacUnit(3, 60), kT + 3 * kFrame),
                                    unitAt(aacUnit(4, 60), kT + 4 * kFrame)));
}

// Four units a packet, each packet ending inside its last; one packet, or several, never came. The
// unit that the hole tore takes the time it would have had, everything behind it that of its own
// packet: units that wait in the framing must not slip to the time of the packet after.
TEST_F(AACMediaExtractorTest, ALostPESDelaysNoUnitBehindIt) {
    for (const unsigned lost : {1u, 5u}) {
        open(AACMediaExtractor::LOAS);
        mUnits.clear();
        Bytes stream;
        std::vector<size_t> starts;
        for (unsigned i = 0; i < 44; i++) {
            starts.push_back(stream.size());
            stream = stream + kLoas.frame({aacUnit(i, 100 + i)});
        }
        for (unsigned packet = 0; packet < 10; packet++) {
            if (packet >= 3 && packet < 3 + lost) {
                continue;
            }
            // Its first whole unit is the first that starts in it.
            const unsigned first = packet == 0 ? 0 : 4 * packet + 1;
            const size_t from = packet == 0 ? 0 : starts[4 * packet] + 40;
            feed(kT + first * kFrame,
                 Bytes(stream.begin() + static_cast<long>(from),
                       stream.begin() + static_cast<long>(starts[4 * packet + 4] + 40)));
        }
        std::vector<Unit> expected = {configAt(kStereo48, kT)};
        for (unsigned i = 1; i < 40; i++) {
            if (i < 12 || i > 12 + 4 * lost) {
                expected.push_back(unitAt(aacUnit(i, 100 + i), kT + i * kFrame));
            }
        }
        std::erase_if(mUnits, [](const Unit& unit) {
            return unit.pts == static_cast<long long>(kT + 12 * kFrame);  // torn
        });
        EXPECT_EQ(mUnits, expected) << lost;
    }
}

// What does not fit is dropped and takes no time with it.
TEST_F(AACMediaExtractorTest, DropsUnitsLargerThanTheOutput) {
    open(AACMediaExtractor::ADTS);
    mCapacity = 100;
    feed(kT, kAdts.frame({aacUnit(0, 100)}) + kAdts.frame({aacUnit(1, 101)}) +
                 kAdts.frame({aacUnit(2, 100)}));
    EXPECT_THAT(mUnits, ElementsAre(configAt(kStereo48, kT), unitAt(aacUnit(2, 100), kT + kFrame)));
}

// Nothing comes before the configuration; it is tried again with each unit.
TEST_F(AACMediaExtractorTest, WaitsForRoomForTheConfiguration) {
    open(AACMediaExtractor::ADTS);
    mCapacity = 9;
    feed(kT, kAdts.frame({aacUnit(0, 8)}) + kAdts.frame({aacUnit(1, 100)}));
    EXPECT_THAT(mUnits, IsEmpty());
    mCapacity = 10;
    feed(kT, kAdts.frame({aacUnit(2, 8)}) + kAdts.frame({aacUnit(3, 10)}));
    ASSERT_EQ(mUnits.size(), 2u);
    EXPECT_EQ(mUnits[0].bytes, kStereo48);
    EXPECT_EQ(mUnits[1].bytes, aacUnit(3, 10));
}

TEST_F(AACMediaExtractorTest, HoldsTheReadLockOnlyWhileUnitsCome) {
    open(AACMediaExtractor::LOAS);
    const Bytes payload = kLoas.frame({aacUnit(0, 50), aacUnit(1, 50)});
    feed(kT, payload);
    write(kT, payload);
    EXPECT_EQ(next().bytes, aacUnit(0, 50));
    EXPECT_TRUE(isReadLockHeld());
    EXPECT_EQ(next().bytes, aacUnit(1, 50));
    EXPECT_THAT(next().bytes, IsEmpty());  // used up
    EXPECT_TRUE(isConsumed());
    EXPECT_FALSE(isReadLockHeld());

    open(AACMediaExtractor::LOAS);
    write(kT, payload);
    EXPECT_EQ(next().bytes, kStereo48);
    EXPECT_FALSE(isReadLockHeld()) << "behind a configuration";
    EXPECT_FALSE(isConsumed());
}

// A reset while a record is held leaves it unread. The framing still has units of it: they come
// first, stamped on from the time reached, and the record met next is used up without being fed.
TEST_F(AACMediaExtractorTest, ResetForgetsTheRecordAndRepeatsTheConfiguration) {
    open(AACMediaExtractor::ADTS);
    feed(kT, kAdts.frame({aacUnit(0, 50)}));
    Bytes payload;
    for (unsigned i = 1; i < 5; i++) {
        payload = payload + kAdts.frame({aacUnit(i, 50)});
    }
    write(kT, payload);
    EXPECT_EQ(next(), unitAt(aacUnit(1, 50), kT + kFrame));
    EXPECT_EQ(next(), unitAt(aacUnit(2, 50), kT));
    EXPECT_TRUE(isReadLockHeld());
    mExtractor->reset();
    EXPECT_FALSE(isConsumed());
    EXPECT_FALSE(isReadLockHeld());
    EXPECT_EQ(next(), configAt(kStereo48, kT + kFrame));
    EXPECT_EQ(next(), unitAt(aacUnit(4, 50), kT + 2 * kFrame));
    EXPECT_THAT(next().bytes, IsEmpty());
    EXPECT_TRUE(isConsumed());
    mExtractor->reset();  // without a record: nothing to release
}

// Half fed, then forgotten, then a shorter record comes: it is not read past its end.
TEST_F(AACMediaExtractorTest, ResetOfAHalfFedRecordBoundsTheNext) {
    open(AACMediaExtractor::LOAS, 19);
    write(kT, Bytes(300000, 0x3C));
    next();
    mExtractor->reset();
    mRing->buffer->reset();
    feed(kT, kLoas.frame({aacUnit(0, 50), aacUnit(1, 50)}));
    EXPECT_THAT(mUnits, ElementsAre(testing::Field(&Unit::bytes, kStereo48),
                                    testing::Field(&Unit::bytes, aacUnit(1, 50))));
}

// Longer than the framing takes at once: the record is fed in several goes.
TEST_F(AACMediaExtractorTest, FeedsALongRecordInParts) {
    open(AACMediaExtractor::ADTS, 19);
    Bytes payload;
    std::vector<Bytes> expected = {kStereo48};
    for (unsigned i = 0; payload.size() < 300000; i++) {
        payload = payload + kAdts.frame({aacUnit(i, 2993)});
        if (i != 0) {
            expected.push_back(aacUnit(i, 2993));
        }
    }
    feed(kT, payload);
    std::vector<Bytes> given;
    for (const Unit& unit : mUnits) {
        given.push_back(unit.bytes);
    }
    EXPECT_EQ(given, expected);
}

// Framing detection: `errors` records of `payload`, then whether a frame of either framing is
// understood. The record with that frame is not counted: it brings the configuration.
struct Detection {
    const char* name;
    AACMediaExtractor::transportLayer_t opened;
    std::vector<std::pair<Bytes, int>> records;
    AACMediaExtractor::transportLayer_t current;
};

void PrintTo(const Detection& detection, std::ostream* out) {
    *out << detection.name;
}

class DetectionTest : public AACMediaExtractorTest,
                      public testing::WithParamInterface<Detection> {};

TEST_P(DetectionTest, SwitchesByCountsOfRecords) {
    const Detection& d = GetParam();
    open(d.opened);
    for (const auto& [payload, times] : d.records) {
        EXPECT_THAT(feed(kT, payload, times), IsEmpty());
    }
    const Bytes unit = aacUnit(0, 20);
    feed(kT, d.current == AACMediaExtractor::LOAS ? kLoas.frame({unit}) : kAdts.frame({unit}));
    ASSERT_EQ(mUnits.size(), 1u);
    EXPECT_EQ(mUnits[0].bytes, kStereo48);
    EXPECT_EQ(mUnits[0].flags, MediaExtractor::FLAG_CODEC_CONFIG);
}

constexpr auto LOAS = AACMediaExtractor::LOAS;
constexpr auto ADTS = AACMediaExtractor::ADTS;

std::vector<Detection> detections() {
    const Bytes adts = kAdts.frame({aacUnit(5, 100)});
    const Bytes loas = kLoas.frame({aacUnit(5, 100)});
    Bytes channels7 = adts, frequency13 = adts;
    channels7[2] |= 0x01;
    channels7[3] |= 0xC0;
    frequency13[2] = static_cast<uint8_t>((frequency13[2] & 0xC3) | 13 << 2);
    const Bytes adtsStart(adts.begin(), adts.begin() + 3);
    return {
        {"AdtsAsLoas25", LOAS, {{adts, 25}}, LOAS},
        {"AdtsAsLoas26", LOAS, {{adts, 26}}, ADTS},
        {"OneSuspicionIsEnoughForAdts", LOAS, {{adts, 1}, {kRubbish, 25}}, ADTS},
        {"SevenChannelsAreNoSuspicion", LOAS, {{channels7, 1}, {kRubbish, 25}}, LOAS},
        {"Frequency13IsNoSuspicion", LOAS, {{frequency13, 1}, {kRubbish, 25}}, LOAS},
        {"ShortPayloadsAreNoSuspicion", LOAS, {{adtsStart, 49}}, LOAS},
        {"LoasAsAdts25", ADTS, {{loas, 25}}, ADTS},
        {"LoasAsAdts26", ADTS, {{loas, 26}}, LOAS},
        {"TenSuspicionsForLoas", ADTS, {{loas, 10}, {kRubbish, 16}}, LOAS},
        {"NineAreNotEnoughForLoas", ADTS, {{loas, 9}, {kRubbish, 40}}, ADTS},
        {"NineAndFiftyErrors", ADTS, {{loas, 9}, {kRubbish, 41}}, LOAS},
        {"Rubbish49", LOAS, {{kRubbish, 49}}, LOAS},
        {"Rubbish50", LOAS, {{kRubbish, 50}}, ADTS},
        {"Rubbish99", LOAS, {{kRubbish, 99}}, ADTS},
        {"Rubbish100", LOAS, {{kRubbish, 100}}, LOAS},
        {"EmptyPayloads", LOAS, {{{}, 50}}, ADTS},
    };
}

INSTANTIATE_TEST_SUITE_P(Streams, DetectionTest, testing::ValuesIn(detections()),
                         [](const auto& param) { return std::string(param.param.name); });

// A configuration that was found but not given out outlives the framing that found it.
TEST_F(AACMediaExtractorTest, KeepsTheConfigurationOverASwitch) {
    open(ADTS);
    mCapacity = 5;
    feed(kT, kAdts.frame({aacUnit(0, 20)}));
    feed(kT, kRubbish, 49);  // and the one above that ran out of bits
    mCapacity = 100;
    LoasMux other;
    other.asc = plainAsc(2, 6, 1);
    feed(kT, other.frame({aacUnit(1, 20)}));
    EXPECT_THAT(mUnits, ElementsAre(testing::Field(&Unit::bytes, kStereo48)));
}

TEST_F(AACMediaExtractorTest, StaysWithTheFramingThatGaveAConfiguration) {
    open(ADTS);
    feed(kT, kAdts.frame({aacUnit(0, 20)}));
    feed(kT, kLoas.frame({aacUnit(1, 20)}), 60);
    mExtractor->reset();
    feed(kT, kLoas.frame({aacUnit(1, 20)}), 60);
    feed(kT, kAdts.frame({aacUnit(2, 20)}) + kAdts.frame({aacUnit(3, 20)}));
    ASSERT_EQ(mUnits.size(), 3u);
    EXPECT_EQ(mUnits[1].bytes, kStereo48);
    EXPECT_EQ(mUnits[2].bytes, aacUnit(3, 20));
}

// A framing that cannot be had takes nothing: every record is passed over all the same.
TEST_F(AACMediaExtractorTest, PassesRecordsOverWithoutAFraming) {
    gIsMemoryShort = true;
    open(ADTS);
    gIsMemoryShort = false;
    feed(kT, kRubbish, 3);
    EXPECT_THAT(mUnits, IsEmpty());
    EXPECT_THAT(mTrace.take(),
                testing::IsSupersetOf(
                    {"AACMediaExtractor: Error creating transport decoder",
                     "getNextFragment: Fill data failed with code 514",
                     "getNextFragment: transportDec_ReadAccessUnit() failed with code 514"}));
}

TEST_F(AACMediaExtractorTest, SaysWhatIsWrong) {
    open(LOAS);
    feed(kT, kAdts.frame({aacUnit(0, 20)}));
    EXPECT_THAT(mTrace.take(),
                ElementsAre("getNextFragment: transportDec_ReadAccessUnit: Sync Error 0x102 "
                            "mErrorCnt(1)",
                            "getDecodableUnit: ADTS supect count : 1"));
    LoasMux twoPrograms;
    twoPrograms.numProgram = 1;
    feed(kT, twoPrograms.frame({aacUnit(0, 20)}) + twoPrograms.frame({aacUnit(0, 20)}));
    EXPECT_THAT(
        mTrace.take(),
        ElementsAre("getNextFragment: transportDec_ReadAccessUnit() failed with code 1026"));
    open(ADTS);
    feed(kT, kLoas.frame({aacUnit(0, 20)}));
    EXPECT_THAT(mTrace.take(),
                ElementsAre("getNextFragment: transportDec_ReadAccessUnit: Sync Error 0x102 "
                            "mErrorCnt(1)",
                            "getDecodableUnit: LOAS supect count : 1"));
    mCapacity = 5;
    feed(kT, kAdts.frame({aacUnit(0, 20)}));
    EXPECT_THAT(mTrace.take(), ElementsAre("getASC: Not enough space on output buffer. (10 > 5)",
                                           "getNextFragment: Error creating ASC"));
    write(kT, kRubbish)->mSize = 300;  // 254 bytes, in 256 of the ring
    unsigned long size = 1;
    unsigned char flags = 1;
    EXPECT_EQ(mExtractor->getDecodableUnit(nullptr, 0, &size, nullptr, &flags),
              MediaExtractor::STATUS_FAULT);
    EXPECT_EQ(size, 0u);
    EXPECT_THAT(mTrace.take(), ElementsAre("getDecodableUnit: RingBuffer fatal errror: 256 340"));
}

TEST(ASCParserTest, WritesEveryForm) {
    struct {
        ASCParser parser;
        Bytes expected;
    } const cases[] = {
        {{2, 3, 48000, 2, 0, 0, 0}, {0x11, 0x90, 0, 0, 0, 0, 0, 0, 0, 0}},
        {{2, 6, 24000, 2, 3, 48000, 5}, {0x2B, 0x11, 0x88, 0, 0, 0, 0, 0, 0, 0}},
        {{2, 6, 24000, 2, 3, 48000, 22}, {0x13, 0x10, 0, 0, 0, 0, 0, 0, 0, 0}},
        {{39, 3, 48000, 2, 0, 0, 0},
         Bits().u(5, 31).u(6, 7).u(4, 3).u(4, 2).u(32, 0).u(29, 0).bytes()},
        {{33, 15, 0xABCDEF, 1, 15, 0x123456, 5},
         Bits()
             .u(5, 5)
             .u(4, 15)
             .u(24, 0xABCDEF)
             .u(4, 1)
             .u(4, 15)
             .u(24, 0x123456)
             .u(5, 31)
             .u(6, 1)
             .u(4, 0)
             .bytes()},
    };
    for (auto [parser, expected] : cases) {
        unsigned char* out = nullptr;
        unsigned int size = 0;
        ASSERT_EQ(parser.createASC(&out, &size), 0);
        EXPECT_EQ(Bytes(out, out + size), expected);
        delete[] out;
    }
    EXPECT_EQ(ASCParser().createASC(nullptr, nullptr), 1);
}

}  // namespace
