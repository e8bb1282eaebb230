#include "mksample/TsPacket.h"

#include <algorithm>

namespace mksample {
namespace {

constexpr size_t kHeaderSize = 4;
constexpr size_t kBodySize = kTsPacketSize - kHeaderSize;
constexpr size_t kPcrSize = 6;

void writePcr(uint64_t pcr27M, uint8_t* out) {
    const uint64_t base = pcr27M / 300;
    const uint64_t extension = pcr27M % 300;
    out[0] = static_cast<uint8_t>(base >> 25);
    out[1] = static_cast<uint8_t>(base >> 17);
    out[2] = static_cast<uint8_t>(base >> 9);
    out[3] = static_cast<uint8_t>(base >> 1);
    out[4] = static_cast<uint8_t>(((base & 1) << 7) | 0x7E | (extension >> 8));
    out[5] = static_cast<uint8_t>(extension);
}

void putTimeStamp(unsigned prefix, uint64_t stamp, std::vector<uint8_t>* out) {
    out->push_back(static_cast<uint8_t>((prefix << 4) | ((stamp >> 29) & 0x0E) | 1));
    out->push_back(static_cast<uint8_t>(stamp >> 22));
    out->push_back(static_cast<uint8_t>(((stamp >> 14) & 0xFE) | 1));
    out->push_back(static_cast<uint8_t>(stamp >> 7));
    out->push_back(static_cast<uint8_t>(((stamp << 1) & 0xFE) | 1));
}

}  // namespace

size_t buildTsPacket(const TsPacketFields& fields, const uint8_t* payload, size_t size,
                     TsPacket* out) {
    const size_t flagsSize = fields.randomAccess || fields.pcr27M ? 2 : 0;
    const size_t wanted = flagsSize + (fields.pcr27M ? kPcrSize : 0);
    const size_t taken = std::min(size, kBodySize - wanted);
    const size_t adaptation = kBodySize - taken;  // with its length byte

    uint8_t* at = out->data();
    *at++ = 0x47;
    *at++ = static_cast<uint8_t>((fields.unitStart ? 0x40 : 0) | (fields.pid >> 8));
    *at++ = static_cast<uint8_t>(fields.pid);
    const unsigned control = (adaptation > 0 ? 2U : 0U) | (taken > 0 ? 1U : 0U);
    *at++ = static_cast<uint8_t>((control << 4) | fields.continuityCounter);
    uint8_t* const body = at + adaptation;
    if (adaptation > 0) {
        *at++ = static_cast<uint8_t>(adaptation - 1);
    }
    if (adaptation > 1) {
        *at++ = static_cast<uint8_t>((fields.randomAccess ? 0x40 : 0) | (fields.pcr27M ? 0x10 : 0));
        if (fields.pcr27M) {
            writePcr(*fields.pcr27M, at);
            at += kPcrSize;
        }
    }
    std::fill(at, body, uint8_t{0xFF});
    std::copy_n(payload, taken, body);
    return taken;
}

TsPacket nullPacket() {
    TsPacket packet;
    packet.fill(0xFF);
    packet[0] = 0x47;
    packet[1] = kNullPid >> 8;
    packet[2] = kNullPid & 0xFF;
    packet[3] = 0x10;
    return packet;
}

std::vector<uint8_t> pesHeader(uint8_t streamId, uint64_t pts, uint64_t dts, bool aligned,
                               size_t payloadSize) {
    const bool both = pts != dts;
    const size_t optionalSize = both ? 10 : 5;
    const bool video = (streamId & 0xF0) == 0xE0;
    const size_t length = 3 + optionalSize + payloadSize;
    const size_t declared = video || length > 0xFFFF ? 0 : length;
    std::vector<uint8_t> header{0,
                                0,
                                1,
                                streamId,
                                static_cast<uint8_t>(declared >> 8),
                                static_cast<uint8_t>(declared),
                                static_cast<uint8_t>(0x80 | (aligned ? 0x04 : 0)),
                                static_cast<uint8_t>(both ? 0xC0 : 0x80),
                                static_cast<uint8_t>(optionalSize)};
    putTimeStamp(both ? 3 : 2, pts, &header);
    if (both) {
        putTimeStamp(1, dts, &header);
    }
    return header;
}

std::vector<TsPacket> sectionPackets(uint16_t pid, const std::vector<uint8_t>& section) {
    // A pointer field of 0 (the section starts at once), the section, and stuffing.
    const size_t size = 1 + section.size();
    std::vector<uint8_t> bytes((size + kBodySize - 1) / kBodySize * kBodySize, 0xFF);
    bytes[0] = 0;
    std::copy(section.begin(), section.end(), bytes.begin() + 1);
    std::vector<TsPacket> packets;
    for (size_t at = 0; at < bytes.size(); at += kBodySize) {
        TsPacketFields fields;
        fields.pid = pid;
        fields.unitStart = at == 0;
        buildTsPacket(fields, bytes.data() + at, kBodySize, &packets.emplace_back());
    }
    return packets;
}

}  // namespace mksample
