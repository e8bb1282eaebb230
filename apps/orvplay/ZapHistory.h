#pragma once

#include <string>
#include <vector>

#include "ZapTimes.h"
#include "channels/Channel.h"

namespace orvplay {

// The channel changes of this user, kept from run to run (see StateFiles): "zaps.jsonl", one object
// a line, the latest last.
constexpr size_t MOST_ZAPS_KEPT = 1000;

// False, and one line in *error, when it cannot be kept.
bool keepZap(const ZapRecord& record, std::string* error);
// The last so many; lines that cannot be understood are left out.
std::vector<ZapRecord> lastZaps(size_t count);

// The channel that played last, "channel.json": its source and its service.
bool keepChannel(const Channel& channel, std::string* error);
// False when there is none.
bool lastChannel(Channel* channel);

}  // namespace orvplay
