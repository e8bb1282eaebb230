#pragma once

#include <cstdint>

#include "dtv/TsPacket.h"

namespace orvhost {

// The times that a packet carries (ISO/IEC 13818-1 2.4.3.4 and 2.4.3.6), read and changed in place.
// Nothing outside its 188 bytes is touched, whatever it says of itself.

constexpr int64_t STAMP_WRAP = int64_t{1} << 33;  // of PTS and DTS, in 90 kHz ticks
constexpr int64_t TICKS_PER_STAMP = 300;          // of 27 MHz

// Where the payload begins, TS_PACKET_BYTES where there is none.
size_t payloadOffsetOf(const uint8_t* packet);

// A PES packet that begins here with time stamps: where the first of them stands; 0 for all other
// packets, and for scrambled ones. `streamId` is that of the PES packet.
size_t stampOffsetOf(const uint8_t* packet, uint8_t* streamId);

// The time stamp of five bytes that stands there.
int64_t stampAt(const uint8_t* bytes);

// The PCR and the original PCR are so much later, in ticks of 27 MHz of either sign, modulo their
// wrap.
void shiftPcr(uint8_t* packet, int64_t ticks27M);
// PTS and DTS are.
void shiftStamps(uint8_t* packet, int64_t ticks27M);

// Takes the PCR out; the rest of the packet stays.
void removePcr(uint8_t* packet);

// Takes the payload out; what the adaptation field says stays.
void removePayload(uint8_t* packet);

}  // namespace orvhost
