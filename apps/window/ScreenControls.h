#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ChannelMenu.h"
#include "ScreenState.h"
#include "UserRequest.h"

namespace orvplay {

// What the keys and the mouse mean, and what is open on the screen because of them. Knows nothing
// of windows and drawing: times, always monotonic, and places in the list come from the caller.
// Keys are SDL's key codes; signs that lie on other keys in each country come as text.
class ScreenControls {
public:
    // What the window does itself.
    enum class Action { FULL_SCREEN, LEAVE_FULL_SCREEN, ASPECT, DEINTERLACING };

    void setState(const ScreenState& state) { mState = state; }
    void setChannels(const ChannelRows& channels) { mMenu.setChannels(channels); }
    void showBanner(int64_t nowNs);

    void onKey(int key, bool isShifted, bool isRepeated, int64_t nowNs);
    void onKeyUp() { mHeldText.clear(); }
    void onText(const std::string& utf8, int64_t nowNs);
    void onWheel(int up, int64_t nowNs);
    // A click on that row of the channels, -1 beside them; `isInside` the list.
    void onListClick(int row, bool isInside);
    void onSecondaryClick() { toggleList(); }
    // A click on the bar of a recording.
    void onBarClick(int64_t positionMs, int64_t nowNs);
    // The mouse moved over the picture: of what has a bar, that is shown.
    void onMotion(int64_t nowNs);

    // Drops what has been there long enough, and chooses the channel whose number was typed.
    void look(int64_t nowNs);

    std::vector<UserRequest> takeRequests();
    std::vector<Action> takeActions();

    const ScreenState& state() const { return mState; }
    const ChannelMenu& menu() const { return mMenu; }
    // How many channels are seen at once.
    void setPage(int rows) { mPage = rows; }
    bool isListOpen() const { return mListOpen; }
    bool isHelpOpen() const { return mHelpOpen; }
    bool isBannerShown() const { return mBannerEndNs != 0; }
    bool isVolumeShown() const { return mVolumeEndNs != 0; }
    // The channel number that is being typed; empty: none.
    const std::string& number() const { return mNumber; }
    // The channel that it stands for: the one with that number, or the first whose number's first
    // part it is; null: none.
    const ChannelRow* numbered() const;
    // Nothing lies over the picture because of what is kept here.
    bool isIdle() const {
        return !mListOpen && !mHelpOpen && !isBannerShown() && !isVolumeShown() && mNumber.empty();
    }

private:
    void onListKey(int key);
    void onOtherKey(int key, bool isShifted, int64_t nowNs);
    void onDigit(char digit, int64_t nowNs);
    void onSign(const std::string& sign, int64_t nowNs);
    void escape();
    void toggleList();
    void choose(int row);
    void chooseNumber();
    void changeVolume(int by, int64_t nowNs);

    ScreenState mState;
    ChannelMenu mMenu;
    int mPage = 1;
    bool mListOpen = false;
    bool mHelpOpen = false;
    bool mTextIsOfKey = false;  // the text that comes next belongs to a key that was handled
    std::string mHeldText;      // a key that repeats asks once
    std::string mNumber;
    int64_t mNumberEndNs = 0;
    int64_t mBannerEndNs = 0;  // 0: not shown; likewise:
    int64_t mVolumeEndNs = 0;
    std::vector<UserRequest> mRequests;
    std::vector<Action> mActions;
};

}  // namespace orvplay
