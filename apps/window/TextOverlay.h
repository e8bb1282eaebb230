#pragma once

#include <cstdint>
#include <string>

#include "TextRasterizer.h"

struct SDL_Rect;
struct SDL_Renderer;
struct SDL_Texture;

namespace orvplay {

// A text over the picture in a window. It is drawn when it or the size of the picture changed;
// every other time one texture is copied, and without a text nothing at all. Used on the window's
// thread.
class TextOverlay {
public:
    // A caption stays until the next, and so long at most: a broadcast that clears its screen
    // sends no text for it.
    static constexpr int64_t LONGEST_CAPTION_NS = 10'000'000'000;
    static constexpr int64_t FOR_EVER = INT64_MAX;

    // The rasterizer must outlive it.
    TextOverlay(TextRasterizer& rasterizer, TextPlace place)
        : mRasterizer(rasterizer), mPlace(place) {}
    ~TextOverlay() { releaseTexture(); }
    TextOverlay(const TextOverlay&) = delete;  // owns a texture
    TextOverlay& operator=(const TextOverlay&) = delete;

    // Takes UTF-8 text in place of what was there, until then; blank text clears.
    void setText(const std::string& utf8, int64_t endNs);
    // Drops the text when its time is over.
    void expire(int64_t nowNs);
    // True once after a change: what is on the screen is out of date.
    bool takeChanged();

    // Copies the text into the window where the picture is, and where it lies lower than `bottom`,
    // a row of the window, above that, as far as the picture reaches.
    void draw(SDL_Renderer* renderer, const SDL_Rect& picture, int bottom);
    // Before the renderer goes.
    void releaseTexture();

private:
    void provideTexture(SDL_Renderer* renderer, int width, int height);

    TextRasterizer& mRasterizer;
    const TextPlace mPlace;
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
