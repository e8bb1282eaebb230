// How to look into the header of a transport stream packet (ISO/IEC 13818-1 2.4.3.2), sound or not:
// nothing is looked at outside its 188 bytes.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace orvtest {

constexpr size_t PACKET_BYTES = 188;
constexpr uint8_t SYNC_BYTE = 0x47;
constexpr uint8_t TRANSPORT_ERROR = 0x80;  // in byte 1
constexpr uint8_t UNIT_START = 0x40;       // in byte 1
constexpr uint8_t HAS_FIELD = 0x20;        // in byte 3
constexpr uint8_t HAS_PAYLOAD = 0x10;      // in byte 3

inline uint16_t pidOf(const uint8_t* packet) {
    return static_cast<uint16_t>((packet[1] & 0x1F) << 8 | packet[2]);
}

// Where the payload begins, PACKET_BYTES when there is none.
inline size_t payloadOf(const uint8_t* packet) {
    if ((packet[3] & HAS_PAYLOAD) == 0) {
        return PACKET_BYTES;
    }
    const size_t start = (packet[3] & HAS_FIELD) != 0 ? 5U + packet[4] : 4U;
    return std::min(start, PACKET_BYTES);
}

inline bool startsUnit(const uint8_t* packet) {
    return (packet[1] & UNIT_START) != 0;
}

inline bool hasPcr(const uint8_t* packet) {
    return (packet[3] & HAS_FIELD) != 0 && packet[4] >= 7 && (packet[5] & 0x10) != 0;
}

}  // namespace orvtest
