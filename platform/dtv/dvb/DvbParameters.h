#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvhost {

// What an adapter is tuned to. As a source:
//
//   dvb://0?frequency=473142857               adapter 0, its frontend 0, 6 MHz
//   dvb://1.2?frequency=473142857&bandwidth=8000000
//
// Everything else ISDB-T tells in its own transmission parameters.
struct DvbParameters {
    int adapter = 0;
    int frontend = 0;
    uint32_t frequencyHz = 0;
    uint32_t bandwidthHz = 6'000'000;

    // From the parts of a URI. Nothing, and one line that says what to do, when they make no sense.
    static std::optional<DvbParameters> parse(
        const std::string& target,
        const std::vector<std::pair<std::string, std::string>>& parameters, std::string* error);

    std::string uri() const;
    // For people: "473.143 MHz on adapter 0".
    std::string shown() const;

    bool operator==(const DvbParameters&) const = default;
};

}  // namespace orvhost
