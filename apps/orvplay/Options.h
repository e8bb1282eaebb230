#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace orvplay {

struct PlayOptions {
    std::string source;
    std::string service;  // name or number; empty: the first one
    std::optional<uint16_t> videoPid;
    std::optional<uint16_t> audioPid;
    std::optional<uint16_t> pcrPid;
    bool headless = false;
    bool json = false;
    bool audio = true;
    double durationS = 0.0;  // from the first picture; 0: to the end
    std::string snapshot;    // PNG of the last picture shown; empty: none
};

struct ProbeOptions {
    std::string source;
    bool json = false;
    double durationS = 5.0;  // of a paced source
};

}  // namespace orvplay
