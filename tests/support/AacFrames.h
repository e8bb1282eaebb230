#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Builds AAC transport frames bit by bit, for tests that know what must come out again.
namespace orvtest {

using Bytes = std::vector<uint8_t>;

class BitWriter {
public:
    BitWriter& put(uint32_t value, unsigned count) {
        for (unsigned i = count; i-- > 0;) {
            if (mBits % 8 == 0) {
                mBytes.push_back(0);
            }
            mBytes.back() |= static_cast<uint8_t>((value >> i & 1) << (7 - mBits % 8));
            mBits++;
        }
        return *this;
    }
    BitWriter& put(const Bytes& bytes) {
        for (const uint8_t byte : bytes) {
            put(byte, 8);
        }
        return *this;
    }
    BitWriter& put(const BitWriter& other) {
        for (size_t i = 0; i < other.mBits; i++) {
            put(other.mBytes[i / 8] >> (7 - i % 8) & 1, 1);
        }
        return *this;
    }
    BitWriter& align() {
        mBits = mBytes.size() * 8;
        return *this;
    }
    size_t bits() const { return mBits; }
    const Bytes& bytes() const { return mBytes; }

private:
    Bytes mBytes;
    size_t mBits = 0;
};

// `size` bytes that differ from unit to unit and hold neither sync word at any bit offset: never
// more than two ones in a row.
inline Bytes aacUnit(unsigned seed, size_t size) {
    Bytes unit(size);
    uint32_t state = seed * 2654435761u + 12345;
    for (uint8_t& byte : unit) {
        state = state * 1103515245u + 12345;
        byte = static_cast<uint8_t>((state >> 16 & 0x03) << 4 | (state >> 24 & 0x01));
    }
    return unit;
}

// An AudioSpecificConfig of general audio without extensions.
inline BitWriter plainAsc(unsigned aot = 2, unsigned frequencyIndex = 3, unsigned channels = 2) {
    return BitWriter().put(aot, 5).put(frequencyIndex, 4).put(channels, 4).put(0, 3);
}

// program_config_element after its id: one front pair and one LFE, with a comment.
inline BitWriter& putPairAndLfe(BitWriter& bits, size_t alignedFrom) {
    bits.put(0, 4).put(1, 2).put(3, 4);  // tag, object type, frequency
    bits.put(1, 4).put(0, 4).put(0, 4).put(1, 2).put(0, 3).put(0, 4);  // element counts
    bits.put(0, 1).put(0, 1).put(1, 1).put(5, 3);                      // mixdowns
    bits.put(1, 1).put(0, 4);                                          // front: a pair
    bits.put(0, 4);                                                    // LFE
    while ((bits.bits() - alignedFrom) % 8 != 0) {
        bits.put(0, 1);
    }
    return bits.put(2, 8).put('o', 8).put('k', 8);
}

// What a StreamMuxConfig shall say, and the frames around it.
struct LoasMux {
    unsigned version = 0;
    BitWriter asc = plainAsc();
    unsigned ascFillBits = 0;  // version 1
    bool sameTimeFraming = true;
    unsigned fixedLength = 0;  // bytes of every unit; 0: variable
    unsigned otherDataBits = 0;
    bool hasCrc = false;
    unsigned numProgram = 0;
    unsigned numLayer = 0;

    BitWriter config(size_t subFrames) const {
        BitWriter bits;
        bits.put(version, 1);
        if (version == 1) {
            bits.put(0, 1).put(1, 2).put(0x1234, 16);  // audioMuxVersionA, taraBufferFullness
        }
        bits.put(sameTimeFraming, 1).put(static_cast<uint32_t>(subFrames - 1), 6);
        bits.put(numProgram, 4).put(numLayer, 3);
        if (version == 1) {
            bits.put(0, 2).put(static_cast<uint32_t>(asc.bits() + ascFillBits), 8);
        }
        bits.put(asc);
        for (unsigned i = 0; version == 1 && i < ascFillBits; i++) {
            bits.put(1, 1);
        }
        if (fixedLength != 0) {
            bits.put(1, 3).put(fixedLength - 20, 9);
        } else {
            bits.put(0, 3).put(0xFF, 8);
        }
        bits.put(otherDataBits != 0, 1);
        if (otherDataBits != 0 && version == 1) {
            bits.put(3, 2).put(otherDataBits, 32);
        } else if (otherDataBits != 0) {
            bits.put(1, 1).put(otherDataBits >> 8, 8).put(0, 1).put(otherDataBits & 0xFF, 8);
        }
        bits.put(hasCrc, 1);
        if (hasCrc) {
            bits.put(0xA5, 8);
        }
        return bits;
    }

