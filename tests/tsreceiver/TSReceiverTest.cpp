#include "tsreceiver/TSReceiver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "support/Await.h"
#include "support/FakeDemux.h"
#include "support/TraceCapture.h"

namespace {

using namespace OrvPlayer;
using orvtest::await;
using orvtest::FakeDemux;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using PIDMap = std::map<TSReceiverPIDType, unsigned short>;
using Started = FakeDemux::Started;
using Lines = std::vector<std::string>;

constexpr unsigned short PCR = 0x100, VIDEO = 0x111, AUDIO = 0x112, CAPTIONS = 0x130;
const PIDMap FOUR{{PID_TYPE_PCR, PCR},
                  {PID_TYPE_VIDEO, VIDEO},
                  {PID_TYPE_AUDIO, AUDIO},
                  {PID_TYPE_CLOSED_CAPTION, CAPTIONS}};

std::vector<uint8_t> packets(size_t count, char name) {
    return std::vector<uint8_t>(count * 188, static_cast<uint8_t>(name));
}

class TSReceiverTest : public testing::Test {
protected:
    void SetUp() override { mDemux.reset(); }
    void TearDown() override {
        mReceiver->stop();
        EXPECT_EQ(mDemux.running(), 0u);
    }

    void addOutput(unsigned size = 65536) {
        mRings.push_back(new RingBuffer);
        ASSERT_EQ(mRings.back()->configureWithSize("TS", size), 0);
        EXPECT_EQ(mReceiver->addOutput(mRings.back(), nullptr), 0);
    }

    void makeFour(unsigned size = 65536) {
        for (int i = 0; i < 4; ++i) {
            addOutput(size);
        }
        ASSERT_EQ(mReceiver->configure(FOUR), 0u);
    }

    // Waits for packets in output `index`, takes them, and says what they are: "AAB".
    std::string take(size_t index, size_t count) {
        std::string names;
        RingBuffer& ring = *mRings[index];
        await([&] {
            unsigned char* bytes = ring.read(188, RingBuffer::BLOCKING);
            if (bytes != nullptr) {
                for (int i = 1; i < 188; ++i) {
                    EXPECT_EQ(bytes[i], bytes[0]);
                }
                names += static_cast<char>(bytes[0]);
                ring.readAdvance(188);
            }
            return names.size() >= count;
        });
        return names;
    }

