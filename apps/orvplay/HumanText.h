#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace orvplay {

// Figures and names as people read them.

std::string sizeText(int64_t bytes);             // "12.3 MB", thousands
std::string timeText(int64_t ms);                // "0:07", "12:34", "1:02:03"
std::string dateText(int64_t secondsSince1970);  // "2026-11-21 14:30", local time; "-" for 0

// What a stream or another program named, on a terminal: a control character, which might command
// it, becomes a blank.
std::string printable(const std::string& utf8);

// Filled up with blanks on the right, or cut with "~", to so many characters.
std::string column(const std::string& utf8, size_t characters);

}  // namespace orvplay
