#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "dtv/Tuner.h"
#include "support/ManualClock.h"
#include "support/TempFile.h"
#include "support/TsBuilder.h"

namespace {

using namespace orvtest;
using orvhost::TuneOptions;
using orvhost::Tuner;

constexpr int64_t MS = 1'000'000;
constexpr int64_t PCR_MS = 27'000;
constexpr unsigned VIDEO = 0x111;
constexpr unsigned PCR = 0x1FF;

// Two programmes; the first one's PCR makes 10 packets in 40 ms, the second one's runs twice as
// fast.
Bytes stream(int intervals, int64_t jumpAt = -1) {
    TsBuilder builder;
    builder.section(0, pat({{1, 0x100}, {2, 0x200}}))
        .section(0x100, pmt(1, PCR, {{0x1B, VIDEO, {}}}))
        .section(0x200, pmt(2, PCR + 1, {{0x1B, VIDEO + 1, {}}}))
        .section(0x11, sdt({{1, 1, {}, bytesOf("Um")}, {2, 1, {}, bytesOf("Dois")}}));
    for (int i = 0; i < intervals; ++i) {
        const int64_t jump = jumpAt >= 0 && i >= jumpAt ? 5'000'000 * PCR_MS : 0;
        builder.pcr(PCR, i * 40 * PCR_MS + jump).pcr(PCR + 1, i * 20 * PCR_MS);
        for (int k = 0; k < 8; ++k) {
            builder.packet(VIDEO, Bytes(184, 1));
        }
    }
    return builder.build();
}

class TunerPacingTest : public testing::Test {
protected:
    // Steps the clock through the feed and returns the video packets of each batch, with the time
    // of the last one in mLastNs.
    std::vector<size_t> play(int handle, size_t packets) {
        std::vector<size_t> batches;
        Bytes buffer(188 * 4096);
        const int64_t start = mClock.nowNs();
        while (packets > 0 && batches.size() < 2000) {
            if (!mTuner.atEnd() && !mClock.waitForSleeper()) {
                ADD_FAILURE() << "the feed stalled";
                break;
            }
            const int got = mTuner.demultiplexer().readData(handle, buffer.data(),
                                                            static_cast<int>(buffer.size()));
            const size_t n = static_cast<size_t>(std::max(got, 0)) / 188;
            batches.push_back(n);
            packets -= std::min(n, packets);
            mElapsedNs = mClock.nowNs() - start;
            if (packets > 0) {
                mClock.step();
            }
        }
        return batches;
    }

    int startVideo() {
        const int handle = mTuner.demultiplexer().startFiltering(VIDEO, DEMUX_FILTER_VIDEO);
        DemuxBinder_HandleSet set{};
        mTuner.demultiplexer().select(&set, 0);  // the reader is there
        return handle;
    }

    ManualClock mClock;
    Tuner mTuner{mClock};
    int64_t mElapsedNs = 0;
};

TEST_F(TunerPacingTest, AFilePlaysAtThePaceOfItsProgrammesPcr) {
    struct Case {
        const char* name;
        uint16_t serviceId;
        uint16_t pcrPid;
        int64_t jumpAt;
        int64_t milliseconds;
    };
    const Case cases[] = {
        {"first programme", 0, orvhost::PID_NONE, -1, 4000},
        {"chosen programme", 2, orvhost::PID_NONE, -1, 2000},
        {"chosen PID", 1, PCR + 1, -1, 2000},
        {"time base jumps", 1, orvhost::PID_NONE, 37, 4000},
    };
    const size_t packets = 800;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempFile file(stream(110, c.jumpAt));
        TuneOptions options;
        options.serviceId = c.serviceId;
        options.pcrPid = c.pcrPid;
        ASSERT_TRUE(mTuner.tune(file.path(), options).ok());
        ASSERT_EQ(mTuner.services(5000).services.size(), 2u);
        const int handle = startVideo();
        const auto batches = play(handle, packets);
        EXPECT_NEAR(static_cast<double>(mElapsedNs) / MS, static_cast<double>(c.milliseconds), 100);
        // Short batches for a second, then long ones for as long as the source is ahead.
        const double perMs = static_cast<double>(packets) / static_cast<double>(c.milliseconds);
        double atMs = static_cast<double>(batches[0] + batches[1]) / perMs;  // the tables before
        for (size_t i = 2; atMs < static_cast<double>(c.milliseconds) - 300; ++i) {
            const double ms = static_cast<double>(batches.at(i)) / perMs;
            if (atMs < 950 || atMs > 1100) {
                EXPECT_NEAR(ms, atMs < 950 ? 20 : 90, 2 / perMs) << "batch " << i;
            }
            atMs += ms;
        }
        EXPECT_LE(batches[0], 2u);  // no burst
        mTuner.demultiplexer().stopFiltering(handle);
    }
}

TEST_F(TunerPacingTest, StoppingPausesTheFeedAndStartingGoesOn) {
    TempFile file(stream(200));
    ASSERT_TRUE(mTuner.tune(file.path(), {}).ok());
    int handle = startVideo();
    play(handle, 100);
    mTuner.demultiplexer().stopFiltering(handle);
    const uint64_t read = mTuner.statistics().packets;
    handle = startVideo();
    const auto batches = play(handle, 100);
    EXPECT_NEAR(static_cast<double>(mElapsedNs) / MS, 500, 100);
    EXPECT_EQ(mTuner.statistics().packets, read);  // the small file was read before
    EXPECT_FALSE(mTuner.atEnd());
}

}  // namespace
