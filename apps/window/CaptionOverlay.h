#pragma once

#include <cstdint>
#include <string>

#include "CaptionRasterizer.h"

struct SDL_Rect;
struct SDL_Renderer;
struct SDL_Texture;

namespace orvplay {

// The caption over the picture in a window. Text is drawn when it or the size of the picture
// changed; every other time one texture is copied, and without a caption nothing at all.
//
// A caption stays until the next, and for ten seconds at most: a broadcast that clears its screen
// sends no text for it. Used on the window's thread.
class CaptionOverlay {
public:
    static constexpr int64_t LONGEST_NS = 10'000'000'000;

    CaptionOverlay() = default;
    ~CaptionOverlay() { releaseTexture(); }
    CaptionOverlay(const CaptionOverlay&) = delete;  // owns a texture
    CaptionOverlay& operator=(const CaptionOverlay&) = delete;

    // Takes UTF-8 text in place of what was there; blank text clears.
    void setText(const std::string& utf8, int64_t nowNs);
    // Drops the caption when its time is over.
    void expire(int64_t nowNs);
    // True once after a change: what is on the screen is out of date.
    bool takeChanged();

    // Copies the caption into the window where the picture is.
    void draw(SDL_Renderer* renderer, const SDL_Rect& picture);
    // Before the renderer goes.
    void releaseTexture();

private:
    void provideTexture(SDL_Renderer* renderer, int width, int height);

    CaptionRasterizer mRasterizer;
    std::string mText;
    int64_t mEndNs = 0;
    bool mChanged = false;

    SDL_Texture* mTexture = nullptr;
    bool mDrawn = false;  // the texture holds the text, or there is nothing to be seen of it
    int mPictureWidth = 0;
    int mPictureHeight = 0;
    int mX = 0;  // of the texture in the picture
    int mY = 0;
    int mWidth = 0;
    int mHeight = 0;
};

}  // namespace orvplay
