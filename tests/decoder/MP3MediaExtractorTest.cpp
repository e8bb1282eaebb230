#include "decoder/MP3MediaExtractor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "decoder/PesRing.h"
#include "support/MpegAudioFrames.h"
#include "support/TraceCapture.h"

namespace {

using namespace orvtest;
using namespace OrvPlayer;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint64_t kT = 90000;
constexpr uint64_t kNextPES = 2 * kT;

using Unit = PesRing::Unit;

Unit unitAt(const Bytes& bytes, uint64_t pts) {
    return {bytes, static_cast<long long>(pts)};
}

Bytes part(const Bytes& bytes, size_t from, size_t to) {
    return Bytes(bytes.begin() + static_cast<long>(from), bytes.begin() + static_cast<long>(to));
}

// MPEG-1 Layer II at 48 kHz: 192 kbit/s and 32 kbit/s.
constexpr size_t kSize = 576;
constexpr size_t kSmallSize = 96;
constexpr uint64_t kFrame = 2160;

Bytes frame(unsigned seed) {
    return MpegHeader{}.frame(kSize, seed);
}
Bytes smallFrame(unsigned seed) {
    return MpegHeader{.bitRateIndex = 1}.frame(kSmallSize, seed);
}

class MP3MediaExtractorTest : public testing::Test {
protected:
    PESData* write(uint64_t pts, const Bytes& payload) {
        return mRing.push(pts, payload, Bytes(14, 0xEE));
    }
    std::vector<Unit> feed(uint64_t pts, const Bytes& payload) {
        write(pts, payload);
        return drain();
    }
    std::vector<Unit> drain() { return mRing.drain(*mExtractor, mCapacity); }

