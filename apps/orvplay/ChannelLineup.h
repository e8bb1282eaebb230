#pragma once

#include <dtv/BroadcastTypes.h>
#include <dtv/TunerTypes.h>

#include <cstdint>
#include <string>
#include <vector>

#include "channels/Channel.h"

namespace orvplay {

// What can be zapped to while something plays, in order, and which of it plays: rows of channels,
// counted from 0. One thread.
//
// In the user's list next() passes over the small size of a broadcast: a one-segment service is
// left out where the list has a full-segment one of the same multiplex. find() and the row itself
// reach all.
class ChannelLineup {
public:
    static constexpr int NONE = -1;  // no row

    ChannelLineup() = default;
    explicit ChannelLineup(std::vector<Channel> channels, bool isUsersList = true)
        : mChannels(std::move(channels)), mIsUsersList(isUsersList) {}

    const std::vector<Channel>& entries() const { return mChannels; }
    // They are the user's channels, not the services of one source.
    bool isUsersList() const { return mIsUsersList; }

    // What plays; NONE where the lineup has no row for it.
    int current() const { return mCurrent; }
    // The row so many after another one (negative: before it), round the ends; after NONE comes the
    // first. NONE when there is nothing to go to.
    int next(int by, int from) const;
    int next(int by) const { return next(by, mCurrent); }
    // What played before that; NONE without.
    int last() const { return mLast; }
    // By name or number, see findChannel().
    int find(const std::string& text) const;
    // Of a service of a source; a channel without a service stands for each.
    int rowOf(const std::string& source, uint16_t serviceId) const;

    // That row plays, what played until then is the last one. Nothing changes for NONE.
    void setCurrent(int row);

private:
    bool isPassedOver(const Channel& channel) const;

    std::vector<Channel> mChannels;
    bool mIsUsersList = false;
    int mCurrent = NONE;
    int mLast = NONE;
};

// The lineup while a service of a source plays: the user's channels where that is one of them, else
// the services of the source with picture or sound.
ChannelLineup lineupAround(const std::string& source, uint16_t serviceId,
                           const std::vector<Channel>& channels,
                           const std::vector<orvhost::Service>& services,
                           const orvhost::BroadcastInformation& information);

}  // namespace orvplay
