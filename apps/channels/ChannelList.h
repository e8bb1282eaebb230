#pragma once

#include <string>
#include <vector>

#include "channels/Channel.h"

namespace orvplay {

// By number, name, or number of the service, in this order; a number's first part stands for the
// first of its channels, and the beginning of a name for the only channel it may mean. Among equals
// the full-segment one. Null when there is none.
const Channel* findChannel(const std::vector<Channel>& channels, const std::string& nameOrNumber);

// The user's channels, kept in two files that other programs read as they are:
//
//   channels.conf  what a DVB adapter receives, in the format of dvbv5-scan and dvbv5-zap
//   channels.m3u   what comes from elsewhere, a play list
//
// Several programs may change them at once: each change reads, merges and replaces the files while
// it holds a lock.
class ChannelList {
public:
    // Without a folder it is $XDG_CONFIG_HOME/orvplayer.
    explicit ChannelList(std::string folder = {});

    const std::string& folder() const { return mFolder; }

    // Files that are not there are empty. False, with one line that says why, when one of them
    // cannot be understood; nothing changes then.
    bool load(std::string* error);

    // See findChannel(). The list owns it.
    const Channel* find(const std::string& nameOrNumber) const {
        return findChannel(mChannels, nameOrNumber);
    }

    // Those whose name holds each word, or whose number begins so.
    std::vector<Channel> search(const std::string& text) const;

    // What was there is renewed, at its place in the list; everything else stays. False, with one
    // line, when that cannot be written, or the files cannot be understood: they are left alone.
    bool add(const std::vector<Channel>& channels, size_t* added, std::string* error);

    const std::vector<Channel>& channels() const { return mChannels; }

private:
    bool save(std::string* error) const;
    std::string dvbPath() const { return mFolder + "/channels.conf"; }
    std::string m3uPath() const { return mFolder + "/channels.m3u"; }

    const std::string mFolder;
    std::vector<Channel> mChannels;
};

// A whole file, at most 16 MiB of it. False, with errno set, when it cannot be read.
bool readWhole(const std::string& path, std::string* text);

}  // namespace orvplay
