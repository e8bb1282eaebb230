#include "tsparser/TSParser.h"

#include <memory>

#include "tsparser/TSParserFixture.h"

// What comes out of which packets: passes run on the test's own thread.

namespace {

using namespace OrvPlayer;
using namespace orvtest;

class TSParserTest : public TSParserFixture {};

class TSParserSliceTest : public TSParserFixture, public testing::WithParamInterface<size_t> {
protected:
    void SetUp() override {
        make(PID_TYPE_VIDEO);
        ASSERT_EQ(mParser->open(), 0);
    }
    void run(const Bytes& bytes) { feed(bytes, GetParam()); }
};

TEST_P(TSParserSliceTest, DeliversEachPESWhenTheNextStarts) {
    const int64_t late = 0x1FFFFFFF0;
    run(TsBuilder()
            .pes(VIDEO_PID, 0xE0, late, named('A', 1000), orvtest::NO_TIME, late - 3003)
            .pes(VIDEO_PID, 0xE0, 5, named('B', 1))
            .pes(VIDEO_PID, 0xE0, orvtest::NO_TIME, named('C', 150), 27'000'000)
            .pes(VIDEO_PID, 0xE0, 9000, named('D', 10))
            .build());
    EXPECT_EQ(names(), "ABC");  // D stays open
    ASSERT_EQ(mReceived.size(), 3u);
    EXPECT_EQ(mReceived[0].pts, static_cast<uint64_t>(late));
    EXPECT_EQ(mReceived[0].dts, static_cast<uint64_t>(late - 3003));
    EXPECT_EQ(mReceived[0].offset, PESData::FIXED_SIZE + 19);
    EXPECT_EQ(mReceived[0].packet, TsBuilder::pesBytes(0xE0, late, named('A', 1000), late - 3003));
    EXPECT_EQ(mReceived[1].packet, TsBuilder::pesBytes(0xE0, 5, named('B', 1)));
    EXPECT_EQ(mReceived[2].pts, 5u);  // the record of a PES without one repeats the last
}

// A lost packet costs one PES, however the input is sliced.
TEST_P(TSParserSliceTest, LostPacketCostsOnlyItsPES) {
    TsBuilder stream;
    stream.pes(VIDEO_PID, 0xE0, 1, named('A', 500)).pes(VIDEO_PID, 0xE0, 2, named('B', 1000));
    Bytes bytes = stream.pes(VIDEO_PID, 0xE0, 3, named('C', 500))
                      .pes(VIDEO_PID, 0xE0, 4, named('D', 500))
                      .build();
    const auto packet = [&](int index) { return bytes.begin() + index * 188; };
    bytes.erase(packet(5), packet(6));  // A has packets 0 to 2, B 3 to 8
    run(bytes);
    EXPECT_EQ(names(), "AC");
}

// The hole is in front of a start: B's first packet is replaced by the payload before it, which is
// all of A once more, so B comes out as A.
TEST_P(TSParserSliceTest, HoleInFrontOfAStartRepeatsThePayloadBefore) {
    run(TsBuilder()
            .pes(VIDEO_PID, 0xE0, 1, named('A', 170))
            .lose(VIDEO_PID, 3)
            .pes(VIDEO_PID, 0xE0, 2, named('B', 170))
            .pes(VIDEO_PID, 0xE0, 3, named('C', 170))
            .pes(VIDEO_PID, 0xE0, 4, named('D', 170))
            .build());
    EXPECT_EQ(names(), "AC");
    ASSERT_EQ(mReceived.size(), 2u);
    EXPECT_EQ(mReceived[0].pts, 1u);
}

// Each kind of damage costs the PES that it is in and nothing else.
TEST_P(TSParserSliceTest, DamagedPacketCostsOnlyItsPES) {
    struct {
        const char* what;
        size_t at;
        uint8_t value;
    } const DAMAGES[] = {{"sync byte", 0, 0x46},
                         {"transport error", 1, 0x81},
                         {"adaptation field length", 4, 200},
                         {"reserved control", 3, 0x00}};
    for (const auto& damage : DAMAGES) {
        SCOPED_TRACE(damage.what);
        mReceived.clear();
        ASSERT_EQ(mParser->open(), 0);
        Bytes bytes = TsBuilder()
                          .pes(VIDEO_PID, 0xE0, 1, named('A', 500))
                          .pes(VIDEO_PID, 0xE0, 2, named('B', 500))
                          .pes(VIDEO_PID, 0xE0, 3, named('C', 500))
                          .pes(VIDEO_PID, 0xE0, 4, named('D', 500))
                          .build();
        uint8_t* last = bytes.data() + 5 * 188;  // of B: it has an adaptation field
        ASSERT_EQ(last[3] & 0x30, 0x30);
        last[damage.at] = damage.value;
        run(bytes);
        EXPECT_EQ(names(), "AC");
    }
}

INSTANTIATE_TEST_SUITE_P(PacketsPerPass, TSParserSliceTest, testing::Values(1, 2, 5, 64));

TEST_F(TSParserTest, PartOfAPacketWaitsForTheRest) {
    make(PID_TYPE_VIDEO);
    ASSERT_EQ(mParser->open(), 0);
    const Bytes bytes = manyPES(2, 100);
    push(Bytes(bytes.begin(), bytes.begin() + 184));
    EXPECT_TRUE(mParser->parsePass());
    EXPECT_EQ(mInput->getDataSize(), 184u);
    push(Bytes(bytes.begin() + 184, bytes.end()));
    EXPECT_TRUE(mParser->parsePass());
    drain();
    EXPECT_EQ(names(), "a");
}

TEST_F(TSParserTest, UnusablePESIsDroppedAlone) {
    make(PID_TYPE_AUDIO);
    ASSERT_EQ(mParser->open(), 0);
    Bytes broken = TsBuilder::pesBytes(0xC0, 2, named('B', 100));
    broken[2] = 9;
    TraceCapture trace;
    feed(TsBuilder()
             .pes(0x112, 0xC0, 1, named('A', 100))
             .packet(0x112, broken, true)
             .packet(0x112, {}, true)  // starts and carries nothing
             .pes(0x112, 0xC0, 3, named('C', 100))
             .pes(0x112, 0xC0, 4, named('D', 100))
             .build(),
         1);
    EXPECT_EQ(names(), "AC");
    const std::string dropped = "threadLoop - PES parser error; discarding entire packet.";
    EXPECT_EQ(trace.take(),
              (Lines{"parseHeader - start code not found!", "parse - header parsing error!",
                     dropped, "parse - invalid parameter!", dropped}));
}

// A block that runs over the end of the ring is one contiguous run; every position comes up.
TEST_F(TSParserTest, BlocksRunOverTheEndOfTheRing) {
    make(PID_TYPE_VIDEO, 3 * 4096);
    ASSERT_EQ(mParser->open(), 0);
    TsBuilder stream;
    std::string expected;
    for (int i = 0; i < 60; ++i) {
        const char name = static_cast<char>('a' + i % 26);
        stream.pes(VIDEO_PID, 0xE0, i, named(name, 1777));
        expected += name;
    }
    expected.pop_back();
    feed(stream.build(), 1);
    EXPECT_EQ(names(), expected);
}

// A PES larger than the ring can never get room. It is dropped, nothing waits for it.
TEST_F(TSParserTest, PESLargerThanTheRingIsDropped) {
    make(PID_TYPE_CLOSED_CAPTION, 8192);
    ASSERT_EQ(mParser->open(), 0);
    // Each of its later packets looks like a PES of its own: none of them may be taken for one.
    Bytes large = named('B', 170);
    while (large.size() < 60'000) {
        large = large + TsBuilder::pesBytes(0xBD, 2, named('X', 170));
    }
    feed(TsBuilder()
             .pes(0x113, 0xBD, 1, named('A', 100))
             .pes(0x113, 0xBD, 2, large)
             .pes(0x113, 0xBD, 3, named('C', 100))
             .pes(0x113, 0xBD, 4, named('D', 8192 - 40 - 14))  // fills it to the last byte
             .pes(0x113, 0xBD, 5, named('E', 100))
             .pes(0x113, 0xBD, 6, named('F', 100))
             .pes(0x113, 0xBD, 7, named('G', 100))
             .build(),
         1);
    // E lost its first packet while D filled the ring.
    EXPECT_EQ(names(), "ACDF");
}

// The reader freed room since the packet before: the block goes on at once.
TEST_F(TSParserTest, RoomFreedMeanwhileIsSeen) {
    make(PID_TYPE_VIDEO, 4096);
    ASSERT_EQ(mParser->open(), 0);
    const Bytes bytes = TsBuilder()
                            .pes(VIDEO_PID, 0xE0, 1, named('A', 1000))
                            .pes(VIDEO_PID, 0xE0, 2, named('B', 3500))
                            .pes(VIDEO_PID, 0xE0, 3, named('C', 10))
                            .build();
    const std::ptrdiff_t full = (6 + 16) * 188;  // A, and B as far as it fits beside A
    push(Bytes(bytes.begin(), bytes.begin() + full));
    ASSERT_TRUE(mParser->parsePass());
    drain();
    push(Bytes(bytes.begin() + full, bytes.end()));
    TraceCapture trace;
    ASSERT_TRUE(mParser->parsePass());
    drain();
    EXPECT_EQ(names(), "AB");
    EXPECT_EQ(trace.take(), (Lines{"threadLoop - output RB is full; waiting for free space. "
                                   "payload size = 184 type = 1"}));
}

TEST_F(TSParserTest, FurtherOutputsGetCopiesWhereTheyHaveRoom) {
    make(PID_TYPE_VIDEO);
    const auto wide = makeRing("wide", 65536);
    const auto narrow = makeRing("narrow", 4096);
    mParser->addOutput(narrow, nullptr);
    mParser->addOutput(wide, nullptr);
    ASSERT_EQ(mParser->open(), 0);
    feed(TsBuilder()
             .pes(VIDEO_PID, 0xE0, 1, named('A', 5000))
             .pes(VIDEO_PID, 0xE0, 2, named('B', 301))
             .pes(VIDEO_PID, 0xE0, 3, named('C', 10))
             .build(),
         64);
    std::vector<ReceivedPES> fromNarrow, fromWide;
    while (receive(*narrow, &fromNarrow) || receive(*wide, &fromWide)) {
    }
    EXPECT_EQ(names(), "AB");
    EXPECT_EQ(namesOf(fromWide), "AB");
    EXPECT_EQ(namesOf(fromNarrow), "B");
    ASSERT_EQ(fromWide.size(), 2u);
    EXPECT_EQ(fromWide[1].packet, mReceived[1].packet);
}

// Without an output packets are still read: the PCR parser has none.
TEST_F(TSParserTest, LastPCROfAPassFeedsTheClock) {
    make(PID_TYPE_PCR);
    mParser = new TSParser(PID_TYPE_PCR);
    mParser->setInput(mInput);
    const android::sp<Synchronization> clock = new Synchronization;
    mParser->configure(clock);
    ASSERT_EQ(mParser->open(), 0);
    // Far apart, so that any of the first two would show.
    feed(TsBuilder()
             .pcr(0x100, 100 * 27'000'000ll)
             .pcr(0x100, 200 * 27'000'000ll)
             .pcr(0x100, 300 * 27'000'000ll)
             .build(),
         64);
    Uint33 now = 0;
    ASSERT_TRUE(clock->getActualDefinedPCR(&now));
    EXPECT_GE(now, 300 * 90'000u);
    EXPECT_LT(now, 320 * 90'000u);
    EXPECT_EQ(mInput->getDataSize(), 0u);
}

// The flag of the last adaptation field stays in the record, so its PCR is handed over again.
TEST_F(TSParserTest, PassWithoutAPCRRepeatsTheLast) {
    make(PID_TYPE_PCR);
    const android::sp<Synchronization> clock = new Synchronization;
    mParser->configure(clock);
    ASSERT_EQ(mParser->open(), 0);
    TsBuilder stream;
    feed(stream.pcr(0x100, 100 * 27'000'000ll).build(), 64);
    const auto isValid = [&clock] {
        return reportOf(*clock).find("Real PCR: 0 (Invalid)") == std::string::npos;
    };
    clock->resetPCR();
    ASSERT_FALSE(isValid());
    feed(TsBuilder().packet(0x100, Bytes(184, 0)).build(), 64);
    EXPECT_TRUE(isValid());
}

TEST_F(TSParserTest, OpenNamesWhatIsMissing) {
    TraceCapture trace;
    const android::sp<TSParser> bare = new TSParser(PID_TYPE_VIDEO);
    EXPECT_EQ(bare->start(), TSParser::ERR_NO_INPUT);
    EXPECT_EQ(bare->stop(), 0);
    bare->setInput(makeRing("in", 4096));
    bare->addOutput(new RingBuffer, nullptr);  // never configured
    EXPECT_EQ(bare->start(), TSParser::ERR_WORKER);
    EXPECT_EQ(bare->stop(), 0);
    EXPECT_EQ(trace.take(),
              (Lines{"start - no input Ring Buffer set!", "start - mpPESWriter is NULL !!!!"}));
}

}  // namespace
