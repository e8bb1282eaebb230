#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ChannelMenu.h"
#include "KeyTable.h"
#include "ScreenRow.h"
#include "WatchScreen.h"

namespace orvplay {

// The screen of a terminal without the terminal: what it was told, what the user has open, and the
// rows that come of it. All times are monotonic. One thread.
class TerminalScreen {
public:
    // Whether the terminal can show block signs.
    void setHasBlocks(bool hasBlocks) { mView.hasBlocks = hasBlocks; }
    void showState(const ScreenState& state) { mView.state = state; }
    void showChannels(const ChannelRows& channels) { mMenu.setChannels(channels); }
    // UTF-8 rows; they go after ten seconds, or with an empty caption.
    void showCaption(const std::string& utf8, int64_t nowNs);
    // In place of the one before, for so long. Empty: none.
    void showMessage(const std::string& utf8, int64_t nowNs, int64_t lastsNs);

    // What a key wants of the player; the rest is seen in the next rows().
    std::vector<UserRequest> onKey(const Key& key);

    // Exactly as many as the screen has, none wider than it.
    std::vector<ScreenRow> rows(int columns, int rows, int64_t nowNs);

private:
    enum class Mode { WATCH, CHANNELS, HELP };

    std::vector<UserRequest> onChannelKey(const Key& key);
    void onHelpKey(const Key& key);
    void expire(int64_t nowNs);
    std::vector<ScreenRow> channelRows(int columns, int rows) const;
    ScreenRow channelRow(int place, int columns) const;
    std::vector<ScreenRow> helpRows(int columns, int rows);

    Mode mMode = Mode::WATCH;
    WatchView mView;
    int64_t mCaptionEndNs = 0;
    int64_t mMessageEndNs = 0;
    ChannelMenu mMenu;
    int mListRows = 1;   // that the list had when it was seen last: a page
    int mHelpFirst = 0;  // row of the help at the top
};

}  // namespace orvplay