    FakeDemux& mDemux = FakeDemux::instance();
    android::sp<TSReceiver> mReceiver = new TSReceiver;
    std::vector<android::sp<RingBuffer>> mRings;
};

TEST_F(TSReceiverTest, EachPIDFeedsItsOutput) {
    makeFour();
    ASSERT_EQ(mReceiver->start(), 0);
    EXPECT_EQ(mDemux.started(), (std::vector<Started>{{PCR, DEMUX_FILTER_PCR},
                                                      {VIDEO, DEMUX_FILTER_VIDEO},
                                                      {AUDIO, DEMUX_FILTER_PES},
                                                      {CAPTIONS, DEMUX_FILTER_PES}}));
    mDemux.feed(CAPTIONS, packets(1, 'C'));
    mDemux.feed(PCR, packets(2, 'P'));
    mDemux.feed(AUDIO, packets(3, 'A'));
    mDemux.feed(VIDEO, packets(4, 'V'));
    EXPECT_EQ(take(0, 2), "PP");
    EXPECT_EQ(take(1, 4), "VVVV");
    EXPECT_EQ(take(2, 3), "AAA");
    EXPECT_EQ(take(3, 1), "C");
    EXPECT_TRUE(mReceiver->isPIDSet(VIDEO));
    EXPECT_FALSE(mReceiver->isPIDSet(0x1FFF));
}

TEST_F(TSReceiverTest, NumberOfPIDsMustBeThatOfOutputs) {
    orvtest::TraceCapture trace;
    EXPECT_EQ(mReceiver->start(), static_cast<int>(TSReceiver::ERR_NO_PID));
    EXPECT_EQ(trace.take(), (Lines{"start - cannot start TSReceiver: no PID set!"}));
    makeFour();
    PIDMap three = FOUR;
    three.erase(PID_TYPE_PCR);
    EXPECT_EQ(mReceiver->configure(three), TSReceiver::ERR_PID_COUNT);
    EXPECT_TRUE(mReceiver->isPIDSet(PCR));  // the map of before stands
    addOutput();
    EXPECT_EQ(mReceiver->start(), static_cast<int>(TSReceiver::ERR_PID_COUNT));
    EXPECT_TRUE(mDemux.started().empty());
    EXPECT_EQ(trace.take(),
              (Lines{"configure - number of PIDs (3) and number of outputs (4) are diferent!",
                     "start - number of PIDs (4) and number of outputs (5) are diferent!"}));
}

TEST_F(TSReceiverTest, RefusedFilterKeepsItsPlace) {
    makeFour();
    mDemux.refuse(VIDEO);
    orvtest::TraceCapture trace;
    EXPECT_EQ(mReceiver->start(), static_cast<int>(TSReceiver::ERR_FILTERING));
    EXPECT_EQ(trace.take(), (Lines{"startFiltering Could not start filtering PID 273!",
                                   "start - could not start filtering!"}));
    EXPECT_EQ(mDemux.running(), 3u);
    // The outputs behind it are still paired with their own PIDs.
    EXPECT_EQ(mReceiver->changePID(PID_TYPE_VIDEO, VIDEO, 0x115), TSReceiver::ERR_WORKER);
    EXPECT_EQ(mReceiver->changePID(PID_TYPE_AUDIO, AUDIO, 0x116), 0u);
    EXPECT_EQ(mDemux.started().back(), (Started{0x116, DEMUX_FILTER_PES}));
    EXPECT_EQ(mReceiver->start(), static_cast<int>(TSReceiver::ERR_FILTERING));
    EXPECT_EQ(mDemux.running(), 3u);  // those of before were not left behind
}

TEST_F(TSReceiverTest, SecondStartChangesNothing) {
    makeFour();
    ASSERT_EQ(mReceiver->start(), 0);
    EXPECT_EQ(mReceiver->start(), 0);
    EXPECT_EQ(mDemux.started().size(), 4u);
    mDemux.feed(VIDEO, packets(200, 'V'));
    EXPECT_EQ(take(1, 200), std::string(200, 'V'));
}

TEST_F(TSReceiverTest, FullOutputIsPassedOverAndLosesNothing) {
    makeFour(4096);  // 21 packets
    orvtest::TraceCapture trace;
    ASSERT_EQ(mReceiver->start(), 0);
    mDemux.feed(VIDEO, packets(50, 'V'));
    EXPECT_TRUE(await([&] { return mDemux.waiting(VIDEO) == 29 * 188; }));
    mDemux.feed(AUDIO, packets(5, 'A'));
    EXPECT_EQ(take(2, 5), "AAAAA");
    EXPECT_EQ(mDemux.waiting(VIDEO), 29u * 188);
    EXPECT_TRUE(await([&] {
        const Lines lines = trace.take();
        return !lines.empty() &&
               lines[0] == "threadLoop: no room for TS data in RB; free space = 148; PID = 273";
    }));
    EXPECT_EQ(take(1, 50), std::string(50, 'V'));
}

// The parser steps by whole packets: neither a torn packet nor a count above what was asked for
// may reach it.
TEST_F(TSReceiverTest, OnlyWholePacketsAreCommitted) {
    makeFour(4096);
    ASSERT_EQ(mReceiver->start(), 0);
    mDemux.lieAboutReads(-100);
    mDemux.feed(VIDEO, packets(3, 'V'));
    EXPECT_EQ(take(1, 2), "VV");
    mDemux.lieAboutReads(100'000);
    mDemux.feed(VIDEO, packets(3, 'X'));
    EXPECT_TRUE(await([&] { return mDemux.waiting(VIDEO) == 0; }));
    mDemux.lieAboutReads(-188);
    orvtest::TraceCapture trace;
    mDemux.feed(VIDEO, packets(1, 'Y'));
    EXPECT_TRUE(await([&] {
        const Lines lines = trace.take();
        return std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
            return line.starts_with("threadLoop - DemuxBinder_ReadData returned 0; DmxHandle = ");
        });
    }));
    mDemux.lieAboutReads(0);
    mDemux.feed(VIDEO, packets(3, 'W'));
    EXPECT_EQ(take(1, 3), "WWW");
    EXPECT_EQ(mRings[1]->getDataSize(), 0u);
}

TEST_F(TSReceiverTest, ChangesAPIDWhileItRuns) {
    makeFour();
    ASSERT_EQ(mReceiver->start(), 0);
    mDemux.feed(AUDIO, packets(2, 'A'));
    EXPECT_EQ(take(2, 2), "AA");
    EXPECT_EQ(mReceiver->changePID(PID_TYPE_AUDIO, 0x777, 0x113), TSReceiver::ERR_WORKER);
    EXPECT_TRUE(mReceiver->isPIDSet(AUDIO));
    EXPECT_EQ(mReceiver->changePID(PID_TYPE_AUDIO, AUDIO, 0x113), 0u);
    EXPECT_FALSE(mReceiver->isPIDSet(AUDIO));
    mDemux.feed(AUDIO, packets(2, 'A'));
    mDemux.feed(0x113, packets(2, 'B'));
    EXPECT_EQ(take(2, 2), "BB");
    // A filter that does not start leaves the place empty, for good.
    mDemux.refuse(0x114);
    EXPECT_EQ(mReceiver->changePID(PID_TYPE_AUDIO, 0x113, 0x114), TSReceiver::ERR_WORKER);
    EXPECT_EQ(mReceiver->changePID(PID_TYPE_AUDIO, 0x113, 0x115), TSReceiver::ERR_WORKER);
    EXPECT_EQ(mDemux.running(), 3u);
}

