#include "decoder/BitInterface.h"

#include <algorithm>

#include "common/Trace.h"

namespace OrvPlayer {

namespace {

constexpr unsigned int BYTE_BITS = 8;
constexpr unsigned int WORD_BITS = 32;

constexpr uint32_t lowBits(uint32_t value, unsigned int n) {
    return n >= WORD_BITS ? value : value & ((uint32_t{1} << n) - 1);
}

// The last 32 of the n bits that stand `offset` (0 to 7) bits behind `data`, with zeros from
// `available` bytes on.
uint32_t extract(const unsigned char* data, uint32_t available, unsigned int offset,
                 unsigned int n) {
    const unsigned int bits = offset + n;
    const unsigned int bytes = (bits + BYTE_BITS - 1) / BYTE_BITS;
    uint64_t window = 0;
    for (unsigned int i = 0; i < bytes; ++i) {
        window = window << BYTE_BITS | (i < available ? data[i] : 0u);
    }
    return lowBits(static_cast<uint32_t>(window >> (bytes * BYTE_BITS - bits)), n);
}

}  // namespace

BitInterface::BitInterface(void* data, unsigned int dataSize)
    : buffer(static_cast<unsigned char*>(data)), size(dataSize) {}

BitInterface::~BitInterface() = default;

ReadBitInterface::ReadBitInterface(const void* data, unsigned int dataSize)
    : BitInterface(const_cast<void*>(data), dataSize) {}

uint32_t ReadBitInterface::advance(unsigned int bits) {
    const uint64_t end = uint64_t{bitCounter} + bits;
    uint32_t bytes = static_cast<uint32_t>(end / BYTE_BITS);
    bitCounter = static_cast<uint8_t>(end % BYTE_BITS);
    if (end > uint64_t{size} * BYTE_BITS) {
        overrun = true;
        bytes = size;
        bitCounter = 0;
    }
    buffer += bytes;
    size -= bytes;
    return bytes;
}

uint32_t ReadBitInterface::readBits(unsigned char n) {
    const uint32_t value = peekBits(n);
    advance(n);
    return value;
}

uint32_t ReadBitInterface::peekBits(unsigned char n) const {
    return n == 0 ? 0 : extract(buffer, size, bitCounter, n);
}

uint32_t ReadBitInterface::readBitsLong(unsigned char n) {
    if (n < 25 || n > WORD_BITS) {
        ORV_LOGE("%s: bitCount value is out of range (%u)\n", __func__, n);
        return 0;
    }
    return readBits(n);
}

uint32_t ReadBitInterface::readBits(const unsigned char* data, unsigned char n,
                                    int* bytesAdvanced) {
    const unsigned int bits = bitCounter + unsigned{n};
    uint32_t value = 0;
    if (bits > 16 && bits <= 24) {
        const uint32_t word = uint32_t{data[0]} << 16 | uint32_t{data[1]} << 8 | data[2];
        value = lowBits(word >> (WORD_BITS - bits), n);
    } else if (n != 0) {
        value = extract(data, WORD_BITS * 2, bitCounter, n);
    }
    *bytesAdvanced = static_cast<int>(bits / BYTE_BITS);
    bitCounter = bits % BYTE_BITS;
    return value;
}

void ReadBitInterface::byteAlign(int* skipped) {
    const bool moves = bitCounter != 0;
    if (moves) {
        advance(BYTE_BITS - bitCounter);
    }
    if (skipped != nullptr) {
        *skipped = moves;
    }
}

void ReadBitInterface::skipBits(unsigned char n, int* bytesSkipped) {
    const uint32_t bytes = advance(n);
    if (bytesSkipped != nullptr) {
        *bytesSkipped = static_cast<int>(bytes);
    }
}

int WriteBitInterface::writeBits(unsigned int value, unsigned int n) {
    while (n > 0) {
        if (size == 0) {
            overrun = true;
            return 0;
        }
        if (bitCounter == 0) {
            *buffer = 0;
        }
        const unsigned int count = std::min(n, BYTE_BITS - bitCounter);
        n -= count;
        const uint32_t bits = lowBits(n < WORD_BITS ? value >> n : 0, count);
        *buffer = static_cast<unsigned char>(*buffer | bits << (BYTE_BITS - bitCounter - count));
        bitCounter = static_cast<uint8_t>(bitCounter + count);
        if (bitCounter == BYTE_BITS) {
            bitCounter = 0;
            ++buffer;
            --size;
        }
    }
    return 0;
}

void WriteBitInterface::byteAlign(int* padded) {
    const bool pads = bitCounter != 0;
    if (pads) {
        writeBits(0, BYTE_BITS - bitCounter);
    }
    if (padded != nullptr) {
        *padded = pads;
    }
}

void WriteBitInterface::skipBits(unsigned char n, int* bytesSkipped) {
    const uint32_t before = size;
    writeBits(0, n);
    if (bytesSkipped != nullptr) {
        *bytesSkipped = static_cast<int>(before - size);
    }
}

}  // namespace OrvPlayer
