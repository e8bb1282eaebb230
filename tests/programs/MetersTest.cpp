#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "Distribution.h"
#include "FrameMeter.h"
#include "LoadGuard.h"
#include "MonotonicTime.h"
#include "RunSummary.h"
#include "ServiceFigures.h"
#include "SoundMeter.h"
#include "SyncMeter.h"

namespace orvplay {
namespace {

constexpr int64_t MS = 1'000'000;

TEST(DistributionTest, QuantilesAreOfMagnitudesAndTheMeanKeepsSigns) {
    Distribution empty;
    EXPECT_EQ(empty.quantileMs(0.99), 0.0);
    EXPECT_EQ(empty.meanMs(), 0.0);

    Distribution times;
    for (int i = 1; i <= 100; ++i) {
        times.add(i % 2 != 0 ? i : -i);
    }
    EXPECT_NEAR(times.quantileMs(0.5), 50.0, 0.11);
    EXPECT_NEAR(times.quantileMs(0.99), 99.0, 0.11);
    EXPECT_NEAR(times.quantileMs(0.0), 1.0, 0.11);
    EXPECT_EQ(times.quantileMs(1.0), 100.0);  // never above the maximum
    EXPECT_NEAR(times.meanMs(), -0.5, 1e-9);

    times.add(5000.0);  // longer than the histogram reaches
    EXPECT_EQ(times.maxMs(), 5000.0);
    EXPECT_EQ(times.count(), 101u);
    EXPECT_LE(times.quantileMs(1.0), 5000.0);
    EXPECT_GE(times.quantileMs(1.0), 999.0);
}

// Pictures of 30000 / 1001 a second that arrive exactly when they should, but for `lateMs`.
class FrameMeterTest : public testing::Test {
protected:
    void feed(int count, double lateMs = 0.0, std::optional<uint32_t> number = std::nullopt) {
        for (int i = 0; i < count; ++i) {
            const auto ptsNs = static_cast<int64_t>(mPts90k) * 100'000 / 9;
            mMeter.onFrame(ptsNs, mArrivalNs + static_cast<int64_t>(lateMs * MS), number);
            mPts90k = (mPts90k + 3003) & ((uint64_t{1} << 33) - 1);
            mArrivalNs += 3003 * 100'000 / 9;
        }
    }

