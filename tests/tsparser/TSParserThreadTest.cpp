#include <thread>

#include "support/FakeRecPlayer.h"
#include "tsparser/TSParserFixture.h"

// The parser's worker: waiting, stopping, scrambling, time stamps to others.

namespace {

using namespace OrvPlayer;
using namespace orvtest;
using std::chrono::steady_clock;

constexpr std::chrono::milliseconds PROMPT{400};

class TSParserThreadTest : public TSParserFixture {
protected:
    // Takes records until there are `count`.
    bool await(size_t count) {
        return orvtest::await([&] {
            receive(*mOutput, &mReceived, RingBuffer::BLOCKING);
            return mReceived.size() >= count;
        });
    }

    void stopPromptly() {
        const auto begin = steady_clock::now();
        EXPECT_EQ(mParser->stop(), 0);
        EXPECT_LT(steady_clock::now() - begin, PROMPT);
    }
};

Bytes scrambled(Bytes bytes) {
    for (size_t at = 3; at < bytes.size(); at += PACKET_BYTES) {
        bytes[at] |= 0x80;
    }
    return bytes;
}

// The ring holds one PES at a time: the parser waits for its reader again and again.
TEST_F(TSParserThreadTest, WaitsForItsReader) {
    make(PID_TYPE_VIDEO, 4096);
    TraceCapture trace;
    ASSERT_EQ(mParser->start(), 0);
    push(manyPES(9, 3000));
    // The first takes 3056 bytes; of the second five packets fit beside it.
    Lines lines;
    EXPECT_TRUE(orvtest::await([&] {
        const Lines more = trace.take();
        lines.insert(lines.end(), more.begin(), more.end());
        return lines.size() >= 3;
    }));
    lines.resize(3);
    EXPECT_EQ(
        lines,
        (Lines{"threadLoop - output RB is full; waiting for free space. payload size = 184 "
               "type = 1",
               "threadLoop - lack of buffer...remained ringbuffer (1040), request size = 1144",
               "threadLoop - waiting for free space in PES ring buffer (184)"}));
    EXPECT_TRUE(await(8));
    EXPECT_EQ(names(), "abcdefgh");
    EXPECT_TRUE(orvtest::await([&] { return mInput->getDataSize() == 0; }));
}

TEST_F(TSParserThreadTest, StopsPromptlyWhateverItDoes) {
    make(PID_TYPE_VIDEO, 4096);
    stopPromptly();  // never started
    ASSERT_EQ(mParser->start(), 0);
    stopPromptly();  // waiting for input
    ASSERT_EQ(mParser->start(), 0);
    push(manyPES(9, 3000));
    // b: 40 bytes of record and five payloads fit beside a, a sixth does not.
    ASSERT_TRUE(
        orvtest::await([&] { return report().find("mPESSize: 920\n") != std::string::npos; }));
    stopPromptly();  // waiting for room
    stopPromptly();  // already stopped
    drain();
    EXPECT_EQ(names(), "a");  // what was complete is whole
    mReceived.clear();
    // Both rings are free again, and so is the parser.
    mInput->reset();
    mOutput->reset();
    ASSERT_EQ(mParser->start(), 0);
    ASSERT_EQ(mParser->start(), 0);  // a live worker is left alone
    push(manyPES(3, 100));
    EXPECT_TRUE(await(2));
    EXPECT_EQ(names(), "ab");
}

// A restart begins anew: the PES of before is forgotten, the next waits for its start.
TEST_F(TSParserThreadTest, RestartWaitsForAStart) {
    make(PID_TYPE_VIDEO);
    ASSERT_EQ(mParser->start(), 0);
    const Bytes bytes = manyPES(4, 500);  // three packets each
    push(Bytes(bytes.begin(), bytes.begin() + 188));
    ASSERT_TRUE(orvtest::await([&] { return mInput->getDataSize() == 0; }));
    ASSERT_EQ(mParser->stop(), 0);
    ASSERT_EQ(mParser->start(), 0);
    push(Bytes(bytes.begin() + 188, bytes.end()));
    EXPECT_TRUE(await(2));
    EXPECT_EQ(names(), "bc");
}

TEST_F(TSParserThreadTest, TwelveScrambledVideoPacketsEndTheWorker) {
    make(PID_TYPE_VIDEO);
    const Bytes eleven = scrambled(manyPES(11, 100));
    Bytes clear = manyPES(2, 100);
    clear[3] = 0x1C;  // continuity holds: 12, 13
    clear[188 + 3] = 0x1D;
    ASSERT_EQ(mParser->start(), 0);
    push(eleven);
    ASSERT_TRUE(orvtest::await([&] { return mInput->getDataSize() == 0; }));
    EXPECT_EQ(mError.code(), 0u);
    Bytes damaged = manyPES(1, 100);
    damaged[0] = 0;
    push(damaged + eleven + clear);  // the damaged packet takes the count back, clear ones do not
    ASSERT_TRUE(orvtest::await([&] { return mInput->getDataSize() == 0; }));
    EXPECT_EQ(mError.code(), 0u);
    TraceCapture trace;
    clear[3] = 0x1E;
    clear[188 + 3] = 0x1F;
    push(scrambled(clear));
    ASSERT_TRUE(orvtest::await([&] { return mError.code() != 0; }));
    EXPECT_EQ(trace.take(), (Lines{"threadLoop send error by scrambled ts pid = 0x111"}));
    EXPECT_EQ(mError.code(), static_cast<unsigned>(TSParser::ERR_SCRAMBLED));
    ASSERT_TRUE(orvtest::await([&] { return !mParser->isRunning(); }));

    // Started again, also without a stop, although the ended worker left its lock held.
    mInput->reset();
    drain();
    mReceived.clear();
    ASSERT_EQ(mParser->start(), 0);
    push(manyPES(3, 100));
    EXPECT_TRUE(await(2));
    EXPECT_EQ(names(), "ab");
}

TEST_F(TSParserThreadTest, OtherRolesIgnoreScrambling) {
    make(PID_TYPE_AUDIO);
    ASSERT_EQ(mParser->start(), 0);
    push(scrambled(manyPES(20, 100)));
    EXPECT_TRUE(await(19));
    EXPECT_EQ(mError.code(), 0u);
}

TEST_F(TSParserThreadTest, TimeStampsGoToClockAndRecorder) {
    const android::sp<Synchronization> clock = new Synchronization;
    const auto play = [&](int role, uint8_t streamId, bool notify) {
        make(role);
        mParser->configure(clock);
        mParser->setNotifyAudioPTS(notify);
        ASSERT_EQ(mParser->start(), 0);
        push(TsBuilder()
                 .pes(VIDEO_PID, streamId, 900'000, named('A', 10))
                 .pes(VIDEO_PID, streamId, 903'600, named('B', 10))
                 .pes(VIDEO_PID, streamId, 907'200, named('C', 10))
                 .build());
        mParser->setNotifyAudioPTS(notify);  // at any time
        ASSERT_TRUE(await(2));
        mParser->stop();
        mReceived.clear();
    };
    FakeRecPlayer::instance().takeAudioTimes();
    play(PID_TYPE_AUDIO, 0xC0, false);
    EXPECT_TRUE(FakeRecPlayer::instance().takeAudioTimes().empty());
    EXPECT_EQ(clock->getPCRValue(), 0u);  // audio alone is no presentation time
    play(PID_TYPE_AUDIO, 0xC0, true);
    EXPECT_EQ(FakeRecPlayer::instance().takeAudioTimes(),
              (std::vector<unsigned long>{10'000, 10'040}));
    play(PID_TYPE_VIDEO, 0xE0, true);
    EXPECT_TRUE(FakeRecPlayer::instance().takeAudioTimes().empty());
    EXPECT_GE(clock->getPCRValue(), 900'000u);
}

// Reader, writer and reports at once: for the thread sanitizer, and nothing may get lost.
TEST_F(TSParserThreadTest, NothingIsLostAtFullSpeed) {
    make(PID_TYPE_VIDEO, 3 * 4096);
    ASSERT_EQ(mParser->start(), 0);
    constexpr size_t ROUNDS = 40;
    std::thread writer([&] {
        TsBuilder stream;
        for (size_t i = 0; i <= ROUNDS * 26; ++i) {
            stream.pes(VIDEO_PID, 0xE0, static_cast<int64_t>(i),
                       named(static_cast<char>('a' + i % 26), 100 + i % 700));
        }
        const Bytes& bytes = stream.build();
        for (size_t at = 0; at < bytes.size(); at += PACKET_BYTES) {
            unsigned char* to = nullptr;
            while (to == nullptr) {
                to = mInput->write(PACKET_BYTES, RingBuffer::BLOCKING);
            }
            memcpy(to, bytes.data() + at, PACKET_BYTES);
            mInput->writeAdvance(PACKET_BYTES);
        }
    });
    FILE* sink = fopen("/dev/null", "w");
    ASSERT_TRUE(orvtest::await(
        [&] {
            receive(*mOutput, &mReceived, RingBuffer::BLOCKING);
            if (mReceived.size() % 64 == 0) {
                mParser->dump(sink, 0);
                mOutput->dump(sink, 0);
            }
            return mReceived.size() >= ROUNDS * 26;
        },
        std::chrono::seconds(20)));
    fclose(sink);
    writer.join();
    for (size_t i = 0; i < mReceived.size(); ++i) {
        ASSERT_EQ(mReceived[i].pts, i);
        ASSERT_EQ(mReceived[i].payload.size(), 100 + i % 700);
    }
}

}  // namespace
