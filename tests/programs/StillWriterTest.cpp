#include "StillWriter.h"

#include <gtest/gtest.h>
#include <png.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "TestPictures.h"

namespace orvplay {
namespace {

using Rgb = std::array<int, 3>;

// A PNG file as libpng reads it.
struct Still {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> pixels;
    std::string software;
    png_uint_32 pixelsPerUnitX = 0;
    png_uint_32 pixelsPerUnitY = 0;

    Rgb at(int x, int y) const {
        const uint8_t* pixel = &pixels[static_cast<size_t>(3 * (y * width + x))];
        return {pixel[0], pixel[1], pixel[2]};
    }
};

Still readStill(const std::string& path) {
    Still still;
    FILE* file = fopen(path.c_str(), "rb");
    EXPECT_NE(file, nullptr) << path;
    if (file == nullptr) {
        return still;
    }
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, file);
    png_read_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    still.width = static_cast<int>(png_get_image_width(png, info));
    still.height = static_cast<int>(png_get_image_height(png, info));
    EXPECT_EQ(png_get_color_type(png, info), PNG_COLOR_TYPE_RGB);
    png_bytepp rows = png_get_rows(png, info);
    for (int y = 0; y < still.height; ++y) {
        still.pixels.insert(still.pixels.end(), rows[y], rows[y] + 3 * still.width);
    }
    png_textp texts = nullptr;
    const int count = png_get_text(png, info, &texts, nullptr);
    for (int i = 0; i < count; ++i) {
        if (std::string(texts[i].key) == "Software") {
            still.software = texts[i].text;
        }
    }
    int unit = 0;
    png_get_pHYs(png, info, &still.pixelsPerUnitX, &still.pixelsPerUnitY, &unit);
    png_destroy_read_struct(&png, &info, nullptr);
    fclose(file);
    return still;
}

// ITU-R BT.601 and BT.709, from their luma coefficients.
Rgb rgbOf(int y, int cb, int cr, double kr, double kb, bool fullRange) {
    const double luma = fullRange ? y / 255.0 : (y - 16) / 219.0;
    const double blue = (cb - 128) / (fullRange ? 255.0 : 224.0);
    const double red = (cr - 128) / (fullRange ? 255.0 : 224.0);
    const double r = luma + 2 * (1 - kr) * red;
    const double b = luma + 2 * (1 - kb) * blue;
    const double g = (luma - kr * r - kb * b) / (1 - kr - kb);
    const auto level = [](double value) {
        return static_cast<int>(std::lround(255 * std::clamp(value, 0.0, 1.0)));
    };
    return {level(r), level(g), level(b)};
}

class StillWriterTest : public testing::Test {
protected:
    void SetUp() override {
        const auto* test = testing::UnitTest::GetInstance()->current_test_info();
        mFolder = std::filesystem::temp_directory_path() /
                  ("orv-still-" + std::to_string(getpid()) + "-" + test->name());
        std::filesystem::create_directories(mFolder);
        mPath = mFolder / "still.png";
    }
    void TearDown() override { std::filesystem::remove_all(mFolder); }

    Still write(const TestPicture& picture) {
        std::string error;
        EXPECT_TRUE(writeStill(picture.acquired(), mPath, &error)) << error;
        return readStill(mPath);
    }

    size_t filesInFolder() const {
        const std::filesystem::directory_iterator entries(mFolder);
        return static_cast<size_t>(std::distance(begin(entries), end(entries)));
    }

    std::filesystem::path mFolder;
    std::string mPath;
};

void expectNear(const Rgb& actual, const Rgb& expected, const std::string& what) {
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_NEAR(actual[i], expected[i], 2) << what << ", component " << i;
    }
}

TEST_F(StillWriterTest, ColoursFollowMatrixAndRange) {
    constexpr int BARS[][3] = {{16, 128, 128}, {235, 128, 128}, {81, 90, 240},  {145, 54, 34},
                               {41, 240, 110}, {120, 70, 190},  {200, 140, 100}};
    struct Case {
        const char* name;
        int dataSpace;
        int height;
        double kr;
        double kb;
        bool fullRange;
    };
    constexpr Case CASES[] = {
        {"601 said", HAL_DATASPACE_STANDARD_BT601_525 | HAL_DATASPACE_RANGE_LIMITED, 720, 0.299,
         0.114, false},
        {"709 said", HAL_DATASPACE_STANDARD_BT709 | HAL_DATASPACE_RANGE_LIMITED, 48, 0.2126, 0.0722,
         false},
        {"601 by size", HAL_DATASPACE_UNKNOWN, 480, 0.299, 0.114, false},
        {"709 by size", HAL_DATASPACE_UNKNOWN, 1080, 0.2126, 0.0722, false},
        {"full range", HAL_DATASPACE_STANDARD_BT601_625 | HAL_DATASPACE_RANGE_FULL, 48, 0.299,
         0.114, true},
    };
    for (const Case& wanted : CASES) {
        TestPicture picture(16 * std::size(BARS), wanted.height);
        picture.input().dataSpace = static_cast<android_dataspace>(wanted.dataSpace);
        picture.drawLuma([&](int x, int) { return BARS[x / 16][0]; });
        for (int y = 0; y < picture.height(); y += 2) {
            for (int x = 0; x < picture.width(); x += 2) {
                picture.chroma(x, y)[0] = static_cast<uint8_t>(BARS[x / 16][1]);
                picture.chroma(x, y)[1] = static_cast<uint8_t>(BARS[x / 16][2]);
            }
        }
        const Still still = write(picture);
        ASSERT_EQ(still.width, picture.width());
        ASSERT_EQ(still.height, picture.height());
        EXPECT_EQ(still.software, "OrvPlayer");
        for (size_t bar = 0; bar < std::size(BARS); ++bar) {
            const auto& [y, cb, cr] = BARS[bar];
            expectNear(still.at(static_cast<int>(16 * bar) + 8, wanted.height / 2),
                       rgbOf(y, cb, cr, wanted.kr, wanted.kb, wanted.fullRange),
                       std::string(wanted.name) + ", bar " + std::to_string(bar));
        }
    }
}

