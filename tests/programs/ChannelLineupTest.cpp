#include "ChannelLineup.h"

#include <gtest/gtest.h>

#include <sstream>

namespace orvplay {
namespace {

constexpr int NONE = ChannelLineup::NONE;

// "NUMBER NAME SERVICE SOURCE", a line each; a name in small letters is a one-segment service.
ChannelLineup lineupOf(const std::string& lines) {
    std::vector<Channel> channels;
    std::istringstream text(lines);
    for (Channel channel;
         text >> channel.number >> channel.name >> channel.serviceId >> channel.source;) {
        channel.oneSegment = channel.name.front() >= 'a';
        channels.push_back(channel);
    }
    return ChannelLineup(std::move(channels));
}

const char LIST[] =
    "1.1 One   10 udp://239.1.1.1:5000\n"
    "1.2 small 18 udp://239.1.1.1:5000\n"
    "2.1 Two   20 udp://239.1.1.2:5000\n"
    "3.1 alone 38 udp://239.1.1.3:5000\n";

TEST(ChannelLineupTest, GoesRoundAndPassesOverTheSmallServiceOfABroadcast) {
    const ChannelLineup lineup = lineupOf(LIST);
    const struct {
        int from, by, to;
    } cases[] = {
        {0, 1, 2},  {0, 2, 3},  {0, 3, 0}, {0, -1, 3},    {3, 1, 0},
        {2, -1, 0}, {0, -4, 3}, {1, 1, 2}, {1, -1, 0},    {NONE, 1, 0},
        {1, 2, 3},  {1, -2, 3}, {0, 7, 2}, {NONE, -1, 3}, {NONE, 3, 3},
    };
    for (const auto& at : cases) {
        EXPECT_EQ(at.to, lineup.next(at.by, at.from)) << at.by << " from " << at.from;
    }
}

TEST(ChannelLineupTest, HasNowhereToGoWithoutAnother) {
    EXPECT_EQ(NONE, ChannelLineup().next(1));
    ChannelLineup single = lineupOf("1 One 10 news.ts\n");
    EXPECT_EQ(0, single.next(1));
    single.setCurrent(0);
    EXPECT_EQ(NONE, single.next(1));
    // Small ones alone are as good as any.
    EXPECT_EQ(1, lineupOf("1 one 18 a.ts\n2 two 28 a.ts\n").next(1, 0));
}

TEST(ChannelLineupTest, LastIsTheOneBeforeAndBack) {
    ChannelLineup lineup = lineupOf(LIST);
    EXPECT_EQ(NONE, lineup.last());
    lineup.setCurrent(2);
    EXPECT_EQ(NONE, lineup.last());
    lineup.setCurrent(0);
    lineup.setCurrent(0);
    EXPECT_EQ(2, lineup.last());
    lineup.setCurrent(lineup.last());
    EXPECT_EQ(0, lineup.last());
}

TEST(ChannelLineupTest, FindsEveryChannel) {
    const ChannelLineup lineup = lineupOf(LIST);
    const struct {
        const char* text;
        int row;
    } cases[] = {{"two", 2}, {"1.2", 1}, {"SMALL", 1}, {"38", 3}, {"1", 0}, {"none", NONE}};
    for (const auto& wanted : cases) {
        EXPECT_EQ(wanted.row, lineup.find(wanted.text)) << wanted.text;
    }
}

TEST(ChannelLineupTest, KnowsAServiceByItsPlaceHoweverThatIsWritten) {
    const ChannelLineup lineup = lineupOf(LIST);
    EXPECT_EQ(2, lineup.rowOf("UDP://@239.1.1.2:5000", 20));
    EXPECT_EQ(NONE, lineup.rowOf("udp://239.1.1.2:5000", 21));
    EXPECT_EQ(NONE, lineup.rowOf("udp://239.1.1.9:5000", 20));
    EXPECT_EQ(0, lineupOf("1 One 0 a.ts\n").rowOf("./b/../a.ts", 77));
}

orvhost::Service serviceOf(uint16_t id, orvhost::StreamKind kind) {
    orvhost::Service service;
    service.serviceId = id;
    service.streams.emplace_back().kind = kind;
    return service;
}

TEST(ChannelLineupTest, OutsideTheListTheServicesOfTheSourceAreTheLineup) {
    using orvhost::StreamKind;
    const std::vector<orvhost::Service> services = {serviceOf(7, StreamKind::Video),
                                                    serviceOf(8, StreamKind::Caption),
                                                    serviceOf(9, StreamKind::AudioLatm)};
    const std::vector<Channel> list = lineupOf(LIST).entries();
    const ChannelLineup inside = lineupAround("udp://239.1.1.2:5000", 20, list, services, {});
    EXPECT_EQ(4U, inside.entries().size());
    EXPECT_EQ(2, inside.current());
    const ChannelLineup outside = lineupAround("-", 9, list, services, {});
    ASSERT_EQ(2U, outside.entries().size());
    EXPECT_EQ(1, outside.current());
    EXPECT_EQ(0, outside.next(1));
    EXPECT_EQ("-", outside.entries()[0].source);
    EXPECT_EQ(1, ChannelLineup(lineupOf(LIST).entries(), false).next(1, 0)) << "the small one too";
}

}  // namespace
}  // namespace orvplay
