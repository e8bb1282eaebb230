#pragma once

#include <cstddef>
#include <cstdint>

namespace orvhost {

// Views of one 188-byte transport stream packet, ISO/IEC 13818-1 2.4.3.

constexpr size_t TS_PACKET_BYTES = 188;
constexpr uint8_t TS_SYNC_BYTE = 0x47;
constexpr size_t PID_COUNT = 8192;
constexpr int64_t PCR_WRAP = (int64_t{1} << 33) * 300;  // in 27 MHz ticks
constexpr int64_t PCR_HZ = 27'000'000;

inline uint16_t pidOf(const uint8_t* p) {
    return static_cast<uint16_t>((p[1] & 0x1F) << 8 | p[2]);
}
inline bool hasTransportError(const uint8_t* p) {
    return (p[1] & 0x80) != 0;
}
// payload_unit_start_indicator.
inline bool startsUnit(const uint8_t* p) {
    return (p[1] & 0x40) != 0;
}
inline bool hasPayload(const uint8_t* p) {
    return (p[3] & 0x10) != 0;
}
inline bool isScrambled(const uint8_t* p) {
    return (p[3] & 0xC0) != 0;
}
inline uint8_t continuityCounterOf(const uint8_t* p) {
    return p[3] & 0x0F;
}
// An adaptation field of at least its flags byte that ends inside the packet.
inline bool hasAdaptationFlags(const uint8_t* p) {
    return (p[3] & 0x20) != 0 && p[4] > 0 && p[4] <= 183;
}
inline bool hasDiscontinuityIndicator(const uint8_t* p) {
    return hasAdaptationFlags(p) && (p[5] & 0x80) != 0;
}
inline bool hasPcr(const uint8_t* p) {
    return hasAdaptationFlags(p) && p[4] >= 7 && (p[5] & 0x10) != 0 && !hasTransportError(p);
}
// In 27 MHz ticks, 0 to PCR_WRAP - 1 for a valid extension. Only after hasPcr().
inline int64_t pcrOf(const uint8_t* p) {
    const int64_t base = int64_t{p[6]} << 25 | int64_t{p[7]} << 17 | int64_t{p[8]} << 9 |
                         int64_t{p[9]} << 1 | int64_t{p[10]} >> 7;
    return base * 300 + (((p[10] & 1) << 8 | p[11]) % 300);
}
// How far `to` is behind `from`, over the wrap of 33 bits: 0 to PCR_WRAP - 1.
inline int64_t pcrDistance(int64_t from, int64_t to) {
    const int64_t distance = to - from;
    return distance < 0 ? distance + PCR_WRAP : distance;
}
inline int64_t pcrToNs(int64_t ticks) {
    return ticks * 1000 / 27;
}

}  // namespace orvhost
