#include "TextOverlay.h"

#include <SDL.h>

#include <algorithm>

namespace orvplay {

void TextOverlay::setText(const std::string& utf8, int64_t endNs) {
    mEndNs = endNs;
    if (utf8 == mText) {
        return;
    }
    mText = utf8;
    mDrawn = false;
    mChanged = true;
}

void TextOverlay::expire(int64_t nowNs) {
    if (!mText.empty() && nowNs >= mEndNs) {
        setText("", FOR_EVER);
    }
}

bool TextOverlay::takeChanged() {
    const bool changed = mChanged;
    mChanged = false;
    return changed;
}

void TextOverlay::draw(SDL_Renderer* renderer, const SDL_Rect& picture, int bottom) {
    if (mText.empty()) {
        releaseTexture();
        return;
    }
    if (!mDrawn || picture.w != mPictureWidth || picture.h != mPictureHeight) {
        provideTexture(renderer, picture.w, picture.h);
    }
    if (mTexture != nullptr) {
        const int lowest = std::max(bottom - mHeight, picture.y);
        const SDL_Rect place{picture.x + mX, std::min(picture.y + mY, lowest), mWidth, mHeight};
        SDL_RenderCopy(renderer, mTexture, nullptr, &place);
    }
}

void TextOverlay::provideTexture(SDL_Renderer* renderer, int width, int height) {
    releaseTexture();
    mDrawn = true;
    mPictureWidth = width;
    mPictureHeight = height;
    TextBitmap bitmap;
    if (!mRasterizer.rasterize(mText, mPlace, width, height, &bitmap)) {
        return;
    }
    mX = bitmap.x;
    mY = bitmap.y;
    mWidth = bitmap.width;
    mHeight = bitmap.height;
    mTexture = SDL_CreateTexture(renderer, SDL_PIXELFORMAT_ARGB8888, SDL_TEXTUREACCESS_STATIC,
                                 mWidth, mHeight);
    if (mTexture != nullptr) {
        SDL_SetTextureBlendMode(mTexture, SDL_BLENDMODE_BLEND);
        SDL_UpdateTexture(mTexture, nullptr, bitmap.pixels.data(), mWidth * 4);
    }
}

void TextOverlay::releaseTexture() {
    if (mTexture != nullptr) {
        SDL_DestroyTexture(mTexture);
        mTexture = nullptr;
    }
}

}  // namespace orvplay
