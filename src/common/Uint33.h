#pragma once

#include <cstdint>

namespace OrvPlayer {

// A 33-bit MPEG time stamp in 90 kHz ticks (ISO/IEC 13818-1, 2.4.3.7), held in 64 bits. Values of
// this type are always masked; arithmetic goes through the functions below, which stay on the
// 33-bit circle (it wraps every 26.5 hours).
using Uint33 = uint64_t;

constexpr Uint33 UINT33_MASK = 0x1FFFFFFFF;

// value + ticks modulo 2^33; ticks may be negative.
constexpr Uint33 uint33Sum(Uint33 value, int64_t ticks) {
    return (value + static_cast<uint64_t>(ticks)) & UINT33_MASK;
}

// a - b as the shorter way round the circle: bit 32 of the difference is its sign.
constexpr int64_t uint33Difference(Uint33 a, Uint33 b) {
    const uint64_t difference = (a - b) & UINT33_MASK;
    return (difference & 0x100000000) != 0 ? static_cast<int64_t>(difference) - 0x200000000
                                           : static_cast<int64_t>(difference);
}

}  // namespace OrvPlayer
