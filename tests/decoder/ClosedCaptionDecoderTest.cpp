#include "decoder/ClosedCaptionDecoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "PesRing.h"
#include "decoder/UTF32.h"
#include "support/Await.h"
#include "support/CaptionPacket.h"
#include "support/TraceCapture.h"
#include "trace/OneSegPGL.h"

namespace {

using namespace OrvPlayer;
using namespace std::string_literals;
using orvtest::CaptionPacket;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint64_t PTS = 0x1FFFFFFFE;

std::string repeated(const std::string& text, size_t times) {
    std::string out;
    for (size_t i = 0; i < times; ++i) {
        out += text;
    }
    return out;
}

// A decoder between two rings. Each call of decode() is one pass of its worker over one packet.
class ClosedCaptionDecoderTest : public testing::Test {
protected:
    void SetUp() override {
        OneSegPGL_InitializeDebug();
        ASSERT_EQ(mOutput->configure("captions of a test", 12), 0);
        makeDecoder();
    }
    void TearDown() override { mDecoder->stop(); }

    void makeDecoder() {
        mDecoder = new ClosedCaptionDecoder;
        mDecoder->setInput(mInput.buffer);
        mDecoder->addOutput(mOutput, nullptr);
    }

    int decode(const std::vector<uint8_t>& payload) {
        PESData* record = mInput.push(PTS, payload, {9, 9, 9, 9, 9});
        const int result = mDecoder->processPacket(record);
        mDecoder->clearScreenData();
        mInput.buffer->read(0, RingBuffer::NON_BLOCKING);
        mInput.buffer->readAdvance(record->mSize);
        return result;
    }
    int decodeUnit(const std::string& unit) { return decode(CaptionPacket{.unit = unit}.bytes()); }

    // The text of the next caption, empty when there is none.
    std::u32string takeText() {
        unsigned char* block = mOutput->read(32, RingBuffer::NON_BLOCKING);
        if (block == nullptr) {
            return {};
        }
        const auto* record = reinterpret_cast<ClosedCaptionFragmentData*>(block);
        EXPECT_EQ(record->mType, Data::CLOSED_CAPTION);
        EXPECT_EQ(uint64_t{record->mPTS}, PTS);  // aligned to 4 bytes only
        EXPECT_EQ(record->mSize % 4, 0u);
        EXPECT_LE(record->mSize, mOutput->getDataSize());
        std::u32string text((record->mSize - 32) / 4, U' ');
        memcpy(text.data(), block + 32, record->mSize - 32);
        mOutput->readAdvance(record->mSize);
        return text;
    }
    std::u32string awaitText() {
        std::u32string text;
        orvtest::await([&] {
            text = takeText();
            return !text.empty();
        });
        return text;
    }

