#include "Banner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace orvplay {
namespace {

constexpr int64_t SECOND_NS = 1'000'000'000;
constexpr int64_t EIGHT = 1'792'353'600;  // 2026-10-18 20:00 UTC

// What it says, row by row, the two texts of a row parted by a bar.
std::vector<std::string> rowsOf(const Panel& panel) {
    std::vector<std::string> rows;
    int y = -1;
    for (const PanelText& text : panel.texts) {
        if (text.cell.y == y) {
            rows.back() += " | " + text.utf8;
        } else {
            rows.push_back(text.utf8);
        }
        y = text.cell.y;
    }
    return rows;
}

ScreenState liveState() {
    ScreenState state;
    state.madeNs = 10 * SECOND_NS;
    state.channelNumber = "6.1";
    state.name = "ORV TV";
    state.now = Programme{"Notícias", "", EIGHT, EIGHT + 3600};
    state.next = Programme{"Cinema", "", EIGHT + 3600, -1};
    state.clockUtcS = EIGHT + 900;
    state.localOffsetMinutes = -180;
    state.width = 1920;
    state.height = 1080;
    state.isInterlaced = true;
    return state;
}

TEST(BannerTest, TellsWhatPlays) {
    ScreenState state = liveState();
    EXPECT_EQ(rowsOf(Banner(state, 1280, 720, state.madeNs).panel),
              (std::vector<std::string>{"6.1  ORV TV | 17:15", "17:00-18:00  Notícias",
                                        "18:00  Cinema", "signal good   1920x1080i"}));
    state.signalText = "signal weak";
    state.recordingNumber = 3;
    state.recordingMs = 83'000;
    state.isMuted = true;
    state.channelNumber.clear();
    state.now->startUtcS = -1;
    state.next.reset();
    // The clock goes on between two states.
    EXPECT_EQ(rowsOf(Banner(state, 1280, 720, state.madeNs + 60 * SECOND_NS).panel),
              (std::vector<std::string>{"ORV TV | 17:16", "Notícias",
                                        "signal weak   1920x1080i   muted | ● 1:23"}));
    ScreenState nothing;
    EXPECT_EQ(rowsOf(Banner(nothing, 1280, 720, 0).panel),
              (std::vector<std::string>{"signal good"}));
}

TEST(BannerTest, TheBarShowsHowMuchIsOver) {
    const ScreenState state = liveState();
    const Panel quarter = Banner(state, 1280, 720, state.madeNs).panel;
    ASSERT_EQ(quarter.boxes.size(), 3U);
    EXPECT_NEAR(quarter.boxes[2].place.width, quarter.boxes[1].place.width / 4, 1);
    // A broadcast that tells nonsense.
    for (const int64_t clockS : {int64_t{0}, EIGHT - 5000, EIGHT + 50'000}) {
        ScreenState odd = state;
        odd.clockUtcS = clockS;
        const Panel panel = Banner(odd, 1280, 720, state.madeNs).panel;
        EXPECT_TRUE(panel.boxes[2].place.width == 0 ||
                    panel.boxes[2].place.width == panel.boxes[1].place.width);
    }
}

TEST(BannerTest, AClickOnTheBarOfARecordingGoesElsewhere) {
    ScreenState state;
    state.kind = SourceKind::RECORDING;
    state.name = "Cinema";
    state.positionMs = 30'000;
    state.durationMs = 120'000;
    const Banner banner(state, 1280, 720, 0);
    EXPECT_EQ(rowsOf(banner.panel), (std::vector<std::string>{"Cinema | 0:30 / 2:00"}));
    const PanelRect& bar = banner.bar;
    const int middle = bar.y + bar.height / 2;
    EXPECT_EQ(banner.positionAt(state, bar.x, middle), 0);
    EXPECT_NEAR(static_cast<double>(banner.positionAt(state, bar.x + bar.width / 2, middle)), 60e3,
                200.0);
    EXPECT_EQ(banner.positionAt(state, bar.x - 1, middle), -1);
    EXPECT_EQ(banner.positionAt(state, bar.x, banner.panel.area.y - 1), -1);
    const ScreenState live = liveState();
    const Banner ofLive(live, 1280, 720, live.madeNs);
    EXPECT_EQ(ofLive.positionAt(live, 640, ofLive.panel.boxes[1].place.y), -1);
}

TEST(BannerTest, StaysInTheSafeAreaAndReadable) {
    ScreenState state = liveState();
    state.name = std::string(300, 'W');
    state.now->title = std::string(300, 'W');
    state.recordingNumber = 1;
    for (const auto& [width, height] :
         {std::pair(1920, 1080), {720, 480}, {320, 240}, {200, 700}}) {
        const Panel panel = Banner(state, width, height, state.madeNs).panel;
        EXPECT_GE(panel.area.x, width / 20);
        EXPECT_LE(panel.area.x + panel.area.width, width - width / 20);
        EXPECT_LE(panel.area.y + panel.area.height, height - height / 20);
        EXPECT_GT(panel.area.y, height / 3) << "covers too much";
        for (const PanelText& text : panel.texts) {
            EXPECT_GE(text.cell.height, 14);
            EXPECT_LE(text.cell.y + text.cell.height, panel.area.y + panel.area.height);
            EXPECT_LE(text.cell.x + text.cell.width, panel.area.x + panel.area.width);
        }
    }
}

TEST(BannerTest, WhatIsTooLongEndsInAnEllipsis) {
    const PanelText fits{{0, 0, 100, 20}, "short"};
    EXPECT_EQ(panel::fitted(fits), "short");
    PanelText cut{{0, 0, 100, 20}, "much too long for it"};
    EXPECT_EQ(panel::fitted(cut), "much too …");
    cut.utf8 = "放送放送放送放送";
    EXPECT_EQ(panel::fitted(cut), "放送放送…");
    cut.cell.width = 0;
    EXPECT_EQ(panel::fitted(cut), "…");
    cut.utf8 = "\xFF\xC3";  // bytes that begin nothing
    EXPECT_EQ(panel::fitted(cut), "…");
}

}  // namespace
}  // namespace orvplay
