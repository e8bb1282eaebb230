#include <aac/TransportDecoder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "support/AacFrames.h"

namespace {

using namespace orvtest;
using testing::ElementsAre;
using testing::IsEmpty;

// A transport decoder that keeps what came out of it.
class Receiver {
public:
    explicit Receiver(TRANSPORT_TYPE type) : mDecoder(transportDec_Open(type, 1, 1)) {
        transportDec_RegisterAscCallback(mDecoder, onConfig, this);
    }
    ~Receiver() { transportDec_Close(&mDecoder); }

    // Feeds everything in pieces and reads after each piece until bits are short.
    Receiver& feed(const Bytes& stream, size_t piece = SIZE_MAX) {
        for (size_t at = 0; at < stream.size(); at += std::min(piece, stream.size() - at)) {
            unsigned valid = static_cast<unsigned>(std::min(piece, stream.size() - at));
            const unsigned size = valid;
            while (valid > 0) {
                const unsigned before = valid;
                EXPECT_EQ(transportDec_FillData(mDecoder, stream.data() + at, size, &valid, 0),
                          TRANSPORTDEC_OK);
                const int calls = drain();
                EXPECT_TRUE(valid < before || calls > 1) << "no progress";
            }
        }
        return *this;
    }

    std::vector<Bytes> units;
    std::vector<CSAudioSpecificConfig> configs;
    std::vector<int> errors;  // all results but "not enough bits"
    int configResult = 0;

private:
    static int onConfig(void* context, const CSAudioSpecificConfig* asc, unsigned char,
                        unsigned char* changed) {
        auto* self = static_cast<Receiver*>(context);
        EXPECT_EQ(*changed, self->configs.empty() || self->configResult != 0 ? 0 : 1);
        self->configs.push_back(*asc);
        return self->configResult;
    }

    int drain() {
        for (int calls = 1;; calls++) {
            EXPECT_LT(calls, 300000) << "endless";
            const int result = transportDec_ReadAccessUnit(mDecoder, 0);
            if (result == TRANSPORTDEC_OK) {
                Bytes unit(static_cast<size_t>(transportDec_GetAuBitsTotal(mDecoder, 0)) / 8);
                FDKreadBytes(transportDec_GetBitstream(mDecoder, 0), unit.data(),
                             static_cast<unsigned>(unit.size()));
                units.push_back(unit);
            } else if (result == TRANSPORTDEC_NOT_ENOUGH_BITS || calls == 300000) {
                return calls;
            } else {
                errors.push_back(result);
            }
        }
    }

