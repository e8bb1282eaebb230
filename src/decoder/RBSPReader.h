#pragma once

#include <cstdint>
#include <memory>

#include "decoder/BitInterface.h"

namespace OrvPlayer {

// Reads the fields of a raw byte sequence payload (ITU-T H.264, 7.2 and 9.1).
//
// A field that cannot be read ends the payload: the position moves to its end, hasOverrun() is set
// and every later field is 0. So a decoder reads on and asks where it matters.
class RBSPReader : public ReadBitInterface {
public:
    using ReadBitInterface::ReadBitInterface;

    bool readFlag() { return readBits(1) != 0; }
    void skip(unsigned char n) { skipBits(n, nullptr); }

    // ue(v), up to 2^32 - 2, and se(v). More than 31 leading zero bits end the payload.
    uint32_t parseUEGolomb();
    int32_t parseSEGolomb();

    // Ends the payload here, as a field that cannot be read does.
    void abandon();

private:
    // 2^count + bits of an Exp-Golomb code; 1, the code of 0, when it cannot be read.
    uint32_t parseGolomb();
};

// Bytes behind the header of a NAL unit, as they stand in the payload.
struct NALBytes {
    const unsigned char* data;
    uint32_t size;       // to decode
    uint32_t available;  // readable at `data`; those that `size` has beyond them count as 0
};

// A payload with its emulation prevention bytes taken out (ITU-T H.264, 7.4.1).
struct RBSP {
    std::unique_ptr<unsigned char[]> bytes;  // null when it could not be decoded
    uint32_t size = 0;
};

// Under 4 bytes are refused and logged. The first four bytes are taken as they are.
RBSP decodeNALUnit(const NALBytes& unit);

// A reader over `unit`: over a decoded copy, which `rbsp` keeps alive, when `removeEmulation`, else
// over the bytes themselves. False, logged in the name of `caller`, when decoding failed.
bool openNALUnit(const char* caller, const NALBytes& unit, bool removeEmulation, RBSP* rbsp,
                 RBSPReader* reader);

}  // namespace OrvPlayer