    PesRing mInput;
    android::sp<RingBuffer> mOutput = new RingBuffer;
    android::sp<ClosedCaptionDecoder> mDecoder;
    orvtest::TraceCapture mTrace;
};

struct Interpretation {
    std::vector<std::string> units;     // of consecutive packets
    std::vector<std::u32string> texts;  // empty: nothing is written
};

const std::string LONG_ROW = "0123456789abcdef0123456789ABCDEF";
const std::u32string LONG_TEXT = U"0123456789abcdef0123456789ABCDEF";

// Text is of P and what follows: those are no digits of the escapes before them.
const Interpretation CHARACTERS[] = {
    {{"P\rQ"}, {U"P\nQ\n"}},
    {{"P\nQ\r\n\rR"}, {U"P\nQ\nR\n"}},
    {{"\r\nP\r"}, {U"P\n"}},
    {{"P", "Q"}, {U"P\n", U"Q\n"}},  // each on a clean screen
    {{"PQ\x0CR"}, {U"R\n"}},
    // Rows: a full one has no line feed, and the fourth scrolls.
    {{LONG_ROW}, {LONG_TEXT}},
    {{LONG_ROW + "x"}, {LONG_TEXT + U"x\n"}},
    {{LONG_ROW + "\rx"}, {LONG_TEXT + U"x\n"}},
    {{"1\r2\r3\r4\r5"}, {U"3\n4\n5\n"}},
    {{"first" + repeated("\r" + LONG_ROW, 3)}, {LONG_TEXT + LONG_TEXT + LONG_TEXT}},
    {{repeated(LONG_ROW, 3) + "x"}, {LONG_TEXT + LONG_TEXT + U"x\n"}},
    // The two sets, and what is no control code though other sets say so.
    {{"\xE9\xA4\xFF~"}, {U"é€ÿ~\n"}},
    {{"\x1D\x21 \x1D\x30\x30"}, {U"♪ ¤0\n"}},
    {{"P\x1D", "\x4B\x4B"}, {U"P\n", U"⅞K\n"}},
    {{"\x01\x06\x9E\x9F"}, {U"\x01\x06\x9E\x9F\n"}},
    // A NUL on the first row takes the row back: what follows a line end overwrites it. Elsewhere
    // it is a hole, and a row ends at its first hole.
    {{"\0P"s}, {U""}},
    {{"P\0Q"s}, {U"P\n"}},
    {{"PQ\0\rR"s}, {U"RQ\n"}},
    {{"P\rQ\0R"s}, {U"P\nQ\n"}},
    {{"P\r\0R\rS"s}, {U"P\n"}},
};

const Interpretation CODES[] = {
    // Codes that change nothing.
    {{"P\x07\x08\x09\x0B\x0E\x0F\x17\x18\x19\x1A\x1B\x1E\x1FQ"}, {U"PQ\n"}},
    {{"P\x80\x81\x82\x83\x84\x85\x86\x87\x88\x89\x8A\x96\x99\x9A\x9CQ"}, {U"PQ\n"}},
    // Codes without a meaning take no text with them, now or later.
    {{"P\x10\x11\x12\x13\x14\x15Q\x8C\x8D\x8E\x8FR", "S"}, {U"PQR\n", U"S\n"}},
    // Parameters, one or two, of any value that is no code of its own.
    {{"P\x8B!\x90!\x91!\x93!\x94!\x95!\x97!\x98!\x16!Q"}, {U"PQ\n"}},
    {{"P\x92!!\x9D!!Q"}, {U"PQ\n"}},
    {{"\x90\x9EP\x90\x10Q\x90\x01R\x90\x8FS"}, {U"PQRS\n"}},
    {{"P\x92", "xyQ"}, {U"P\n", U"Q\n"}},  // over packets
    {{"P\x90\rxQ"}, {U"P\nQ\n"}},          // over another code
    {{"P\x92\x91xQ"}, {U"PQ\n"}},          // the last code says how many are owed
    // The colour that hides text, over packets.
    {{"P\x90\x58Q", "R", "\x90\x41S"}, {U"P\n", U"", U"S\n"}},
    {{"P\x91\x90\x58Q"}, {U"P\n"}},       // a parameter goes to the first of several codes:
    {{"P\x8B\x90\x58Q"}, {U"PQ\n"}},      // to the size ahead of the colour
    {{"P\x1C\x90\x58\rQ"}, {U"P\nQ\n"}},  // and to the position ahead of both
    // A position moves to the next row, whichever it names, and one column on.
    {{"P\x1C\x40\x7FQ"}, {U"P\nQ\n"}},
    {{"P\x1C\x3F\x40Q"}, {U"P\n"}},
    {{"\x1C\x40\x40P"}, {U"P\n"}},
    {{"\x1C\x20\x40P"}, {U""}},
    {{"\x1C\x10\x15P\rQ"}, {U""}},
    {{repeated("\x1C  ", 31) + "P"}, {U""}},
    {{repeated("\x1C  ", 32) + "P"}, {U"P\n"}},  // behind the last column
    {{repeated("\x1C  ", 60) + "P"}, {U"P\n"}},
};

const Interpretation SEQUENCES[] = {
    {{"P\233170;30 _\rQ"}, {U"P\nQ\n"}},
    {{"P\2337 Stext\rQ"}, {U"P\nQ\n"}},  // text up to the next code is taken for the sequence
    {{"P\2337", " Slost", "\rQ"}, {U"P\n", U"", U"Q\n"}},
    {{"P\233\233\233 W\x90\x41Q"}, {U"PQ\n"}},
    {{"P\x90\233\x58Q"}, {U"P\n"}},  // a parameter owed ends it as a code does
    // Of any length, with numbers of any size.
    {{"P\233" + std::string(200, '9'), std::string(200, '9'), " S\rQ"}, {U"P\n", U"", U"Q\n"}},
    {{"P\233" + repeated("99999999999;", 18) + "1 V\rQ"}, {U"P\nQ\n"}},
};

class InterpretationTest : public ClosedCaptionDecoderTest {
protected:
    template <size_t N>
    void run(const Interpretation (&cases)[N]) {
        for (const Interpretation& wanted : cases) {
            SCOPED_TRACE(testing::PrintToString(wanted.units));
            makeDecoder();
            for (size_t i = 0; i < wanted.units.size(); ++i) {
                const int result = decodeUnit(wanted.units[i]);
                EXPECT_EQ(result == 1, !wanted.texts[i].empty());
                EXPECT_EQ(takeText(), wanted.texts[i]);
            }
        }
    }
};

TEST_F(InterpretationTest, PlacesCharacters) {
    run(CHARACTERS);
}

TEST_F(InterpretationTest, TakesCodesAndTheirParametersOutOfTheText) {
    run(CODES);
    EXPECT_THAT(mTrace.take(),
                testing::Contains("32 out of scope at void "
                                  "OrvPlayer::ClosedCaptionDecoder::handleCommands(uint8_t)"));
}

TEST_F(InterpretationTest, TakesControlSequencesOutOfTheText) {
    run(SEQUENCES);
}

TEST_F(ClosedCaptionDecoderTest, SaysWhichSequencesAreNone) {
    mTrace.take();
    for (const char* known : {"B", "S", "T", "V", "W", "X", "Y", "]",     "^", "_", "a",
                              "b", "c", "d", "e", "f", "h", "n", "1;2 B", "C", "g", "m"}) {
        decodeUnit("\x9B"s + known + "\r");
    }
    EXPECT_THAT(mTrace.take(), IsEmpty());
    const char* const unknown[] = {"", "A", "o", "1;2 ", "\xE9"};
    for (const char* text : unknown) {
        decodeUnit("\x9B"s + text + "\r");
        EXPECT_THAT(mTrace.take(), ElementsAre("CONTROLCODE not valid")) << text;
    }
}

TEST_F(ClosedCaptionDecoderTest, FindsTheUnitInThePacket) {
    for (uint8_t length = 0; length < 16; ++length) {
        for (uint8_t mode = 0; mode < 4; ++mode) {
            const CaptionPacket packet{
                .unit = "AB", .headerLength = length, .timeControlMode = mode};
            EXPECT_EQ(decode(packet.bytes()), 1) << int{length} << " " << int{mode};
            EXPECT_EQ(takeText(), U"AB\n");
        }
    }
    std::vector<uint8_t> twoUnits = CaptionPacket{.unit = "one"}.bytes();
    twoUnits.insert(twoUnits.end(), {0x1F, 0x20, 0, 0, 1, 'X'});
    EXPECT_EQ(decode(twoUnits), 1);
    EXPECT_EQ(takeText(), U"one\n");
}

TEST_F(ClosedCaptionDecoderTest, SaysWhyNothingIsWritten) {
    const struct {
        CaptionPacket packet;
        int result;
    } cases[] = {
        {{.unit = "A", .dataIdentifier = 0x81}, 0},
        {{.unit = "A", .unitSeparator = 0x1E}, 0},
        {{.unit = "A", .unitParameter = 0x30}, 4},
        {{.unit = ""}, 2},
        {{.unit = "\r\x9B\x07"}, 2},
        {{.unit = "A\x0C"}, 2},
        {{.unit = "\x1C\x40\x40"}, 0},  // the cursor has moved, the screen is empty
        {{.unit = "A", .unitSize = 2}, 0},
        {{.unit = "A", .unitSize = 0xFFFFFF}, 0},
    };
    for (const auto& wanted : cases) {
        makeDecoder();
        EXPECT_EQ(decode(wanted.packet.bytes()), wanted.result) << &wanted - cases;
    }
    // Cut short, wherever that is.
    for (const uint8_t mode : {0, 1}) {
        const std::vector<uint8_t> whole =
            CaptionPacket{.unit = "text", .headerLength = 3, .timeControlMode = mode}.bytes();
        for (size_t size = 0; size < whole.size(); ++size) {
            EXPECT_EQ(decode({whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)}), 0)
                << size;
        }
    }
    EXPECT_EQ(mOutput->getDataSize(), 0u);
}

