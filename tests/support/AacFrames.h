#pragma once

#include <cstdint>
#include <vector>

#include "support/Bits.h"

// Builds AAC transport frames bit by bit, for tests that know what must come out again.
namespace orvtest {

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
inline Bits plainAsc(unsigned aot = 2, unsigned frequencyIndex = 3, unsigned channels = 2) {
    return Bits().u(5, aot).u(4, frequencyIndex).u(4, channels).u(3, 0);
}

// program_config_element after its id: one front pair and one LFE, with a comment.
inline Bits& putPairAndLfe(Bits& bits, size_t alignedFrom) {
    bits.u(4, 0).u(2, 1).u(4, 3);                          // tag, object type, frequency
    bits.u(4, 1).u(4, 0).u(4, 0).u(2, 1).u(3, 0).u(4, 0);  // element counts
    bits.u(1, 0).u(1, 0).u(1, 1).u(3, 5);                  // mixdowns
    bits.u(1, 1).u(4, 0);                                  // front: a pair
    bits.u(4, 0);                                          // LFE
    while ((bits.size() - alignedFrom) % 8 != 0) {
        bits.u(1, 0);
    }
    return bits.u(8, 2).u(8, 'o').u(8, 'k');
}

// What a StreamMuxConfig shall say, and the frames around it.
struct LoasMux {
    unsigned version = 0;
    Bits asc = plainAsc();
    unsigned ascFillBits = 0;  // version 1
    bool sameTimeFraming = true;
    unsigned fixedLength = 0;  // bytes of every unit; 0: variable
    unsigned otherDataBits = 0;
    bool hasCrc = false;
    unsigned numProgram = 0;
    unsigned numLayer = 0;

    Bits config(size_t subFrames) const {
        Bits bits;
        bits.u(1, version);
        if (version == 1) {
            bits.u(1, 0).u(2, 1).u(16, 0x1234);  // audioMuxVersionA, taraBufferFullness
        }
        bits.u(1, sameTimeFraming).u(6, static_cast<uint32_t>(subFrames - 1));
        bits.u(4, numProgram).u(3, numLayer);
        if (version == 1) {
            bits.u(2, 0).u(8, static_cast<uint32_t>(asc.size() + ascFillBits));
        }
        bits.append(asc);
        for (unsigned i = 0; version == 1 && i < ascFillBits; i++) {
            bits.u(1, 1);
        }
        if (fixedLength != 0) {
            bits.u(3, 1).u(9, fixedLength - 20);
        } else {
            bits.u(3, 0).u(8, 0xFF);
        }
        bits.u(1, otherDataBits != 0);
        if (otherDataBits != 0 && version == 1) {
            bits.u(2, 3).u(32, otherDataBits);
        } else if (otherDataBits != 0) {
            bits.u(1, 1).u(8, otherDataBits >> 8).u(1, 0).u(8, otherDataBits & 0xFF);
        }
        bits.u(1, hasCrc);
        if (hasCrc) {
            bits.u(8, 0xA5);
        }
        return bits;
    }

    // One frame whose subframes hold one unit each.
    Bytes frame(const std::vector<Bytes>& units, bool withConfig = true) const {
        Bits bits = start(units.size(), withConfig);
        for (const Bytes& unit : units) {
            if (fixedLength == 0) {
                putLength(bits, unit.size());
            }
            bits.append(unit);
        }
        return finish(bits);
    }

    // For streams with a time framing of their own: a piece of a unit and whether it is the last.
    struct Chunk {
        Bytes bytes;
        bool endsUnit;
    };
    Bytes chunkFrame(const std::vector<std::vector<Chunk>>& subFrames) const {
        Bits bits = start(subFrames.size(), true);
        for (const auto& chunks : subFrames) {
            bits.u(4, static_cast<uint32_t>(chunks.size() - 1));
            for (const Chunk& chunk : chunks) {
                bits.u(4, 0);
                putLength(bits, chunk.bytes.size());
                bits.u(1, chunk.endsUnit);
            }
            for (const Chunk& chunk : chunks) {
                bits.append(chunk.bytes);
            }
        }
        return finish(bits);
    }

    static Bytes wrap(const Bytes& element) {
        Bits bits;
        bits.u(11, 0x2B7).u(13, static_cast<uint32_t>(element.size()));
        return bits.append(element).bytes();
    }

private:
    Bits start(size_t subFrames, bool withConfig) const {
        Bits bits;
        bits.u(1, !withConfig);
        return withConfig ? bits.append(config(subFrames)) : bits;
    }
    static void putLength(Bits& bits, size_t size) {
        for (; size >= 255; size -= 255) {
            bits.u(8, 255);
        }
        bits.u(8, static_cast<uint32_t>(size));
    }
    Bytes finish(Bits& bits) const {
        for (unsigned i = 0; i < otherDataBits; i++) {
            bits.u(1, 1);
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
        Bits bits;
        bits.u(12, 0xFFF).u(1, isMpeg2).u(2, 0).u(1, !hasCrc);
        bits.u(2, profile).u(4, frequencyIndex).u(1, 0).u(3, channels).u(4, 0);
        bits.u(13, static_cast<uint32_t>(size)).u(11, 0x7FF);
        bits.u(2, static_cast<uint32_t>(blocks.size() - 1));
        if (hasCrc && blocks.size() > 1) {
            size_t position = 0;
            for (size_t i = 0; i + 1 < blocks.size(); i++) {
                position += blocks[i].size() + blockCrc;
                bits.u(16, static_cast<uint32_t>(position));
            }
            bits.u(16, crc(bits.bytes()));
        } else if (hasCrc) {
            bits.u(16, 0x1357);
        }
        for (const Bytes& block : blocks) {
            bits.append(block);
            if (hasCrc && blocks.size() > 1) {
                bits.u(16, 0x2468);
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

}  // namespace orvtest
