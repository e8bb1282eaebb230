#include "ZapTimes.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <numeric>
#include <string>
#include <thread>

#include "ZapHistory.h"

namespace orvplay {
namespace {

constexpr int64_t MS = 1'000'000;
constexpr int64_t COMMAND_NS = 5'000 * MS;

// When each end was reached, in milliseconds after the command; 0: not.
ZapTimes timesOf(const std::array<double, ZAP_PARTS>& reachedMs) {
    ZapTimes times(COMMAND_NS);
    for (size_t part = 0; part < ZAP_PARTS; ++part) {
        const auto afterNs = static_cast<int64_t>(reachedMs[part] * MS);
        times.reach(static_cast<ZapPart>(part), afterNs != 0 ? COMMAND_NS + afterNs : 0);
    }
    return times;
}

TEST(ZapTimesTest, PartsFollowOneAnotherAndAddUp) {
    const struct {
        const char* what;
        std::array<double, ZAP_PARTS> reachedMs;
        std::array<double, ZAP_PARTS> partMs;
        double totalMs;
        size_t parts;
    } cases[] = {
        {"in order", {10, 12, 50, 400, 450, 2000}, {10, 2, 38, 350, 50, 1550}, 2000, 6},
        {"fractions", {0.04, 0.08, 0.12, 0.16, 0.2, 7.26}, {0, 0, 0, 0, 0, 7.1}, 7.3, 6},
        {"sound before the IDR", {10, 12, 50, 400, 300, 2000}, {10, 2, 38, 350, 0, 1600}, 2000, 6},
        {"everything out of order", {90, 80, 70, 60, 50, 40}, {40, 0, 0, 0, 0, 0}, 40, 6},
        {"sound after the picture",
         {10, 12, 50, 400, 2500, 2000},
         {10, 2, 38, 350, 1600, 0},
         2000,
         6},
        {"neither IDR nor sound", {10, 12, 50, 0, 0, 2000}, {10, 2, 38, 0, 0, 1950}, 2000, 6},
        {"of an earlier start", {10, 12, -300, -200, -100, 2000}, {10, 2, 0, 0, 0, 1988}, 2000, 6},
        {"no picture", {10, 12, 50, 0, 90, 0}, {10, 2, 38, 0, 40, 0}, 90, 5},
        {"nothing", {}, {}, 0, 0},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.what);
        const ZapSplit split = splitOf(timesOf(test.reachedMs));
        for (size_t part = 0; part < ZAP_PARTS; ++part) {
            EXPECT_NEAR(split.partMs[part], test.partMs[part], 0.11) << ZAP_PART_NAMES[part];
        }
        EXPECT_NEAR(split.totalMs, test.totalMs, 0.051);
        EXPECT_EQ(split.parts, test.parts);
        EXPECT_EQ(split.isComplete(), test.parts == ZAP_PARTS);
        EXPECT_NEAR(std::accumulate(split.partMs.begin(), split.partMs.end(), 0.0), split.totalMs,
                    1.0);
    }
}

TEST(ZapTimesTest, MedianAndWorstAreOfThoseWithAPicture) {
    std::vector<ZapRecord> records;
    for (const double idrMs : {300.0, 100.0, 900.0, 200.0}) {
        records.push_back({"t", "c", "", 1, splitOf(timesOf({10, 10, 10, 10 + idrMs, 0, 2000}))});
    }
    records.push_back({"t", "c", "", 1, splitOf(timesOf({9000, 0, 0, 0, 0, 0}))});
    EXPECT_NEAR(medianOf(records).partMs[3], 250, 0.01);
    EXPECT_NEAR(worstOf(records).partMs[3], 900, 0.01);
    EXPECT_NEAR(worstOf(records).partMs[0], 10, 0.01);
    EXPECT_NEAR(medianOf(records).totalMs, 2000, 0.01);
    EXPECT_EQ(medianOf({}).totalMs, 0);
}

class ZapHistoryTest : public testing::Test {
protected:
    ZapHistoryTest() {
        EXPECT_NE(mkdtemp(mFolder.data()), nullptr);
        setenv("XDG_STATE_HOME", mFolder.c_str(), 1);
    }
    ~ZapHistoryTest() override {
        unsetenv("XDG_STATE_HOME");
        std::filesystem::remove_all(mFolder);
    }
    static ZapRecord recordOf(int number) {
        return {"2026-11-22T14:30:15Z", "São \"João\"", "6.1", number,
                splitOf(timesOf({10, 12, 50, 400, 450, 2000}))};
    }
    static void keep(int from, int count) {
        std::string error;
        for (int i = from; i < from + count; ++i) {
            EXPECT_TRUE(keepZap(recordOf(i), &error)) << error;
        }
    }
    std::string path() const { return mFolder + "/orvplay/zaps.jsonl"; }

    std::string mFolder = "/tmp/orvtest-zaps-XXXXXX";
};

TEST_F(ZapHistoryTest, KeepsTheLastOnesWhole) {
    EXPECT_TRUE(lastZaps(5).empty());
    keep(1, 3);
    std::vector<ZapRecord> records = lastZaps(2);
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].serviceId, 2);
    EXPECT_EQ(records[1].serviceId, 3);
    EXPECT_EQ(toJson(records[1]), toJson(recordOf(3)));
    EXPECT_EQ(lastZaps(50).size(), 3U);
}

TEST_F(ZapHistoryTest, HoldsAThousandAndPassesOverWhatIsNone) {
    keep(1, 1);
    std::string lines;
    for (int i = 0; i < 1200; ++i) {
        lines += i % 2 == 0 ? "{\"time\":\"t\",\"service\":" + std::to_string(i) + "}\n"
                            : "no object, and \"time\" is one of it\n";
    }
    FILE* const file = fopen(path().c_str(), "a");
    fputs((lines + "{\"time\":\"cut o").c_str(), file);
    fclose(file);
    keep(7, 1);
    const std::vector<ZapRecord> records = lastZaps(MOST_ZAPS_KEPT);
    EXPECT_EQ(records.size(), 500U);
    EXPECT_EQ(records.back().serviceId, 7);
    EXPECT_EQ(records[records.size() - 2].serviceId, 1198);
}

TEST_F(ZapHistoryTest, TwoProgramsLoseNothingOfEachOther) {
    std::thread other([] { keep(100, 40); });
    keep(200, 40);
    other.join();
    EXPECT_EQ(lastZaps(1000).size(), 80U);
}

TEST_F(ZapHistoryTest, TheChannelThatPlayedLastComesBack) {
    Channel channel;
    std::string error;
    EXPECT_FALSE(lastChannel(&channel));
    channel.name = "News";
    channel.source = "udp://239.1.1.1:5000";
    channel.serviceId = 65535;
    EXPECT_TRUE(keepChannel(channel, &error)) << error;
    Channel found;
    EXPECT_TRUE(lastChannel(&found));
    EXPECT_EQ(found.source, channel.source);
    EXPECT_EQ(found.serviceId, channel.serviceId);
}

TEST_F(ZapHistoryTest, SaysWhyNothingCanBeKept) {
    std::filesystem::create_directories(mFolder);
    FILE* const file = fopen((mFolder + "/orvplay").c_str(), "w");
    fclose(file);
    std::string error;
    EXPECT_FALSE(keepZap(recordOf(1), &error));
    EXPECT_NE(error.find("cannot be written"), std::string::npos) << error;
}

}  // namespace
}  // namespace orvplay