// Of a unit that the counter cannot hold the first 256 bytes are interpreted, once.
TEST_F(ClosedCaptionDecoderTest, CountsBytesInEightBits) {
    const struct {
        size_t stuffing;  // codes that do nothing
        std::string text;
        std::u32string expected;
    } cases[] = {
        {253, "AB", U"AB\n"},
        {254, "AB", U"AB\n"},
        {255, "AB", U"A\n"},
        {254, "AB" + std::string(600, 'C'), U"AB\n"},
        {254, "AB" + std::string(0x10000, 'C'), U"AB\n"},
    };
    PesRing large(18);
    for (const auto& wanted : cases) {
        const CaptionPacket packet{.unit = std::string(wanted.stuffing, '\x1E') + wanted.text};
        EXPECT_EQ(mDecoder->processPacket(large.push(PTS, packet.bytes())), 1);
        mDecoder->clearScreenData();
        large.buffer->reset();
        EXPECT_EQ(takeText(), wanted.expected);
    }
}

TEST_F(ClosedCaptionDecoderTest, KeepsTheTextForOthers) {
    unsigned char bytes[8] = "1234567";
    EXPECT_EQ(mDecoder->getCCSize(), 0u);
    mDecoder->getCC(bytes, sizeof bytes);
    EXPECT_STREQ(reinterpret_cast<char*>(bytes), "1234567");
    decodeUnit("A");
    EXPECT_EQ(mDecoder->getCCSize(), 8u);
    mDecoder->getCC(bytes, 7);
    EXPECT_STREQ(reinterpret_cast<char*>(bytes), "1234567");
    mDecoder->getCC(bytes, 8);
    const char32_t expected[] = {U'A', U'\n'};
    EXPECT_EQ(memcmp(bytes, expected, 8), 0);
}

