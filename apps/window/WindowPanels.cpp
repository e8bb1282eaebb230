#include "WindowPanels.h"

namespace orvplay {

namespace {

constexpr int GAP_DIVISOR = 72;  // of the height, between captions and what they keep away from

}  // namespace

WindowPanels::WindowPanels(TextRasterizer& rasterizer, ScreenControls& controls)
    : mRasterizer(rasterizer),
      mControls(controls),
      mOverlays{PanelOverlay(mRasterizer), PanelOverlay(mRasterizer), PanelOverlay(mRasterizer),
                PanelOverlay(mRasterizer), PanelOverlay(mRasterizer)} {}

bool WindowPanels::look(int width, int height, int64_t nowNs) {
    mControls.look(nowNs);
    const ScreenState& state = mControls.state();
    const bool isShown = !mControls.isIdle() || state.isPaused;
    if (!isShown && !mIsShown) {
        return false;
    }
    mIsShown = isShown;
    std::array<Panel, COUNT> panels;
    mBanner = {};
    mListPanel.reset();
    if (state.isPaused) {
        panels[PAUSE] = pausePanel(width, height);
    }
    if (mControls.isBannerShown()) {
        mBanner = Banner(state, width, height, nowNs);
        panels[BANNER] = mBanner.panel;
    }
    if (mControls.isListOpen()) {
        mListPanel.emplace(static_cast<int>(mControls.menu().channels().rows.size()), width,
                           height);
        mControls.setPage(mListPanel->page());
        panels[LIST] = mListPanel->layout(mControls.menu());
    }
    if (const std::string& number = mControls.number(); !number.empty()) {
        const ChannelRow* const row = mControls.numbered();
        panels[TOP] = numberPanel(number, row != nullptr ? row->name : "", width, height);
    } else if (mControls.isVolumeShown()) {
        panels[TOP] = volumePanel(state, width, height);
    }
    if (mControls.isHelpOpen()) {
        panels[HELP] = helpPanel(width, height);
    }
    bool changed = false;
    for (int place = 0; place < COUNT; ++place) {
        changed |= mOverlays[place].set(std::move(panels[place]));
    }
    return changed;
}

void WindowPanels::draw(SDL_Renderer* renderer, int width, int height) {
    for (PanelOverlay& overlay : mOverlays) {
        overlay.draw(renderer, width, height);
    }
}

bool WindowPanels::click(int x, int y, int64_t nowNs) {
    if (mListPanel.has_value()) {
        mControls.onListClick(mListPanel->rowAt(mControls.menu(), x, y),
                              mListPanel->contains(x, y));
        return true;
    }
    if (const int64_t positionMs = mBanner.positionAt(mControls.state(), x, y); positionMs >= 0) {
        mControls.onBarClick(positionMs, nowNs);
        return true;
    }
    return mBanner.panel.area.contains(x, y);
}

int WindowPanels::captionsBottom(int height) const {
    const Panel& banner = mOverlays[BANNER].panel();
    return banner.isEmpty() ? height : banner.area.y - height / GAP_DIVISOR;
}

}  // namespace orvplay
