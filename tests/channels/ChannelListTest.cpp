#include "channels/ChannelList.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <thread>

namespace {

using namespace orvplay;

// As dvbv5-scan writes it.
constexpr char SCANNED[] =
    "[ORV São João HD]\n"
    "\tVCHANNEL = 6.1\n"
    "\tSERVICE_ID = 51200\n\tNETWORK_ID = 1600\n\tTRANSPORT_ID = 1600\n"
    "\tVIDEO_PID = 273\n\tAUDIO_PID = 274 275\n\tPID_06 = 304\n"
    "\tFREQUENCY = 473142857\n\tMODULATION = QAM/AUTO\n\tBANDWIDTH_HZ = 6000000\n"
    "\tISDBT_LAYER_ENABLED = 7\n\tDELIVERY_SYSTEM = ISDBT\n\n"
    "[ORV 1SEG]\n"
    "\tSERVICE_ID = 51224\n\tNETWORK_ID = 1600\n\tTRANSPORT_ID = 1600\n"
    "\tVIDEO_PID = 385\n\tFREQUENCY = 473142857\n\tDELIVERY_SYSTEM = ISDBT\n\n";

Channel networkChannel(const std::string& name, const std::string& source, uint16_t serviceId = 0,
                       const std::string& number = {}) {
    Channel channel;
    channel.name = name;
    channel.source = source;
    channel.serviceId = serviceId;
    channel.number = number;
    return channel;
}

class ChannelListTest : public testing::Test {
protected:
    ChannelListTest() { EXPECT_NE(mkdtemp(mTop.data()), nullptr); }
    ~ChannelListTest() override { std::filesystem::remove_all(mTop); }

    std::string folder() const { return mTop + "/config/orvplayer"; }
    void write(const std::string& name, const std::string& text) const {
        std::filesystem::create_directories(folder());
        std::ofstream(folder() + "/" + name) << text;
    }
    std::string read(const std::string& name) const {
        std::string text;
        EXPECT_TRUE(readWhole(folder() + "/" + name, &text)) << name;
        return text;
    }
    ChannelList loaded() const {
        ChannelList list(folder());
        std::string error;
        EXPECT_TRUE(list.load(&error)) << error;
        return list;
    }
    void add(const std::vector<Channel>& channels, size_t expected) const {
        ChannelList list(folder());
        std::string error;
        size_t added = 0;
        EXPECT_TRUE(list.add(channels, &added, &error)) << error;
        EXPECT_EQ(added, expected);
    }

    std::string mTop = "/tmp/orvtest-channels-XXXXXX";
};

TEST_F(ChannelListTest, ReadsWhatDvbv5ScanWrites) {
    write("channels.conf", SCANNED);
    const ChannelList list = loaded();
    ASSERT_EQ(list.channels().size(), 2u);
    const Channel& first = list.channels()[0];
    EXPECT_EQ(first.name, "ORV São João HD");
    EXPECT_EQ(first.number, "6.1");
    EXPECT_EQ(first.serviceId, 51200);
    EXPECT_EQ(first.dvb.frequencyHz(), 473'142'857u);
    EXPECT_EQ(first.dvb.audioPids, (std::vector<uint16_t>{274, 275}));
    EXPECT_EQ(first.dvb.otherPids, (std::vector<std::pair<uint8_t, uint16_t>>{{6, 304}}));
    EXPECT_FALSE(first.oneSegment);
    EXPECT_TRUE(list.channels()[1].oneSegment);
}

TEST_F(ChannelListTest, AddingLosesNothing) {
    write("channels.conf", SCANNED);
    add({networkChannel("Net", "udp://239.1.1.1:5000", 7)}, 1);
    Channel same = loaded().channels().at(1);
    same.name = "Other [name]";
    same.number = "6.2";
    Channel far = same;  // the service of another transmitter
    for (auto& [command, value] : far.dvb.properties) {
        value = value == 473'142'857 ? 479'142'857 : value;
    }
    add({same, far, networkChannel("Network", "udp://239.1.1.1:5000", 7)}, 1);
    const ChannelList list = loaded();
    ASSERT_EQ(list.channels().size(), 4u);
    const std::string names[] = {"ORV São João HD", "Other (name)", "Other (name)", "Network"};
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(list.channels()[i].name, names[i]);
    }
    EXPECT_EQ(list.channels()[1].number, "6.2");
    EXPECT_EQ(list.channels()[2].dvb.frequencyHz(), 479'142'857u);
    const std::string file = read("channels.conf");
    for (const char* line :
         {"[ORV São João HD]", "\tAUDIO_PID = 274 275", "\tPID_06 = 304",
          "\tISDBT_LAYER_ENABLED = 7", "\tDELIVERY_SYSTEM = ISDBT", "\tCOUNTRY = BR"}) {
        EXPECT_NE(file.find(line), std::string::npos) << line;
    }
    EXPECT_FALSE(std::filesystem::exists(folder() + "/channels.conf.new"));
}

