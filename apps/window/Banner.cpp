#include "Banner.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <utility>

#include "HumanText.h"

namespace orvplay {

namespace {

using Side = PanelText::Side;

constexpr int64_t DAY_S = 86'400;

// A time of day where the broadcast is.
std::string clockText(const ScreenState& state, int64_t utcS) {
    const int64_t local = utcS + state.localOffsetMinutes * int64_t{60};
    const auto minutes = static_cast<int>((local % DAY_S + DAY_S) % DAY_S / 60);
    char text[16];
    snprintf(text, sizeof text, "%02d:%02d", minutes / 60 % 24, minutes % 60);
    return text;
}

std::string programmeText(const ScreenState& state, const Programme& programme) {
    std::string text;
    if (programme.startUtcS >= 0) {
        text = clockText(state, programme.startUtcS);
        text += programme.endUtcS >= 0 ? "-" + clockText(state, programme.endUtcS) + "  " : "  ";
    }
    return text + programme.title;
}

// Signal, picture and sound, as far as there is something to tell.
std::string detailsText(const ScreenState& state) {
    constexpr char GAP[] = "   ";
    std::string text = !state.signalText.empty()        ? state.signalText
                       : state.kind == SourceKind::LIVE ? "signal good"
                                                        : "";
    if (state.width > 0) {
        text += (text.empty() ? "" : GAP) + std::to_string(state.width) + "x" +
                std::to_string(state.height) + (state.isInterlaced ? "i" : "p");
    }
    if (state.isMuted || state.volumePercent != 100) {
        text += (text.empty() ? "" : GAP) +
                (state.isMuted ? "muted" : "volume " + std::to_string(state.volumePercent) + " %");
    }
    return text;
}

std::string headingText(const ScreenState& state) {
    return state.channelNumber.empty() ? state.name : state.channelNumber + "  " + state.name;
}

// Stacks lines from the top; the panel is moved to its place when its height is known.
class Layout {
public:
    explicit Layout(const PanelSizes& sizes)
        : mSizes(sizes), mWidth(sizes.safe.width - 2 * sizes.padding), mY(sizes.padding) {}

    // Two texts share a line; the right one takes what it needs.
    void line(int height, const PanelText& left, const PanelText& right = {}) {
        const int rightWidth =
            right.utf8.empty() ? 0 : std::min(mWidth / 2, height * 2 / 3 * textLength(right.utf8));
        add({0, mY, mWidth - rightWidth, height}, left);
        add({mWidth - rightWidth, mY, rightWidth, height}, right);
        mY += height + mSizes.line / 5;
    }
    PanelRect bar(double share) {
        const PanelRect place{mSizes.safe.x + mSizes.padding, mY + mSizes.line / 10, mWidth,
                              std::max(mSizes.line / 5, 3)};
        panel::addBar(place, share, &mPanel);
        mY += place.height + mSizes.line * 2 / 5;
        return place;
    }
    // Puts it all at the bottom of the safe area; returns how far down it went.
    int finish(Panel* result) {
        const int height = mY - mSizes.line / 5 + mSizes.padding;
        const int top = mSizes.safe.y + std::max(mSizes.safe.height - height, 0);
        for (PanelBox& box : mPanel.boxes) {
            box.place.y += top;
        }
        for (PanelText& text : mPanel.texts) {
            text.cell.y += top;
        }
        mPanel.area = {mSizes.safe.x, top, mSizes.safe.width, std::min(height, mSizes.safe.height)};
        mPanel.boxes.insert(mPanel.boxes.begin(),
                            {mPanel.area, panel::BACKGROUND, panel::BACKGROUND_OPACITY});
        *result = std::move(mPanel);
        return top;
    }

private:
    static int textLength(const std::string& utf8) {
        return static_cast<int>(std::count_if(utf8.begin(), utf8.end(), [](char byte) {
            return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
        }));
    }
    void add(PanelRect cell, PanelText text) {
        if (!text.utf8.empty()) {
            cell.x += mSizes.safe.x + mSizes.padding;
            text.cell = cell;
            mPanel.texts.push_back(std::move(text));
        }
    }

    const PanelSizes mSizes;
    const int mWidth;
    int mY;
    Panel mPanel;
};

PanelText textOf(const std::string& utf8, uint32_t colour = panel::TEXT, bool isBold = false,
                 Side side = Side::LEFT) {
    return {{}, utf8, colour, isBold, side};
}

// How much of the programme is over, where that is known.
std::optional<double> shareOf(const Programme& programme, int64_t clockUtcS) {
    const int64_t length = programme.endUtcS - programme.startUtcS;
    if (programme.startUtcS < 0 || programme.endUtcS < 0 || clockUtcS < 0 || length <= 0) {
        return std::nullopt;
    }
    return static_cast<double>(clockUtcS - programme.startUtcS) / static_cast<double>(length);
}

}  // namespace

Banner::Banner(const ScreenState& state, int width, int height, int64_t nowNs) {
    const PanelSizes sizes(width, height);
    Layout layout(sizes);
    const int64_t sinceMs = std::max<int64_t>(nowNs - state.madeNs, 0) / 1'000'000;
    const bool isLive = state.kind == SourceKind::LIVE;
    const int64_t clockUtcS = state.clockUtcS >= 0 ? state.clockUtcS + sinceMs / 1000 : -1;
    const int heading = sizes.line * 13 / 10;
    const PanelText name = textOf(headingText(state), panel::TEXT, true);
    if (isLive) {
        layout.line(heading, name,
                    textOf(clockUtcS >= 0 ? clockText(state, clockUtcS) : "", panel::TEXT, false,
                           Side::RIGHT));
        if (state.now.has_value()) {
            layout.line(sizes.line, textOf(programmeText(state, *state.now)));
            if (const auto share = shareOf(*state.now, clockUtcS); share.has_value()) {
                layout.bar(*share);
            }
        }
        if (state.next.has_value()) {
            layout.line(sizes.line, textOf(programmeText(state, *state.next), panel::FAINT));
        }
    } else {
        const std::string position =
            timeText(state.positionMs) +
            (state.durationMs > 0 ? " / " + timeText(state.durationMs) : "");
        layout.line(heading, name, textOf(position, panel::TEXT, false, Side::RIGHT));
        if (state.durationMs > 0) {
            bar = layout.bar(static_cast<double>(state.positionMs) /
                             static_cast<double>(state.durationMs));
        }
    }
    const std::string recording =
        state.recordingNumber != 0 ? "● " + timeText(state.recordingMs) : "";
    layout.line(sizes.line, textOf(detailsText(state), panel::FAINT),
                textOf(recording, panel::RECORDING, true, Side::RIGHT));
    bar.y += layout.finish(&panel);
}

int64_t Banner::positionAt(const ScreenState& state, int x, int y) const {
    if (bar.width <= 0 || state.durationMs <= 0) {
        return -1;
    }
    // A bar is thin: what is close above and below it is meant for it.
    const PanelRect near{bar.x, bar.y - 2 * bar.height, bar.width, 5 * bar.height};
    return near.contains(x, y) ? state.durationMs * (x - bar.x) / bar.width : -1;
}

}  // namespace orvplay
