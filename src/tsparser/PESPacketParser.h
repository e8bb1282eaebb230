#pragma once

#include "tsparser/PESParsedData.h"

namespace OrvPlayer {

// Reads the header of one whole PES packet and finds its payload (ISO/IEC 13818-1, 2.4.3.6).
//
// The payload runs to the end of what was collected: PES_packet_length is not looked at, because
// broadcasts get it wrong. Reads nothing behind the given size; a packet that ends inside its own
// header fails, an optional field that lies behind the end keeps its value.
class PESPacketParser {
public:
    // Takes the packet from its start code on. Returns 1, or 0 when it is unusable; the record's
    // payload then means nothing.
    unsigned int parse(unsigned char* packet, unsigned int size, PESParsedData* data);
    // The payload, or null. A packet whose optional header does not begin with binary 10 has its
    // payload at byte 6.
    unsigned char* parseHeader(unsigned char* packet, int size, PESParsedData* data);
    // The payload, or null when the first two bits are not binary 10. Needs 9 bytes.
    unsigned char* parseOptHeader(unsigned char* packet, int size, PESParsedData* data);

    void printPESData(PESParsedData* data);
};

}  // namespace OrvPlayer
