#pragma once

#include <string>
#include <vector>

#include "channels/Channel.h"

namespace orvplay {

// Play lists of channels as players exchange them:
//
//   #EXTINF:-1 tvg-chno="6.1" group-title="1seg",ORV HD
//   #EXTVLCOPT:program=51200
//   udp://239.1.1.1:5000

// The channels of a list. Lines that are not understood are passed over, and so is what is too
// long. A name that is no UTF-8 is taken as ISO/IEC 8859-1.
std::vector<Channel> parseM3u(const std::string& text);

std::string toM3u(const std::vector<Channel>& channels);

}  // namespace orvplay
