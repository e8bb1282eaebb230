#include "common/Synchronization.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/MonotonicClock.h"
#include "support/Report.h"
#include "support/TraceCapture.h"

namespace {

using namespace OrvPlayer;
constexpr auto VIDEO = Synchronization::VIDEO;
constexpr auto AUDIO = Synchronization::AUDIO;
constexpr auto PCR = Synchronization::REAL_PCR;

class Told : public PCRListener {
public:
    void onPCRChanged(unsigned long pcr) override { mValues.push_back(pcr); }
    std::vector<unsigned long> take() { return std::exchange(mValues, {}); }

private:
    std::vector<unsigned long> mValues;
};

class SynchronizationTest : public testing::Test {
protected:
    void SetUp() override { mSync->addListener(&mTold); }

    std::optional<Uint33> now() {
        Uint33 pcr = 0xABCDEF;
        if (!mSync->getActualDefinedPCR(&pcr)) {
            EXPECT_EQ(pcr, 0xABCDEFu);
            EXPECT_EQ(mSync->getPCRValue(), 0u);
            return std::nullopt;
        }
        EXPECT_EQ(mSync->getPCRValue(), pcr);
        return pcr;
    }

    orvtest::MonotonicClock mClock{5'000'000};
    android::sp<Synchronization> mSync = new Synchronization;
    Told mTold;
};

TEST_F(SynchronizationTest, OneStreamAloneIsNoClock) {
    EXPECT_EQ(now(), std::nullopt);
    mSync->setBasePCR(1000, VIDEO);
    EXPECT_EQ(now(), std::nullopt);
    EXPECT_TRUE(mTold.take().empty());
    mSync->setBasePCR(900, AUDIO);
    EXPECT_EQ(now(), 900u);  // the one that is behind
    EXPECT_EQ(mTold.take(), (std::vector<unsigned long>{900}));
    mClock.advance(10);
    EXPECT_EQ(now(), 1800u);
}

TEST_F(SynchronizationTest, FollowsTheStreamThatIsBehind) {
    struct {
        Uint33 video, audio, expected;
    } const CASES[] = {{900, 1000, 900},
                       {1000, 1000, 1000},
                       {1001, 1000, 1000},
                       {10, 0x1FFFFFFF0, 0x1FFFFFFF0},  // audio is behind, over the wrap
                       {0x1FFFFFFF0, 10, 0x1FFFFFFF0}};
    for (const auto& c : CASES) {
        mSync = new Synchronization;
        mSync->setBasePCR(c.video, VIDEO);
        mSync->setBasePCR(c.audio, AUDIO);
        EXPECT_EQ(now(), c.expected);
    }
}

// Listeners hear of a change only when the source that changed is the current one.
TEST_F(SynchronizationTest, TellsOnlyOfTheCurrentSource) {
    mSync->setBasePCR(500, AUDIO);
    mSync->setBasePCR(1000, VIDEO);  // audio is behind and becomes current by this
    EXPECT_TRUE(mTold.take().empty());
    EXPECT_EQ(now(), 500u);
    mSync->setBasePCR(700, PCR);
    EXPECT_EQ(mTold.take(), (std::vector<unsigned long>{700}));
    EXPECT_EQ(now(), 700u);
}

TEST_F(SynchronizationTest, RebasesOnlyOnAJump) {
    struct {
        uint64_t afterMs;
        int64_t jump;  // beside the time that passed
        bool rebases;
    } const CASES[] = {{20, 95'000, true},    {20, 90'001, true},  {20, 90'000, false},
                       {20, -90'000, false},  {20, -90'001, true}, {5, 200'000, false},
                       {10, 200'000, false},  {11, 200'000, true}, {1000, 0, false},
                       {3'600'000, 0, false}, {40, -400'000, true}};
    for (const Uint33 base : {Uint33{1'000'000}, Uint33{0x1FFFFFF00}}) {
        for (const auto& c : CASES) {
            SCOPED_TRACE(testing::Message() << c.afterMs << " ms, jump " << c.jump);
            mSync = new Synchronization;
            mSync->setBasePCR(base, PCR);
            mClock.advance(c.afterMs);
            const auto passed = static_cast<int64_t>(c.afterMs) * 90;
            mSync->setBasePCR(uint33Sum(base, passed + c.jump), PCR);
            EXPECT_EQ(now(), uint33Sum(base, passed + (c.rebases ? c.jump : 0)));
        }
    }
}

TEST_F(SynchronizationTest, OffsetsDelayEachSource) {
    mSync->setOffsetTime(2000, VIDEO);
    mSync->setOffsetTime(-500, AUDIO);
    mSync->setBasePCR(100'000, VIDEO);
    mSync->setBasePCR(100'000, AUDIO);
    EXPECT_EQ(now(), uint33Sum(100'000, -180'000));
    mSync->setOffsetTime(1500, PCR);
    mSync->setBasePCR(200'000, PCR);
    EXPECT_EQ(now(), 200'000u - 135'000);
}

// A PCR far away from the time stamps is passed over until it comes back.
TEST_F(SynchronizationTest, BadPCRIsIgnoredUntilItComesBack) {
    orvtest::TraceCapture trace;
    mSync->setBasePCR(5'000'000, VIDEO);
    mSync->setBasePCR(5'000'000, AUDIO);
    mSync->setBasePCR(5'000'000 + 1'799'999, PCR);
    EXPECT_EQ(now(), 5'000'000u + 1'799'999);
    mClock.advance(20);
    mSync->setBasePCR(5'000'000 - 1'800'000 + 1800, PCR);
    EXPECT_EQ(now(), 5'001'800u);  // the streams decide
    mClock.advance(20);
    mSync->setBasePCR(1'000'000, PCR);
    EXPECT_EQ(trace.take(), (std::vector<std::string>{
                                "checkForBadRealPCR: Ignoring real PCR due to high difference. "
                                "(-1800000) (-1800000)"}));
    mClock.advance(20);
    mSync->setBasePCR(5'000'000, PCR);
    EXPECT_EQ(now(), 5'000'000u);
    EXPECT_EQ(trace.take(),
              (std::vector<std::string>{"checkForBadRealPCR: Real PCR normalized. (-5400) "
                                        "(-5400)"}));
    mSync->setBasePCR(1, Synchronization::NONE);
    EXPECT_EQ(trace.take(), (std::vector<std::string>{"setBasePCR: cannot set PCR for None"}));
    EXPECT_EQ(now(), 5'000'000u);
}

// One stream being far away is enough.
TEST_F(SynchronizationTest, PCRMustAgreeWithEveryStream) {
    mSync->setBasePCR(5'000'000, PCR);
    mSync->setBasePCR(5'000'000, AUDIO);
    EXPECT_EQ(now(), 5'000'000u);
    mSync->setBasePCR(50'000'000, VIDEO);
    EXPECT_EQ(now(), 5'000'000u);  // audio: behind video
    mClock.advance(1);
    EXPECT_NE(orvtest::reportOf(*mSync, 1).find("generated by: Audio\n"), std::string::npos);
}

// The base is stamped with a second reading of the clock; listeners are told the time of the first.
TEST_F(SynchronizationTest, ListenersAreToldTheTimeOfTheFirstReading) {
    mClock.advanceAtEachReading(3);
    mSync->setBasePCR(100'000, PCR);
    EXPECT_EQ(mTold.take(), (std::vector<unsigned long>{100'000 - 3 * 90}));
    mSync = new Synchronization;
    mSync->addListener(&mTold);
    mSync->setBasePCR(0, PCR);
    EXPECT_EQ(mTold.take(), (std::vector<unsigned long>{0x200000000 - 3 * 90}));
}

TEST_F(SynchronizationTest, ResumeTakesThePauseOut) {
    mSync->setBasePCR(90'000, PCR);
    mTold.take();
    mSync->resume();  // not paused
    EXPECT_TRUE(mTold.take().empty());
    mClock.advance(100);
    mSync->pause();
    mSync->resume();  // no time has passed: it stays paused
    EXPECT_TRUE(mTold.take().empty());
    mClock.advance(1000);
    EXPECT_EQ(now(), 90'000u + 1100 * 90);  // nothing freezes meanwhile
    mSync->resume();
    EXPECT_EQ(mTold.take(), (std::vector<unsigned long>{90'000 + 100 * 90}));
    mClock.advance(1);
    EXPECT_EQ(now(), 90'000u + 101 * 90);
    mSync->resume();
    EXPECT_TRUE(mTold.take().empty());
}

TEST_F(SynchronizationTest, ResetKeepsTheCurrentSource) {
    mSync->setBasePCR(90'000, PCR);
    mSync->pause();
    mClock.advance(100);
    mSync->resetPCR();
    mTold.take();
    mSync->resume();  // the pause is forgotten too
    EXPECT_TRUE(mTold.take().empty());
    EXPECT_EQ(now(), 99'000u);
    mSync->setBasePCR(50, PCR);  // however close: it is a fresh base
    EXPECT_EQ(now(), 50u);
}

TEST_F(SynchronizationTest, SlowReportHoldsNobodyUp) {
    EXPECT_TRUE(orvtest::letsOthersThrough(*mSync, [&] { mSync->setBasePCR(1000, PCR); }));
}

// Every operation at once, for the thread sanitizer.
TEST_F(SynchronizationTest, ServesEveryThread) {
    std::vector<std::thread> threads;
    for (const auto source : {VIDEO, AUDIO, PCR}) {
        threads.emplace_back([this, source] {
            for (Uint33 i = 0; i < 500; ++i) {
                mSync->setBasePCR(i * 200'000, source);
                mClock.advance(12);
            }
        });
    }
    threads.emplace_back([this] {
        for (int i = 0; i < 200; ++i) {
            mSync->pause();
            mSync->setOffsetTime(i, AUDIO);
            mSync->resume();
            orvtest::reportOf(*mSync, 1);
            mSync->resetPCR();
        }
    });
    for (int i = 0; i < 500; ++i) {
        EXPECT_LE(mSync->getPCRValue(), UINT33_MASK);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace
