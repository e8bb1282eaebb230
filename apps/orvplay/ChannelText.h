#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "channels/Channel.h"

namespace orvplay {

// Channels as the program prints them.

// A line each: number, name, kind, where it is received.
std::string tableOf(const std::vector<Channel>& channels);
nlohmann::ordered_json toJson(const Channel& channel);

}  // namespace orvplay
