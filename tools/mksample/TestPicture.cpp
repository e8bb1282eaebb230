#include "mksample/TestPicture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "pattern/TestPattern.h"

namespace mksample {
namespace {

constexpr uint8_t kGrey = 48;
constexpr uint8_t kInk = 220;

constexpr int kScrollPeriod = 512;
constexpr int kTextureRows = 64;

// Digits of 5 x 7 dots, one byte a row, the leftmost dot in bit 4.
constexpr int kGlyphWidth = 6;  // with the gap
constexpr int kGlyphHeight = 7;
constexpr std::string_view kGlyphNames = "0123456789:";
constexpr std::array<std::array<uint8_t, kGlyphHeight>, 11> kGlyphs{{
    {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E},
    {0x04, 0x0C, 0x14, 0x04, 0x04, 0x04, 0x1F},
    {0x1E, 0x01, 0x01, 0x0E, 0x10, 0x10, 0x1F},
    {0x1E, 0x01, 0x01, 0x0E, 0x01, 0x01, 0x1E},
    {0x10, 0x12, 0x12, 0x12, 0x1F, 0x02, 0x02},
    {0x1F, 0x10, 0x10, 0x1E, 0x01, 0x01, 0x1E},
    {0x0E, 0x10, 0x10, 0x1E, 0x11, 0x11, 0x0E},
    {0x1F, 0x01, 0x02, 0x02, 0x04, 0x04, 0x04},
    {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E},
    {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x01, 0x0E},
    {0x00, 0x04, 0x04, 0x00, 0x04, 0x04, 0x00},
}};

// 75 % bars: white, yellow, cyan, green, magenta, red, blue, black (Y, Cb, Cr of ITU-R BT.709).
constexpr std::array<std::array<uint8_t, 3>, 8> kBars{{{180, 128, 128},
                                                       {168, 44, 136},
                                                       {145, 147, 44},
                                                       {134, 63, 52},
                                                       {63, 193, 204},
                                                       {51, 109, 212},
                                                       {28, 212, 120},
                                                       {16, 128, 128}}};

struct Band {
    int top;
    int bottom;
};

Band barsBand(int height) {
    return {0, height * 36 / 100};
}
Band textureBand(int height) {
    return {height * 36 / 100, height * 48 / 100};
}
Band movingBand(int height) {
    return {height * 88 / 100, height * 98 / 100};
}

void drawText(std::string_view text, int x, int y, int scale, const PicturePlanes& out) {
    for (const char c : text) {
        const size_t glyph = kGlyphNames.find(c);
        for (int row = 0; glyph != std::string_view::npos && row < kGlyphHeight * scale; ++row) {
            uint8_t* line = out.data[0] + static_cast<ptrdiff_t>(y + row) * out.stride[0] + x;
            for (int dot = 0; dot < 5; ++dot) {
                if (((kGlyphs[glyph][row / scale] >> (4 - dot)) & 1) != 0) {
                    std::fill_n(line + dot * scale, scale, kInk);
                }
            }
        }
        x += kGlyphWidth * scale;
    }
}

void copyPlane(const std::vector<uint8_t>& from, int width, int height, uint8_t* to, int stride) {
    for (int row = 0; row < height; ++row) {
        std::memcpy(to + static_cast<ptrdiff_t>(row) * stride,
                    from.data() + static_cast<ptrdiff_t>(row) * width, width);
    }
}

}  // namespace

TestPicture::TestPicture(int width, int height, bool interlaced, uint32_t nominalRate)
    : mWidth(width),
      mHeight(height),
      mInterlaced(interlaced),
      mNominalRate(nominalRate),
      mLuma(static_cast<size_t>(width) * height, kGrey),
      mCb(static_cast<size_t>(width / 2) * (height / 2), 128),
      mCr(mCb),
      mTexture(static_cast<size_t>(width + kScrollPeriod) * kTextureRows) {
    drawBackground();
    uint32_t noise = 1;
    for (int row = 0; row < kTextureRows; ++row) {
        uint8_t* line = mTexture.data() + static_cast<ptrdiff_t>(row) * (width + kScrollPeriod);
        for (int x = 0; x < kScrollPeriod; ++x) {
            noise = noise * 1664525 + 1013904223;
            const double wave = std::sin(x * 0.0982 + row * 0.29) * 35.0 +
                                std::sin(x * 0.0245 - row * 0.098) * 35.0;
            line[x] =
                static_cast<uint8_t>(128 + static_cast<int>(wave) + static_cast<int>(noise >> 27));
        }
        for (int x = kScrollPeriod; x < width + kScrollPeriod; ++x) {
            line[x] = line[x - kScrollPeriod];
        }
    }
}

void TestPicture::drawBackground() {
    const Band bars = barsBand(mHeight);
    for (int y = bars.top; y < bars.bottom; ++y) {
        for (int x = 0; x < mWidth; ++x) {
            const auto& colour = kBars[static_cast<size_t>(x) * kBars.size() / mWidth];
            mLuma[static_cast<size_t>(y) * mWidth + x] = colour[0];
            if (y % 2 == 0 && x % 2 == 0) {
                const size_t chroma = static_cast<size_t>(y / 2) * (mWidth / 2) + x / 2;
                if (chroma < mCb.size()) {
                    mCb[chroma] = colour[1];
                    mCr[chroma] = colour[2];
                }
            }
        }
    }
}

uint32_t TestPicture::fieldOf(uint32_t frame, int row) const {
    return 2 * frame + (mInterlaced ? static_cast<uint32_t>(row & 1) : 0);
}

void TestPicture::draw(uint32_t frame, const PicturePlanes& out) const {
    copyPlane(mLuma, mWidth, mHeight, out.data[0], out.stride[0]);
    copyPlane(mCb, mWidth / 2, mHeight / 2, out.data[1], out.stride[1]);
    copyPlane(mCr, mWidth / 2, mHeight / 2, out.data[2], out.stride[2]);
    drawTexture(frame, out);
    drawDigits(frame, out);
    orvtest::drawFlash(out.data[0], out.stride[0], mWidth, mHeight,
                       orvtest::isFlashFrame(frame, mNominalRate));
    orvtest::drawFrameNumber(out.data[0], out.stride[0], mWidth, mHeight, frame);
    drawMovingBlock(frame, out);
}

void TestPicture::drawTexture(uint32_t frame, const PicturePlanes& out) const {
    const Band band = textureBand(mHeight);
    for (int y = band.top; y < band.bottom; ++y) {
        const uint32_t shift = fieldOf(frame, y) * 2 % kScrollPeriod;
        const int row = (y - band.top) % kTextureRows;
        std::memcpy(
            out.data[0] + static_cast<ptrdiff_t>(y) * out.stride[0],
            mTexture.data() + static_cast<ptrdiff_t>(row) * (mWidth + kScrollPeriod) + shift,
            mWidth);
    }
}

void TestPicture::drawDigits(uint32_t frame, const PicturePlanes& out) const {
    char number[16];
    char timeCode[32];
    const uint32_t seconds = frame / mNominalRate;
    std::snprintf(number, sizeof(number), "%07u", frame);
    std::snprintf(timeCode, sizeof(timeCode), "%02u:%02u:%02u:%02u", seconds / 3600 % 100,
                  seconds / 60 % 60, seconds % 60, frame % mNominalRate);
    const int columns = kGlyphWidth * 11;
    const int scale =
        std::max(1, std::min(mWidth * 60 / 100 / columns, mHeight * 22 / 100 / (2 * 9)));
    const int x = mWidth * 4 / 100;
    const int y = mHeight * 50 / 100;
    drawText(number, x, y, scale, out);
    drawText(timeCode, x, y + 9 * scale, scale, out);
}

void TestPicture::drawMovingBlock(uint32_t frame, const PicturePlanes& out) const {
    const Band band = movingBand(mHeight);
    const int size = mWidth / 10;
    const auto travel = static_cast<uint32_t>(mWidth - size);
    const uint32_t step = std::max(1, mWidth / 160);
    for (int y = band.top; y < band.bottom; ++y) {
        const uint32_t way = fieldOf(frame, y) * step % (2 * travel);
        const uint32_t x = way < travel ? way : 2 * travel - way;
        std::fill_n(out.data[0] + static_cast<ptrdiff_t>(y) * out.stride[0] + x, size, kInk);
    }
}

}  // namespace mksample
