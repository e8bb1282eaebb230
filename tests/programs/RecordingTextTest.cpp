#include "RecordingText.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "HumanText.h"
#include "PlaySource.h"
#include "support/TempFile.h"

namespace orvplay {
namespace {

using orvhost::RecordingDetails;
using orvhost::RecordingState;

TEST(HumanTextTest, FiguresReadWell) {
    struct {
        int64_t bytes;
        const char* text;
    } const sizes[] = {{0, "0 B"},          {999, "999 B"},          {1000, "1.0 kB"},
                       {99'940, "99.9 kB"}, {99'960, "100 kB"},      {999'499, "999 kB"},
                       {999'500, "1.0 MB"}, {12'345'678, "12.3 MB"}, {INT64_MAX, "9223 PB"}};
    for (const auto& test : sizes) {
        EXPECT_EQ(sizeText(test.bytes), test.text);
    }
    struct {
        int64_t ms;
        const char* text;
    } const times[] = {{0, "0:00"},          {7'999, "0:07"},        {754'000, "12:34"},
                       {3'599'999, "59:59"}, {3'723'000, "1:02:03"}, {360'000'000, "100:00:00"}};
    for (const auto& test : times) {
        EXPECT_EQ(timeText(test.ms), test.text);
    }
    EXPECT_EQ(dateText(0), "-");
}

// Names come from the air: they neither command the terminal nor move the columns.
TEST(HumanTextTest, NamesStayInTheirColumns) {
    EXPECT_EQ(printable("a\x1B[2Jb\n\x7F\xC2\x9B"
                        "c é"),
              "a [2Jb   c é");
    EXPECT_EQ(column("é1", 4), "é1  ");
    EXPECT_EQ(column("é123", 4), "é123");
    EXPECT_EQ(column("é1ç34", 4), "é1ç~");
    EXPECT_EQ(column("\xC3", 2), "\xC3 ");
    EXPECT_EQ(column("\x80\x80", 0), "\x80\x80");
}

TEST(RecordingTextTest, AListIsATableOrObjects) {
    const char* const zone = getenv("TZ");
    const std::string before = zone != nullptr ? zone : "";
    setenv("TZ", "UTC", 1);
    tzset();
    RecordingDetails whole;
    whole.number = 12;
    whole.path = "/r/News.ts";
    whole.state = RecordingState::Whole;
    whole.stationName = "ORV HD";
    whole.programmeName = "News\x1B";
    whole.startTimeS = 1'795'271'400;
    whole.endTimeS = 1'795'271'410;
    whole.durationMs = 10'000;
    whole.sizeBytes = 3'210'000;
    RecordingDetails other;
    other.number = 13;
    other.path = "/r/Other.ts";
    other.stationName = std::string(40, 'x');
    EXPECT_EQ(tableOf({}), "No recordings.\n");
    EXPECT_EQ(tableOf({whole, other}),
              "   No  Recorded            Length      Size  Channel           Programme\n"
              "   12  2026-11-21 14:30      0:10    3.2 MB  ORV HD            News\n"
              "   13  -                     0:00       0 B  xxxxxxxxxxxxxxx~" +
                  std::string(32, ' ') + "recording\n");
    EXPECT_EQ(titleOf(whole), "News , ORV HD");
    other.stationName = "";
    EXPECT_EQ(titleOf(other), "Other");
    const auto object = toJson(whole);
    EXPECT_EQ(object["start"], "2026-11-21T14:30:00Z");
    EXPECT_EQ(object["state"], "whole");
    EXPECT_TRUE(toJson(other)["end"].is_null());
    EXPECT_NE(describe(whole).find("2026-11-21 14:30 to 2026-11-21 14:30"), std::string::npos);
    zone != nullptr ? setenv("TZ", before.c_str(), 1) : unsetenv("TZ");
    tzset();
}

TEST(PlaySourceTest, TellsRecordingsAndMediaFiles) {
    EXPECT_EQ(recordingNumberOf("recording:12"), 12);
    EXPECT_FALSE(recordingNumberOf("recordings.ts").has_value());
    for (const char* wrong : {"recording:", "recording:x", "recording:1x", "recording:-1",
                              "recording:0", "recording:99999999999"}) {
        EXPECT_EQ(recordingNumberOf(wrong), 0) << wrong;
    }

    std::vector<uint8_t> packets(188 * 1000);
    for (size_t at = 0; at < packets.size(); at += 188) {
        packets[at] = 0x47;
    }
    std::vector<uint8_t> random(1 << 20);
    uint32_t state = 1;
    for (uint8_t& byte : random) {
        byte = static_cast<uint8_t>((state = state * 1'664'525 + 1'013'904'223) >> 24);
    }
    std::vector<uint8_t> late = random;
    late.insert(late.end(), packets.begin(), packets.end());
    struct {
        std::vector<uint8_t> bytes;
        bool isMedia;
    } const files[] = {{{}, false},
                       {packets, false},
                       {late, false},
                       {random, true},
                       {{0, 0, 0, 24, 'f', 't', 'y', 'p'}, true}};
    for (const auto& file : files) {
        const orvtest::TempFile temporary(file.bytes);
        EXPECT_EQ(isMediaFile(temporary.path()), file.isMedia) << file.bytes.size();
    }
    for (const char* none : {"-", "/no/such", "/tmp", "/dev/zero"}) {
        EXPECT_FALSE(isMediaFile(none)) << none;
    }
}

}  // namespace
}  // namespace orvplay