TEST_F(ClosedCaptionDecoderTest, LosesTheTextThatFindsNoRoom) {
    ASSERT_NE(mOutput->write(4096 - 36, RingBuffer::NON_BLOCKING), nullptr);
    mOutput->writeAdvance(4096 - 36);
    EXPECT_EQ(decodeUnit("A"), 0);
    EXPECT_EQ(mDecoder->getCCSize(), 8u);
    mOutput->reset();
    EXPECT_EQ(decodeUnit("B"), 1);
    EXPECT_EQ(takeText(), U"B\n");
}

TEST_F(ClosedCaptionDecoderTest, NeedsAnInputAndAnOutput) {
    android::sp<ClosedCaptionDecoder> decoder = new ClosedCaptionDecoder;
    EXPECT_EQ(decoder->getModuleName(), "ClosedCaptionDecoder");
    EXPECT_EQ(decoder->stop(), 0);
    mTrace.take();
    decoder->setInput(mInput.buffer);
    EXPECT_EQ(decoder->start(), 1);
    decoder->setInput(nullptr);
    decoder->addOutput(mOutput, nullptr);
    EXPECT_EQ(decoder->start(), 1);
    EXPECT_THAT(mTrace.take(), ElementsAre("start NULL parameter!", "start NULL parameter!"));
}

