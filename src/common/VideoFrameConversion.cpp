#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "common/Data.h"
#include "common/Trace.h"

namespace OrvPlayer {

namespace {

constexpr int COLOR_FORMAT_YUV420_SEMI_PLANAR = 0x105;
constexpr int COLOR_FORMAT_YUV420_SEMI_PLANAR_VENDOR = 0x121;
constexpr int COLOR_FORMAT_YV12 = 0x32315659;

constexpr unsigned int TILE = 64;  // pixels of a row worked on at a time: whole vectors

// The chroma samples of a picture: where they begin and how far apart they and their rows are.
struct ChromaLayout {
    const uint8_t* cb;
    const uint8_t* cr;
    size_t rowBytes;
    bool isInterleaved;
};

size_t alignTo16(size_t bytes) {
    return (bytes + 15) & ~size_t{15};
}

bool findChroma(const uint8_t* src, unsigned int height, int colorFormat, unsigned int stride,
                ChromaLayout* chroma) {
    const uint8_t* begin = src + size_t{stride} * height;
    switch (colorFormat) {
        case COLOR_FORMAT_YUV420_SEMI_PLANAR:
        case COLOR_FORMAT_YUV420_SEMI_PLANAR_VENDOR:
            *chroma = {begin, begin + 1, alignTo16(stride), true};
            return true;
        case COLOR_FORMAT_YV12: {
            const size_t rowBytes = alignTo16(stride / 2);
            *chroma = {begin + rowBytes * height / 2, begin, rowBytes, false};
            return true;
        }
        default:
            return false;
    }
}

// What chroma adds to the luma of each pixel, the same for both rows of a pair.
struct Difference {
    int16_t first[TILE];
    int16_t second[TILE];
    int16_t third[TILE];
};

// The coefficients are 1.772, 0.344, 0.714 and 1.402 (ITU-R BT.601, full range) in 10 bits of
// fraction. Shifts of negative numbers round down.
template <unsigned int STEP>
inline void takeChroma(const uint8_t* cb, const uint8_t* cr, unsigned int width, Difference* out) {
    for (unsigned int i = 0; i < width / 2; ++i) {
        const int u = cb[STEP * i] - 128;
        const int v = cr[STEP * i] - 128;
        const auto first = static_cast<int16_t>((u * 1814) >> 10);
        const auto second = static_cast<int16_t>(-((u * 352 + v * 731) >> 10));
        const auto third = static_cast<int16_t>((v * 1435) >> 10);
        out->first[2 * i] = out->first[2 * i + 1] = first;
        out->second[2 * i] = out->second[2 * i + 1] = second;
        out->third[2 * i] = out->third[2 * i + 1] = third;
    }
}

// In 16 bits all the way, which vector units have a minimum and a maximum for.
inline uint16_t channel(uint8_t luma, int16_t difference) {
    const auto sum = static_cast<int16_t>(luma + difference);
    return static_cast<uint16_t>(std::clamp<int16_t>(sum, 0, 255));
}

inline void addLuma(const uint8_t* luma, const Difference& difference, unsigned int width,
                    int* out) {
    for (unsigned int i = 0; i < width; ++i) {
        const uint32_t low = channel(luma[i], difference.first[i]) |
                             static_cast<uint16_t>(channel(luma[i], difference.second[i]) << 8);
        const uint32_t high = channel(luma[i], difference.third[i]) | 0xFF00u;
        out[i] = static_cast<int>(low | high << 16);
    }
}

struct RowPair {
    const uint8_t* luma[2];
    const uint8_t* cb;
    const uint8_t* cr;
    int* out[2];
};

// Inline, so that the tile's width is a constant to the loops.
template <unsigned int STEP>
inline void convertPart(const RowPair& rows, unsigned int x, unsigned int width) {
    Difference difference;
    takeChroma<STEP>(rows.cb + x / 2 * STEP, rows.cr + x / 2 * STEP, width, &difference);
    addLuma(rows.luma[0] + x, difference, width, rows.out[0] + x);
    addLuma(rows.luma[1] + x, difference, width, rows.out[1] + x);
}

template <unsigned int STEP>
void convertRows(const RowPair& rows, unsigned int width) {
    if (width < TILE) {
        convertPart<STEP>(rows, 0, width);
        return;
    }
    unsigned int x = 0;
    for (; x + TILE <= width; x += TILE) {
        convertPart<STEP>(rows, x, TILE);
    }
    if (x < width) {
        convertPart<STEP>(rows, width - TILE, TILE);  // some pixels twice, to the same result
    }
}

}  // namespace

int VideoFrameData::convertFrameFromYvuToRgba(unsigned char* src, int* dst, unsigned int width,
                                              unsigned int height, int colorFormat,
                                              unsigned int stride) {
    ORV_LOGV("Entering %s... colorSpace = 0x%x, width = %d, height = %d, stride = %d", __func__,
             colorFormat, width, height, stride);
    ChromaLayout chroma;
    if (!findChroma(src, height, colorFormat, stride, &chroma)) {
        ORV_LOGE("%s: Color format not supported\n", __func__);
        return 1;
    }
    if (width == 0 || height == 0) {
        return 0;
    }
    if (width % 2 != 0 || height % 2 != 0) {
        ORV_LOGE("%s: no whole blocks of 2 x 2 in %u x %u", __func__, width, height);
        return 1;
    }
    for (unsigned int y = 0; y < height; y += 2) {
        const uint8_t* luma = src + size_t{stride} * y;
        const size_t chromaAt = chroma.rowBytes * (y / 2);
        int* out = dst + size_t{width} * y;
        const RowPair rows = {
            {luma, luma + stride}, chroma.cb + chromaAt, chroma.cr + chromaAt, {out, out + width}};
        if (chroma.isInterleaved) {
            convertRows<2>(rows, width);
        } else {
            convertRows<1>(rows, width);
        }
    }
    return 0;
}

}  // namespace OrvPlayer
