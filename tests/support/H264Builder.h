#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "support/Bits.h"

// NAL units made in memory, field by field, for tests (ITU-T H.264, 7.3).

namespace OrvPlayer::h264 {

using orvtest::Bits;
using orvtest::Bytes;
using orvtest::operator+;

// A payload with emulation prevention bytes put in.
inline Bytes escaped(const Bytes& payload) {
    Bytes out;
    unsigned zeros = 0;
    for (const uint8_t byte : payload) {
        if (zeros >= 2 && byte <= 3) {
            out.push_back(3);
            zeros = 0;
        }
        zeros = byte == 0 ? zeros + 1 : 0;
        out.push_back(byte);
    }
    return out;
}

// A NAL unit of a byte stream: start code, header and payload.
inline Bytes nal(unsigned type, const Bytes& payload, unsigned startCodeBytes = 4) {
    Bytes out(startCodeBytes - 1, 0);
    out.push_back(1);
    out.push_back(static_cast<uint8_t>(0x60 | type));
    return out + escaped(payload);
}

struct HrdFields {
    unsigned cpbCnt = 1;
    unsigned initialLength = 24, cpbLength = 24, dpbLength = 24, timeOffsetLength = 24;

    Bits bits() const {
        Bits out;
        out.ue(cpbCnt - 1).u(4, 1).u(4, 2);
        for (unsigned i = 0; i < cpbCnt; ++i) {
            out.ue(1000 + i).ue(2000 + i).u(1, i & 1);
        }
        return out.u(5, initialLength - 1)
            .u(5, cpbLength - 1)
            .u(5, dpbLength - 1)
            .u(5, timeOffsetLength);
    }
};

struct Timing {
    uint32_t units, scale;
    bool fixed;
};

// An SPS as most streams have it; change the fields that a test is about. The pieces given as bits
// replace the usual ones.
struct SpsFields {
    unsigned profile = 77;
    unsigned id = 0;
    Bits chroma;  // from chroma_format_idc on, for the profiles that have it
    uint64_t frameNumCode = 0;
    Bits poc = Bits().ue(2);
    uint64_t refFrames = 2;
    uint64_t widthMbs = 120, mapUnits = 68;
    bool frameMbsOnly = true;
    bool mbAdaptive = true;                     // of fields
    std::optional<std::vector<uint64_t>> crop;  // left, right, top, bottom
    bool vui = true;
    std::optional<unsigned> aspectRatio;
    Bits overscanToChromaLoc = Bits().u(3, 0);
    std::optional<Timing> timing = Timing{1001, 60000, true};
    std::optional<HrdFields> nalHrd, vclHrd;
    bool picStruct = false;
    std::optional<std::vector<unsigned>> restrictions;

    Bits headBits() const {
        Bits out;
        out.u(8, profile).u(16, 0x0028).ue(id).append(chroma);
        out.ue(frameNumCode).append(poc).ue(refFrames).u(1, 0);
        out.ue(widthMbs - 1).ue(mapUnits - 1).u(1, frameMbsOnly);
        if (!frameMbsOnly) {
            out.u(1, mbAdaptive);
        }
        out.u(1, 1).u(1, crop.has_value());
        for (const uint64_t offset : crop.value_or(std::vector<uint64_t>())) {
            out.ue(offset);
        }
        return out.u(1, vui);
    }
    Bits vuiBits() const {
        Bits out;
        out.u(1, aspectRatio.has_value());
        if (aspectRatio) {
            out.u(8, *aspectRatio);
            if (*aspectRatio == 255) {
                out.u(16, 4).u(16, 3);
            }
        }
        out.append(overscanToChromaLoc).u(1, timing.has_value());
        if (timing) {
            out.u(32, timing->units).u(32, timing->scale).u(1, timing->fixed);
        }
        for (const auto& hrd : {nalHrd, vclHrd}) {
            out.u(1, hrd.has_value());
            if (hrd) {
                out.append(hrd->bits());
            }
        }
        if (nalHrd || vclHrd) {
            out.u(1, 0);
        }
        out.u(1, picStruct).u(1, restrictions.has_value());
        if (restrictions) {
            out.u(1, 1);
            for (const unsigned value : *restrictions) {
                out.ue(value);
            }
        }
        return out;
    }
    Bytes payload() const {
        Bits out = headBits();
        if (vui) {
            out.append(vuiBits());
        }
        return out.trailing().bytes();
    }
};

inline Bytes sps(const SpsFields& fields = {}) {
    return nal(7, fields.payload());
}
inline Bytes aud(unsigned startCodeBytes = 4) {
    return nal(9, {0xF0}, startCodeBytes);
}
inline Bytes pps() {
    return nal(8, {0xCE, 0x3C, 0x80});
}

// One message of an SEI unit.
inline Bits message(unsigned type, const Bytes& payload) {
    return Bits().u(8, type).u(8, payload.size()).append(payload);
}
// Picture timing of a stream without HRD, its clock timestamps absent.
inline Bytes picTiming(unsigned picStruct) {
    return nal(6, message(1, Bits().u(4, picStruct).u(3, 0).trailing().bytes()).trailing().bytes());
}

struct SliceFields {
    unsigned type = 1;
    unsigned firstMb = 0;
    unsigned frameNumBits = 4;
    std::optional<bool> fieldPic = std::nullopt;
    unsigned startCodeBytes = 4;
};

// A slice whose data is `filler` bytes of `tag`.
inline Bytes slice(uint8_t tag, const SliceFields& fields = {}, size_t filler = 6) {
    Bits header;
    header.ue(fields.firstMb).ue(7).ue(0).u(fields.frameNumBits, 1);
    if (fields.fieldPic) {
        header.u(1, *fields.fieldPic);
    }
    return nal(fields.type, header.trailing().bytes() + Bytes(filler, tag), fields.startCodeBytes);
}

}  // namespace OrvPlayer::h264
