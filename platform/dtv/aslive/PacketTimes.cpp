#include "dtv/aslive/PacketTimes.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace orvhost {

namespace {

constexpr size_t PCR_BYTES = 6;
constexpr size_t STAMP_BYTES = 5;
constexpr uint8_t PCR_FLAG = 0x10;
constexpr uint8_t OPCR_FLAG = 0x08;

int64_t wrapped(int64_t value, int64_t wrap) {
    const int64_t rest = value % wrap;
    return rest < 0 ? rest + wrap : rest;
}

void shiftReference(uint8_t* bytes, int64_t ticks) {
    const int64_t base = int64_t{bytes[0]} << 25 | int64_t{bytes[1]} << 17 |
                         int64_t{bytes[2]} << 9 | int64_t{bytes[3]} << 1 | bytes[4] >> 7;
    const int64_t old = base * TICKS_PER_STAMP + ((bytes[4] & 1) << 8 | bytes[5]) % TICKS_PER_STAMP;
    const int64_t value = wrapped(old + ticks, PCR_WRAP);
    const int64_t newBase = value / TICKS_PER_STAMP;
    const int64_t extension = value % TICKS_PER_STAMP;
    bytes[0] = static_cast<uint8_t>(newBase >> 25);
    bytes[1] = static_cast<uint8_t>(newBase >> 17);
    bytes[2] = static_cast<uint8_t>(newBase >> 9);
    bytes[3] = static_cast<uint8_t>(newBase >> 1);
    bytes[4] = static_cast<uint8_t>((newBase & 1) << 7 | (bytes[4] & 0x7E) | extension >> 8);
    bytes[5] = static_cast<uint8_t>(extension);
}

// The marker bits stay.
void shiftStamp(uint8_t* bytes, int64_t ticks90k) {
    const int64_t value = wrapped(stampAt(bytes) + ticks90k, STAMP_WRAP);
    bytes[0] = static_cast<uint8_t>((bytes[0] & 0xF1) | (value >> 29 & 0x0E));
    bytes[1] = static_cast<uint8_t>(value >> 22);
    bytes[2] = static_cast<uint8_t>((bytes[2] & 0x01) | (value >> 14 & 0xFE));
    bytes[3] = static_cast<uint8_t>(value >> 7);
    bytes[4] = static_cast<uint8_t>((bytes[4] & 0x01) | (value << 1 & 0xFE));
}

// ISO/IEC 13818-1 2.4.3.6: those without flags and time stamps.
bool hasNoHeader(uint8_t streamId) {
    constexpr uint8_t PLAIN[] = {0xBC, 0xBE, 0xBF, 0xF0, 0xF1, 0xF2, 0xF8, 0xFF};
    return std::find(std::begin(PLAIN), std::end(PLAIN), streamId) != std::end(PLAIN);
}

}  // namespace

size_t payloadOffsetOf(const uint8_t* packet) {
    if (!hasPayload(packet)) {
        return TS_PACKET_BYTES;
    }
    const size_t begin = (packet[3] & 0x20) != 0 ? 5u + packet[4] : 4u;
    return std::min(begin, TS_PACKET_BYTES);
}

size_t stampOffsetOf(const uint8_t* packet, uint8_t* streamId) {
    constexpr size_t FLAGS = 7;  // behind the start of the PES packet
    constexpr size_t FIRST_STAMP = 9;
    const size_t begin = payloadOffsetOf(packet);
    if (!startsUnit(packet) || isScrambled(packet) || hasTransportError(packet) ||
        begin + FIRST_STAMP + STAMP_BYTES > TS_PACKET_BYTES) {
        return 0;
    }
    const uint8_t* const pes = packet + begin;
    if (pes[0] != 0 || pes[1] != 0 || pes[2] != 1 || hasNoHeader(pes[3]) ||
        (pes[6] & 0xC0) != 0x80 || (pes[FLAGS] & 0x80) == 0) {
        return 0;
    }
    *streamId = pes[3];
    return begin + FIRST_STAMP;
}

int64_t stampAt(const uint8_t* bytes) {
    return int64_t{bytes[0] & 0x0E} << 29 | int64_t{bytes[1]} << 22 |
           int64_t{bytes[2] & 0xFE} << 14 | int64_t{bytes[3]} << 7 | bytes[4] >> 1;
}

void shiftPcr(uint8_t* packet, int64_t ticks27M) {
    if (!hasAdaptationFlags(packet) || hasTransportError(packet)) {
        return;
    }
    const size_t end = 5u + packet[4];
    size_t at = 6;
    for (const uint8_t flag : {PCR_FLAG, OPCR_FLAG}) {
        if ((packet[5] & flag) != 0 && at + PCR_BYTES <= end) {
            shiftReference(packet + at, ticks27M);
            at += PCR_BYTES;
        }
    }
}

void shiftStamps(uint8_t* packet, int64_t ticks27M) {
    uint8_t streamId = 0;
    const size_t first = stampOffsetOf(packet, &streamId);
    if (first == 0) {
        return;
    }
    const bool hasDts = (packet[first - 2] & 0x40) != 0;
    shiftStamp(packet + first, ticks27M / TICKS_PER_STAMP);
    if (hasDts && first + 2 * STAMP_BYTES <= TS_PACKET_BYTES) {
        shiftStamp(packet + first + STAMP_BYTES, ticks27M / TICKS_PER_STAMP);
    }
}

void removePcr(uint8_t* packet) {
    if (!hasPcr(packet)) {
        return;
    }
    // What follows the PCR moves up, stuffing takes its place at the end.
    const size_t end = 5u + packet[4];
    constexpr size_t PCR_AT = 6;
    std::memmove(packet + PCR_AT, packet + PCR_AT + PCR_BYTES, end - PCR_AT - PCR_BYTES);
    std::memset(packet + end - PCR_BYTES, 0xFF, PCR_BYTES);
    packet[5] &= static_cast<uint8_t>(~PCR_FLAG);
}

void removePayload(uint8_t* packet) {
    const size_t begin = payloadOffsetOf(packet);
    if ((packet[3] & 0x20) == 0) {
        packet[5] = 0;  // no flags
        std::memset(packet + 6, 0xFF, TS_PACKET_BYTES - 6);
    } else {
        if (packet[4] == 0) {
            packet[5] = 0;
        }
        const size_t from = std::max<size_t>(begin, 6);
        std::memset(packet + from, 0xFF, TS_PACKET_BYTES - from);
    }
    packet[1] &= 0xBF;
    packet[3] = static_cast<uint8_t>((packet[3] & 0x0F) | 0x20);
    packet[4] = TS_PACKET_BYTES - 5;
}

}  // namespace orvhost
