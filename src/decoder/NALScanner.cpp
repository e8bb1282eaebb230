#include "decoder/NALScanner.h"

#include <algorithm>
#include <cstring>

namespace OrvPlayer {

void NALScanner::setPayload(const unsigned char* payload, uint32_t size) {
    mPayload = payload;
    mSize = size;
    scanOffset = 0;
    mCurrent = findNextNalHeader(0);
    mNext = findNextNalHeader(mCurrent + START_CODE_BYTES);
}

size_t NALScanner::findNextNalHeader(size_t from) const {
    // In coded pictures a byte 01 is rare, a zero byte is not.
    for (size_t position = from + 2; position < mSize; ++position) {
        const void* found = memchr(mPayload + position, 0x01, mSize - position);
        if (found == nullptr) {
            break;
        }
        position = static_cast<size_t>(static_cast<const unsigned char*>(found) - mPayload);
        if (mPayload[position - 1] == 0 && mPayload[position - 2] == 0) {
            return position - 2;
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
