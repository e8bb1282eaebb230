#include "TextColumns.h"

#include <gtest/gtest.h>

namespace orvplay {
namespace {

TEST(TextColumnsTest, GivesATerminalNothingThatCommandsIt) {
    const struct {
        const char* given;
        const char* shown;
    } TABLE[] = {
        {"São João 「字」", "São João 「字」"},
        {"\x1B[2Jgone\a", " [2Jgone "},
        {"a\nb\tc\x7F", "a b c "},
        {"C1 \xC2\x9B"
         "31m",
         "C1  31m"},                                     // U+009B begins a sequence, too
        {"\xE2\x80\xAEright to left", "right to left"},  // U+202E turns the direction
        {"broken \xC3( \xFF", "broken \xEF\xBF\xBD( \xEF\xBF\xBD"},
        {"cut \xE3\x81", "cut \xEF\xBF\xBD\xEF\xBF\xBD"},
        {"\xEE\x80\x80 private, \xF3\xBF\xBF\xBD none", "? private, ? none"},
        {"\xE2\x80\xA8two lines", " two lines"},
        {"\xCC\x81"
         "e\xCC\x81\xCC\x81\xCC\x81\xCC\x81",
         "e\xCC\x81\xCC\x81"},  // a heap of accents
    };
    for (const auto& row : TABLE) {
        EXPECT_EQ(terminalText(row.given), row.shown);
    }
}

TEST(TextColumnsTest, CutsByColumns) {
    const struct {
        const char* text;
        int columns;
        const char* cut;
    } TABLE[] = {
        {"Notícias", 8, "Notícias"}, {"Notícias", 7, "Notíci~"},
        {"Notícias", 1, "~"},        {"Notícias", 0, ""},
        {"Notícias", -3, ""},        {"", 5, ""},
        {"日本語", 6, "日本語"},     {"日本語", 5, "日本~"},
        {"日本語", 4, "日~"},        {"日本語", 2, "~"},
        {"日本語", 1, "~"},          {"e\xCC\x81t\xCC\x81", 2, "e\xCC\x81t\xCC\x81"},
    };
    for (const auto& row : TABLE) {
        const std::string cut = cutToColumns(row.text, row.columns);
        EXPECT_EQ(cut, row.cut) << row.columns;
        EXPECT_LE(columnsOf(cut), std::max(row.columns, 0));
    }
}

TEST(TextColumnsTest, WrapsBetweenWords) {
    using Lines = std::vector<std::string>;
    EXPECT_EQ(wrapToColumns("one two three", 7, 9), (Lines{"one two", "three"}));
    EXPECT_EQ(wrapToColumns("one two three", 7, 1), (Lines{"one tw~"}));
    EXPECT_EQ(wrapToColumns("unbreakable", 4, 9), (Lines{"unbr", "eaka", "ble"}));
    EXPECT_EQ(wrapToColumns("日本語字幕", 5, 9), (Lines{"日本", "語字", "幕"}));
    EXPECT_EQ(wrapToColumns("日本", 1, 9), (Lines{"~", "~"}));
    EXPECT_EQ(wrapToColumns("one", 0, 9), Lines());
    EXPECT_EQ(wrapToColumns("one", 5, 0), Lines());
}

}  // namespace
}  // namespace orvplay
