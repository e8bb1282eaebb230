#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

// What the builders of stream syntax stand on: byte strings that join, and bits that add up to one.
namespace orvtest {

using Bytes = std::vector<uint8_t>;

inline Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// A bit string that grows at its end, most significant bit first.
class Bits {
public:
    Bits& u(unsigned count, uint64_t value) {
        while (count-- > 0) {
            if (mSize % 8 == 0) {
                mBytes.push_back(0);
            }
            mBytes.back() |= static_cast<uint8_t>((value >> count & 1) << (7 - mSize % 8));
            ++mSize;
        }
        return *this;
    }
    // Exp-Golomb codes (ITU-T H.264, 9.1).
    Bits& ue(uint64_t codeNum) {
        const unsigned width = static_cast<unsigned>(std::bit_width(codeNum + 1));
        return u(width - 1, 0).u(width, codeNum + 1);
    }
    Bits& se(int64_t value) {
        return ue(static_cast<uint64_t>(value > 0 ? 2 * value - 1 : -2 * value));
    }
    Bits& append(const Bytes& bytes) {
        for (const uint8_t byte : bytes) {
            u(8, byte);
        }
        return *this;
    }
    Bits& append(const Bits& other) {
        for (size_t i = 0; i < other.mSize; ++i) {
            u(1, other.mBytes[i / 8] >> (7 - i % 8));
        }
        return *this;
    }
    // Zero bits up to a whole byte.
    Bits& align() {
        mSize = mBytes.size() * 8;
        return *this;
    }
    // The stop bit and the alignment behind it.
    Bits& trailing() { return u(1, 1).align(); }

    size_t size() const { return mSize; }
    // The last byte filled up with zero bits.
    const Bytes& bytes() const { return mBytes; }

private:
    Bytes mBytes;
    size_t mSize = 0;
};

}  // namespace orvtest