    // One frame whose subframes hold one unit each.
    Bytes frame(const std::vector<Bytes>& units, bool withConfig = true) const {
        BitWriter bits = start(units.size(), withConfig);
        for (const Bytes& unit : units) {
            if (fixedLength == 0) {
                putLength(bits, unit.size());
            }
            bits.put(unit);
        }
        return finish(bits);
    }

    // For streams with a time framing of their own: a piece of a unit and whether it is the last.
    struct Chunk {
        Bytes bytes;
        bool endsUnit;
    };
    Bytes chunkFrame(const std::vector<std::vector<Chunk>>& subFrames) const {
        BitWriter bits = start(subFrames.size(), true);
        for (const auto& chunks : subFrames) {
            bits.put(static_cast<uint32_t>(chunks.size() - 1), 4);
            for (const Chunk& chunk : chunks) {
                bits.put(0, 4);
                putLength(bits, chunk.bytes.size());
                bits.put(chunk.endsUnit, 1);
            }
            for (const Chunk& chunk : chunks) {
                bits.put(chunk.bytes);
            }
        }
        return finish(bits);
    }

    static Bytes wrap(const Bytes& element) {
        BitWriter bits;
        bits.put(0x2B7, 11).put(static_cast<uint32_t>(element.size()), 13);
        return bits.put(element).bytes();
    }

private:
    BitWriter start(size_t subFrames, bool withConfig) const {
        BitWriter bits;
        bits.put(!withConfig, 1);
        return withConfig ? bits.put(config(subFrames)) : bits;
    }
    static void putLength(BitWriter& bits, size_t size) {
        for (; size >= 255; size -= 255) {
            bits.put(255, 8);
        }
        bits.put(static_cast<uint32_t>(size), 8);
    }
    Bytes finish(BitWriter& bits) const {
        for (unsigned i = 0; i < otherDataBits; i++) {
            bits.put(1, 1);
        }
        return wrap(bits.align().bytes());
    }
};

struct Adts {
    bool isMpeg2 = false;
    unsigned profile = 1;
    unsigned frequencyIndex = 3;
    unsigned channels = 2;
    bool hasCrc = false;

    // One frame with a raw data block per unit. The CRCs of blocks are made up, that of the headers
    // (with several blocks) is right.
    Bytes frame(const std::vector<Bytes>& blocks) const {
        const size_t blockCrc = hasCrc ? 2 : 0;
        size_t size = 7;
        for (const Bytes& block : blocks) {
            size += block.size() + blockCrc;
        }
        if (hasCrc && blocks.size() > 1) {
            size += 2 * (blocks.size() - 1) + 2;
        }
        BitWriter bits;
        bits.put(0xFFF, 12).put(isMpeg2, 1).put(0, 2).put(!hasCrc, 1);
        bits.put(profile, 2).put(frequencyIndex, 4).put(0, 1).put(channels, 3).put(0, 4);
        bits.put(static_cast<uint32_t>(size), 13).put(0x7FF, 11);
        bits.put(static_cast<uint32_t>(blocks.size() - 1), 2);
        if (hasCrc && blocks.size() > 1) {
            size_t position = 0;
            for (size_t i = 0; i + 1 < blocks.size(); i++) {
                position += blocks[i].size() + blockCrc;
                bits.put(static_cast<uint32_t>(position), 16);
            }
            bits.put(crc(bits.bytes()), 16);
        } else if (hasCrc) {
            bits.put(0x1357, 16);
        }
        for (const Bytes& block : blocks) {
            bits.put(block);
            if (hasCrc && blocks.size() > 1) {
                bits.put(0x2468, 16);
            }
        }
        return bits.bytes();
    }

    // Bit by bit: x^16 + x^15 + x^2 + 1 from all ones.
    static unsigned crc(const Bytes& bytes) {
        unsigned value = 0xFFFF;
        for (size_t i = 0; i < bytes.size() * 8; i++) {
            const unsigned in = bytes[i / 8] >> (7 - i % 8) & 1;
            const bool carry = (value >> 15) != in;
            value = (value << 1 & 0xFFFF) ^ (carry ? 0x8005 : 0);
        }
        return value;
    }
};

inline Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

}  // namespace orvtest
