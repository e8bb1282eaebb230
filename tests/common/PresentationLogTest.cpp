#include "common/PresentationLog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace OrvPlayer {
namespace {

PresentationRecord recordOf(Uint33 pts, uint32_t writer = 0) {
    PresentationRecord record;
    record.pts = pts;
    record.frames = writer;
    return record;
}

std::vector<PresentationRecord> takeAll(PresentationLog& log, uint64_t* missed) {
    std::vector<PresentationRecord> records(PresentationLog::CAPACITY);
    records.resize(log.take(records.data(), records.size(), missed));
    return records;
}

TEST(PresentationLogTest, KeepsWhatFitsAndCountsTheRest) {
    PresentationLog log;
    log.setOn(true);
    for (size_t i = 0; i < PresentationLog::CAPACITY + 3; ++i) {
        log.add(recordOf(i));
    }
    uint64_t missed = 0;
    const auto records = takeAll(log, &missed);
    ASSERT_EQ(records.size(), PresentationLog::CAPACITY);
    EXPECT_EQ(missed, 3u);
    EXPECT_EQ(records.front().pts, 0u);
    EXPECT_EQ(records.back().pts, PresentationLog::CAPACITY - 1);
    EXPECT_LE(records.front().timeNs, records.back().timeNs);
    log.add(recordOf(7));
    EXPECT_EQ(takeAll(log, &missed).size(), 1u);
    EXPECT_EQ(missed, 0u);
}

TEST(PresentationLogTest, TurnsItselfOffWithoutAReader) {
    PresentationLog log;
    log.setOn(true);
    for (size_t i = 0; i < 2 * PresentationLog::CAPACITY; ++i) {
        log.add(recordOf(i));
    }
    EXPECT_TRUE(log.isOn());
    log.add(recordOf(0));
    EXPECT_FALSE(log.isOn());

    // What was left is none of the next reader's, but it hears that there was something.
    log.setOn(true);
    uint64_t missed = 0;
    EXPECT_TRUE(takeAll(log, &missed).empty());
    EXPECT_GE(missed, 2 * PresentationLog::CAPACITY);
}

// Nothing is lost, doubled or torn, and each writer's order stays.
TEST(PresentationLogTest, ManyWritersOneReader) {
    constexpr uint32_t WRITERS = 3;
    constexpr Uint33 EACH = PresentationLog::CAPACITY / WRITERS;
    PresentationLog log;
    log.setOn(true);
    for (int round = 0; round < 20; ++round) {
        std::atomic<uint32_t> running{WRITERS};
        std::vector<std::thread> threads;
        for (uint32_t writer = 0; writer < WRITERS; ++writer) {
            threads.emplace_back([&, writer] {
                for (Uint33 i = 1; i <= EACH; ++i) {
                    PresentationRecord record = recordOf(i, writer);
                    record.clock = i * 3;
                    log.add(record);
                }
                --running;
            });
        }
        Uint33 last[WRITERS] = {};
        uint64_t missed = 0;
        for (bool isRunning = true; isRunning;) {
            isRunning = running > 0;  // whatever is there after the last one is taken as well
            uint64_t lost = 0;
            for (const PresentationRecord& record : takeAll(log, &lost)) {
                ASSERT_LT(record.frames, WRITERS);
                ASSERT_EQ(record.pts, last[record.frames] + 1);
                ASSERT_EQ(record.clock, record.pts * 3);
                last[record.frames] = record.pts;
            }
            missed += lost;
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(missed, 0u);
        for (const Uint33 count : last) {
            EXPECT_EQ(count, EACH);
        }
    }
}

}  // namespace
}  // namespace OrvPlayer
