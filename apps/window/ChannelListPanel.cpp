#include "ChannelListPanel.h"

#include <algorithm>

namespace orvplay {

namespace {

constexpr int WIDTH_IN_LINES = 24;
constexpr uint8_t CHOSEN_OPACITY = 200;

}  // namespace

ChannelListPanel::ChannelListPanel(int channels, int width, int height) : mSizes(width, height) {
    const int panelWidth = std::min(mSizes.safe.width, mSizes.line * WIDTH_IN_LINES);
    mRowHeight = mSizes.line * 7 / 5;
    mMark = std::max(mSizes.padding / 3, 2);
    const int aroundRows = mRowHeight + 2 * mSizes.padding;
    mPage = std::clamp((mSizes.safe.height - aroundRows) / mRowHeight, 1, std::max(channels, 1));
    mArea = {mSizes.safe.x + mSizes.safe.width - panelWidth, mSizes.safe.y, panelWidth,
             std::min(aroundRows + mPage * mRowHeight, mSizes.safe.height)};
}

PanelRect ChannelListPanel::rowPlace(int visible) const {
    return {mArea.x, mArea.y + mRowHeight + mSizes.padding + visible * mRowHeight, mArea.width,
            mRowHeight};
}

Panel ChannelListPanel::layout(const ChannelMenu& menu) const {
    Panel made = panel::on(mArea);
    addHeading(menu, &made);
    const int count = static_cast<int>(menu.left().size());
    const int first = menu.firstSeen(mPage);
    for (int at = first; at < std::min(first + mPage, count); ++at) {
        const int row = menu.left()[static_cast<size_t>(at)];
        addRow(menu.channels().rows[static_cast<size_t>(row)], rowPlace(at - first),
               row == menu.chosen(), row == menu.channels().playing, &made);
    }
    if (count == 0) {
        const PanelRect place = rowPlace(0);
        put({place.x + mSizes.padding, place.y, place.width - 2 * mSizes.padding, place.height},
            menu.channels().rows.empty() ? "there is no other channel" : "no channel is called so",
            panel::FAINT, false, &made);
    }
    addScrollBar(first, count, &made);
    return made;
}

// Into the middle of a cell as high as a row.
void ChannelListPanel::put(const PanelRect& cell, const std::string& utf8, uint32_t colour,
                           bool isBold, Panel* panel) const {
    const int y = cell.y + (cell.height - mSizes.line) / 2;
    panel->texts.push_back({{cell.x, y, cell.width, mSizes.line}, utf8, colour, isBold});
}

void ChannelListPanel::addHeading(const ChannelMenu& menu, Panel* panel) const {
    const size_t left = menu.left().size();
    const size_t all = menu.channels().rows.size();
    const std::string count =
        left == all ? std::to_string(all) : std::to_string(left) + " / " + std::to_string(all);
    const int x = mArea.x + mSizes.padding;
    const int y = mArea.y + mSizes.padding / 2;
    const int width = mArea.width - 2 * mSizes.padding;
    const bool isTyped = !menu.typed().empty();
    put({x, y, width * 2 / 3, mRowHeight}, isTyped ? menu.typed() + "_" : "Channels",
        isTyped ? panel::TEXT : panel::FAINT, true, panel);
    put({x + width * 2 / 3, y, width - width * 2 / 3, mRowHeight}, count, panel::FAINT, false,
        panel);
    panel->texts.back().side = PanelText::Side::RIGHT;
    panel->boxes.push_back({{x, y + mRowHeight, width, 1}, panel::TROUGH});
}

void ChannelListPanel::addRow(const ChannelRow& row, const PanelRect& place, bool isChosen,
                              bool isPlaying, Panel* panel) const {
    if (isChosen) {
        panel->boxes.push_back({place, panel::ACCENT, CHOSEN_OPACITY});
    }
    if (isPlaying) {
        panel->boxes.push_back(
            {{place.x, place.y, mMark, place.height}, isChosen ? panel::TEXT : panel::ACCENT});
    }
    const uint32_t faint = isChosen ? panel::TEXT : panel::FAINT;
    const int numberWidth = mSizes.line * 5 / 2;
    const int right = place.x + place.width - mSizes.padding;
    int x = place.x + mSizes.padding;
    put({x, place.y, numberWidth, place.height}, row.number, faint, false, panel);
    x += numberWidth;
    const int nameWidth = row.now.empty() ? right - x : (right - x) * 9 / 20;
    put({x, place.y, nameWidth, place.height}, row.name, panel::TEXT, isPlaying, panel);
    if (!row.now.empty()) {
        x += nameWidth + mSizes.padding;
        put({x, place.y, right - x, place.height}, row.now, faint, false, panel);
    }
}

void ChannelListPanel::addScrollBar(int first, int count, Panel* panel) const {
    if (count <= mPage) {
        return;
    }
    const int track = mPage * mRowHeight;
    const int thumb = std::max(track * mPage / count, mSizes.line / 2);
    panel->boxes.push_back(
        {{mArea.x + mArea.width - mMark, rowPlace(0).y + (track - thumb) * first / (count - mPage),
          mMark, thumb},
         panel::FAINT});
}

int ChannelListPanel::rowAt(const ChannelMenu& menu, int x, int y) const {
    const PanelRect first = rowPlace(0);
    if (!mArea.contains(x, y) || y < first.y) {
        return -1;
    }
    const int visible = (y - first.y) / mRowHeight;
    const auto at = static_cast<size_t>(menu.firstSeen(mPage) + visible);
    return visible < mPage && at < menu.left().size() ? menu.left()[at] : -1;
}

}  // namespace orvplay
