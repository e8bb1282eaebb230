#include "pattern/TestPattern.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

namespace orvtest {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Plane {
    int width;
    int height;
    int stride;
    std::vector<uint8_t> bytes;

    Plane(int w, int h, int padding = 0)
        : width(w),
          height(h),
          stride(w + padding),
          bytes(static_cast<size_t>(stride) * static_cast<size_t>(h), 128) {}

    std::optional<uint32_t> number() const {
        return readFrameNumber(bytes.data(), stride, width, height);
    }
    bool flash() const { return isFlash(bytes.data(), stride, width, height); }
    void draw(uint32_t number, bool lit) {
        drawFrameNumber(bytes.data(), stride, width, height, number);
        drawFlash(bytes.data(), stride, width, height, lit);
    }
    void addNoise(int amplitude) {
        std::mt19937 random(1);
        for (uint8_t& value : bytes) {
            const int noise = static_cast<int>(random() % (2 * amplitude + 1)) - amplitude;
            value = static_cast<uint8_t>(std::clamp(value + noise, 0, 255));
        }
    }
    // Half contrast: 16..235 becomes 80..190.
    void flatten() {
        for (uint8_t& value : bytes) {
            value = static_cast<uint8_t>(72 + value / 2);
        }
    }
};

class PictureMarks : public testing::TestWithParam<std::pair<int, int>> {};

TEST_P(PictureMarks, SurviveNoiseAndLowContrast) {
    for (const uint32_t number : {0U, 1U, 29U, 30U, 0x55555U, 0xAAAAAU, kMaxFrameNumber}) {
        Plane plane(GetParam().first, GetParam().second, 24);
        plane.draw(number, number % 2 != 0);
        plane.flatten();
        plane.addNoise(60);
        EXPECT_EQ(plane.number(), number);
        EXPECT_EQ(plane.flash(), number % 2 != 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, PictureMarks,
                         testing::Values(std::pair(128, 96), std::pair(320, 180),
                                         std::pair(320, 240), std::pair(1440, 1080),
                                         std::pair(1920, 1080)));

// A number that was not sent must not be read: one wrong block is noticed, and so are two fields
// of different frames and pictures that never held a bar code.
TEST(PictureMarksTest, RefuseWhatIsNotABarCode) {
    Plane grey(320, 240);
    EXPECT_EQ(grey.number(), std::nullopt);
    EXPECT_EQ(Plane(64, 64).number(), std::nullopt);

    for (int wrong = 0; wrong < 32; ++wrong) {
        Plane plane(320, 240);
        plane.draw(12345, false);
        const Rect band = barCodeArea(320, 240);
        for (int y = band.y; y < band.y + band.height; ++y) {
            auto line = plane.bytes.begin() + y * plane.stride + wrong * 10;
            std::transform(line, line + 10, line, [](uint8_t v) { return 251 - v; });
        }
        EXPECT_EQ(plane.number(), std::nullopt) << "block " << wrong;
    }
}

class BeepDetection : public testing::Test {
protected:
    static constexpr int kRate = 48000;

    // A second of quiet hum with a tone at half a second.
    static std::vector<int16_t> second(int toneHz, double noise) {
        std::mt19937 random(3);
        std::vector<int16_t> sound;
        for (int i = 0; i < kRate; ++i) {
            double value = 600.0 * std::sin(2.0 * std::numbers::pi * 220 * i / kRate);
            const int64_t after = i - kRate / 2;
            if (toneHz == kBeepHz) {
                value += beepSample(after, kRate);
            } else if (after >= 0 && after < kRate * kBeepMs / 1000) {
                value += 16000.0 * std::sin(2.0 * std::numbers::pi * toneHz * after / kRate);
            }
            value += noise * (static_cast<double>(random() % 2001) / 1000.0 - 1.0);
            sound.push_back(static_cast<int16_t>(value));
            sound.push_back(0);
        }
        return sound;
    }

    std::vector<int64_t> detect(const std::vector<int16_t>& sound, size_t blockFrames) {
        BeepDetector detector(kRate, 2);
        std::vector<int64_t> all;
        for (size_t at = 0; at < sound.size() / 2; at += blockFrames) {
            const size_t count = std::min(blockFrames, sound.size() / 2 - at);
            const auto timeUs = 5'000'000 + static_cast<int64_t>(at) * 1'000'000 / kRate;
            for (const int64_t onset : detector.feed(sound.data() + 2 * at, count, timeUs)) {
                all.push_back(onset);
            }
        }
        return all;
    }
};

TEST_F(BeepDetection, FindsTheOnsetInBlocksOfAnySize) {
    const auto sound = second(kBeepHz, 300.0);
    for (const size_t block : {size_t{1}, size_t{100}, size_t{1024}, size_t{48000}}) {
        EXPECT_THAT(detect(sound, block),
                    ElementsAre(testing::AllOf(testing::Ge(5'500'000), testing::Le(5'500'200))))
            << block;
    }
}

TEST_F(BeepDetection, PassesOverOtherSounds) {
    EXPECT_THAT(detect(second(440, 0.0), 1024), IsEmpty());
    EXPECT_THAT(detect(second(2500, 0.0), 1024), IsEmpty());
    EXPECT_THAT(detect(second(kBeepHz, 30000.0), 1024), IsEmpty());
}

}  // namespace
}  // namespace orvtest
