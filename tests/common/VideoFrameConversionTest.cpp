#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "common/Data.h"
#include "support/TraceCapture.h"

namespace {

using OrvPlayer::VideoFrameData;

constexpr int YV12 = 0x32315659;
constexpr int SEMI_PLANAR[] = {261, 289};

struct Sample {
    int y, cb, cr;
};

uint32_t wordOf(const Sample& sample) {
    const int u = sample.cb - 128;
    const int v = sample.cr - 128;
    const auto level = [](int value) { return static_cast<uint32_t>(std::clamp(value, 0, 255)); };
    // Whole numbers divided downwards: what an arithmetic shift does.
    const auto downwards = [](int value) { return (value + 1024 * 1024) / 1024 - 1024; };
    return level(sample.y + downwards(u * 1814)) |
           level(sample.y - downwards(u * 352 + v * 731)) << 8 |
           level(sample.y + downwards(v * 1435)) << 16 | 0xFF000000;
}

// A picture with its samples in the layout of a colour format, gaps between rows included. No byte
// more than the layout needs, so that a read past it is found.
class Picture {
public:
    Picture(int format, unsigned width, unsigned height, unsigned stride)
        : mFormat(format), mWidth(width), mHeight(height), mStride(stride) {
        const unsigned chromaRow = ((format == YV12 ? stride / 2 : stride) + 15) / 16 * 16;
        mChromaRow = chromaRow;
        mBytes.resize(stride * height + chromaRow * height / (format == YV12 ? 1 : 2), 0xEE);
    }
    void set(unsigned x, unsigned y, const Sample& sample) {
        mBytes[mStride * y + x] = static_cast<uint8_t>(sample.y);
        cb(x, y) = static_cast<uint8_t>(sample.cb);
        cr(x, y) = static_cast<uint8_t>(sample.cr);
    }
    uint32_t expected(unsigned x, unsigned y) {
        return wordOf({mBytes[mStride * y + x], cb(x, y), cr(x, y)});
    }
    std::vector<uint32_t> convert() {
        std::vector<int> words(size_t{mWidth} * mHeight);
        EXPECT_EQ(VideoFrameData::convertFrameFromYvuToRgba(mBytes.data(), words.data(), mWidth,
                                                            mHeight, mFormat, mStride),
                  0);
        return {words.begin(), words.end()};
    }

private:
    uint8_t& cb(unsigned x, unsigned y) {
        const unsigned row = mStride * mHeight + mChromaRow * (y / 2);
        return mBytes[mFormat == YV12 ? row + mChromaRow * mHeight / 2 + x / 2 : row + x / 2 * 2];
    }
    uint8_t& cr(unsigned x, unsigned y) {
        const unsigned row = mStride * mHeight + mChromaRow * (y / 2);
        return mBytes[mFormat == YV12 ? row + x / 2 : row + x / 2 * 2 + 1];
    }

    const int mFormat;
    const unsigned mWidth;
    const unsigned mHeight;
    const unsigned mStride;
    unsigned mChromaRow;
    std::vector<uint8_t> mBytes;
};

TEST(VideoFrameConversionTest, GivesExactWords) {
    const std::pair<Sample, uint32_t> cases[] = {
        {{128, 128, 128}, 0xFF808080},
        {{81, 90, 240}, 0xFFED0F0D},
        {{0, 128, 255}, 0xFFB10000},  // the second channel is below 0
        {{255, 255, 0}, 0xFF4BFFFF},
        {{16, 128, 128}, 0xFF101010},  // black stays as dark as it was sent
    };
    for (const auto& [sample, word] : cases) {
        EXPECT_EQ(wordOf(sample), word);
        for (const int format : {SEMI_PLANAR[0], SEMI_PLANAR[1], YV12}) {
            Picture picture(format, 2, 2, 2);
            for (unsigned i = 0; i < 4; ++i) {
                picture.set(i % 2, i / 2, sample);
            }
            EXPECT_EQ(picture.convert(), std::vector<uint32_t>(4, word)) << format;
        }
    }
}

// Widths around those that are worked on at a time, strides that need no rounding and that do, and
// enough samples for all combinations of chroma that there are.
TEST(VideoFrameConversionTest, FindsEverySampleInEveryLayout) {
    std::mt19937 random(1);
    std::uniform_int_distribution<int> level(0, 255);
    struct {
        unsigned width, height, stride;
    } const sizes[] = {{2, 6, 2},    {16, 2, 16},   {62, 4, 62},    {64, 4, 80},
                       {66, 4, 100}, {130, 2, 136}, {512, 512, 512}};
    for (const auto& size : sizes) {
        for (const int format : {SEMI_PLANAR[0], SEMI_PLANAR[1], YV12}) {
            SCOPED_TRACE(std::to_string(size.width) + " " + std::to_string(format));
            Picture picture(format, size.width, size.height, size.stride);
            for (unsigned y = 0; y < size.height; ++y) {
                for (unsigned x = 0; x < size.width; ++x) {
                    picture.set(x, y,
                                {level(random), static_cast<int>(x / 2 % 256),
                                 static_cast<int>(y / 2 % 256)});
                }
            }
            const std::vector<uint32_t> words = picture.convert();
            size_t wrong = 0;
            for (unsigned i = 0; i < words.size(); ++i) {
                wrong += words[i] != picture.expected(i % size.width, i / size.width) ? 1 : 0;
            }
            EXPECT_EQ(wrong, 0u);
        }
    }
}

TEST(VideoFrameConversionTest, RefusesWhatItCannotConvert) {
    orvtest::TraceCapture trace;
    std::vector<unsigned char> src(1000);
    const auto convert = [&src](int format, unsigned width, unsigned height) {
        int word = 1;
        const int status =
            VideoFrameData::convertFrameFromYvuToRgba(src.data(), &word, width, height, format, 16);
        EXPECT_EQ(word, 1);
        return status;
    };
    EXPECT_EQ(convert(19, 16, 16), 1);
    EXPECT_EQ(trace.take(),
              std::vector<std::string>{"convertFrameFromYvuToRgba: Color format not supported"});
    EXPECT_EQ(convert(19, 0, 0), 1);
    EXPECT_EQ(convert(261, 0, 16), 0);
    EXPECT_EQ(convert(YV12, 16, 0), 0);
    EXPECT_EQ(convert(261, 15, 16), 1);
    EXPECT_EQ(convert(261, 16, 15), 1);
}

}  // namespace
