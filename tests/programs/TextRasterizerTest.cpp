#include "TextRasterizer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "support/TempFile.h"

namespace orvplay {
namespace {

const std::string FULL_ROW(32, 'x');

TEST(TextRasterizerTest, TextHasNoCommandsAndFullRowsEnd) {
    struct {
        std::string text;
        std::string ass;
    } const cases[] = {
        {"", ""},
        {"A\nB\n", "A\\NB"},
        {"\n\n", ""},
        {FULL_ROW, FULL_ROW},
        {FULL_ROW + "next\n", FULL_ROW + "\\Nnext"},
        {FULL_ROW + FULL_ROW + "end\n", FULL_ROW + "\\N" + FULL_ROW + "\\Nend"},
        {"Coração é ♪\n", "Coração é ♪"},  // characters are counted, not bytes
        {"ç" + FULL_ROW.substr(1) + "é", "ç" + FULL_ROW.substr(1) + "\\Né"},
        {"{\\an8}up", "\\{\\\u2060an8\\}up"},
        {"a\\Nb", "a\\\u2060Nb"},
        {std::string("a\0b\r\tc", 6), "abc"},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(assTextOf(test.text, TextPlace::BOTTOM), test.ass);
    }
}

// Whatever the text and the size of the picture, the drawing stays in the safe area; where the
// text is blank there is none.
TEST(TextRasterizerTest, StaysInTheSafeArea) {
    TextRasterizer rasterizer;
    const struct {
        int width;
        int height;
    } sizes[] = {{1920, 1080}, {1280, 720}, {960, 720}, {320, 240}, {300, 700}, {40, 30}};
    const std::string texts[] = {
        "one", "a\nb\nc\n", std::string(96, 'W'), "{\\pos(0,0)\\fs400}x", "\\N\\h}", "\u2060",
        // A byte that begins nothing, a character cut off, and one of another direction.
        "\xFF\xC3", "\xE2\x99", "\u05D0\u05D1"};
    for (const auto& size : sizes) {
        for (const std::string& text : texts) {
            SCOPED_TRACE(std::to_string(size.width) + " " + text);
            for (const TextPlace place : {TextPlace::BOTTOM, TextPlace::CORNER}) {
                TextBitmap bitmap;
                const bool drawn =
                    rasterizer.rasterize(text, place, size.width, size.height, &bitmap);
                EXPECT_EQ(drawn, !bitmap.pixels.empty());
                if (!drawn || size.width < 320) {
                    continue;
                }
                EXPECT_GE(bitmap.x + 2, size.width / 20);
                EXPECT_LE(bitmap.x + bitmap.width, size.width * 19 / 20 + 2);
                EXPECT_GE(bitmap.y, size.height / 20 - 2);
                EXPECT_LE(bitmap.y + bitmap.height, size.height * 19 / 20 + 2);
                EXPECT_EQ(bitmap.y < size.height / 2, place == TextPlace::CORNER);
            }
        }
    }
    TextBitmap bitmap;
    for (const char* blank : {"", " \n  \n"}) {
        EXPECT_FALSE(rasterizer.rasterize(blank, TextPlace::BOTTOM, 1920, 1080, &bitmap));
    }
    EXPECT_FALSE(rasterizer.rasterize("text", TextPlace::BOTTOM, 0, 0, &bitmap));
    ASSERT_TRUE(rasterizer.rasterize("text", TextPlace::BOTTOM, 1920, 1080, &bitmap));
    EXPECT_EQ(bitmap.pixels.front() >> 24, 0xFFU - 0x40U) << "the box lets the picture through";
    EXPECT_EQ(bitmap.pixels.front() & 0xFFFFFF, 0U);
    EXPECT_NE(std::count(bitmap.pixels.begin(), bitmap.pixels.end(), 0xFFFFFFFF), 0);
}

TEST(TextRasterizerTest, WithoutAFontSaysSoOnce) {
    const std::string nothing = "<?xml version=\"1.0\"?><fontconfig></fontconfig>";
    const orvtest::TempFile configuration({nothing.begin(), nothing.end()});
    setenv("FONTCONFIG_FILE", configuration.path().c_str(), 1);
    TextRasterizer rasterizer;
    unsetenv("FONTCONFIG_FILE");
    testing::internal::CaptureStderr();
    TextBitmap bitmap;
    EXPECT_FALSE(rasterizer.rasterize("text", TextPlace::BOTTOM, 1920, 1080, &bitmap));
    EXPECT_FALSE(rasterizer.rasterize("more", TextPlace::BOTTOM, 1920, 1080, &bitmap));
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
    EXPECT_NE(said.find("no font has"), std::string::npos) << said;
}

}  // namespace
}  // namespace orvplay