    TraceCapture mTrace;
    PesRing mRing;
    android::sp<MP3MediaExtractor> mExtractor = new MP3MediaExtractor(mRing.buffer);
    size_t mCapacity = 8192;
};

struct Length {
    MpegHeader header;
    size_t size;
    uint64_t duration;  // 90 kHz ticks
};

// Deliberate: padding is worth 144 bytes outside Layer I, and Layer III of the lower rates has
// frames of twice the standard's length. Times are whole milliseconds.
TEST_F(MP3MediaExtractorTest, LengthsByHeader) {
    const Length lengths[] = {
        {{3, 2, 10, 1}, 576, 2160},       // MPEG-1 Layer II, 192 kbit/s, 48 kHz
        {{3, 1, 9, 0}, 417, 26 * 90},     // Layer III, 128 kbit/s, 44.1 kHz
        {{3, 1, 9, 0, 1}, 561, 35 * 90},  // the same padded
        {{3, 2, 14, 2, 1}, 1872, 39 * 90},
        {{3, 3, 12, 0}, 416, 8 * 90},  // Layer I, 384 kbit/s, 44.1 kHz
        {{3, 3, 12, 0, 1}, 420, 8 * 90},
        {{3, 3, 14, 2}, 672, 12 * 90},
        {{2, 3, 14, 2}, 768, 24 * 90},  // MPEG-2 Layer I, 256 kbit/s, 16 kHz
        {{2, 2, 14, 1}, 960, 48 * 90},  // Layer II, 160 kbit/s, 24 kHz
        {{2, 1, 8, 1}, 384, 48 * 90},   // Layer III, 64 kbit/s, 24 kHz: 192 by the standard
        {{2, 1, 8, 0, 1}, 561, 70 * 90},
        {{0, 1, 1, 2}, 144, 144 * 90},  // MPEG-2.5 Layer III, 8 kbit/s, 8 kHz
        {{0, 3, 1, 0}, 136, 34 * 90},   // Layer I, 32 kbit/s, 11.025 kHz
        {{0, 2, 14, 2, 1}, 3024, 151 * 90},
    };
    for (const Length& length : lengths) {
        const MpegHeader& h = length.header;
        SCOPED_TRACE(testing::Message() << "version " << h.version << " layer " << h.layer
                                        << " bit rate " << h.bitRateIndex << " sampling rate "
                                        << h.samplingRateIndex << " padding " << h.padding);
        const Bytes first = h.frame(length.size, 1), second = h.frame(length.size, 2);
        EXPECT_EQ(feed(kT, first + second),
                  (std::vector{unitAt(first, kT), unitAt(second, kT + length.duration)}));
    }
    EXPECT_THAT(mTrace.take(), IsEmpty());
}

// Wherever a packet ends inside a frame behind the first six bytes of it, the frame has the time
// reached in its own packet, the next that of the packet it starts in.
TEST_F(MP3MediaExtractorTest, JoinsAFrameThatRunsOverTheEndOfAPES) {
    const Bytes stream = frame(0) + frame(1) + frame(2) + frame(3);
    for (size_t cut = kSize; cut < 2 * kSize; cut += cut < kSize + 12 ? 1 : 79) {
        if (cut > kSize && cut < kSize + 6) {
            continue;
        }
        SCOPED_TRACE(cut);
        write(kT, part(stream, 0, cut));
        write(kNextPES, part(stream, cut, stream.size()));
        const bool aligned = cut == kSize;
        const uint64_t second = aligned ? kNextPES : kT + kFrame;
        const uint64_t third = kNextPES + (aligned ? kFrame : 0);
        EXPECT_THAT(drain(),
                    ElementsAre(unitAt(frame(0), kT), unitAt(frame(1), second),
                                unitAt(frame(2), third), unitAt(frame(3), third + kFrame)));
    }
    EXPECT_THAT(mTrace.take(), IsEmpty());
}

// Deliberate: a header whose first six bytes a packet cuts costs its frame.
TEST_F(MP3MediaExtractorTest, LosesAFrameWhoseHeaderIsCut) {
    for (size_t bytes = 1; bytes < 6; ++bytes) {
        SCOPED_TRACE(bytes);
        write(kT, frame(0) + part(frame(1), 0, bytes));
        write(kNextPES, part(frame(1), bytes, kSize) + frame(2));
        EXPECT_THAT(drain(), ElementsAre(unitAt(frame(0), kT), unitAt(frame(2), kNextPES)));
        EXPECT_THAT(
            mTrace.take(),
            AllOf(Contains(bytes < 4 ? "parseHeader: No enough bits to parse header."
                                     : "parseHeader: No enough bits to parse header with CRC."),
                  Contains("getNextFragment: Failed to parse header.")));
    }
}

// Deliberate: the time is that of the second record. A record without payload changes nothing.
TEST_F(MP3MediaExtractorTest, AFrameOverThreeRecords) {
    write(kT, part(frame(0), 0, 200));
    write(kNextPES, part(frame(0), 200, 203));
    write(3 * kT, {});
    write(4 * kT, part(frame(0), 203, kSize) + frame(1));
    EXPECT_THAT(drain(), ElementsAre(unitAt(frame(0), kNextPES), unitAt(frame(1), 4 * kT)));
    EXPECT_THAT(mTrace.take(), IsEmpty());
}

struct BadHeader {
    Bytes head;
    const char* message;
};

// What is no header costs no frame behind it, and is searched byte by byte.
TEST_F(MP3MediaExtractorTest, GoesOnBehindAnInvalidHeader) {
    const BadHeader headers[] = {
        {{0x12, 0x34, 0x56, 0x78}, "parseHeader: Invalid sync word: 0x91"},
        {MpegHeader{.version = 1}.bytes(), "parseHeader: Invalid Version ID: 0x1"},
        {MpegHeader{.layer = 0}.bytes(), "parseHeader: Invalid Layer Index: 0x0"},
        {MpegHeader{.bitRateIndex = 0}.bytes(), "parseHeader: Invalid bit rate index: 0x0"},
        {MpegHeader{.bitRateIndex = 15}.bytes(), "parseHeader: Invalid bit rate index: 0xF"},
        {MpegHeader{.samplingRateIndex = 3}.bytes(),
         "parseHeader: Invalid sampling rate index: 0x3"},
        {MpegHeader{.emphasis = 2}.bytes(), "parseHeader: Invalid emphasis value: 0x2"},
    };
    for (const BadHeader& header : headers) {
        SCOPED_TRACE(header.message);
        EXPECT_THAT(feed(kT, frame(0) + header.head + frame(1) + frame(2)),
                    ElementsAre(unitAt(frame(0), kT), unitAt(frame(1), kT + kFrame),
                                unitAt(frame(2), kT + 2 * kFrame)));
        EXPECT_THAT(mTrace.take(), AllOf(Contains(header.message),
                                         Contains("getNextFragment: Failed to parse header.")));
    }
}

TEST_F(MP3MediaExtractorTest, FindsTheFirstHeader) {
    const Bytes starts[] = {
        Bytes(300, 0x55), {0xFF}, {0xFF, 0x1F}, {0xFF, 0xE0, 0xFF, 0xFF}, Bytes(50, 0xFF)};
    for (const Bytes& start : starts) {
        mExtractor = new MP3MediaExtractor(mRing.buffer);
        EXPECT_THAT(feed(kT, start), IsEmpty());  // nothing in it
        EXPECT_THAT(feed(kNextPES, start + frame(0) + frame(1)),
                    ElementsAre(unitAt(frame(0), kNextPES), unitAt(frame(1), kNextPES + kFrame)));
    }
}

// Deliberate: what is skipped takes no time. The second of the frames too large runs over the end
// of its packet.
TEST_F(MP3MediaExtractorTest, SkipsFramesLargerThanTheOutput) {
    mCapacity = kSmallSize;
    write(kT, frame(0) + smallFrame(1) + part(frame(2), 0, 300));
    write(kNextPES, part(frame(2), 300, kSize) + smallFrame(3) + smallFrame(4));
    write(3 * kT, part(frame(5), 0, 570));
    write(4 * kT, part(frame(5), 570, kSize));
    write(5 * kT, smallFrame(6));
    EXPECT_THAT(drain(), ElementsAre(unitAt(smallFrame(1), kT), unitAt(smallFrame(3), kNextPES),
                                     unitAt(smallFrame(4), kNextPES + kFrame),
                                     unitAt(smallFrame(6), 5 * kT)));
    const std::string message =
        "getNextFragment: not enough space in output buffer for MPEG audio frame.";
    EXPECT_THAT(mTrace.take(), ElementsAre(message, message, message));
}

// Nothing of the stream before is joined to the one that starts; the record at hand stays unread.
TEST_F(MP3MediaExtractorTest, ResetForgetsAFirstPart) {
    EXPECT_THAT(feed(kT, part(frame(0), 0, 100)), IsEmpty());
    mExtractor->reset();
    write(kNextPES, frame(1) + frame(2));
    EXPECT_EQ(mRing.next(*mExtractor), unitAt(frame(1), kNextPES));
    mExtractor->reset();
    EXPECT_THAT(drain(),
                ElementsAre(unitAt(frame(1), kNextPES), unitAt(frame(2), kNextPES + kFrame)));
    EXPECT_THAT(mTrace.take(), IsEmpty());
}

// Fields that point outside the record, and empty payloads, give nothing and are passed over.
TEST_F(MP3MediaExtractorTest, StaysInsideTheRecord) {
    for (const bool afterAFrame : {false, true}) {
        EXPECT_THAT(feed(kT, {}), IsEmpty()) << afterAFrame;
        write(kT, frame(0))->mSizeES = 0xFFFFFFF0;
        EXPECT_THAT(drain(), ElementsAre(unitAt(frame(0), kT)));
        write(kT, frame(0))->mOffsetES = 0xFFFFFFF0;
        EXPECT_THAT(drain(), IsEmpty());
    }
    EXPECT_THAT(mTrace.take(), IsEmpty());
    write(kT, Bytes(200, 0))->mSize = 300;  // 254 bytes, in 256 of the ring
    unsigned long size = 1;
    unsigned char flags = 1;
    EXPECT_EQ(mExtractor->getDecodableUnit(nullptr, 0, &size, nullptr, &flags),
              MediaExtractor::STATUS_FAULT);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(flags, 0u);
    EXPECT_THAT(mTrace.take(), ElementsAre("getDecodableUnit: RingBuffer fatal errror: 256 340"));
}

}  // namespace
