#include "channels/BroadcastText.h"

#include <gtest/gtest.h>
#include <utf8proc.h>

#include <random>

#include "channels/SearchText.h"

namespace {

using namespace orvplay;

std::vector<uint8_t> bytes(const std::string& text) {
    return {text.begin(), text.end()};
}

struct Case {
    const char* what;
    std::string raw;
    const char* text;
};

void expectTexts(TextCoding coding, const std::vector<Case>& cases) {
    for (const Case& c : cases) {
        EXPECT_EQ(broadcastText(bytes(c.raw), coding), c.text) << c.what;
    }
}

TEST(BroadcastTextTest, Latin) {
    expectTexts(TextCoding::LATIN,
                {{"letters",
                  "Not\xED"
                  "cias \xE0s 20h",
                  "Notícias às 20h"},
                 {"8859-15", "5 \xA4 \xBD", "5 € œ"},
                 {"special set",
                  "\x1D\x21 \x1D\x44"
                  "a\x1D\x45",
                  "♪ “a”"},
                 {"backslash and tilde", "a\\b~", "a\\b~"},
                 {"full-width kana of Japan", std::string("\x1B\x2A\x31\x1B\x7D\xA2", 6), "ア"},
                 {"lines",
                  "a\x0D"
                  "b",
                  "a\nb"},
                 {"colour, size, sequence",
                  "\x90\x20\x41\x8A"
                  "a\x9B\x37\x20\x53"
                  "b",
                  "ab"},
                 {"ends within", "a\x1C\x41", "a"},
                 {"ends behind a shift", "a\x1D", "a"},
                 {"no characters", std::string("\x00\x7F\x85", 3), ""}});
}

TEST(BroadcastTextTest, Japanese) {
    expectTexts(
        TextCoding::JAPANESE,
        {{"kanji and hiragana", "\x46\x7C\x4B\x5C\xCE\xA2", "日本のあ"},
         {"full-width letters and blank", "\x23\x4E\x23\x48\x23\x4B\x21\x21\x23\x31", "NHK 1"},
         {"letters", "\x0EORV\x0F\x46\x7C", "ORV日"},
         {"yen", "\x0E\\", "¥"},
         {"katakana by single shift", "\x1D\x46\x1D\x6C\x1D\x53", "テレビ"},
         {"katakana by locking shift", "\x1B\x6F\x46\x79", "テー"},
         {"on the right", "\x1B\x7C\xC6\xF9", "テー"},
         {"half-width katakana", "\x1B\x29\x49\x0E\x36\x5E\x31", "ガア"},
         {"captioned, new", "\x7A\x56\x7A\x6B", "[字][新]"},
         {"symbols", "\x1B\x24\x3B\x7A\x56", "[字]"},
         {"extended plane", "\x1B\x24\x39\x30\x21", "亜"},
         {"kanji as G1", "\x1B\x24\x29\x42\x0E\x46\x7C", "日"},
         {"drawn characters", "\x1B\x24\x28\x20\x40\x21\x21\x1B\x24\x42\x46\x7C", "〓日"},
         {"no such kanji", "\x7E\x7E\x2F\x7E", "〓〓"},
         {"ends within", "\x46\x7C\x4B", "日"},
         {"ends in an escape", "\x46\x7C\x1B\x24", "日"}});
}

TEST(BroadcastTextTest, ChoosesTheCodingByNetworkThenByLanguage) {
    EXPECT_EQ(textCodingOf(0x0640, "jpn"), TextCoding::LATIN);
    EXPECT_EQ(textCodingOf(0x7FE8, "eng"), TextCoding::JAPANESE);
    EXPECT_EQ(textCodingOf(-1, "jpn"), TextCoding::JAPANESE);
    EXPECT_EQ(textCodingOf(-1), TextCoding::LATIN);
}

// Whatever the air brings is text that a terminal and JSON can take, of a bounded length.
TEST(BroadcastTextTest, AnyBytesAreText) {
    std::mt19937 random(7);
    constexpr uint8_t FAVOURITES[] = {0x1B, 0x24, 0x28, 0x29, 0x20, 0x0E, 0x0F, 0x1D,
                                      0x19, 0x9B, 0x42, 0x49, 0x31, 0x7E, 0xFF, 0xA0};
    for (int round = 0; round < 3000; ++round) {
        std::vector<uint8_t> raw(random() % 40);
        for (uint8_t& byte : raw) {
            byte = static_cast<uint8_t>(random() % 3 == 0 ? FAVOURITES[random() % 16] : random());
        }
        for (const TextCoding coding : {TextCoding::LATIN, TextCoding::JAPANESE}) {
            const std::string text = broadcastText(raw, coding);
            EXPECT_LE(text.size(), raw.size() * 18 + 1);
            for (size_t at = 0; at < text.size();) {
                utf8proc_int32_t character = 0;
                const auto size =
                    utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data() + at),
                                     static_cast<utf8proc_ssize_t>(text.size() - at), &character);
                ASSERT_GT(size, 0);
                ASSERT_TRUE(character == '\n' || (character >= 0x20 && character != 0x7F));
                at += static_cast<size_t>(size);
            }
        }
    }
}

TEST(SearchTextTest, LeavesWhatPeopleType) {
    const struct {
        const char* text;
        const char* left;
    } cases[] = {
        {"São João  HD", "sao joao hd"},
        {"ＯＲＶテレビ１", "orvテレヒ\u30991"},
        {"SBT/Alterosa-2", "sbt alterosa 2"},
        {"ﾃﾚﾋﾞ", "テレヒ\u3099"},
        {"  ", ""},
        {"[字]映画", "字 映画"},
        {"Straße", "strasse"},
        {"\xFF\xC3", ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(searchText(c.text), c.left) << c.text;
    }
}

}  // namespace
