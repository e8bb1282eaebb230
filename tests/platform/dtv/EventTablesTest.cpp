#include "dtv/EventTables.h"

#include <gtest/gtest.h>

#include "dtv/ServiceTables.h"
#include "support/EventSections.h"

namespace {

using namespace orvtest;
using orvhost::BroadcastInformation;
using orvhost::EventTables;

constexpr unsigned DAY = 61365;               // 2026-11-21
constexpr int64_t DAY_UTC_S = 1'795'219'200;  // its midnight at Greenwich
const Bytes NEVER = timeBytes(0xFFFF, 0xFF, 0xFF, 0xFF);
constexpr unsigned EIT_PID = 0x12;
constexpr unsigned TOT_PID = 0x14;

void push(EventTables& tables, const TsBuilder& stream) {
    const Bytes& bytes = stream.build();
    for (size_t at = 0; at < bytes.size(); at += 188) {
        ASSERT_TRUE(EventTables::wants(orvhost::pidOf(bytes.data() + at)));
        tables.push(bytes.data() + at);
    }
}

BroadcastInformation informationOf(const EventTables& tables, int network = -1) {
    BroadcastInformation information;
    information.originalNetworkId = network;
    tables.addTo(&information);
    return information;
}

TEST(EventTablesTest, TellsWhatIsOnAirAndWhatComesNext) {
    EventTables tables;
    const Bytes hour = {0x01, 0x00, 0x00};
    TsBuilder builder;
    builder.section(
        EIT_PID,
        eit(7, 0,
            {{11, timeBytes(DAY, 0x20, 0x30, 0) + hour, bytesOf("News"), bytesOf("All day")}}));
    push(tables, builder);
    EXPECT_FALSE(tables.isTold(7));
    // What comes next leaves its time open; the one-segment service tells on a PID of its own.
    push(tables,
         TsBuilder()
             .section(EIT_PID, eit(7, 1, {{12, NEVER + Bytes(3, 0xFF), bytesOf("Film"), {}}}))
             .section(0x27, eit(8, 0, {{13, timeBytes(DAY, 0x23, 0, 0) + hour, {}, {}}}))
             .section(0x27, eit(8, 1, {})));
    EXPECT_TRUE(tables.isTold(7));
    EXPECT_TRUE(tables.isTold(8));
    const BroadcastInformation information = informationOf(tables);
    EXPECT_EQ(information.originalNetworkId, 0x0640);
    ASSERT_EQ(information.events.size(), 3u);
    const auto& now = information.events[0];
    EXPECT_EQ(std::tie(now.serviceId, now.following, now.eventId), std::make_tuple(7, false, 11));
    EXPECT_EQ(now.startUtcS, DAY_UTC_S + 23 * 3600 + 30 * 60);  // three hours on
    EXPECT_EQ(now.durationS, 3600);
    EXPECT_EQ(now.language, "por");
    EXPECT_EQ(now.rawName, bytesOf("News"));
    EXPECT_EQ(now.rawText, bytesOf("All day"));
    const auto& next = information.events[1];
    EXPECT_EQ(std::tie(next.following, next.startUtcS, next.durationS),
              std::make_tuple(true, -1, -1));
    EXPECT_EQ(information.events[2].startUtcS, DAY_UTC_S + 26 * 3600);

    // A later section takes the place of the one before it, an empty one too.
    push(tables, TsBuilder().section(EIT_PID, eit(7, 0, {})));
    EXPECT_EQ(informationOf(tables).events.size(), 2u);
    EXPECT_TRUE(tables.isTold(7));
}

TEST(EventTablesTest, TakesOnlyPresentFollowingOfThisStream) {
    EventTables tables;
    Bytes other = eit(7, 0, {{11, NEVER + Bytes(3, 0xFF), bytesOf("News"), {}}});
    other[0] = 0x4F;  // of another stream; the CRC is wrong then too
    push(tables, TsBuilder()
                     .section(EIT_PID, eit(7, 2, {{11, NEVER + Bytes(3, 0xFF), {}, {}}}))
                     .section(EIT_PID, section(0x50, 7, Bytes(40, 0)))
                     .section(EIT_PID, other));
    EXPECT_TRUE(informationOf(tables).events.empty());
    EXPECT_EQ(tables.revision(), 0u);
}

// By country where the TOT names one, else by network.
TEST(EventTablesTest, KnowsTheTimeOfTheTables) {
    const Bytes noon = timeBytes(DAY, 0x12, 0, 0);
    const Bytes earlier = timeBytes(DAY - 1, 0, 0, 0);
    const Bytes later = timeBytes(DAY + 1, 0, 0, 0);
    const struct {
        const char* what;
        Bytes table;
        int network;
        int hourUtc;
        int localMinutes;
    } cases[] = {
        {"Japan", tot(noon, timeOffset("JPN", false, 0, later, 0)), -1, 3, 9 * 60},
        {"Brasilia", tot(noon, timeOffset("BRA", false, 0, later, 0x0100)), -1, 15, -3 * 60},
        {"summer time", tot(noon, timeOffset("BRA", false, 0, earlier, 0x0100)), -1, 15, -2 * 60},
        {"Acre", tot(noon, timeOffset("BRA", true, 0x0200, later, 0x0200)), -1, 15, -5 * 60},
        {"Kanto network", tot(noon, {}), 0x7FE0, 3, 9 * 60},
        {"TDT", tdt(noon), 0x0640, 15, -3 * 60},
        {"no country", tot(noon, timeOffset("1..", false, 0x0100, later, 0)), -1, 15, -2 * 60},
        {"short descriptor", tot(noon, descriptor(0x58, bytesOf("JPN"))), -1, 15, -3 * 60},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EventTables tables;
        push(tables, TsBuilder().section(TOT_PID, c.table));
        EXPECT_EQ(tables.clockRevision(), 1u);
        const auto clock = informationOf(tables, c.network).clock;
        EXPECT_EQ(clock.utcS, DAY_UTC_S + c.hourUtc * 3600);
        EXPECT_EQ(clock.localOffsetMinutes, c.localMinutes);
    }
}

TEST(EventTablesTest, TakesNoTimeThatIsNone) {
    Bytes damaged = tot(timeBytes(DAY, 0x12, 0, 0), {});
    damaged.back() ^= 1;
    const Bytes cases[] = {
        tdt(NEVER),
        tdt(timeBytes(DAY, 0x1A, 0, 0)),
        tdt(timeBytes(DAY, 0x24, 0, 0)),
        tdt(timeBytes(DAY, 0x12, 0x60, 0)),
        tdt(timeBytes(100, 0x12, 0, 0)),
        tdt(Bytes{0xEF, 0xB5, 0x12}),
        damaged,
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        EventTables tables;
        push(tables, TsBuilder().section(TOT_PID, cases[i]));
        EXPECT_EQ(informationOf(tables).clock.utcS, -1) << i;
    }
}

TEST(EventTablesTest, KeepsABoundedNumberOfServices) {
    EventTables tables;
    TsBuilder builder;
    for (unsigned service = 0; service < 600; ++service) {
        builder.section(EIT_PID, eit(service, service & 1, {{1, NEVER + Bytes(3, 0xFF), {}, {}}}));
    }
    push(tables, builder);
    EXPECT_EQ(informationOf(tables).events.size(), 512u);
}

TEST(ServiceTablesTest, TellOfTheNetwork) {
    orvhost::ServiceTables tables;
    const Bytes information = descriptor(0xCD, Bytes{12, 4 << 2 | 0} + bytesOf("Um T"));
    const Bytes partial = descriptor(0xFB, be16(0x0458) + be16(0x0459) + Bytes{1});
    const Bytes bytes = TsBuilder()
                            .section(0, pat({{101, 0x100}, {0x0458, 0x1FC8}}))
                            .section(0x10, nit(bytesOf("Rede"), information + partial))
                            .section(0x11, sdt({{101, 1, {}, {}}}))
                            .build();
    for (size_t at = 0; at < bytes.size(); at += 188) {
        tables.push(bytes.data() + at);
    }
    BroadcastInformation told;
    tables.addTo(&told);
    EXPECT_EQ(told.networkId, 0x7FE0);
    EXPECT_EQ(told.originalNetworkId, 0x7FE0);
    EXPECT_EQ(told.transportStreamId, 1);
    EXPECT_EQ(told.remoteControlKey, 12);
    EXPECT_EQ(told.rawStreamName, bytesOf("Um T"));
    EXPECT_EQ(told.rawNetworkName, bytesOf("Rede"));
    EXPECT_EQ(told.oneSegment, (std::vector<uint16_t>{0x0458, 0x0459}));
    EXPECT_TRUE(tables.servicesWithEvents().empty());
}

}  // namespace
