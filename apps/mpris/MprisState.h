#pragma once

#include <cstdint>
#include <string>

namespace orvplay {

// What plays, as desktops are told of it.
struct MprisState {
    bool isPaused = false;
    std::string title;    // UTF-8, like all of it
    std::string channel;  // empty: none
    std::string url;
    int64_t lengthUs = 0;    // 0: live, or unknown
    int64_t positionUs = 0;  // 0 of what is live
    uint32_t seeks = 0;      // counts what made the position another one
    bool canSeek = false;
    bool canZap = false;
    double volume = 1.0;
};

}  // namespace orvplay
