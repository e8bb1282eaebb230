#include "decoder/NALScanner.h"

#include <algorithm>
#include <cstring>

namespace OrvPlayer {

namespace {

constexpr size_t BLOCK_BYTES = 64;

using Lanes [[gnu::vector_size(16)]] = unsigned char;

Lanes lanesAt(const unsigned char* bytes) {
    Lanes lanes;
    memcpy(&lanes, bytes, sizeof(lanes));
    return lanes;
}

// Whether two zero bytes in a row begin in the block at `bytes`. In coded pictures they are much
// rarer than single bytes 00 or 01.
bool holdsTwoZeros(const unsigned char* bytes) {
    Lanes least = lanesAt(bytes) | lanesAt(bytes + 1);
#pragma GCC unroll 4
    for (size_t i = sizeof(Lanes); i < BLOCK_BYTES; i += sizeof(Lanes)) {
        const Lanes pairs = lanesAt(bytes + i) | lanesAt(bytes + i + 1);  // 0: both bytes are
        least = pairs < least ? pairs : least;
    }
    const auto found = least == 0;
    uint64_t halves[2];
    memcpy(halves, &found, sizeof(halves));
    return (halves[0] | halves[1]) != 0;
}

bool isStartCode(const unsigned char* bytes) {
    return bytes[0] == 0 && bytes[1] == 0 && bytes[2] == 1;
}

}  // namespace

void NALScanner::setPayload(const unsigned char* payload, uint32_t size) {
    mPayload = payload;
    mSize = size;
    scanOffset = 0;
    mCurrent = findNextNalHeader(0);
    mNext = findNextNalHeader(mCurrent + START_CODE_BYTES);
}

size_t NALScanner::findNextNalHeader(size_t from) const {
    size_t position = from;
    while (position + START_CODE_BYTES <= mSize) {
        // A start code that begins in a block ends up to two bytes behind it.
        size_t end = mSize - START_CODE_BYTES + 1;
        if (end - position >= BLOCK_BYTES) {
            end = position + BLOCK_BYTES;
            if (!holdsTwoZeros(mPayload + position)) {
                position = end;
                continue;
            }
        }
        for (; position < end; ++position) {
            if (isStartCode(mPayload + position)) {
                return position;
            }
        }
    }
    return mSize;
}

int NALScanner::getNextNalUnit(NALUnitType* type, uint32_t* size) {
    // A header byte 00 can be the first zero of the next start code, one byte in front of
    // scanOffset: the byte 01 decides.
    while (mCurrent < mSize && mCurrent + 2 < scanOffset) {
        mCurrent = mNext;
        mNext = findNextNalHeader(mCurrent + START_CODE_BYTES);
    }
    if (mSize - mCurrent < HEADER_BYTES) {
        return STEP_END;
    }
    scanOffset = static_cast<uint32_t>(mCurrent);
    *type = static_cast<NALUnitType>(mPayload[mCurrent + START_CODE_BYTES] & 0x1F);
    *size = static_cast<uint32_t>(mNext - mCurrent);
    return STEP_OK;
}

int NALScanner::getNextNALUWithType(NALUnitType type, uint32_t* size) {
    NALUnitType found;
    int status;
    while ((status = getNextNalUnit(&found, size)) == STEP_OK && found != type) {
        passOver();
    }
    return status;
}

void NALScanner::passOver() {
    scanOffset = static_cast<uint32_t>(std::min(size_t{scanOffset} + HEADER_BYTES, mSize));
}

}  // namespace OrvPlayer