// The first PID that matches is taken, whatever its role: the filter of the PCR goes.
TEST_F(TSReceiverTest, SharedPIDIsFoundAtItsFirstRole) {
    addOutput();
    addOutput();
    EXPECT_EQ(mReceiver->changePID(PID_TYPE_AUDIO, AUDIO, 0x113), TSReceiver::ERR_NO_PID);
    ASSERT_EQ(mReceiver->configure({{PID_TYPE_PCR, AUDIO}, {PID_TYPE_AUDIO, AUDIO}}), 0u);
    EXPECT_EQ(mReceiver->changePID(PID_TYPE_AUDIO, AUDIO, 0x113), TSReceiver::ERR_WORKER);
    ASSERT_EQ(mReceiver->start(), 0);
    EXPECT_EQ(mReceiver->changePID(PID_TYPE_AUDIO, AUDIO, 0x113), 0u);
    mDemux.feed(AUDIO, packets(1, 'A'));
    mDemux.feed(0x113, packets(1, 'B'));
    EXPECT_EQ(take(0, 1), "B");
    EXPECT_EQ(take(1, 1), "A");
}

// Data flows while outputs and PIDs change: for the thread sanitizer.
TEST_F(TSReceiverTest, AddsAPIDWhileItRuns) {
    addOutput();
    ASSERT_EQ(mReceiver->configure({{PID_TYPE_VIDEO, VIDEO}}), 0u);
    ASSERT_EQ(mReceiver->start(), 0);
    std::thread source([&] {
        for (int i = 0; i < 100; ++i) {
            mDemux.feed(VIDEO, packets(1, 'V'));
        }
    });
    addOutput();
    EXPECT_EQ(mReceiver->startFilteringNewPID(PID_TYPE_CLOSED_CAPTION, CAPTIONS), 0u);
    mDemux.feed(CAPTIONS, packets(1, 'C'));
    EXPECT_EQ(take(1, 1), "C");
    EXPECT_EQ(mReceiver->changePID(PID_TYPE_CLOSED_CAPTION, CAPTIONS, 0x131), 0u);
    mDemux.refuse(0x132);
    EXPECT_EQ(mReceiver->startFilteringNewPID(PID_TYPE_AUDIO, 0x132), TSReceiver::ERR_WORKER);
    EXPECT_FALSE(mReceiver->isPIDSet(0x132));
    EXPECT_EQ(take(0, 100), std::string(100, 'V'));
    source.join();
}

TEST_F(TSReceiverTest, StopsPromptlyAndStartsAgain) {
    makeFour(4096);
    EXPECT_EQ(mReceiver->stop(), 0);          // never started
    for (const size_t waiting : {0u, 50u}) {  // idle; waiting for room
        ASSERT_EQ(mReceiver->start(), 0);
        mDemux.feed(VIDEO, packets(waiting, 'V'));
        ASSERT_TRUE(await([&] { return mDemux.waiting(VIDEO) <= 29 * 188; }));
        const auto begin = steady_clock::now();
        EXPECT_EQ(mReceiver->stop(), 0);
        EXPECT_LT(steady_clock::now() - begin, milliseconds(400));
        EXPECT_EQ(mReceiver->stop(), 0);
        EXPECT_EQ(mDemux.running(), 0u);
    }
    mRings[1]->reset();  // its lock is free
    ASSERT_EQ(mReceiver->start(), 0);
    mDemux.feed(VIDEO, packets(1, 'W'));
    EXPECT_EQ(take(1, 1), "W");
    EXPECT_EQ(mDemux.started().size(), 12u);
}

// As when the application dies while a command is under way.
TEST_F(TSReceiverTest, StopMayComeFromAnotherThread) {
    makeFour();
    std::atomic<bool> done{false};
    std::thread other([&] {
        while (!done) {
            EXPECT_EQ(mReceiver->stop(), 0);
        }
    });
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(mReceiver->start(), 0);
        mDemux.feed(VIDEO, packets(5, 'V'));
        mReceiver->requestExit();
    }
    done = true;
    other.join();
    EXPECT_EQ(mReceiver->stop(), 0);
    EXPECT_EQ(mDemux.running(), 0u);
    mRings[1]->reset();  // its lock is free
}

// A service that fails at once is not asked again at once.
TEST_F(TSReceiverTest, TroubleDoesNotSpin) {
    makeFour();
    mDemux.failSelects(-5);
    ASSERT_EQ(mReceiver->start(), 0);
    const auto begin = steady_clock::now();
    EXPECT_TRUE(await([&] { return mDemux.selects() >= 4; }));
    EXPECT_GE(steady_clock::now() - begin, milliseconds(75));
    mDemux.failSelects(0);
    mDemux.feed(VIDEO, packets(1, 'V'));
    EXPECT_EQ(take(1, 1), "V");
}

TEST_F(TSReceiverTest, DroppedWhileRunningItStopsEverything) {
    makeFour();
    ASSERT_EQ(mReceiver->start(), 0);
    mReceiver = new TSReceiver;
    EXPECT_EQ(mDemux.running(), 0u);
}

}  // namespace
