#pragma once

#include "ChannelMenu.h"
#include "Panel.h"

namespace orvplay {

// The channel list at the right of a window of that size: a heading with what was typed, and the
// visible rows, each with what is on air. Only those cost anything, however many there are.
class ChannelListPanel {
public:
    // For so many channels: no higher than they need.
    ChannelListPanel(int channels, int width, int height);

    // How many rows fit.
    int page() const { return mPage; }
    Panel layout(const ChannelMenu& menu) const;
    // The row of the channels that lies there; -1: none.
    int rowAt(const ChannelMenu& menu, int x, int y) const;
    bool contains(int x, int y) const { return mArea.contains(x, y); }

private:
    PanelRect rowPlace(int visible) const;
    void put(const PanelRect& cell, const std::string& utf8, uint32_t colour, bool isBold,
             Panel* panel) const;
    void addHeading(const ChannelMenu& menu, Panel* panel) const;
    void addRow(const ChannelRow& row, const PanelRect& place, bool isChosen, bool isPlaying,
                Panel* panel) const;
    void addScrollBar(int first, int count, Panel* panel) const;

    const PanelSizes mSizes;
    PanelRect mArea;
    int mRowHeight = 1;
    int mPage = 1;
    int mMark = 2;  // width of what marks the row that plays, and of the scroll bar
};

}  // namespace orvplay