TEST_F(ChannelListTest, SeveralMayAddAtOnce) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([this, i] {
            add({networkChannel("Net", "udp://239.1.1.1:" + std::to_string(5000 + i))}, 1);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(loaded().channels().size(), 8u);
}

// The library gives up on it, or takes what it understands; a file that was not understood stays.
TEST_F(ChannelListTest, AFileThatIsNoneIsLeftAlone) {
    const std::string texts[] = {
        "no channel file\n",
        "[Um]\n\tSERVICE_ID = many\n\tFREQUENCY\n",
        "[Um]\n\tNONSENSE = 3\n",
        "[Um\n",
        "[]\n",
        "[Um]\n\tAUDIO_PID = 1 2 x 99999999999999999999\n\tFREQUENCY = -1\n",
        std::string("[Um]\n\tFREQUENCY = 473142857") + std::string(3, '\0') + "\n",
        "[" + std::string(5000, 'x') + "]\n\tFREQUENCY = 473142857\n",
    };
    for (const std::string& text : texts) {
        write("channels.conf", text);
        ChannelList list(folder());
        std::string error;
        size_t added = 0;
        if (!list.load(&error)) {
            EXPECT_NE(error.find("channels.conf"), std::string::npos);
            EXPECT_FALSE(list.add({networkChannel("Net", "udp://239.1.1.1:1")}, &added, &error));
            EXPECT_EQ(read("channels.conf"), text);
        }
    }
}

TEST_F(ChannelListTest, FindsByNumberAndName) {
    add({networkChannel("ORV 1SEG", "udp://a:1", 51224, "6.2"),
         networkChannel("ORV São João HD", "udp://a:1", 51200, "6.1"),
         networkChannel("ORV São João HD", "udp://a:2", 51201, "7.1"),
         networkChannel("ＴＶ　Tokyo", "udp://a:3", 1024, "061"),
         networkChannel("1024", "udp://a:4", 3)},
        5);
    std::vector<Channel> channels = loaded().channels();
    channels[0].name = "ORV São João HD";  // a one-segment service of that name
    channels[0].oneSegment = true;
    add(channels, 0);
    const ChannelList list = loaded();
    const struct {
        const char* text;
        const char* source;  // null: none
        uint16_t serviceId;
    } cases[] = {
        {"6.1", "udp://a:1", 51200},
        {"6.2", "udp://a:1", 51224},
        {"orv sao joao hd", "udp://a:1", 51200},
        {"tv tokyo", "udp://a:3", 1024},
        {"061", "udp://a:3", 1024},
        {"61", "udp://a:3", 1024},
        {"6", "udp://a:1", 51200},
        {"51201", "udp://a:2", 51201},
        {"1024", "udp://a:4", 3},  // a name goes before the number of a service
        {"ＴＶ", "udp://a:3", 1024},
        {"orv", nullptr, 0},  // may be several
        {"", nullptr, 0},
        {"99", nullptr, 0},
        {"!", nullptr, 0},
    };
    for (const auto& c : cases) {
        const Channel* found = list.find(c.text);
        ASSERT_EQ(found != nullptr, c.source != nullptr) << c.text;
        if (found != nullptr) {
            EXPECT_EQ(found->source, c.source) << c.text;
            EXPECT_EQ(found->serviceId, c.serviceId) << c.text;
        }
    }
    EXPECT_EQ(list.search("joao orv").size(), 3u);
    EXPECT_EQ(list.search("6.").size(), 2u);
    EXPECT_EQ(list.search("tok").size(), 1u);
    EXPECT_TRUE(list.search("").empty());
}

TEST(ChannelTest, NumbersAndKindsFollowTheCountry) {
    EXPECT_EQ(channelNumber(6, 0xC800, 0x0640, 0), "6.1");
    EXPECT_EQ(channelNumber(6, 0xC818, 0x0640, 1), "6.2");
    EXPECT_EQ(channelNumber(1, 0x0400, 0x7FE0, 0), "011");
    EXPECT_EQ(channelNumber(1, 0x0401, 0x7FE0, 1), "012");
    EXPECT_EQ(channelNumber(1, 0x0580, 0x7FE0, 2), "611");
    EXPECT_EQ(channelNumber(-1, 0x0400, 0x7FE0, 0), "");
    EXPECT_TRUE(isOneSegmentId(0xC818, 0x0640));
    EXPECT_FALSE(isOneSegmentId(0xC800, 0x0640));
    EXPECT_TRUE(isOneSegmentId(0x0580, 0x7FE0));
    EXPECT_FALSE(isOneSegmentId(0x0418, 0x7FE0));
    EXPECT_FALSE(isOneSegmentId(0xC818, 0));
}

}  // namespace