TEST_F(ClosedCaptionDecoderTest, DecodesOnItsWorker) {
    ASSERT_EQ(mDecoder->start(), 0);
    EXPECT_EQ(mDecoder->start(), 0);
    mInput.push(PTS, CaptionPacket{.unit = "A\r\x1D"}.bytes(), {1, 2, 3});
    mInput.push(PTS, {0x80, 0xFF});
    mInput.push(PTS, CaptionPacket{.unit = "!"}.bytes());
    EXPECT_EQ(awaitText(), U"A\n");
    EXPECT_EQ(awaitText(), U"♪\n");  // on a clean screen, with the code of the packet before
    unsigned char bytes[8] = {};
    EXPECT_EQ(mDecoder->getCCSize(), sizeof bytes);  // while it runs
    mDecoder->getCC(bytes, sizeof bytes);

    EXPECT_EQ(mDecoder->stop(), 0);
    EXPECT_EQ(mDecoder->stop(), 0);
    EXPECT_EQ(mDecoder->start(), 0);
    mDecoder->requestExit();
    EXPECT_EQ(mDecoder->start(), 0);  // sees off the worker that was asked to exit
    mInput.push(PTS, CaptionPacket{.unit = "B"}.bytes());
    EXPECT_EQ(awaitText(), U"B\n");
}

// A record that is none stays where it is, is told of once, and the worker rests.
TEST_F(ClosedCaptionDecoderTest, LeavesARecordThatIsNotWhole) {
    const struct {
        uint32_t size;
        uint32_t payloadOffset;
        bool told;
    } cases[] = {
        {0, 40, false}, {39, 39, true}, {60, 64, true}, {88, 40, true}, {0xFFFFFFFC, 40, true},
    };
    using std::chrono::steady_clock;
    // For a stretch of 40 ms the process does next to nothing.
    const auto rests = [] {
        const std::clock_t busy = std::clock();
        std::this_thread::sleep_for(std::chrono::milliseconds(40));
        return std::clock() - busy < CLOCKS_PER_SEC / 100;
    };
    for (const auto& wanted : cases) {
        SCOPED_TRACE(wanted.size);
        mInput.buffer->reset();
        PESData* record = mInput.push(PTS, CaptionPacket{.unit = "wrong"}.bytes());
        const unsigned int bytes = mInput.buffer->getDataSize();
        record->mSize = wanted.size;
        record->mOffsetES = wanted.payloadOffset;
        mTrace.take();
        ASSERT_EQ(mDecoder->start(), 0);
        EXPECT_TRUE(orvtest::await(rests));
        mInput.buffer->wakeReaders();  // look again
        EXPECT_TRUE(orvtest::await(rests));
        const auto stop = steady_clock::now();
        mDecoder->stop();
        EXPECT_LT(steady_clock::now() - stop, std::chrono::seconds(1));
        EXPECT_EQ(mInput.buffer->getDataSize(), bytes);
        EXPECT_THAT(mTrace.take(), testing::SizeIs(wanted.told ? 1 : 0));
    }
    EXPECT_EQ(mOutput->getDataSize(), 0u);
}

TEST(UTF32Test, MapsBytesToCodePoints) {
    std::u32string expected[3];  // by set; the third is none
    for (std::u32string& set : expected) {
        for (char32_t byte = 0; byte < 256; ++byte) {
            set += byte;
        }
    }
    const auto replace = [&expected](UTF32::charset_t set, const std::string& bytes,
                                     const std::u32string& codePoints) {
        for (size_t i = 0; i < bytes.size(); ++i) {
            expected[set][static_cast<unsigned char>(bytes[i])] = codePoints[i];
        }
    };
    replace(UTF32::CHARSET_DEFAULT, "\xA4\xA6\xA8\xB4\xB8\xBC\xBD\xBE", U"€ŠšŽžŒœŸ");
    replace(UTF32::CHARSET_SPECIAL, "!01234567@ABCDEFGHIJK", U"♪¤¦¨´¸¼½¾…█‘’“”•™⅛⅜⅝⅞");
    for (int set = 0; set < 3; ++set) {
        std::u32string mapped;
        for (int byte = 0; byte < 256; ++byte) {
            mapped += static_cast<char32_t>(
                UTF32::getUTF32Char(static_cast<UTF32::charset_t>(set), static_cast<char>(byte)));
        }
        EXPECT_EQ(mapped, expected[set]) << set;
    }
}

}  // namespace
