#include "dtv/dvb/DvbParameters.h"

#include <charconv>
#include <cstdio>
#include <string_view>

namespace orvhost {

namespace {

constexpr uint32_t LOWEST_HZ = 40'000'000;
constexpr uint32_t HIGHEST_HZ = 1'000'000'000;
constexpr uint32_t NARROWEST_HZ = 5'000'000;
constexpr uint32_t WIDEST_HZ = 8'000'000;
constexpr uint32_t MOST_ADAPTERS = 64;

std::optional<uint32_t> numberIn(std::string_view text, uint32_t low, uint32_t high) {
    uint32_t value = 0;
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, value);
    return parsed.ec == std::errc() && parsed.ptr == end && value >= low && value <= high
               ? std::optional(value)
               : std::nullopt;
}

// "", "1" or "1.0".
bool readAdapter(std::string_view text, DvbParameters* parameters) {
    const size_t dot = text.find('.');
    const auto adapter = numberIn(text.substr(0, dot), 0, MOST_ADAPTERS - 1);
    const auto frontend = dot == std::string_view::npos
                              ? std::optional<uint32_t>(0)
                              : numberIn(text.substr(dot + 1), 0, MOST_ADAPTERS - 1);
    if (!text.empty() && (!adapter || !frontend)) {
        return false;
    }
    parameters->adapter = static_cast<int>(text.empty() ? 0 : *adapter);
    parameters->frontend = static_cast<int>(text.empty() ? 0 : *frontend);
    return true;
}

}  // namespace

std::optional<DvbParameters> DvbParameters::parse(
    const std::string& target, const std::vector<std::pair<std::string, std::string>>& parameters,
    std::string* error) {
    DvbParameters result;
    if (!readAdapter(target, &result)) {
        *error = "an adapter has a number, as in dvb://0?frequency=473142857";
        return std::nullopt;
    }
    for (const auto& [name, value] : parameters) {
        const bool isFrequency = name == "frequency";
        if (!isFrequency && name != "bandwidth") {
            *error = "a DVB source has frequency and bandwidth, in Hz, and no other parameter";
            return std::nullopt;
        }
        const auto number = isFrequency ? numberIn(value, LOWEST_HZ, HIGHEST_HZ)
                                        : numberIn(value, NARROWEST_HZ, WIDEST_HZ);
        if (!number) {
            *error = isFrequency ? "the frequency is not one of television (40 to 1000 MHz, in Hz)"
                                 : "the bandwidth is not one of ISDB-T (6000000, 7000000, 8000000)";
            return std::nullopt;
        }
        (isFrequency ? result.frequencyHz : result.bandwidthHz) = *number;
    }
    if (result.frequencyHz == 0) {
        *error = "a DVB source needs a frequency, as in dvb://0?frequency=473142857";
        return std::nullopt;
    }
    return result;
}

std::string DvbParameters::uri() const {
    char text[96];
    snprintf(text, sizeof text, "dvb://%d.%d?frequency=%u&bandwidth=%u", adapter, frontend,
             frequencyHz, bandwidthHz);
    return text;
}

std::string DvbParameters::shown() const {
    char text[64];
    snprintf(text, sizeof text, "%.3f MHz on adapter %d", frequencyHz / 1e6, adapter);
    return text;
}

}  // namespace orvhost
