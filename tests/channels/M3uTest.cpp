#include "channels/M3u.h"

#include <gtest/gtest.h>

namespace {

using namespace orvplay;

TEST(M3uTest, ReadsWhatOtherProgramsWrite) {
    const std::vector<Channel> channels = parseM3u(
        "\xEF\xBB\xBF#EXTM3U url-tvg=\"x\"\r\n"
        "#EXTINF:-1 tvg-id=\"a,b\" tvg-chno=\"6.1\" group-title=\"1seg\",Um, Dois \r\n"
        "#EXTVLCOPT:program=51200\r\n"
        "#EXTGRP:News\r\n"
        "udp://@239.1.1.1:5000\r\n"
        "\r\n"
        "rtp://239.1.1.2:5004\n"
        "#EXTINF:-1,S\xE3o Jo\xE3o\n"
        "/tv/news.ts\n"
        "#EXTINF:-1,Nothing behind it");
    ASSERT_EQ(channels.size(), 3u);
    EXPECT_EQ(channels[0].name, "Um, Dois");
    EXPECT_EQ(channels[0].number, "6.1");
    EXPECT_EQ(channels[0].serviceId, 51200);
    EXPECT_TRUE(channels[0].oneSegment);
    EXPECT_EQ(channels[0].source, "udp://@239.1.1.1:5000");
    // Nothing of a channel stays for the next one.
    EXPECT_EQ(channels[1].name, "rtp://239.1.1.2:5004");
    EXPECT_EQ(channels[1].serviceId, 0);
    EXPECT_FALSE(channels[1].oneSegment);
    EXPECT_EQ(channels[2].name, "São João");
    EXPECT_EQ(channels[2].source, "/tv/news.ts");
}

TEST(M3uTest, PassesOverWhatIsNone) {
    for (const std::string& text :
         {std::string(), std::string("#EXTM3U"), std::string("udp://a\x01:1\n"),
          std::string("\xFF\xFE\n"), std::string(5000, 'x') + "\n", std::string("\0\0\n", 3),
          std::string("#EXTINF:-1 tvg-chno=\"6,Um\n#EXTVLCOPT:program=99999999\n")}) {
        EXPECT_TRUE(parseM3u(text).empty()) << text.substr(0, 20);
    }
}

TEST(M3uTest, WritesWhatItReads) {
    Channel channel;
    channel.name = "Um \"HD\",\n2";
    channel.number = "6.1";
    channel.serviceId = 7;
    channel.oneSegment = true;
    channel.source = "udp://239.1.1.1:5000";
    const std::string text = toM3u({channel, Channel()});
    const std::vector<Channel> read = parseM3u(text);
    ASSERT_EQ(read.size(), 1u) << text;
    EXPECT_EQ(read[0].name, "Um 'HD', 2");
    EXPECT_TRUE(read[0].isSame(channel));
    EXPECT_EQ(read[0].number, "6.1");
    EXPECT_TRUE(read[0].oneSegment);
}

}  // namespace