    FrameMeter mMeter;
    uint64_t mPts90k = 900'000;
    int64_t mArrivalNs = 77 * MS;
};

TEST_F(FrameMeterTest, MeasuresAgainstTheTimeStampsAcrossTheirWrap) {
    mPts90k = (uint64_t{1} << 33) - 50 * 3003;
    feed(100);
    EXPECT_LT(mMeter.jitter().maxMs(), 0.05);
    feed(1, 20.0);
    EXPECT_NEAR(mMeter.lastMs(), 20.0, 0.05);
    feed(1, -15.0);
    EXPECT_NEAR(mMeter.lastMs(), -15.0, 0.05);
    EXPECT_NEAR(mMeter.jitter().maxMs(), 20.0, 0.05);
}

TEST_F(FrameMeterTest, CountsAnewOnANewTimeBase) {
    feed(10);
    mPts90k += 90'000 * 60;
    feed(10);
    mPts90k -= 90'000 * 3600 / 100;
    feed(10);
    EXPECT_LT(mMeter.jitter().maxMs(), 0.05);
    EXPECT_EQ(mMeter.jitter().count(), 30u);
    // Less than a second is a picture out of place.
    mPts90k += 90'000 / 2;
    feed(1);
    EXPECT_NEAR(mMeter.lastMs(), -500.0, 0.1);
}

TEST_F(FrameMeterTest, TellsMissingRepeatedAndBackwardNumbers) {
    for (const uint32_t number : {100, 101, 101, 104, 105, 103, 104}) {
        feed(1, 0.0, number);
    }
    feed(3);  // unreadable: says nothing
    const FrameNumbers& numbers = mMeter.numbers();
    EXPECT_EQ(numbers.read, 7u);
    EXPECT_EQ(numbers.first, 100u);
    EXPECT_EQ(numbers.last, 104u);
    EXPECT_EQ(numbers.missing, 2u);
    EXPECT_EQ(numbers.repeated, 1u);
    EXPECT_EQ(numbers.backward, 1u);
}

// After a pause or a seek pictures are neither late nor missing, nor did one stand so long.
TEST_F(FrameMeterTest, ABreakCountsForNothing) {
    feed(2, 0.0, 10);
    mMeter.onBreak();
    mPts90k += 90'000 / 2;
    mArrivalNs += 700 * MS;
    feed(2, 0.0, 500);
    mMeter.onBreak();
    feed(1, 900.0, 20);
    EXPECT_LT(mMeter.jitter().maxMs(), 0.05);
    EXPECT_LT(mMeter.longestGapNs(), 34 * MS);
    EXPECT_EQ(mMeter.numbers().missing + mMeter.numbers().backward, 0u);
    EXPECT_EQ(mMeter.numbers().repeated, 2u);
}

// What is thrown away while playback is paused or goes elsewhere was not dropped; nor before the
// outputs open.
TEST(RunSummaryTest, BreaksDropNothing) {
    RunSummary summary;
    RunSummary::ServiceCounts counts;
    const auto thrown = [&counts](uint64_t unseen, uint64_t atWindow) {
        counts.picturesReleasedUnseen += unseen;
        counts.picturesDroppedAtWindow += atWindow;
        return counts;
    };
    summary.begin();
    summary.beginBreak(thrown(5, 0));
    summary.outputsOpened(thrown(4, 0));
    summary.endBreak(thrown(3, 0));
    thrown(1, 1);  // dropped
    summary.beginBreak(thrown(0, 1));
    summary.beginBreak(thrown(30, 0));  // a seek while paused
    summary.endBreak(thrown(6, 2));
    summary.beginBreak(thrown(2, 0));  // and dropped: five with the one before
    summary.end(thrown(8, 0));
    SyncMeter sync;
    EXPECT_EQ(summary.toJson({}, sync)["framesDropped"], 5);
}

TEST(SyncMeterTest, MatchesFlashesAndBeepsAroundLostOnes) {
    SyncMeter meter;
    meter.onTimeStamps(5.0);
    EXPECT_FALSE(meter.measuredByMarks());
    EXPECT_NEAR(meter.skew().meanMs(), 5.0, 1e-9);

    // Second:   1       2      3       4       5
    // flash     x       x      lost    x       x
    // beep      +30     lost   +30     -20     +30
    meter.onFlash(1000 * MS);
    meter.onBeep(1030 * MS);
    meter.onFlash(2000 * MS);
    meter.onBeep(3030 * MS);
    meter.onBeep(3980 * MS);  // heard before it is seen
    meter.onFlash(4000 * MS);
    meter.onFlash(5000 * MS);
    meter.onBeep(5030 * MS);
    EXPECT_TRUE(meter.measuredByMarks());
    const Distribution skew = meter.skew();
    EXPECT_EQ(skew.count(), 3u);
    EXPECT_NEAR(skew.meanMs(), (30.0 - 20.0 + 30.0) / 3.0, 1e-6);
    EXPECT_NEAR(skew.maxMs(), 30.0, 1e-6);
}

TEST(SyncMeterTest, FlashesWithoutSoundDoNotCollect) {
    SyncMeter meter;
    for (int second = 0; second < 1000; ++second) {
        meter.onFlash(second * 1000 * MS);
    }
    meter.onBeep(999'010 * MS);
    EXPECT_EQ(meter.skew().count(), 1u);
    EXPECT_NEAR(meter.skew().meanMs(), 10.0, 1e-6);
}

// The sound is early by its time stamps, and heard so much later; a value told twice counts once.
TEST(SoundMeterTest, TakesBeepsAndOneTimeStampALook) {
    SyncMeter sync;
    SoundMeter meter(sync);
    orvclient::PlaybackFigures figures;
    figures.outputLatencyMs = 180;
    for (const double earlyMs : {170.0, 190.0, 5000.0}) {
        figures.audioEarlyMs = earlyMs;
        ++figures.audioEarlyCount;
        meter.onFigures(figures);
        meter.onFigures(figures);
    }
    EXPECT_EQ(sync.skew().count(), 2u);
    EXPECT_NEAR(sync.skew().meanMs(), 0.0, 1e-9);
    EXPECT_NEAR(sync.skew().maxMs(), 10.0, 1e-9);

    sync.onFlash(1000 * MS);
    figures.beepsNs = {1030 * MS};
    meter.onFigures(figures);
    EXPECT_TRUE(sync.measuredByMarks());
    EXPECT_NEAR(sync.skew().meanMs(), 30.0, 1e-9);
}

// What a service had counted before is left out, and what one came to that ended stays.
TEST(ServiceFiguresTest, CountFromTheBeginningOverServicesThatEnd) {
    const int64_t now = monotonicNs();
    const auto told = [](int pid, uint64_t count, int64_t maxRssKb) {
        orvclient::PlaybackFigures figures;
        figures.pid = pid;
        figures.framesTimed = count;
        figures.cpuSeconds = static_cast<double>(count) / 100;
        figures.maxRssKb = maxRssKb;
        return figures;
    };
    ServiceFigures figures;
    orvclient::PlaybackFigures before = told(7, 1000, 50);
    before.lastFrameTimedNs = now - 5000 * MS;
    figures.begin(before);
    before.beepsNs = {now - 1000 * MS, monotonicNs() + MS};
    EXPECT_TRUE(figures.update(before));
    EXPECT_EQ(figures.totals().framesTimed, 0u);
    EXPECT_EQ(figures.totals().lastFrameTimedNs, 0);
    EXPECT_EQ(figures.totals().beepsNs.size(), 1u);

    const struct {
        orvclient::PlaybackFigures told;
        uint64_t frames;
        int64_t maxRssKb;
    } cases[] = {
        {told(7, 1030, 70), 30, 70},
        {told(0, 0, 0), 30, 70},  // no answer: the service has just
                                  // ended
        {told(8, 4, 60), 34, 70},
        {told(8, 5, 80), 35, 80},
        {told(9, 1, 10), 36, 80},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(figures.update(test.told), test.told.pid != 0);
        EXPECT_EQ(figures.totals().framesTimed, test.frames);
        EXPECT_NEAR(figures.totals().cpuSeconds, static_cast<double>(test.frames) / 100, 1e-9);
        EXPECT_EQ(figures.totals().maxRssKb, test.maxRssKb);
    }
}

constexpr double PERIOD_MS = 33.4;

int picturesUntil(LoadGuard* guard, int level, double costMs, int limit = 100'000) {
    int pictures = 0;
    while (guard->level() != level && pictures < limit) {
        guard->onPicture(costMs, PERIOD_MS);
        ++pictures;
    }
    return pictures;
}

TEST(LoadGuardTest, StaysWhileThereIsTimeAndForgivesASlowPicture) {
    LoadGuard guard(2);
    for (int i = 0; i < 1000; ++i) {
        guard.onPicture(i % 50 == 10 ? 400.0 : 15.0, PERIOD_MS);
        ASSERT_EQ(guard.level(), 2) << i;
    }
}

TEST(LoadGuardTest, StepsDownWithinASecondAndReturnsAfterACalmWhile) {
    LoadGuard guard(2);
    EXPECT_LE(picturesUntil(&guard, 1, 40.0), 15);
    EXPECT_LE(picturesUntil(&guard, 0, 40.0), 15);
    for (int i = 0; i < 100; ++i) {
        guard.onPicture(40.0, PERIOD_MS);
    }
    EXPECT_EQ(guard.level(), 0);
    const int calm = picturesUntil(&guard, 1, 4.0);
    EXPECT_GT(calm, 150);
    EXPECT_LT(calm, 450);

    // What fails again is tried less and less often.
    int before = picturesUntil(&guard, 0, 40.0);
    for (int i = 0; i < 4; ++i) {
        const int now = picturesUntil(&guard, 1, 4.0);
        EXPECT_GT(now, before);
        before = now;
        picturesUntil(&guard, 0, 40.0);
    }
}

}  // namespace
}  // namespace orvplay
