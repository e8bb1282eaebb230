// Draws the picture of the sample broadcast: colour bars, a scrolling texture that costs bits, the
// frame number as digits and as a time code, the flash block, the bar code, and a block that moves
// from field to field so that deinterlacing shows.
//
//   +-----------------------------+
//   | colour bars                 |
//   | texture, scrolling          |
//   | 000123          +-------+   |
//   | 00:00:04:03     | flash |   |
//   | bar code                    |
//   | moving block                |
//   +-----------------------------+
//
// The same frame number always gives the same pixels.

#pragma once

#include <cstdint>
#include <vector>

namespace mksample {

// One 4:2:0 picture in planes; not owned.
struct PicturePlanes {
    uint8_t* data[3];
    int stride[3];
};

class TestPicture {
public:
    TestPicture(int width, int height, bool interlaced, uint32_t nominalRate);

    void draw(uint32_t frame, const PicturePlanes& out) const;

private:
    void drawBackground();
    void drawTexture(uint32_t frame, const PicturePlanes& out) const;
    void drawDigits(uint32_t frame, const PicturePlanes& out) const;
    void drawMovingBlock(uint32_t frame, const PicturePlanes& out) const;
    // When a row is shown, counted in fields: the rows of an interlaced frame alternate.
    uint32_t fieldOf(uint32_t frame, int row) const;

    const int mWidth;
    const int mHeight;
    const bool mInterlaced;
    const uint32_t mNominalRate;
    std::vector<uint8_t> mLuma;  // what does not move
    std::vector<uint8_t> mCb;
    std::vector<uint8_t> mCr;
    std::vector<uint8_t> mTexture;  // rows wider than the picture by one scrolling period
};

}  // namespace mksample
