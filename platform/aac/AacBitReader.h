#pragma once

#include <endian.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace orvhost {

// Reads bit fields, most significant bit first, from a run of bits it does not own. Past the end
// every read gives zero bits, the position stays at the end and `overrun` sticks, so a parser may
// read a whole header and ask once.
class AacBitReader {
public:
    AacBitReader() = default;

    // The bits [firstBit, endBit) of `data`. Both count from the first bit of `data`.
    AacBitReader(const uint8_t* data, size_t firstBit, size_t endBit)
        : mData(data), mStart(firstBit), mPosition(firstBit), mEnd(endBit) {}

    // `count` is 0 to 32.
    uint32_t read(unsigned count) {
        const size_t left = bitsLeft();
        const unsigned present = count <= left ? count : static_cast<unsigned>(left);
        if (present == 0) {
            mOverrun |= count != 0;
            return 0;
        }
        const size_t lastByte = (mPosition + present - 1) >> 3;
        uint64_t word = 0;
        for (size_t i = mPosition >> 3; i <= lastByte; i++) {
            word = (word << 8) | mData[i];
        }
        word >>= 7 - ((mPosition + present - 1) & 7);
        word &= (uint64_t{1} << present) - 1;
        mPosition += present;
        mOverrun |= present != count;
        return static_cast<uint32_t>(word << (count - present));
    }

    void skip(size_t count) {
        if (count > bitsLeft()) {
            mOverrun = true;
            count = bitsLeft();
        }
        mPosition += count;
    }

    // Whole bytes from any bit position.
    void readBytes(uint8_t* out, size_t count) {
        const size_t whole = bitsLeft() / 8;
        if (count > whole) {
            mOverrun = true;
            memset(out + whole, 0, count - whole);
            copyBytes(out, whole);
            mPosition = mEnd;
            return;
        }
        copyBytes(out, count);
    }

    // To a byte boundary as counted from the first bit of this reader.
    void align() { skip((8 - ((mPosition - mStart) & 7)) & 7); }

    // What is left, or its first `count` bits, as a reader that starts (and aligns) here.
    AacBitReader rest() const { return AacBitReader(mData, mPosition, mEnd); }
    AacBitReader next(size_t count) const {
        return AacBitReader(mData, mPosition,
                            mPosition + (count < bitsLeft() ? count : bitsLeft()));
    }

    size_t position() const { return mPosition; }
    size_t bitsLeft() const { return mEnd - mPosition; }
    bool overrun() const { return mOverrun; }

private:
    void copyBytes(uint8_t* out, size_t count) {
        if (count == 0) {
            return;
        }
        const uint8_t* from = mData + (mPosition >> 3);
        const unsigned shift = mPosition & 7;
        if (shift == 0) {
            memcpy(out, from, count);
        } else {
            // The last byte's bits reach into from[count], which therefore holds bits of ours.
            size_t i = 0;
            for (; i + sizeof(uint64_t) <= count; i += sizeof(uint64_t)) {
                uint64_t word;
                memcpy(&word, from + i, sizeof(word));
                word = htobe64(be64toh(word) << shift | from[i + sizeof(word)] >> (8 - shift));
                memcpy(out + i, &word, sizeof(word));
            }
            for (; i < count; i++) {
                out[i] = static_cast<uint8_t>((from[i] << shift) | (from[i + 1] >> (8 - shift)));
            }
        }
        mPosition += count * 8;
    }

    const uint8_t* mData = nullptr;
    size_t mStart = 0;
    size_t mPosition = 0;
    size_t mEnd = 0;
    bool mOverrun = false;
};

}  // namespace orvhost
