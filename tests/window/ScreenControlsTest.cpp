#include "ScreenControls.h"

#include <SDL_keycode.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orvplay {
namespace {

using Action = ScreenControls::Action;
using Requests = std::vector<UserRequest>;

constexpr int64_t SECOND_NS = 1'000'000'000;

class ScreenControlsTest : public testing::Test {
protected:
    ScreenControlsTest() {
        mControls.setChannels(
            {{{"1.1", "News"}, {"6.1", "ORV TV"}, {"6.2", "ORV Dois"}, {"061", "Kanal"}}, 1});
    }

    void setKind(SourceKind kind, int64_t durationMs = 0) {
        ScreenState state;
        state.kind = kind;
        state.durationMs = durationMs;
        mControls.setState(state);
    }
    // Presses and releases a key that gives no text.
    Requests key(int code, bool isShifted = false, bool isRepeated = false) {
        mControls.onKey(code, isShifted, isRepeated, mNowNs);
        return mControls.takeRequests();
    }
    Requests text(const std::string& utf8) {
        mControls.onText(utf8, mNowNs);
        return mControls.takeRequests();
    }
    Requests after(int64_t ns) {
        mNowNs += ns;
        mControls.look(mNowNs);
        return mControls.takeRequests();
    }

    ScreenControls mControls;
    int64_t mNowNs = 100 * SECOND_NS;
};

TEST_F(ScreenControlsTest, KeysAskForThings) {
    const struct {
        int key;
        Requests once;
        Requests held;
    } cases[] = {
        {SDLK_q, {{Request::QUIT}}, {}},
        {SDLK_ESCAPE, {}, {}},  // leaves full screen alone
        {SDLK_SPACE, {{Request::PAUSE}}, {}},
        {SDLK_p, {{Request::PAUSE}}, {}},
        {SDLK_v, {{Request::NEXT_CAPTIONS}}, {}},
        {SDLK_j, {{Request::NEXT_CAPTIONS}}, {}},
        {SDLK_r, {{Request::RECORD}}, {}},
        {SDLK_s, {{Request::STILL}}, {}},
        {SDLK_m, {{Request::MUTE}}, {}},
        {SDLK_LEFT, {{Request::SEEK, -5'000}}, {{Request::SEEK, -5'000}}},
        {SDLK_RIGHT, {{Request::SEEK, 5'000}}, {{Request::SEEK, 5'000}}},
        {SDLK_PAGEUP, {{Request::NEXT_CHANNEL}}, {}},
        {SDLK_PAGEDOWN, {{Request::PREVIOUS_CHANNEL}}, {}},
        {SDLK_UP, {{Request::NEXT_CHANNEL}}, {}},
        {SDLK_DOWN, {{Request::PREVIOUS_CHANNEL}}, {}},
        {SDLK_BACKSPACE, {{Request::LAST_CHANNEL}}, {}},
        {SDLK_x, {}, {}},
    };
    for (const auto& test : cases) {
        EXPECT_TRUE(key(test.key) == test.once) << test.key;
        EXPECT_TRUE(key(test.key, false, true) == test.held) << test.key;
    }
    for (const SourceKind kind : {SourceKind::RECORDING, SourceKind::MEDIA}) {
        setKind(kind, 90'000);
        EXPECT_TRUE(key(SDLK_UP, false, true) == (Requests{{Request::SEEK, 60'000}}));
        EXPECT_TRUE(key(SDLK_DOWN) == (Requests{{Request::SEEK, -60'000}}));
    }
}

TEST_F(ScreenControlsTest, SignsAskForThingsWhereverTheyLie) {
    const struct {
        const char* text;
        Requests once;
        Requests held;
    } cases[] = {
        {"#", {{Request::NEXT_AUDIO}}, {}},
        {">", {{Request::NEXT_CHANNEL}}, {}},
        {"<", {{Request::PREVIOUS_CHANNEL}}, {}},
        {"9", {{Request::VOLUME, -2}}, {{Request::VOLUME, -2}}},
        {"/", {{Request::VOLUME, -2}}, {{Request::VOLUME, -2}}},
        {"0", {{Request::VOLUME, 2}}, {{Request::VOLUME, 2}}},
        {"*", {{Request::VOLUME, 2}}, {{Request::VOLUME, 2}}},
        {"é", {}, {}},
        {"", {}, {}},
    };
    for (const auto& test : cases) {
        EXPECT_TRUE(text(test.text) == test.once) << test.text;
        EXPECT_TRUE(text(test.text) == test.held) << test.text;
        mControls.onKeyUp();
    }
    EXPECT_TRUE(mControls.isVolumeShown());
    after(2 * SECOND_NS);
    EXPECT_TRUE(mControls.isIdle());
}

TEST_F(ScreenControlsTest, TheWindowDoesSomeItself) {
    key(SDLK_f);
    key(SDLK_d);
    key(SDLK_a);
    key(SDLK_a, true);
    EXPECT_EQ(mControls.takeActions(),
              (std::vector{Action::FULL_SCREEN, Action::DEINTERLACING, Action::ASPECT}));
    // Escape closes what is open, the innermost first, and only then leaves full screen.
    key(SDLK_h);
    EXPECT_TRUE(mControls.isHelpOpen());
    key(SDLK_c);
    EXPECT_TRUE(mControls.isListOpen());
    key(SDLK_ESCAPE);
    EXPECT_TRUE(mControls.isIdle());
    EXPECT_TRUE(mControls.takeActions().empty());
    key(SDLK_ESCAPE);
    EXPECT_EQ(mControls.takeActions(), std::vector{Action::LEAVE_FULL_SCREEN});
}

TEST_F(ScreenControlsTest, ATypedNumberChoosesItsChannelAfterAWhile) {
    EXPECT_TRUE(text("6").empty());
    EXPECT_TRUE(after(SECOND_NS).empty());
    EXPECT_EQ(mControls.number(), "6");
    EXPECT_TRUE(after(SECOND_NS) == (Requests{{Request::CHOOSE_CHANNEL, 1}}));  // 6.1
    EXPECT_TRUE(mControls.isIdle());

    text("6");
    EXPECT_TRUE(text("0").empty());  // no volume once a number has begun
    EXPECT_EQ(mControls.number(), "60");
    key(SDLK_BACKSPACE);
    text("1");
    EXPECT_TRUE(key(SDLK_RETURN) == (Requests{{Request::CHOOSE_CHANNEL, 3}}));  // 061
    text("7");
    EXPECT_TRUE(after(2 * SECOND_NS).empty()) << "there is no such channel";
    text("1");
    text("2");
    text("3");
    EXPECT_TRUE(text("4").empty());
    EXPECT_EQ(mControls.number(), "") << "four digits are a whole number";
    text("1");
    key(SDLK_ESCAPE);
    EXPECT_TRUE(after(2 * SECOND_NS).empty());
}

TEST_F(ScreenControlsTest, TheListTakesKeysTextAndMouse) {
    mControls.setPage(2);
    key(SDLK_c);
    EXPECT_TRUE(text("c").empty());  // of the key that opened it
    EXPECT_EQ(mControls.menu().typed(), "");
    EXPECT_EQ(mControls.menu().chosen(), 1) << "what plays";
    EXPECT_TRUE(key(SDLK_DOWN).empty());
    EXPECT_TRUE(key(SDLK_q).empty()) << "letters are of the filter";
    text("k");
    text("á");
    EXPECT_EQ(mControls.menu().left().size(), 1U);
    EXPECT_TRUE(key(SDLK_RETURN) == (Requests{{Request::CHOOSE_CHANNEL, 3}}));
    EXPECT_FALSE(mControls.isListOpen());

    mControls.onSecondaryClick();
    EXPECT_EQ(mControls.menu().left().size(), 4U) << "the filter begins anew";
    mControls.onListClick(-1, true);
    EXPECT_TRUE(mControls.isListOpen());
    mControls.onWheel(-1, mNowNs);
    EXPECT_EQ(mControls.menu().chosen(), 3);
    mControls.onListClick(0, true);
    EXPECT_TRUE(mControls.takeRequests() == (Requests{{Request::CHOOSE_CHANNEL, 0}}));

    key(SDLK_TAB);
    key(SDLK_z);
    text("zzz");
    EXPECT_EQ(mControls.menu().chosen(), -1);
    EXPECT_TRUE(key(SDLK_RETURN).empty());
    key(SDLK_c);
    mControls.onListClick(-1, false);
    EXPECT_TRUE(mControls.isIdle());
}

TEST_F(ScreenControlsTest, TheBannerGoesByItself) {
    key(SDLK_i);
    after(4 * SECOND_NS);
    EXPECT_TRUE(mControls.isBannerShown());
    after(SECOND_NS);
    EXPECT_FALSE(mControls.isBannerShown());
    mControls.onMotion(mNowNs);
    EXPECT_TRUE(mControls.isIdle()) << "what is live has no bar to show";
    setKind(SourceKind::RECORDING, 60'000);
    mControls.onMotion(mNowNs);
    EXPECT_TRUE(mControls.isBannerShown());
    mControls.onBarClick(30'000, mNowNs);
    EXPECT_TRUE(mControls.takeRequests() == (Requests{{Request::SEEK_TO, 30'000}}));
}

}  // namespace
}  // namespace orvplay
