#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orvhost {

// Where terrestrial television of a country is looked for.
struct PlannedChannel {
    int number = 0;  // of the channel, as transmitters are listed
    uint32_t frequencyHz = 0;
};

constexpr uint32_t CHANNEL_BANDWIDTH_HZ = 6'000'000;

// The channels of "br" (Brazil: 7 to 13 and 14 to 51) or "jp" (Japan: 13 to 62), nothing for
// another region. A carrier of ISDB-T lies 1/7 MHz above the middle of its channel of 6 MHz (ABNT
// NBR 15601, ARIB STD-B31).
std::optional<std::vector<PlannedChannel>> channelPlan(const std::string& region);

}  // namespace orvhost
