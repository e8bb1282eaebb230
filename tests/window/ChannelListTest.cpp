#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "ChannelListPanel.h"
#include "Panels.h"

namespace orvplay {
namespace {

constexpr std::pair<int, int> SIZES[] = {{1920, 1080}, {1280, 720}, {320, 240}, {200, 700}};

ChannelRows numbered(int count) {
    ChannelRows channels;
    for (int i = 1; i <= count; ++i) {
        channels.rows.push_back({std::to_string(i) + ".1", "Canal São " + std::to_string(i)});
    }
    channels.playing = count / 2;
    return channels;
}

// What a panel holds stays inside it, and it inside the safe area.
void expectInside(const Panel& panel, int width, int height) {
    const PanelSizes sizes(width, height);
    EXPECT_GE(panel.area.x, sizes.safe.x);
    EXPECT_GE(panel.area.y, sizes.safe.y);
    EXPECT_LE(panel.area.x + panel.area.width, sizes.safe.x + sizes.safe.width);
    EXPECT_LE(panel.area.y + panel.area.height, sizes.safe.y + sizes.safe.height);
    for (const PanelText& text : panel.texts) {
        EXPECT_GE(text.cell.x, panel.area.x) << text.utf8;
        EXPECT_GE(text.cell.y, panel.area.y) << text.utf8;
        EXPECT_LE(text.cell.x + text.cell.width, panel.area.x + panel.area.width) << text.utf8;
        EXPECT_LE(text.cell.y + text.cell.height, panel.area.y + panel.area.height) << text.utf8;
    }
}

TEST(ChannelListTest, OnlyTheVisibleRowsAreLaidOut) {
    ChannelMenu menu;
    menu.setChannels(numbered(1000));
    menu.open();
    for (const auto& [width, height] : SIZES) {
        SCOPED_TRACE(height);
        const ChannelListPanel layout(1000, width, height);
        const Panel panel = layout.layout(menu);
        expectInside(panel, width, height);
        EXPECT_GE(layout.page(), 6);
        EXPECT_EQ(panel.texts.size(), 2U + 2U * static_cast<size_t>(layout.page()));
        // A click finds the channel that is written there.
        int found = 0;
        for (const PanelText& text : panel.texts) {
            const int row = layout.rowAt(menu, text.cell.x, text.cell.y + text.cell.height / 2);
            if (row >= 0) {
                const ChannelRow& channel = menu.channels().rows[static_cast<size_t>(row)];
                EXPECT_TRUE(text.utf8 == channel.name || text.utf8 == channel.number);
                ++found;
            }
        }
        EXPECT_EQ(found, 2 * layout.page());
        EXPECT_EQ(layout.rowAt(menu, 0, 0), -1);
    }
    const Panel few = ChannelListPanel(3, 1280, 720).layout(menu);
    EXPECT_EQ(few.texts.size(), 2U + 2U * 3U);
    EXPECT_LT(few.area.height, 720 / 3);
    menu.type("nothing");
    const ChannelListPanel layout(1000, 1280, 720);
    const Panel panel = layout.layout(menu);
    EXPECT_EQ(panel.texts.back().utf8, "no channel is called so");
    EXPECT_EQ(layout.rowAt(menu, panel.texts.back().cell.x, panel.texts.back().cell.y), -1);
}

TEST(ChannelListTest, TheOtherPanelsStayInTheSafeArea) {
    ScreenState state;
    state.volumePercent = 150;
    for (const auto& [width, height] : SIZES) {
        SCOPED_TRACE(height);
        expectInside(helpPanel(width, height), width, height);
        expectInside(volumePanel(state, width, height), width, height);
        expectInside(numberPanel("12", "Canal", width, height), width, height);
        expectInside(pausePanel(width, height), width, height);
    }
}

}  // namespace
}  // namespace orvplay
