#include "dtv/LivePacer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>

#include "dtv/TsPacket.h"
#include "support/TsBuilder.h"

namespace {

using namespace orvtest;
using orvhost::LivePacer;

constexpr int64_t MS = 1'000'000;
constexpr int64_t SECOND = 1000 * MS;
constexpr int64_t PCR_MS = 27'000;
constexpr size_t GROUP = 10;  // packets from one PCR to the next ...
constexpr int64_t GROUP_MS = 40;

// A sender's groups of packets, each with its PCR first, on their way to a pacer that is asked
// every 20 ms. All times in seconds are of the sender, from its first group on.
class Way {
public:
    // What a test says of sender and way.
    double ppm = 0.0;                           // the sender's clock against ours
    std::function<int64_t(int64_t sentNs)> way  // when it arrives, -1: never
        = [](int64_t sentNs) { return sentNs; };
    int64_t stallAtMs = -1;  // then it sends nothing, and the stream's time stands
    int64_t stallMs = 0;
    int64_t jumpAtMs = -1;  // then its time jumps
    int64_t jumpMs = 0;
    bool hasClock = true;

    // Lets that time pass; what is told below is of this time alone.
    void run(int64_t lengthNs) {
        mostWaiting = 0;
        longestPauseNs = 0;
        shortestDelayNs = INT64_MAX;
        longestDelayNs = 0;
        for (const int64_t endNs = mNowNs + lengthNs; mNowNs < endNs; mNowNs += 20 * MS) {
            for (; arrivalOfNext() <= mNowNs; ++mGroup) {
                addNext();
            }
            take();
        }
    }

    size_t mostWaiting = 0;
    int64_t longestPauseNs = 0;  // between two times that something was handed over
    int64_t shortestDelayNs = 0;
    int64_t longestDelayNs = 0;  // of groups, from being sent to being handed over
    LivePacer pacer;

private:
    int64_t sentOfNext() const {
        const auto streamMs = static_cast<int64_t>(mGroup) * GROUP_MS;
        const bool isLater = stallAtMs >= 0 && streamMs >= stallAtMs;
        const double ns = static_cast<double>(streamMs * MS) / (1.0 + ppm * 1e-6);
        return SECOND + static_cast<int64_t>(ns) + (isLater ? stallMs * MS : 0);
    }

    // Nothing overtakes.
    int64_t arrivalOfNext() {
        if (mGroup != mLookedAt) {
            mLookedAt = mGroup;
            mArrivalNs = way(sentOfNext());
            mLostNext = mArrivalNs < 0;
            mLastArrivalNs = std::max(mLastArrivalNs, mLostNext ? sentOfNext() : mArrivalNs);
        }
        return mLastArrivalNs;
    }

