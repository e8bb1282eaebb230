// Builds single transport stream packets and PES headers (ISO/IEC 13818-1, clauses 2.4.3.2 to
// 2.4.3.7).

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace mksample {

inline constexpr size_t kTsPacketSize = 188;
inline constexpr uint16_t kNullPid = 0x1FFF;

using TsPacket = std::array<uint8_t, kTsPacketSize>;

struct TsPacketFields {
    uint16_t pid = 0;
    uint8_t continuityCounter = 0;
    bool unitStart = false;
    bool randomAccess = false;
    std::optional<uint64_t> pcr27M;  // already reduced to the range of a PCR
};

// Fills a packet with as much of the payload as fits and returns that size. Without payload it
// carries an adaptation field alone (the caller then repeats the last continuity counter).
size_t buildTsPacket(const TsPacketFields& fields, const uint8_t* payload, size_t size,
                     TsPacket* out);

TsPacket nullPacket();

// The header in front of a PES payload; pts and dts are 33 bits wide, and dts is left out where it
// equals pts. Video gets no length, as is usual where a packet may exceed 16 bits.
std::vector<uint8_t> pesHeader(uint8_t streamId, uint64_t pts, uint64_t dts, bool aligned,
                               size_t payloadSize);

// The packets that carry a section, with a pointer field and stuffing; counters are left 0.
std::vector<TsPacket> sectionPackets(uint16_t pid, const std::vector<uint8_t>& section);

}  // namespace mksample
