#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Still.h"

namespace orvplay {

// What a still shows, for those who find its file later.
struct StillLabels {
    std::string service;  // UTF-8
    uint16_t serviceId = 0;
};

// A still as the bytes of a PNG file (ISO/IEC 15948): red, green and blue, 8 bits each, as the
// player made them. Text chunks tell where it comes from:
//
//   Title           name of the service
//   Service ID      its number
//   Creation Time   ISO 8601 with milliseconds and the distance to UTC
//   Stream PTS      of the picture, in 90 kHz ticks
//   Software        OrvPlayer
//
// Pixels that are not square stay as they are; chunk pHYs tells their shape. Empty, and why in
// `error`, when there is no memory for it.
std::vector<uint8_t> encodePng(const Still& still, const StillLabels& labels, std::string* error);

// "2026-11-21T14:30:15.042-03:00", local time.
std::string isoTime(std::chrono::system_clock::time_point time);

}  // namespace orvplay
