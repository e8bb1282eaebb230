#include "dtv/PcrPacer.h"

#include <gtest/gtest.h>

#include <vector>

#include "dtv/TsPacket.h"
#include "support/TsBuilder.h"

namespace {

using namespace orvtest;
using orvhost::PcrPacer;

constexpr int64_t MS = 1'000'000;
constexpr int64_t PCR_MS = 27'000;  // ticks a millisecond
constexpr unsigned PID = 0x111;

// A stretch with a PCR every 40 ms and 10 packets from one to the next: one packet in 4 ms.
void addStretch(TsBuilder& builder, int64_t firstPcr, int intervals, unsigned pid = PID,
                bool announced = false) {
    for (int i = 0; i < intervals; ++i) {
        const int64_t pcr = (firstPcr + i * 40 * PCR_MS) % orvhost::PCR_WRAP;
        builder.pcr(pid, pcr, announced && i == 0).nulls(9);
    }
}

void add(PcrPacer& pacer, const TsBuilder& builder) {
    pacer.add(builder.build().data(), builder.size() / 188);
}

// Packets that came due in each 20 ms from startMs on, until all are out.
std::vector<size_t> ticks(PcrPacer& pacer, size_t packets, int64_t startMs = 0) {
    std::vector<size_t> due;
    for (int64_t at = startMs; packets > 0 && at < startMs + 20'000; at += 20) {
        const size_t n = pacer.takeDue(at * MS);
        due.push_back(n);
        packets -= n;
    }
    EXPECT_EQ(packets, 0u) << "not all packets came due";
    return due;
}

// Every 20 ms 5 packets: the pace of addStretch(), from the first batch on.
void expectEvenPace(const std::vector<size_t>& due) {
    ASSERT_GT(due.size(), 2u);
    EXPECT_EQ(due.front(), 1u);  // no burst at the start
    for (size_t i = 1; i + 1 < due.size(); ++i) {
        EXPECT_EQ(due[i], 5u) << "batch " << i;
    }
}

struct Jump {
    const char* name;
    int64_t secondPcr;  // where the second stretch starts; the first covers 0 to 400 ms
    bool announced;
    unsigned secondPid;
};

TEST(PcrPacerTest, KeepsAnEvenPaceOverEveryKindOfJump) {
    const int64_t start = 1'000'000 * PCR_MS;
    const int64_t end = start + 400 * PCR_MS;
    const Jump jumps[] = {
        {"none", end, false, PID},
        {"an hour ahead", end + 3'600'000 * PCR_MS, false, PID},
        {"an hour back", end - 900'000 * PCR_MS, false, PID},
        {"two seconds ahead", end + 2000 * PCR_MS, false, PID},
        {"announced, small", end + 300 * PCR_MS, true, PID},
        {"the same value again", end - 40 * PCR_MS, false, PID},
        {"a tick on", end - 40 * PCR_MS + 1, false, PID},
        {"other PIDs do not count", end + 77'000 * PCR_MS, false, 0x222},
    };
    for (const Jump& jump : jumps) {
        SCOPED_TRACE(jump.name);
        TsBuilder builder;
        addStretch(builder, start, 10);
        addStretch(builder, jump.secondPcr, 10, jump.secondPid, jump.announced);
        PcrPacer pacer;
        pacer.setPcrPid(PID);
        add(pacer, builder);
        pacer.finish();
        expectEvenPace(ticks(pacer, builder.size() / 188));
    }
}

TEST(PcrPacerTest, TheWrapOf33BitsIsNoJump) {
    TsBuilder builder;
    addStretch(builder, orvhost::PCR_WRAP - 200 * PCR_MS - 17, 10);
    PcrPacer pacer;
    add(pacer, builder);
    // Nine intervals are known; the tenth has no end yet and costs no guess.
    EXPECT_EQ(pacer.bufferedNs(), 9 * 40 * MS);
}

TEST(PcrPacerTest, PacketsBeforeTheFirstPcrGetItsRate) {
    TsBuilder builder;
    builder.nulls(20);
    addStretch(builder, 0, 5);
    PcrPacer pacer;
    pacer.setPcrPid(PID);
    add(pacer, builder);
    pacer.finish();
    expectEvenPace(ticks(pacer, 70));
}

TEST(PcrPacerTest, GoesOnAtTheLastRateWithoutPcr) {
    TsBuilder builder;
    addStretch(builder, 0, 20);
    builder.nulls(6000);
    addStretch(builder, 99'000 * PCR_MS, 5);
    PcrPacer pacer;
    pacer.setPcrPid(PID);
    add(pacer, builder);
    pacer.finish();
    // 6250 packets of 4 ms; a start without any rate would be over in less than a second.
    size_t due = 0;
    for (int64_t at = 0; at <= 20'000; at += 20) {
        due += pacer.takeDue(at * MS);
    }
    EXPECT_EQ(due, 5001u);
}

// 12 Mbit/s, eight packets a millisecond, when the stream says nothing at all.
TEST(PcrPacerTest, AStreamWithoutAnyPcrStillHasAPace) {
    PcrPacer pacer;
    add(pacer, TsBuilder().nulls(6000));
    pacer.finish();
    EXPECT_EQ(pacer.takeDue(0), 1u);
    EXPECT_NEAR(static_cast<double>(pacer.takeDue(100 * MS)), 798, 1);
    EXPECT_NEAR(static_cast<double>(pacer.takeDue(200 * MS)), 798, 1);
}

TEST(PcrPacerTest, StarvedPipeGetsWhatIsThereAfterAMoment) {
    PcrPacer pacer;
    TsBuilder builder;
    addStretch(builder, 0, 3);
    add(pacer, builder);  // two intervals known, ten packets open
    size_t due = 0;
    for (int64_t at = 0; at <= 80; at += 20) {
        due += pacer.takeDue(at * MS);
    }
    EXPECT_EQ(due, 20u);
    EXPECT_EQ(pacer.takeDue(180 * MS), 0u);
    EXPECT_EQ(pacer.takeDue(220 * MS), 10u);
}

TEST(PcrPacerTest, APauseShiftsThePaceAndASuspendDoesNotBurst) {
    TsBuilder builder;
    addStretch(builder, 0, 100);
    PcrPacer pacer;
    add(pacer, builder);
    pacer.finish();
    size_t left = 1000;
    for (int64_t at = 0; at <= 100; at += 20) {
        left -= pacer.takeDue(at * MS);
    }
    EXPECT_EQ(left, 1000u - 26u);
    pacer.restart();
    EXPECT_LE(pacer.takeDue(9'000 * MS), 1u);  // paused for nine seconds
    EXPECT_EQ(pacer.takeDue(9'020 * MS), 5u);
    EXPECT_LE(pacer.takeDue(30'000 * MS), 1u);  // nobody asked for 21 seconds
    EXPECT_EQ(pacer.takeDue(30'020 * MS), 5u);
}

}  // namespace
