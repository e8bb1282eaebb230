#include "decoder/RBSPReader.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>

#include "common/Trace.h"

namespace OrvPlayer {

namespace {

constexpr uint32_t UNCHANGED_BYTES = 4;

// Drops the 03 of every 00 00 03 from byte UNCHANGED_BYTES on, in place. Returns the new size.
uint32_t removeEmulationBytes(unsigned char* bytes, uint32_t size) {
    uint32_t out = UNCHANGED_BYTES;
    uint32_t zeros = 0;
    for (uint32_t in = UNCHANGED_BYTES; in < size; ++in) {
        const unsigned char byte = bytes[in];
        if (byte == 0x03 && zeros >= 2) {
            zeros = 0;
            continue;
        }
        zeros = byte == 0 ? zeros + 1 : 0;
        bytes[out++] = byte;
    }
    return out;
}

}  // namespace

uint32_t RBSPReader::parseGolomb() {
    const uint32_t word = peekBits(32);
    if (word == 0) {
        abandon();
        return 1;
    }
    const auto zeros = static_cast<unsigned char>(std::countl_zero(word));
    skip(static_cast<unsigned char>(zeros + 1));
    const uint32_t bits = readBits(zeros);
    return hasOverrun() ? 1 : (uint32_t{1} << zeros) + bits;
}

uint32_t RBSPReader::parseUEGolomb() {
    return parseGolomb() - 1;
}

int32_t RBSPReader::parseSEGolomb() {
    const uint32_t code = parseGolomb();
    const auto magnitude = static_cast<int32_t>(code / 2);
    return (code & 1) != 0 ? -magnitude : magnitude;
}

void RBSPReader::abandon() {
    buffer += size;
    size = 0;
    bitCounter = 0;
    overrun = true;
}

RBSP decodeNALUnit(const NALBytes& unit) {
    RBSP rbsp;
    if (unit.size < UNCHANGED_BYTES) {
        ORV_LOGE("%s: NAL Unit with less than 4 bytes?\n", __func__);
        return rbsp;
    }
    rbsp.bytes.reset(new (std::nothrow) unsigned char[unit.size]);
    if (rbsp.bytes == nullptr) {
        return rbsp;
    }
    const uint32_t present = std::min(unit.size, unit.available);
    memcpy(rbsp.bytes.get(), unit.data, present);
    memset(rbsp.bytes.get() + present, 0, unit.size - present);
    rbsp.size = removeEmulationBytes(rbsp.bytes.get(), unit.size);
    return rbsp;
}

bool openNALUnit(const char* caller, const NALBytes& unit, bool removeEmulation, RBSP* rbsp,
                 RBSPReader* reader) {
    if (!removeEmulation) {
        *reader = RBSPReader(unit.data, std::min(unit.size, unit.available));
        return true;
    }
    *rbsp = decodeNALUnit(unit);
    if (rbsp->bytes == nullptr) {
        ORV_LOGE("%s: Error decoding NAL Unit\n", caller);
        return false;
    }
    *reader = RBSPReader(rbsp->bytes.get(), rbsp->size);
    return true;
}

}  // namespace OrvPlayer
