// A scan of an adapter, from tables on air to the list of channels.

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <csignal>
#include <thread>

#include <filesystem>

#include "ChannelSource.h"
#include "ChannelsCommand.h"
#include "ExitCode.h"
#include "channels/ChannelList.h"
#include "support/EventSections.h"
#include "support/FakeDvb.h"

namespace orvtest {
namespace {

using namespace orvplay;

// One service and its one-segment service, in kanji when Japanese.
Bytes multiplex(const Bytes& name, uint8_t key, unsigned serviceId, unsigned oneSegmentId) {
    TsBuilder builder;
    builder.section(0, pat({{0, 0x10}, {serviceId, 0x100}, {oneSegmentId, 0x1FC8}}))
        .section(0x100, pmt(serviceId, 0x1FF, {{0x1B, 0x111, {}}, {0x11, 0x112, {}}}))
        .section(0x1FC8, pmt(oneSegmentId, 0x1FE, {{0x1B, 0x181, {}}, {0x0F, 0x182, {}}}))
        .section(0x10, nit(bytesOf("Rede"), descriptor(0xCD, Bytes{key, 0})))
        .section(0x11, sdt({{serviceId, 1, {}, name}, {oneSegmentId, 1, {}, name}}))
        .section(0x14, tdt(timeBytes(61365, 0x12, 0, 0)));
    for (int i = 0; i < 40; ++i) {
        builder.packet(0x111, Bytes(184, 0));
    }
    return builder.build();
}

class AdapterScanTest : public testing::Test {
protected:
    AdapterScanTest() {
        EXPECT_NE(mkdtemp(mFolder.data()), nullptr);
        setenv("XDG_CONFIG_HOME", mFolder.c_str(), 1);
        mOptions.region = "jp";
        mOptions.timeoutS = 0.02;
        // 日本 and 本日.
        mBand.onAir[473'142'857] = multiplex({0x46, 0x7C, 0x4B, 0x5C}, 1, 0x0400, 0x0580);
        mBand.onAir[767'142'857] = multiplex({0x4B, 0x5C, 0x46, 0x7C}, 12, 0x0408, 0x0588);
    }
    ~AdapterScanTest() override {
        unsetenv("XDG_CONFIG_HOME");
        std::filesystem::remove_all(mFolder);
    }
    std::vector<Channel> channels() const {
        ChannelList list;
        std::string error;
        EXPECT_TRUE(list.load(&error)) << error;
        return list.channels();
    }

    std::string mFolder = "/tmp/orvtest-scan-XXXXXX";
    FakeBand mBand;
    const BandOnAir mOnAir{mBand};
    ScanOptions mOptions;
};

TEST_F(AdapterScanTest, FindsWhatIsOnAirAndKeepsWhatWasThere) {
    Channel old;
    old.name = "Old";
    old.serviceId = 9;
    setPlace({0, 0, 479'142'857}, &old);
    size_t added = 0;
    std::string error;
    ASSERT_TRUE(ChannelList().add({old}, &added, &error)) << error;
    EXPECT_EQ(scanCommand(mOptions), EXIT_OK);
    EXPECT_EQ(mBand.tuned.size(), 50u);
    const std::vector<Channel> found = channels();
    ASSERT_EQ(found.size(), 5u);
    EXPECT_EQ(found[0].name, "Old");
    const struct {
        const char* name;
        const char* number;
        uint16_t serviceId;
        bool oneSegment;
        uint32_t frequencyHz;
    } expected[] = {{"日本", "011", 0x0400, false, 473'142'857},
                    {"日本", "611", 0x0580, true, 473'142'857},
                    {"本日", "121", 0x0408, false, 767'142'857},
                    {"本日", "721", 0x0588, true, 767'142'857}};
    for (size_t i = 0; i < std::size(expected); ++i) {
        const Channel& channel = found[i + 1];
        EXPECT_EQ(channel.name, expected[i].name);
        EXPECT_EQ(channel.number, expected[i].number);
        EXPECT_EQ(channel.serviceId, expected[i].serviceId);
        EXPECT_EQ(channel.oneSegment, expected[i].oneSegment);
        EXPECT_EQ(sourceOf(channel), (orvhost::DvbParameters{0, 0, expected[i].frequencyHz}).uri());
    }
    StreamOptions play;
    play.source = "121";
    EXPECT_EQ(resolveChannel(&play), EXIT_OK);
    EXPECT_EQ(play.source, "dvb://0.0?frequency=767142857&bandwidth=6000000");
    EXPECT_EQ(play.service, "1032");
    StreamOptions other;
    other.source = "121";
    other.adapter = 2;
    EXPECT_EQ(resolveChannel(&other), EXIT_OK);
    EXPECT_EQ(other.source, "dvb://2.0?frequency=767142857&bandwidth=6000000");
    for (const char* source : {"-", "udp://239.255.1.1:5000", "dvb://1?frequency=473142857"}) {
        other.source = source;
        EXPECT_EQ(resolveChannel(&other), EXIT_USAGE) << source;
    }
}

// In the middle of a channel: the program ends soon, and keeps the channels before that one alone.
TEST_F(AdapterScanTest, AnInterruptionEndsItAtOnce) {
    mOptions.timeoutS = 30.0;
    const auto scanInterrupted = [this] {
        std::thread user([this] {
            for (size_t tuned = 0; tuned < 2; usleep(1000)) {
                std::lock_guard lock(mBand.mutex);
                tuned = mBand.tuned.size();
            }
            raise(SIGINT);
        });
        alarm(10);  // dies of that, if it waits for a signal
        const int code = scanCommand(mOptions);
        user.join();
        _exit(code);
    };
    EXPECT_EXIT(scanInterrupted(), testing::ExitedWithCode(EXIT_INTERRUPTED), "");
    const std::vector<Channel> found = channels();
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].name, "日本");
    EXPECT_EQ(found[1].number, "611");
}

TEST_F(AdapterScanTest, AnAdapterThatCannotBeUsedEndsIt) {
    mBand.error = EBUSY;
    EXPECT_EQ(scanCommand(mOptions), EXIT_SOURCE);
    EXPECT_TRUE(channels().empty());
    mBand.error = 0;
    mBand.onAir.clear();
    mOptions.region = "br";
    EXPECT_EQ(scanCommand(mOptions), EXIT_NO_DATA);
    EXPECT_EQ(mBand.tuned.size(), 45u);
}

}  // namespace
}  // namespace orvtest
