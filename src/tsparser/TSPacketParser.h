#pragma once

#include <cstdint>

#include "tsparser/TSParsedData.h"

namespace OrvPlayer {

constexpr uint32_t TS_PACKET_BYTES = 188;

// Reads the TS packets of one PID, one at a time, and follows their continuity counter, so that
// its owner knows what to do with each payload:
//
//     packet             result                  what the owner does
//     (before any start) SKIP                    nothing
//     start A            APPEND                  begins A
//     A                  APPEND                  adds to A
//     start B            COMPLETE | APPEND       delivers A, begins B
//     counter jumps      DISCARD                 throws B away, waits for a start
//     jumps on a start   DISCARD | APPEND        throws away, begins with the fields as they stand
//     broken header      17, 65, 129 or 255      throws away, waits for a start
//
// The record's payload points into the packet. On DISCARD | APPEND it still is the payload of the
// packet before; an owner whose packets go away between two calls keeps it with retainPayload().
//
// Reads nothing behind the packet's 188 bytes: a field that would lie there keeps its value.
class TSPacketParser {
public:
    enum Result : unsigned int {
        RESULT_DISCARD = 0x01,   // the PES being collected is broken
        RESULT_APPEND = 0x02,    // the payload belongs to the PES being collected
        RESULT_COMPLETE = 0x04,  // the PES collected so far is complete
        RESULT_SKIP = 0x08,      // no PES is being collected
    };
    // What parseHeader finds wrong; parse adds RESULT_DISCARD. Such a result is none of the above:
    // its other bits mean nothing.
    enum HeaderError : unsigned int {
        HEADER_NULL = 16,
        HEADER_NO_SYNC = 64,
        HEADER_TRANSPORT_ERROR = 128,
        HEADER_ADAPTATION_LENGTH = 255,
    };

    TSPacketParser() = default;
    TSPacketParser(const TSPacketParser&) = delete;  // records point into it
    TSPacketParser& operator=(const TSPacketParser&) = delete;

    static bool isHeaderError(unsigned int result) { return result > 15; }

    // Takes one whole packet. Returns a Result, or a header error with RESULT_DISCARD.
    unsigned int parse(unsigned char* packet, TSParsedData* data);
    // The header and the adaptation field. Returns 0 or a HeaderError.
    unsigned int parseHeader(unsigned char* packet, TSParsedData* data);
    void parseAdaptationField(unsigned char* packet, TSParsedData* data);

    // Forgets the PES being collected: everything up to the next start is skipped.
    void abandonPES() { mInPES = false; }

    // Call before the bytes of the last packet go away: keeps its payload where it may be asked for
    // again, and points the record there.
    void retainPayload(TSParsedData* data);

    void printTSData(TSParsedData* data);

private:
    static constexpr uint32_t MAX_PAYLOAD = 184;
    static constexpr uint32_t MAX_PRIVATE = 255;
    static constexpr uint32_t PRIVATE_COPIES = 64;

    unsigned char* copyPrivateData(const unsigned char* source, uint32_t size);
    void parseExtension(const unsigned char* packet, uint32_t offset, TSParsedData* data);

    uint32_t mLastContinuityCounter = 0;
    bool mInPES = false;
    uint32_t mPrivateCopies = 0;
    uint8_t mRetained[MAX_PAYLOAD] = {};
    // Copies are taken round and round: each stays readable until 63 more were taken, so an owner
    // may keep a record's pointer for a while and the memory stays bounded.
    uint8_t mPrivateData[PRIVATE_COPIES][MAX_PRIVATE] = {};
};

}  // namespace OrvPlayer
