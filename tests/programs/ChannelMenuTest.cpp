#include "ChannelMenu.h"

#include <gtest/gtest.h>

namespace orvplay {
namespace {

class ChannelMenuTest : public testing::Test {
protected:
    ChannelMenuTest() {
        mMenu.setChannels({{{"6.1", "ORV São João HD", "Notícias"},
                            {"6.2", "ORV 1SEG", ""},
                            {"16.1", "映画チャンネル", "名作"},
                            {"", "News ６", "Futebol"}},
                           1});
        mMenu.open();
    }

    void type(const std::string& text) {
        for (const char c : text) {
            mMenu.type(std::string(1, c));
        }
    }

    ChannelMenu mMenu;
};

TEST_F(ChannelMenuTest, WhatIsTypedIsSearched) {
    const struct {
        const char* typed;
        std::vector<int> left;
    } TABLE[] = {
        {"", {0, 1, 2, 3}}, {"6", {0, 1, 3}}, {"6.1", {0}}, {"SAO", {0}},
        {"futebol", {3}},   {"orv", {0, 1}},  {"xyz", {}},  {"!", {}},
    };
    for (const auto& row : TABLE) {
        mMenu.open();
        type(row.typed);
        EXPECT_EQ(mMenu.left(), row.left) << row.typed;
        EXPECT_EQ(mMenu.chosen() < 0, row.left.empty()) << row.typed;
    }
    mMenu.open();
    mMenu.type("映");
    mMenu.type("画");
    EXPECT_EQ(mMenu.left(), std::vector<int>{2});
    EXPECT_TRUE(mMenu.erase());
    EXPECT_EQ(mMenu.typed(), "映");
    EXPECT_TRUE(mMenu.erase());
    EXPECT_FALSE(mMenu.erase());
    EXPECT_EQ(mMenu.left().size(), 4u);
}

TEST_F(ChannelMenuTest, WhatIsChosenStaysSo) {
    EXPECT_EQ(mMenu.chosen(), 1) << "what plays";
    mMenu.move(1);
    EXPECT_EQ(mMenu.chosen(), 2);
    mMenu.move(99);
    EXPECT_EQ(mMenu.chosen(), 3);
    mMenu.move(-99);
    EXPECT_EQ(mMenu.chosen(), 0);
    type("orv");
    mMenu.move(1);
    EXPECT_EQ(mMenu.chosen(), 1);
    mMenu.erase();
    EXPECT_EQ(mMenu.chosen(), 1);
    mMenu.open();
    mMenu.move(1);
    // What is on air there may change, and the channel's row.
    mMenu.setChannels({{{"16.1", "映画チャンネル", "次"}, {"6.1", "ORV São João HD"}}, -1});
    EXPECT_EQ(mMenu.chosen(), 0);
    mMenu.setChannels({{{"6.1", "ORV São João HD"}}, 0});
    EXPECT_EQ(mMenu.chosen(), 0) << "it is gone: the first one";
    mMenu.setChannels({});
    EXPECT_EQ(mMenu.chosen(), -1);
    mMenu.move(1);
    EXPECT_EQ(mMenu.chosen(), -1);
}

TEST_F(ChannelMenuTest, TheChosenOneIsSeen) {
    ChannelRows many;
    many.rows.resize(20);
    mMenu.setChannels(many);
    mMenu.open();
    const struct {
        int place;
        int rows;
        int first;
    } TABLE[] = {{0, 5, 0}, {2, 5, 0}, {3, 5, 1}, {10, 5, 8}, {19, 5, 15}, {19, 40, 0}, {7, 1, 7}};
    for (const auto& row : TABLE) {
        mMenu.open();
        mMenu.move(row.place);
        EXPECT_EQ(mMenu.firstSeen(row.rows), row.first) << row.place << " of " << row.rows;
    }
}

}  // namespace
}  // namespace orvplay