    HANDLE_TRANSPORTDEC mDecoder;
};

struct Stream {
    std::string name;
    TRANSPORT_TYPE type;
    Bytes bytes;
    std::vector<Bytes> units;
};

void PrintTo(const Stream& stream, std::ostream* out) {
    *out << stream.name;
}

std::vector<Bytes> someUnits(size_t count, unsigned seed = 0) {
    static constexpr size_t kSizes[] = {300, 7, 255, 1, 254, 510, 1500, 33};
    std::vector<Bytes> units;
    for (unsigned i = 0; i < count; i++) {
        units.push_back(aacUnit(seed + i, kSizes[(seed + i) % 8]));
    }
    return units;
}

// Frames of `perFrame` units each, made by `frame`, every second one told apart by its index.
Stream stream(std::string name, TRANSPORT_TYPE type, size_t perFrame,
              const std::function<Bytes(const std::vector<Bytes>&, bool first)>& frame,
              size_t unitSize = 0) {
    Stream result{std::move(name), type, {}, {}};
    for (unsigned i = 0; i < 6; i++) {
        std::vector<Bytes> units = someUnits(perFrame, i * 3);
        for (Bytes& unit : units) {
            if (unitSize != 0) {
                unit = aacUnit(i, unitSize);
            }
        }
        result.bytes = result.bytes + frame(units, i % 3 == 0);
        result.units.insert(result.units.end(), units.begin(), units.end());
    }
    return result;
}

Stream loas(std::string name, const LoasMux& mux, size_t perFrame = 1) {
    return stream(
        std::move(name), TT_MP4_LOAS, perFrame,
        [&mux](const auto& units, bool first) { return mux.frame(units, first); }, mux.fixedLength);
}

Stream adts(std::string name, const Adts& format, size_t perFrame = 1) {
    return stream(std::move(name), TT_MP4_ADTS, perFrame,
                  [&format](const auto& units, bool) { return format.frame(units); });
}

// Units cut up inside a subframe, across subframes and across frames.
Stream chunked() {
    LoasMux mux;
    mux.sameTimeFraming = false;
    const std::vector<Bytes> u = {aacUnit(1, 20), aacUnit(2, 300), aacUnit(3, 40), aacUnit(4, 6)};
    const auto part = [&u](size_t unit, size_t from, size_t to) {
        return Bytes(u[unit].begin() + static_cast<long>(from),
                     u[unit].begin() + static_cast<long>(to));
    };
    Bytes bytes = mux.chunkFrame({{{part(0, 0, 5), false}, {part(0, 5, 20), true}},
                                  {{part(1, 0, 10), false}}}) +
                  mux.chunkFrame({{{part(1, 10, 280), false}}}) +
                  mux.chunkFrame({{{part(1, 280, 300), true}, {part(2, 0, 1), false}},
                                  {{part(2, 1, 40), true}, {part(3, 0, 6), true}}});
    return {"chunks", TT_MP4_LOAS, bytes, u};
}

std::vector<Stream> validStreams() {
    LoasMux v0, v1, others, fixed, crc, v1others, channels0;
    v1.version = v1others.version = 1;
    v1.ascFillBits = 5;
    others.otherDataBits = 300;
    v1others.otherDataBits = 11;
    fixed.fixedLength = 77;
    crc.hasCrc = true;
    channels0.asc = plainAsc(2, 3, 0);
    putPairAndLfe(channels0.asc, 0);
    Adts plain, mpeg2Crc, pce;
    mpeg2Crc.isMpeg2 = mpeg2Crc.hasCrc = true;
    pce.channels = 0;
    return {loas("version0", v0),
            loas("subframes", v0, 3),
            loas("most_subframes", fixed, 64),
            loas("version1", v1, 2),
            loas("otherData", others, 2),
            loas("otherData1", v1others),
            loas("fixedLength", fixed, 2),
            loas("crc", crc),
            loas("programConfig", channels0),
            chunked(),
            adts("adts", plain),
            adts("adtsCrc", mpeg2Crc),
            adts("adtsBlocksCrc", mpeg2Crc, 4),
            adts("adtsProgramConfig", pce)};
}

class ValidStreamTest : public testing::TestWithParam<Stream> {};

TEST_P(ValidStreamTest, GivesTheSameUnitsHoweverItIsCut) {
    const Stream& s = GetParam();
    for (const size_t piece : {size_t{1}, size_t{7}, size_t{188}, SIZE_MAX}) {
        Receiver receiver(s.type);
        receiver.feed(s.bytes, piece);
        EXPECT_EQ(receiver.units, s.units) << piece;
        EXPECT_THAT(receiver.errors, IsEmpty()) << piece;
        EXPECT_EQ(receiver.configs.size(), 1u);
    }
}

// Rubbish in front and between: at most the unit in front of it goes, never one behind it.
TEST_P(ValidStreamTest, FindsItsWayBackAfterRubbish) {
    const Stream& s = GetParam();
    const Bytes rubbish(1000, 0x3C);
    Receiver receiver(s.type);
    receiver.feed(rubbish + s.bytes + rubbish + s.bytes, 188);
    std::vector<Bytes> twice = s.units;
    twice.insert(twice.end(), s.units.begin(), s.units.end());
    EXPECT_EQ(receiver.units, twice);
    EXPECT_THAT(receiver.errors, testing::Each(TRANSPORTDEC_SYNC_ERROR));
    EXPECT_THAT(receiver.errors, testing::Not(IsEmpty()));
}

// Whatever is damaged: everything ends, and a clean stream comes through again afterwards. Run
// under the sanitizers this is also the test of every bound.
TEST_P(ValidStreamTest, SurvivesDamage) {
    const Stream& s = GetParam();
    std::mt19937 random(1);
    for (int round = 0; round < 60; round++) {
        Bytes damaged = s.bytes;
        for (int i = 0; i <= round % 8; i++) {
            damaged[random() % (i % 2 == 0 ? 24 : damaged.size())] ^= 1u << random() % 8;
        }
        damaged.resize(damaged.size() - random() % 100);
        Receiver receiver(s.type);
        // A damaged length may swallow one largest frame, so the tail is longer than that.
        Bytes tail;
        while (tail.size() < 3 * 8194 + s.bytes.size()) {
            tail = tail + s.bytes;
        }
        receiver.feed(damaged, round % 2 == 0 ? 7 : SIZE_MAX).feed(tail, 188);
        ASSERT_GE(receiver.units.size(), s.units.size());
        EXPECT_TRUE(std::equal(s.units.rbegin(), s.units.rend(), receiver.units.rbegin()));
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, ValidStreamTest, testing::ValuesIn(validStreams()),
                         [](const auto& param) { return param.param.name; });

// A frame that breaks the rules, and a sound one.
struct Breach {
    std::string name;
    TRANSPORT_TYPE type;
    Bytes bad;
    Bytes good;
};

std::vector<Breach> breaches() {
    const Bytes unit = aacUnit(9, 30);
    LoasMux mux;
    const Bytes loasGood = mux.frame({unit});
    LoasMux shortAsc = mux;
    shortAsc.version = 1;
    shortAsc.asc = Bits().u(5, 2).u(4, 3);
    LoasMux reserved = mux;
    reserved.asc = plainAsc(2, 13);
    LoasMux other = mux;
    other.otherDataBits = 0xFFFF;
    const auto element = [&mux](const Bytes& tail) {
        return LoasMux::wrap(Bits().u(1, 0).append(mux.config(1)).append(tail).align().bytes());
    };
    // With otherDataPresent and a length in bytes of eight bits, each with an escape in front.
    const auto otherData = [&mux, &unit](size_t pieces, uint8_t first, uint8_t further) {
        Bits config = mux.config(1), bits;
        bits.u(1, 0);
        for (size_t i = 0; i + 2 < config.size(); i++) {
            bits.u(1, config.bytes()[i / 8] >> (7 - i % 8));
        }
        bits.u(1, 1);
        for (size_t i = 0; i < pieces; i++) {
            bits.u(1, i + 1 < pieces).u(8, i == 0 ? first : further);
        }
        bits.u(1, 0).u(8, unit.size()).append(unit);
        return LoasMux::wrap(bits.align().bytes());
    };

    Adts format;
    const Bytes adtsGood = format.frame({unit});
    const auto altered = [](Bytes frame, size_t at, uint8_t keep, uint8_t set) {
        frame[at] = static_cast<uint8_t>((frame[at] & keep) | set);
        return frame;
    };
    Bytes headerOnly = adtsGood;
    headerOnly.resize(7);
    Adts crc;
    crc.hasCrc = true;
    const Bytes blocks = crc.frame({unit, unit});
    Bytes badPosition = blocks;
    badPosition[7] = 0x0F;
    const unsigned sum = Adts::crc(Bytes(badPosition.begin(), badPosition.begin() + 9));
    badPosition[9] = static_cast<uint8_t>(sum >> 8);
    badPosition[10] = static_cast<uint8_t>(sum);
    return {
        {"LengthZero", TT_MP4_LOAS, {0x56, 0xE0, 0x00}, loasGood},
        {"UnitPastTheFrame", TT_MP4_LOAS, element({200, 1, 2}), loasGood},
        {"LengthRunsOut", TT_MP4_LOAS, element({255, 255, 255}), loasGood},
        {"OtherDataPastTheFrame", TT_MP4_LOAS,
         [&other, &unit] {
             Bytes frame = other.frame({unit});
             frame.resize(60);
             frame[1] = 0xE0;
             frame[2] = 57;
             return frame;
         }(),
         loasGood},
        {"OtherDataEscapesForEver", TT_MP4_LOAS, otherData(40, 0xFF, 0xFF), loasGood},
        {"OtherDataOf2To32", TT_MP4_LOAS, otherData(5, 1, 0), loasGood},
        {"OtherDataOf2To64", TT_MP4_LOAS, otherData(9, 1, 0), loasGood},
        {"AscShorterThanRead", TT_MP4_LOAS, shortAsc.frame({unit}), loasGood},
        {"ReservedFrequency", TT_MP4_LOAS, reserved.frame({unit}), loasGood},
        {"SameMuxBeforeAny", TT_MP4_LOAS, mux.frame({unit}, false), loasGood},
        {"BelowTheHeader", TT_MP4_ADTS, altered(altered(headerOnly, 4, 0, 0), 5, 0x1F, 0xC0),
         adtsGood},
        {"Frequency13", TT_MP4_ADTS, altered(adtsGood, 2, 0xC3, 13 << 2), adtsGood},
        {"Frequency15", TT_MP4_ADTS, altered(adtsGood, 2, 0xC3, 15 << 2), adtsGood},
        {"Mpeg2ReservedProfile", TT_MP4_ADTS, altered(altered(adtsGood, 1, 0xFF, 8), 2, 0x3F, 0xC0),
         adtsGood},
        {"HeaderCrc", TT_MP4_ADTS, altered(blocks, 10, 0xFE, ~blocks[10] & 1), adtsGood},
        {"BlockPastTheFrame", TT_MP4_ADTS, badPosition, adtsGood},
    };
}

void PrintTo(const Breach& breach, std::ostream* out) {
    *out << breach.name;
}

class BreachTest : public testing::TestWithParam<Breach> {};

// Alone it is a sync error: nothing in it starts a frame. What is fed next comes out.
TEST_P(BreachTest, IsASyncErrorAndCostsOnlyItsFrame) {
    const Breach& breach = GetParam();
    Receiver receiver(breach.type);
    receiver.feed(breach.bad);
    EXPECT_THAT(receiver.errors, ElementsAre(TRANSPORTDEC_SYNC_ERROR));
    EXPECT_THAT(receiver.units, IsEmpty());
    receiver.feed(breach.good);
    EXPECT_EQ(receiver.errors.size(), 1u);
    EXPECT_THAT(receiver.units, ElementsAre(aacUnit(9, 30)));
}

// In front of a sound frame the same call goes on to that, out of sync and in sync.
TEST_P(BreachTest, IsPassedOverInTheSameCall) {
    const Breach& breach = GetParam();
    Receiver receiver(breach.type);
    receiver.feed(breach.bad + breach.good);
    EXPECT_THAT(receiver.units, ElementsAre(aacUnit(9, 30)));
    receiver.feed(breach.bad + breach.good);
    EXPECT_EQ(receiver.units.size(), breach.name == "SameMuxBeforeAny" ? 3u : 2u);
    EXPECT_THAT(receiver.errors, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Kinds, BreachTest, testing::ValuesIn(breaches()),
                         [](const auto& param) { return param.param.name; });

TEST(LoasTransportTest, RefusesOtherLayoutsAndSkipsTheirFrames) {
    const Bytes unit = aacUnit(9, 30);
    const LoasMux good;
    LoasMux programs, layers, celp, usac;
    programs.numProgram = 1;
    layers.numLayer = 1;
    celp.asc = plainAsc(8);
    usac.asc = Bits().u(5, 31).u(6, 42 - 32).u(4, 3).u(4, 2);
    for (const LoasMux& mux : {programs, layers, celp, usac}) {
        Receiver receiver(TT_MP4_LOAS);
        receiver.feed(mux.frame({unit}) + mux.frame({unit}) + good.frame({unit}));
        EXPECT_THAT(receiver.errors,
                    ElementsAre(TRANSPORTDEC_UNSUPPORTED_FORMAT, TRANSPORTDEC_UNSUPPORTED_FORMAT));
        EXPECT_THAT(receiver.units, ElementsAre(unit));
    }
}

// A receiver that tunes in between two configurations: no call ends before the next one.
TEST(LoasTransportTest, PassesOverWhatNeedsAnEarlierConfiguration) {
    const LoasMux mux;
    Bytes stream;
    for (unsigned i = 0; i < 30; i++) {
        stream = stream + mux.frame({aacUnit(i, 30)}, i == 20);
    }
    Receiver receiver(TT_MP4_LOAS);
    receiver.feed(stream);
    EXPECT_THAT(receiver.errors, IsEmpty());
    ASSERT_EQ(receiver.units.size(), 10u);
    EXPECT_EQ(receiver.units.front(), aacUnit(20, 30));
    EXPECT_EQ(receiver.units.back(), aacUnit(29, 30));
}

TEST(LoasTransportTest, DamageInsideAFrameCostsThatFrameAlone) {
    const LoasMux mux;
    Bytes damaged = mux.frame({aacUnit(2, 30)});
    damaged[8] ^= 0x04;  // in the length of its unit
    Receiver receiver(TT_MP4_LOAS);
    receiver.feed(mux.frame({aacUnit(1, 30)}) + damaged + mux.frame({aacUnit(3, 30)}));
    EXPECT_THAT(receiver.errors, IsEmpty());
    EXPECT_THAT(receiver.units, ElementsAre(aacUnit(1, 30), aacUnit(3, 30)));
}

// The place of a frame with another one behind it is certain: nothing inside it is taken for a
// frame.
TEST(AdtsTransportTest, DoesNotSearchInsideADamagedFrame) {
    const Adts plain, crc{.hasCrc = true};
    Bytes inner = plain.frame({aacUnit(5, 32)});
    inner.resize(inner.size() - 2);  // the block's CRC behind it makes it whole
    Bytes damaged = crc.frame({aacUnit(2, 9), inner});
    damaged[10] ^= 1;  // CRC of the headers
    Receiver receiver(TT_MP4_ADTS);
    receiver.feed(plain.frame({aacUnit(1, 30)}) + damaged + plain.frame({aacUnit(3, 30)}));
    EXPECT_THAT(receiver.errors, IsEmpty());
    EXPECT_THAT(receiver.units, ElementsAre(aacUnit(1, 30), aacUnit(3, 30)));
}

// What a call says when it finds no unit depends on how the bytes end: behind a breach as without
// one, in sync as out of sync.
TEST(LoasTransportTest, TellsAnUnfinishedFrameFromNone) {
    const LoasMux mux;
    const Bytes good = mux.frame({aacUnit(1, 30)});
    const Bytes rubbish(50, 0x3C);
    Bytes refused = good, zeroLength = {0x56, 0xE0, 0x00};
    refused[8] ^= 0x04;  // the length of its unit
    const Bytes half(good.begin(), good.begin() + 20);
    struct Case {
        const char* name;
        Bytes tail;
        bool startsFrame;
    };
    const Case cases[] = {
        {"Rubbish", rubbish, false},
        {"RubbishHalf", rubbish + half, true},
        {"RubbishSync", rubbish + Bytes{0x56}, true},
        {"Refused", refused, false},
        {"RefusedRubbish", refused + rubbish, false},
        {"RefusedRubbishHalf", refused + rubbish + half, true},
        {"RefusedTwiceRubbish", refused + refused + rubbish, false},
        {"ZeroLength", zeroLength, false},
        {"ZeroLengthHalf", zeroLength + half, true},
        {"SecondByteWrong", rubbish + Bytes{0x56, 0x00}, false},
    };
    for (const Case& c : cases) {
        for (const Bytes& front : {Bytes(), good + good}) {
            Receiver receiver(TT_MP4_LOAS);
            receiver.feed(front + c.tail);
            const std::vector<int> one = {TRANSPORTDEC_SYNC_ERROR};
            EXPECT_EQ(receiver.errors, c.startsFrame ? std::vector<int>() : one) << c.name;
            EXPECT_EQ(receiver.units.size(), front.empty() ? 0u : 2u) << c.name;
        }
    }
}

// A start every three bytes, each of a frame that ends at a later one and is refused: the call
// passes over them in great steps, and still finds what comes behind.
TEST(LoasTransportTest, ComesBackFromOverlappingFrames) {
    Bytes overlapping;
    while (overlapping.size() < 120000) {
        overlapping.insert(overlapping.end(), {0x56, 0xFF, 0x56});
    }
    const LoasMux mux;
    Receiver receiver(TT_MP4_LOAS);
    receiver.feed(overlapping);
    EXPECT_THAT(receiver.units, IsEmpty());
    Bytes stream;
    for (unsigned i = 0; i < 600; i++) {  // longer than the frame that the last start announces
        stream = stream + mux.frame({aacUnit(i, 30)});
    }
    receiver.feed(stream, 188);
    ASSERT_GE(receiver.units.size(), 300u);
    EXPECT_EQ(receiver.units.back(), aacUnit(599, 30));
}

// The rest of a unit whose beginning was lost is not joined to an older beginning.
TEST(LoasTransportTest, DropsAnUnfinishedUnitWithTheSync) {
    LoasMux mux;
    mux.sameTimeFraming = false;
    Receiver receiver(TT_MP4_LOAS);
    receiver.feed(mux.chunkFrame({{{aacUnit(1, 9), true}}}) +
                  mux.chunkFrame({{{aacUnit(2, 5), false}}}) + Bytes(9, 0) +
                  mux.chunkFrame({{{aacUnit(3, 7), true}}}));
    EXPECT_THAT(receiver.units, ElementsAre(aacUnit(1, 9), aacUnit(3, 7)));
}

// Chunks that end no unit: more than two frames can hold, and what comes behind is understood.
TEST(LoasTransportTest, DropsAUnitThatNeverEnds) {
    LoasMux mux;
    mux.sameTimeFraming = false;
    Bytes stream;
    for (unsigned i = 0; i < 9; i++) {
        stream = stream + mux.chunkFrame({{{aacUnit(i, 6000), i == 8}}});
    }
    Receiver receiver(TT_MP4_LOAS);
    receiver.feed(stream + mux.chunkFrame({{{aacUnit(9, 7), true}}}));
    ASSERT_FALSE(receiver.units.empty());
    EXPECT_EQ(receiver.units.back(), aacUnit(9, 7));
    EXPECT_THAT(receiver.errors, IsEmpty());
}

// A length that reaches over the next frames must not take them along.
TEST(LoasTransportTest, FindsTheFramesInsideATooLongOne) {
    const LoasMux mux;
    Bytes damaged = mux.frame({aacUnit(2, 30)});
    damaged[2] += 50;
    Receiver receiver(TT_MP4_LOAS);
    receiver.feed(mux.frame({aacUnit(1, 30)}) + damaged + mux.frame({aacUnit(3, 30)}) +
                  mux.frame({aacUnit(4, 30)}));
    EXPECT_THAT(receiver.errors, IsEmpty());
    EXPECT_THAT(receiver.units, ElementsAre(aacUnit(1, 30), aacUnit(3, 30), aacUnit(4, 30)));
}

// A start whose end never comes, out of sync or in sync with a damaged length, must not hold up the
// frames behind it.
TEST(LoasTransportTest, DoesNotWaitForTheEndOfAFalseStart) {
    const LoasMux mux;
    Bytes tooLong = mux.frame({aacUnit(9, 30)});
    tooLong[1] |= 0x1F;
    Bytes stream;
    std::vector<Bytes> units;
    for (unsigned i = 0; i < 4; i++) {
        units.push_back(aacUnit(i, 30));
        stream = stream + mux.frame({units[i]});
    }
    Receiver outOfSync(TT_MP4_LOAS);
    outOfSync.feed(Bytes{0x56, 0xFF, 0xFF, 0x00} + stream);
    EXPECT_EQ(outOfSync.units, units);
    Receiver inSync(TT_MP4_LOAS);
    inSync.feed(stream + tooLong + stream);
    const std::vector<Bytes> again = units;
    units.insert(units.end(), again.begin(), again.end());
    EXPECT_EQ(inSync.units, units);
    EXPECT_THAT(inSync.errors, IsEmpty());
}

// Chance matches in other data must not become a configuration.
TEST(LoasTransportTest, BelievesAFrameOnlyWhenAnotherFollows) {
    const LoasMux other{.asc = plainAsc(2, 4, 1)};
    const LoasMux mux;
    Receiver receiver(TT_MP4_LOAS);
    receiver.feed(other.frame({aacUnit(1, 30)}) + Bytes(10, 0) + mux.frame({aacUnit(2, 30)}));
    EXPECT_THAT(receiver.units, ElementsAre(aacUnit(2, 30)));
    ASSERT_EQ(receiver.configs.size(), 1u);
    EXPECT_EQ(receiver.configs[0].m_samplingFrequency, 48000u);
}

TEST(LoasTransportTest, TellsEachChangeOfConfigurationOnce) {
    const LoasMux one, other{.asc = plainAsc(2, 6, 1)};
    const Bytes unit = aacUnit(1, 30);
    Receiver receiver(TT_MP4_LOAS);
    receiver.feed(one.frame({unit}) + one.frame({unit}) + other.frame({unit}) +
                  other.frame({unit}, false));
    ASSERT_EQ(receiver.configs.size(), 2u);
    EXPECT_EQ(receiver.configs[1].m_samplingFrequency, 24000u);
    EXPECT_EQ(receiver.configs[1].m_channelConfiguration, 1);
    EXPECT_EQ(receiver.units.size(), 4u);
}

TEST(LoasTransportTest, ARefusedConfigurationSkipsFramesUntilItIsTaken) {
    const LoasMux mux;
    const Bytes unit = aacUnit(1, 30);
    Receiver receiver(TT_MP4_LOAS);
    receiver.configResult = 1;
    receiver.feed(mux.frame({unit}) + mux.frame({unit}));
    EXPECT_THAT(receiver.units, IsEmpty());
    receiver.configResult = 0;
    receiver.configs.clear();
    receiver.feed(mux.frame({unit}));
    EXPECT_EQ(receiver.configs.size(), 1u);
    EXPECT_THAT(receiver.units, ElementsAre(unit));
}

// More than a buffer full at once: what does not fit is left to the caller, nothing is lost.
TEST(TransportTest, TakesWhatFitsOfALongPiece) {
    const Adts format;
    Bytes bytes;
    std::vector<Bytes> units;
    while (bytes.size() < 300000) {
        units.push_back(aacUnit(static_cast<unsigned>(units.size()), 8184));
        bytes = bytes + format.frame({units.back()});
    }
    Receiver receiver(TT_MP4_ADTS);
    receiver.feed(bytes);
    EXPECT_EQ(receiver.units, units);
}

TEST(TransportTest, RefusesWrongArguments) {
    EXPECT_EQ(transportDec_Open(static_cast<TRANSPORT_TYPE>(1), 0, 1), nullptr);
    EXPECT_EQ(transportDec_Open(TT_MP4_LOAS, 0, 2), nullptr);
    HANDLE_TRANSPORTDEC decoder = transportDec_Open(TT_MP4_LOAS, 0, 1);
    ASSERT_NE(decoder, nullptr);
    unsigned valid = 2;
    const unsigned char byte = 0;
    EXPECT_EQ(transportDec_FillData(decoder, &byte, 1, &valid, 0), TRANSPORTDEC_INVALID_PARAMETER);
    EXPECT_EQ(transportDec_SetParam(decoder, TPDEC_PARAM_IGNORE_BUFFERFULLNESS, 1),
              TRANSPORTDEC_OK);
    EXPECT_EQ(transportDec_SetParam(decoder, static_cast<TPDEC_PARAM>(99), 1),
              TRANSPORTDEC_INVALID_PARAMETER);
    EXPECT_EQ(transportDec_GetAuBitsTotal(decoder, 0), 0);
    EXPECT_EQ(FDKreadBits(transportDec_GetBitstream(decoder, 0), 8), 0u);
    transportDec_Close(&decoder);
    EXPECT_EQ(decoder, nullptr);
    transportDec_Close(&decoder);
}

}  // namespace
