#include "PanelOverlay.h"

#include <SDL.h>

#include <utility>

namespace orvplay {

bool PanelOverlay::set(Panel panel) {
    if (panel == mPanel) {
        return false;
    }
    mPanel = std::move(panel);
    mDrawn = false;
    return true;
}

void PanelOverlay::draw(SDL_Renderer* renderer, int windowWidth, int windowHeight) {
    if (mPanel.isEmpty()) {
        releaseTexture();
        return;
    }
    if (!mDrawn) {
        provideTexture(renderer, windowWidth, windowHeight);
    }
    if (mTexture != nullptr) {
        const PanelRect& area = mPanel.area;
        const SDL_Rect place{area.x, area.y, area.width, area.height};
        SDL_RenderCopy(renderer, mTexture, nullptr, &place);
    }
}

void PanelOverlay::provideTexture(SDL_Renderer* renderer, int windowWidth, int windowHeight) {
    mDrawn = true;
    TextBitmap bitmap;
    mRasterizer.rasterize(mPanel, windowWidth, windowHeight, &bitmap);
    if (mTexture == nullptr || bitmap.width != mTextureWidth || bitmap.height != mTextureHeight) {
        releaseTexture();
        mTexture = SDL_CreateTexture(renderer, SDL_PIXELFORMAT_ARGB8888, SDL_TEXTUREACCESS_STATIC,
                                     bitmap.width, bitmap.height);
        mTextureWidth = bitmap.width;
        mTextureHeight = bitmap.height;
    }
    if (mTexture != nullptr) {
        SDL_SetTextureBlendMode(mTexture, SDL_BLENDMODE_BLEND);
        SDL_UpdateTexture(mTexture, nullptr, bitmap.pixels.data(), bitmap.width * 4);
    }
}

void PanelOverlay::releaseTexture() {
    if (mTexture != nullptr) {
        SDL_DestroyTexture(mTexture);
        mTexture = nullptr;
    }
}

}  // namespace orvplay
