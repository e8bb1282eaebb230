#pragma once

#include <cstdint>

#include "support/AacFrames.h"

// Builds frames of MPEG audio (ISO/IEC 11172-3, 2.4.1) for tests that know what must come out
// again.
namespace orvtest {

struct MpegHeader {
    unsigned version = 3;  // 3: MPEG-1, 2: MPEG-2, 0: MPEG-2.5
    unsigned layer = 2;    // 3: Layer I, 2: Layer II, 1: Layer III
    unsigned bitRateIndex = 10;
    unsigned samplingRateIndex = 1;
    unsigned padding = 0;
    unsigned emphasis = 0;

    Bytes bytes() const {
        return Bits()
            .u(11, 0x7FF)
            .u(2, version)
            .u(2, layer)
            .u(1, 1)  // no CRC
            .u(4, bitRateIndex)
            .u(2, samplingRateIndex)
            .u(1, padding)
            .u(1, 0)  // private
            .u(2, 0)  // stereo
            .u(4, 0)  // mode extension, copyright, original
            .u(2, emphasis)
            .bytes();
    }
    // Filled up to `size` bytes that hold no sync word and differ from seed to seed.
    Bytes frame(size_t size, unsigned seed = 0) const {
        const Bytes head = bytes();
        return head + aacUnit(seed, size - head.size());
    }
};

}  // namespace orvtest
