#include "ChannelLineup.h"

#include <algorithm>

#include "ChannelSource.h"
#include "channels/ChannelList.h"
#include "channels/ScannedChannels.h"

namespace orvplay {

int ChannelLineup::next(int by, int from) const {
    std::vector<int> rows;
    int at = NONE;  // the place of `from` among them, or of the last before it
    for (int row = 0; row < static_cast<int>(mChannels.size()); ++row) {
        const bool isOffered = !isPassedOver(mChannels[static_cast<size_t>(row)]);
        if (isOffered) {
            rows.push_back(row);
        }
        if (row <= from) {
            at = static_cast<int>(rows.size()) - 1;
        }
    }
    const int count = static_cast<int>(rows.size());
    if (count == 0 || (count == 1 && rows.front() == from)) {
        return NONE;
    }
    // From a row that is passed over, one back is the offered row before it.
    const bool isBetween = at == NONE || rows[static_cast<size_t>(at)] != from;
    const int steps = isBetween && by < 0 ? by + 1 : by;
    return rows[static_cast<size_t>(((at + steps) % count + count) % count)];
}

bool ChannelLineup::isPassedOver(const Channel& channel) const {
    const std::string source = sourceOf(channel);
    return source.empty() ||
           (mIsUsersList && channel.oneSegment &&
            std::any_of(mChannels.begin(), mChannels.end(), [&source](const Channel& other) {
                return !other.oneSegment && sourceOf(other) == source;
            }));
}

int ChannelLineup::find(const std::string& text) const {
    const Channel* const found = findChannel(mChannels, text);
    return found != nullptr ? static_cast<int>(found - mChannels.data()) : NONE;
}

int ChannelLineup::rowOf(const std::string& source, uint16_t serviceId) const {
    const std::string place = placeOf(source);
    const int adapter = adapterOf(source);
    const auto found =
        std::find_if(mChannels.begin(), mChannels.end(), [&](const Channel& channel) {
            return (channel.serviceId == serviceId || channel.serviceId == 0) &&
                   placeOf(sourceOf(channel, adapter)) == place;
        });
    return found != mChannels.end() ? static_cast<int>(found - mChannels.begin()) : NONE;
}

void ChannelLineup::setCurrent(int row) {
    if (row != NONE && row != mCurrent) {
        mLast = mCurrent;
        mCurrent = row;
    }
}

ChannelLineup lineupAround(const std::string& source, uint16_t serviceId,
                           const std::vector<Channel>& channels,
                           const std::vector<orvhost::Service>& services,
                           const orvhost::BroadcastInformation& information) {
    ChannelLineup lineup(channels);
    int row = lineup.rowOf(source, serviceId);
    if (row == ChannelLineup::NONE) {
        std::vector<Channel> here = scannedChannels(services, information);
        for (Channel& channel : here) {
            channel.source = source;
            channel.dvb = {};
        }
        lineup = ChannelLineup(std::move(here), false);
        row = lineup.rowOf(source, serviceId);
    }
    lineup.setCurrent(row);
    return lineup;
}

}  // namespace orvplay
