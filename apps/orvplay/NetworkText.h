#pragma once

#include <dtv/TunerTypes.h>

#include <nlohmann/json.hpp>
#include <string>

namespace orvplay {

// What came over a network, as the summaries of the commands tell it.
nlohmann::ordered_json networkJson(const orvhost::NetworkStatistics& network);
// A line for people; empty for a source that is not on a network.
std::string networkText(const orvhost::NetworkStatistics& network);

}  // namespace orvplay
