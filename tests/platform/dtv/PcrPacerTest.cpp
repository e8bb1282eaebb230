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

// Two seconds are missing; what is announced, goes back or is too far ahead is no gap.
TEST(PcrPacerTest, KeepsAGapSilentWhenToldTo) {
    const struct {
        int64_t jumpMs;
        bool announced;
        int64_t silenceMs;
    } cases[] = {{2'000, false, 2'000}, {50'000, false, 50'000}, {70'000, false, 0},
                 {2'000, true, 0},      {-2'000, false, 0},      {0, false, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.jumpMs);
        const int64_t start = orvhost::PCR_WRAP - 500 * PCR_MS;
        TsBuilder builder;
        addStretch(builder, start, 10);
        addStretch(builder, start + (400 + c.jumpMs) * PCR_MS, 10, PID, c.announced);
        PcrPacer pacer;
        pacer.setPcrPid(PID);
        pacer.setKeepGaps(true);
        add(pacer, builder);
        pacer.finish();
        size_t due = 0;
        for (int64_t at = 0; at <= 380 + c.silenceMs; at += 20) {
            due += pacer.takeDue(at * MS);
        }
        EXPECT_EQ(due, c.silenceMs > 0 ? 100u : 96u);
        // The rest comes at its pace, from the end of the silence on.
        EXPECT_EQ(due + pacer.takeDue((400 + c.silenceMs) * MS), 101u);
        EXPECT_EQ(pacer.takeDue((440 + c.silenceMs) * MS), 10u);
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

// PES packets of 10 packets each on the PID, one every 40 ms in the order of decoding. Without DTS
// every third picture is shown two later: its time goes ahead of those that follow.
void addPictures(TsBuilder& builder, int64_t firstPts, int count, bool reordered = false) {
    for (int i = 0; i < count; ++i) {
        const int shownAt = !reordered ? i : i % 3 == 0 ? i + 2 : i - 1;
        const int64_t pts = (firstPts + shownAt * 40 * 90) % (int64_t{1} << 33);
        builder.pes(PID, 0xE0, pts, Bytes(150, 1)).nulls(9);
    }
}

struct Pictures {
    const char* name;
    int64_t secondPts;  // of the second ten pictures; the first ten cover 0 to 400 ms
    uint16_t stampPid;
};

TEST(PcrPacerTest, WithoutPcrTheTimeStampsPace) {
    const int64_t start = (int64_t{1} << 33) - 100 * 90;  // the wrap is no jump
    const int64_t end = start + 400 * 90;
    const Pictures cases[] = {
        {"chosen PID", end, PID},
        {"first PID with time stamps", end, orvhost::PID_NONE},
        {"the chosen PID has none", end, 0x333},
        {"an hour ahead", end + 3'600'000 * 90, PID},
        {"an hour back", end - 3'600'000 * 90, PID},
        {"two seconds ahead", end + 2000 * 90, PID},
    };
    for (const Pictures& c : cases) {
        SCOPED_TRACE(c.name);
        TsBuilder builder;
        builder.packet(0x333, Bytes{0, 0, 1, 0xE0}, true).nulls(9);  // a start and no more
        addPictures(builder, start, 10);
        addPictures(builder, c.secondPts, 10);
        PcrPacer pacer;
        pacer.setPcrPid(0x1FF);  // named by the tables, never there
        pacer.setStampPid(c.stampPid);
        pacer.add(builder.build().data(), 30);
        pacer.setStampPid(c.stampPid);  // after a pause
        pacer.add(builder.build().data() + 30 * 188, builder.size() / 188 - 30);
        pacer.finish();
        expectEvenPace(ticks(pacer, builder.size() / 188));
    }
}

TEST(PcrPacerTest, ReorderedTimeStampsKeepThePaceOnAverage) {
    TsBuilder builder;
    addPictures(builder, 90'000, 60, true);
    PcrPacer pacer;
    add(pacer, builder);
    pacer.finish();
    size_t due = 0;
    for (int64_t at = 0; at <= 2000; at += 20) {
        due += pacer.takeDue(at * MS);
    }
    EXPECT_NEAR(static_cast<double>(due), 500, 20);
}

TEST(PcrPacerTest, ThePcrGoesBeforeTimeStamps) {
    TsBuilder pictures;  // they say 40 ms where the PCR says 20
    addPictures(pictures, 90'000, 10);
    TsBuilder both;
    for (int i = 0; i < 20; ++i) {
        both.pcr(0x1FF, i * 20 * PCR_MS).pes(PID, 0xE0, 90'000 + i * 3600, Bytes(150, 1)).nulls(8);
    }
    PcrPacer known;
    add(known, both);
    EXPECT_EQ(known.bufferedNs(), 19 * 20 * MS);

    PcrPacer late;  // the PCR comes behind what was taken for the head
    add(late, pictures);
    EXPECT_EQ(late.bufferedNs(), 9 * 40 * MS);
    add(late, both);
    EXPECT_EQ(late.bufferedNs(), 10 * 40 * MS + 19 * 20 * MS);
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