// Every pixel of the crop is where it was, also when its edges cut through a chroma sample.
TEST_F(StillWriterTest, CropsExactlyAtAnyEdgeAndSize) {
    constexpr android_native_rect_t CROPS[] = {{0, 0, 63, 47}, {1, 0, 62, 46}, {0, 1, 6, 6},
                                               {3, 5, 33, 37}, {7, 7, 7, 7},   {62, 46, 63, 47},
                                               {0, 0, 0, 47}};
    const auto lumaOf = [](int x, int y) { return 20 + 2 * x + y; };
    for (const android_native_rect_t& crop : CROPS) {
        TestPicture picture(64, 48);
        picture.drawLuma(lumaOf);
        picture.input().crop = crop;
        const Still still = write(picture);
        ASSERT_EQ(still.width, crop.right - crop.left + 1);
        ASSERT_EQ(still.height, crop.bottom - crop.top + 1);
        for (int y = 0; y < still.height; ++y) {
            for (int x = 0; x < still.width; ++x) {
                expectNear(
                    still.at(x, y),
                    rgbOf(lumaOf(crop.left + x, crop.top + y), 128, 128, 0.299, 0.114, false),
                    std::to_string(x) + ", " + std::to_string(y));
            }
        }
    }
    for (const int extent : {1, 2, 3, 17, 33}) {
        TestPicture picture(extent, extent);
        picture.drawLuma([](int, int) { return 235; });
        picture.input().interlaced = extent % 2 != 0;
        const Still still = write(picture);
        EXPECT_EQ(still.width, extent);
        expectNear(still.at(extent - 1, extent - 1), {255, 255, 255}, std::to_string(extent));
    }
}

// White in the field shown first, black in the other: the still shows one moment.
TEST_F(StillWriterTest, InterlacedPictureIsMadeOfItsFirstField) {
    for (const bool topFieldFirst : {true, false}) {
        for (const int top : {0, 3}) {
            TestPicture picture(64, 48);
            picture.drawLuma([&](int, int y) { return (y % 2 == 0) == topFieldFirst ? 235 : 16; });
            picture.input().interlaced = true;
            picture.input().topFieldFirst = topFieldFirst;
            picture.input().crop.top = top;
            picture.input().sampleAspectWidth = 4;
            picture.input().sampleAspectHeight = 3;
            const Still still = write(picture);
            for (int y = 0; y < still.height; ++y) {
                expectNear(still.at(20, y), {255, 255, 255}, "row " + std::to_string(y));
            }
            EXPECT_EQ(still.pixelsPerUnitX, 3u);
            EXPECT_EQ(still.pixelsPerUnitY, 4u);
        }
    }
}

TEST_F(StillWriterTest, FailureSaysWhyAndLeavesNothing) {
    TestPicture picture(64, 48);
    std::string error;
    EXPECT_FALSE(writeStill(picture.acquired(), mFolder / "missing" / "still.png", &error));
    EXPECT_NE(error.find("missing/still.png: No such file"), std::string::npos) << error;

    // The name is taken by a folder: written in full, but cannot be renamed.
    std::filesystem::create_directories(std::filesystem::path(mPath) / "taken");
    EXPECT_FALSE(writeStill(picture.acquired(), mPath, &error));
    EXPECT_FALSE(error.empty());
    EXPECT_EQ(filesInFolder(), 1u);

    EXPECT_FALSE(writeStill(orvhost::AcquiredBuffer(), mFolder / "none.png", &error));
    EXPECT_EQ(filesInFolder(), 1u);
    EXPECT_FALSE(writeStill(orvhost::AcquiredBuffer(), mFolder / "none.png", nullptr));
}

}  // namespace
}  // namespace orvplay
