#pragma once

#include "Panel.h"
#include "TextRasterizer.h"

struct SDL_Renderer;
struct SDL_Texture;

namespace orvplay {

// A panel over the window. It is drawn when it changed; every other time one texture is copied, and
// of an empty one nothing at all. Used on the window's thread.
class PanelOverlay {
public:
    // The rasterizer must outlive it.
    explicit PanelOverlay(TextRasterizer& rasterizer) : mRasterizer(rasterizer) {}
    ~PanelOverlay() { releaseTexture(); }
    PanelOverlay(const PanelOverlay&) = delete;  // owns a texture
    PanelOverlay& operator=(const PanelOverlay&) = delete;

    // True when it is another than before: what is on the screen is out of date.
    bool set(Panel panel);
    const Panel& panel() const { return mPanel; }

    void draw(SDL_Renderer* renderer, int windowWidth, int windowHeight);

private:
    void provideTexture(SDL_Renderer* renderer, int windowWidth, int windowHeight);
    void releaseTexture();

    TextRasterizer& mRasterizer;
    Panel mPanel;
    SDL_Texture* mTexture = nullptr;
    bool mDrawn = false;  // the texture holds the panel
    int mTextureWidth = 0;
    int mTextureHeight = 0;
};

}  // namespace orvplay
