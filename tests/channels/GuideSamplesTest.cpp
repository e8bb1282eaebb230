// The samples with a programme guide, through the tables to what a user reads.

#include <gtest/gtest.h>

#include "channels/BroadcastText.h"
#include "channels/ScannedChannels.h"
#include "dtv/Tuner.h"

namespace {

using namespace orvplay;

constexpr int64_t EVENING_S = 1'795'219'200 + (20 * 60 + 30) * 60;  // 2026-11-21 20:30, no zone

struct Sample {
    const char* file;
    int hoursAhead;
    const char* country;
    const char* names[2];
    const char* numbers[2];
    const char* now;
    const char* next;
    const char* text;  // of what comes next
};

class GuideSamplesTest : public testing::TestWithParam<Sample> {};

TEST_P(GuideSamplesTest, TellNamesAndWhatIsOn) {
    const Sample& sample = GetParam();
    orvhost::Tuner tuner;
    orvhost::TuneOptions options;
    options.paced = false;
    options.freeRunning = true;
    const auto tuned = tuner.tune(std::string(ORV_SAMPLES_DIR "/") + sample.file, options);
    ASSERT_TRUE(tuned.ok()) << tuned.message;
    const auto list = tuner.services(10'000);
    const auto information = tuner.information(10'000);
    EXPECT_EQ(information.clock.country, sample.country);
    EXPECT_EQ(information.clock.localOffsetMinutes, sample.hoursAhead * 60);
    const int64_t local = information.clock.utcS + sample.hoursAhead * 3600;
    EXPECT_GE(local, EVENING_S);
    EXPECT_LE(local, EVENING_S + 12);

    const std::vector<Channel> channels = scannedChannels(list.services, information);
    ASSERT_EQ(channels.size(), 2u);
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(channels[i].name, sample.names[i]);
        EXPECT_EQ(channels[i].number, sample.numbers[i]);
        EXPECT_EQ(channels[i].oneSegment, i == 1);
    }
    ASSERT_EQ(information.events.size(), 4u);
    const TextCoding coding = textCodingOf(information.originalNetworkId);
    EXPECT_EQ(broadcastText(information.events[0].rawName, coding), sample.now);
    EXPECT_EQ(information.events[0].startUtcS, EVENING_S - 1800 - sample.hoursAhead * 3600);
    EXPECT_EQ(broadcastText(information.events[1].rawName, coding), sample.next);
    EXPECT_EQ(broadcastText(information.events[1].rawText, coding), sample.text);
    EXPECT_TRUE(information.events[1].following);
}

INSTANTIATE_TEST_SUITE_P(Countries, GuideSamplesTest,
                         testing::Values(Sample{"small-guide-br.ts",
                                                -3,
                                                "BRA",
                                                {"ORV São João HD", "ORV 1SEG São João"},
                                                {"6.1", "6.2"},
                                                "Notícias da Região",
                                                "Cinema: A Estação",
                                                "Três irmãos voltam à cidade onde nasceram."},
                                         Sample{"small-guide-jp.ts",
                                                9,
                                                "JPN",
                                                {"ORVテレビ1", "ORV携帯"},
                                                {"061", "661"},
                                                "ニュース8",
                                                "映画「海の色」",
                                                "町に帰った兄と妹の夏。ORV制作"}),
                         [](const auto& sample) { return sample.param.country; });

}  // namespace