    void addNext() {
        if (mLostNext) {
            return;
        }
        const auto streamMs = static_cast<int64_t>(mGroup) * GROUP_MS;
        const int64_t jump = jumpAtMs >= 0 && streamMs >= jumpAtMs ? jumpMs : 0;
        const int64_t pcr =
            (orvhost::PCR_WRAP + (streamMs + jump - 90'000) * PCR_MS) % orvhost::PCR_WRAP;
        TsBuilder first;
        first.pcr(hasClock ? 0x111 : 0x1FFF, pcr);
        pacer.add((hasClock ? first : mRest).build().data(), 1, mNowNs);
        pacer.add(mRest.build().data(), GROUP - 1, mNowNs);
        mSentNs.push_back(sentOfNext());
        mWaiting += GROUP;
        mostWaiting = std::max(mostWaiting, mWaiting);
    }

    void take() {
        const size_t due = pacer.takeDue(mNowNs);
        ASSERT_LE(due, mWaiting);
        if (due == 0) {
            return;
        }
        mWaiting -= due;
        mTaken += due;
        longestPauseNs = std::max(longestPauseNs, mNowNs - std::exchange(mLastTakenNs, mNowNs));
        for (; mTold * GROUP < mTaken; ++mTold) {
            shortestDelayNs = std::min(shortestDelayNs, mNowNs - mSentNs[mTold]);
            longestDelayNs = std::max(longestDelayNs, mNowNs - mSentNs[mTold]);
        }
    }

    const TsBuilder mRest = TsBuilder().nulls(GROUP - 1);
    std::vector<int64_t> mSentNs;
    size_t mGroup = 0;
    size_t mLookedAt = SIZE_MAX;
    int64_t mArrivalNs = 0;
    int64_t mLastArrivalNs = 0;
    bool mLostNext = false;
    size_t mTold = 0;
    size_t mTaken = 0;
    size_t mWaiting = 0;
    int64_t mNowNs = SECOND;
    int64_t mLastTakenNs = SECOND;
};

// Over three hours such a sender drifts by 2.2 seconds.
TEST(LivePacerTest, FollowsTheSendersClockForHours) {
    for (const double ppm : {-200.0, -50.0, 0.0, 200.0}) {
        SCOPED_TRACE(ppm);
        Way way;
        std::mt19937 random(1);
        way.ppm = ppm;
        way.way = [&random](int64_t sentNs) { return sentNs + (random() % 80) * MS; };
        way.run(60 * SECOND);
        EXPECT_EQ(way.pacer.steps(), 0u);
        for (int hour = 0; hour < 3; ++hour) {
            way.run(3600 * SECOND);
            // The delay and half of the jitter on average; the rest is the look every 20 ms.
            EXPECT_GT(way.shortestDelayNs, 170 * MS);
            EXPECT_LT(way.longestDelayNs, 250 * MS);
            EXPECT_LE(way.longestPauseNs, 20 * MS);  // the jitter is gone
            EXPECT_LE(way.mostWaiting, 7 * GROUP);
        }
        EXPECT_EQ(way.pacer.steps(), 0u);
    }
}

struct Trouble {
    const char* name;
    std::function<void(Way& way)> happens;  // between the tenth second and the twentieth
    uint64_t mostSteps;
};

// A second after it is over everything is as before.
TEST(LivePacerTest, ComesBackAfterTrouble) {
    const int64_t at = 11 * SECOND;  // 10 s of the sender
    const Trouble troubles[] = {
        {"the sender stands still", [](Way& w) { w.stallAtMs = 10'000, w.stallMs = 8'000; }, 1},
        {"... for a moment", [](Way& w) { w.stallAtMs = 10'000, w.stallMs = 300; }, 1},
        {"the way is cut",
         [at](Way& w) {
             w.way = [at](int64_t sent) { return sent > at && sent < at + 8 * SECOND ? -1 : sent; };
         },
         1},
        {"... for a moment",
         [at](Way& w) {
             w.way = [at](int64_t sent) { return sent > at && sent < at + 300 * MS ? -1 : sent; };
         },
         1},
        {"all at once after two seconds",
         [at](Way& w) {
             w.way = [at](int64_t sent) {
                 return sent > at && sent < at + 2 * SECOND ? at + 2 * SECOND : sent;
             };
         },
         2},
        {"an hour ahead", [](Way& w) { w.jumpAtMs = 10'000, w.jumpMs = 3'600'000; }, 0},
        {"an hour back", [](Way& w) { w.jumpAtMs = 10'000, w.jumpMs = -3'600'000; }, 0},
        {"two seconds ahead", [](Way& w) { w.jumpAtMs = 10'000, w.jumpMs = 2'000; }, 1},
        {"400 ms ahead", [](Way& w) { w.jumpAtMs = 10'000, w.jumpMs = 400; }, 1},
    };
    for (const Trouble& trouble : troubles) {
        SCOPED_TRACE(trouble.name);
        Way way;
        trouble.happens(way);
        way.run(20 * SECOND);
        way.run(10 * SECOND);
        EXPECT_LE(way.pacer.steps(), trouble.mostSteps);
        EXPECT_GT(way.shortestDelayNs, 100 * MS);
        EXPECT_LT(way.longestDelayNs, 260 * MS);
        EXPECT_LE(way.longestPauseNs, 20 * MS);
    }
}

// A sender of bursts: half a second of stream, twice a second. Nothing is kept longer than that.
TEST(LivePacerTest, BurstsPassWithoutGrowing) {
    Way way;
    way.way = [](int64_t sentNs) { return (sentNs / (500 * MS) + 1) * 500 * MS; };
    way.run(600 * SECOND);
    way.run(10 * SECOND);
    EXPECT_LE(way.longestDelayNs, 750 * MS);
    EXPECT_LE(way.mostWaiting, 20 * GROUP);
}

// Neither PCR nor time stamps, and twice the rate that is assumed then.
TEST(LivePacerTest, WithoutAClockPacketsGoOnAllTheSame) {
    LivePacer pacer;
    const TsBuilder packets = TsBuilder().nulls(320);  // in 20 ms: 24 Mbit/s
    size_t waiting = 0;
    size_t most = 0;
    for (int64_t now = SECOND; now < 60 * SECOND; now += 20 * MS) {
        pacer.add(packets.build().data(), 320, now);
        waiting += 320;
        most = std::max(most, waiting);
        waiting -= pacer.takeDue(now);
    }
    EXPECT_LE(most, 320u * 50);
    EXPECT_EQ(pacer.isEmpty(), waiting == 0);
}

}  // namespace
