#pragma once

#include <string>
#include <vector>

#include "ScreenState.h"

namespace orvplay {

// The list of channels as the user moves in it: what was typed, which channels that leaves, and
// which of them is chosen. How it looks is the display's business.
//
// A channel is left when the start of its number, or its name or the title of what is on air there
// has what was typed, as searchText() compares. With any left, exactly one of them is chosen.
class ChannelMenu {
public:
    // The same channel stays chosen where it is among the new ones.
    void setChannels(ChannelRows channels);
    const ChannelRows& channels() const { return mChannels; }

    // Nothing typed, and what plays chosen.
    void open();
    void type(const std::string& utf8Character);
    // The character typed last. False when there is none.
    bool erase();
    const std::string& typed() const { return mTyped; }

    // By so many places; the ends hold.
    void move(int by);

    // Rows of channels() that are left, in order.
    const std::vector<int>& left() const { return mLeft; }
    // Which of them is chosen, by its place in left(); meaningless when that is empty.
    int place() const { return mPlace; }
    // Row of channels(); -1 when none is left.
    int chosen() const;
    // Where in left() a view of so many rows begins that shows the chosen one in its middle, as
    // far as the ends let it.
    int firstSeen(int rows) const;

private:
    void filter(int wanted);

    ChannelRows mChannels;
    std::string mTyped;
    std::vector<int> mLeft;
    int mPlace = 0;
};

}  // namespace orvplay
