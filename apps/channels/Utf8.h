#pragma once

#include <cstdint>
#include <string>

namespace orvplay {

// Appends one code point; what is none comes as U+FFFD.
inline void appendUtf8(uint32_t character, std::string* text) {
    if (character > 0x10FFFF || (character >= 0xD800 && character <= 0xDFFF)) {
        character = 0xFFFD;
    }
    const auto tail = [&](int shift) {
        text->push_back(static_cast<char>(0x80 | (character >> shift & 0x3F)));
    };
    if (character < 0x80) {
        text->push_back(static_cast<char>(character));
    } else if (character < 0x800) {
        text->push_back(static_cast<char>(0xC0 | character >> 6));
        tail(0);
    } else if (character < 0x10000) {
        text->push_back(static_cast<char>(0xE0 | character >> 12));
        tail(6);
        tail(0);
    } else {
        text->push_back(static_cast<char>(0xF0 | character >> 18));
        tail(12);
        tail(6);
        tail(0);
    }
}

}  // namespace orvplay
