#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "Banner.h"
#include "ChannelListPanel.h"
#include "PanelOverlay.h"
#include "Panels.h"
#include "ScreenControls.h"

struct SDL_Renderer;

namespace orvplay {

// Everything that the player itself puts over the window, by what the controls have open. Used on
// the window's thread.
class WindowPanels {
public:
    // Both must outlive it.
    WindowPanels(TextRasterizer& rasterizer, ScreenControls& controls);

    // Lays out what is open for a window of that size. True when what is on the screen is out of
    // date. Costs nothing while nothing is open.
    bool look(int width, int height, int64_t nowNs);
    void draw(SDL_Renderer* renderer, int width, int height);

    // A click of the primary button. False when nothing lies there.
    bool click(int x, int y, int64_t nowNs);
    // The lowest row that captions may reach; the height of the window where nothing is in the way.
    int captionsBottom(int height) const;

private:
    enum Place { PAUSE, BANNER, LIST, TOP, HELP, COUNT };

    TextRasterizer& mRasterizer;
    ScreenControls& mControls;
    std::array<PanelOverlay, COUNT> mOverlays;
    std::optional<ChannelListPanel> mListPanel;  // while it is open
    Banner mBanner;
    bool mIsShown = false;  // at the last look
};

}  // namespace orvplay
