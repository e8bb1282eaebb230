#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "support/Bits.h"

// A small transport stream made in memory, for tests (ISO/IEC 13818-1).
//
//   const auto bytes = TsBuilder()
//       .section(0, pat({{101, 0x100}}))
//       .section(0x100, pmt(101, 0x111, {{0x1B, 0x111, {}}, {0x11, 0x112, {}}}))
//       .pcr(0x111, 27'000'000)
//       .pes(0x111, 0xE0, 90'000, Bytes(1000, 0xAB))
//       .build();
//
// Continuity counters are kept per PID; lose() makes a hole, raw() puts any bytes between packets.

namespace orvtest {

constexpr int64_t NO_TIME = -1;

inline Bytes bytesOf(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

// The CRC of tables, ISO/IEC 13818-1 annex A.
inline uint32_t crc32Mpeg(const Bytes& data) {
    uint32_t crc = 0xFFFFFFFF;
    for (uint8_t byte : data) {
        crc ^= uint32_t{byte} << 24;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 0x80000000) != 0 ? crc << 1 ^ 0x04C11DB7 : crc << 1;
        }
    }
    return crc;
}

inline Bytes be16(unsigned value) {
    return {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
}

inline Bytes descriptor(uint8_t tag, const Bytes& data) {
    return Bytes{tag, static_cast<uint8_t>(data.size())} + data;
}

// A long-form section around `body`: the bytes behind last_section_number, CRC left out.
inline Bytes section(uint8_t tableId, unsigned extension, const Bytes& body, uint8_t version = 0,
                     bool privateSyntax = false, uint8_t number = 0, uint8_t lastNumber = 0) {
    const unsigned length = static_cast<unsigned>(body.size()) + 9;
    Bytes out{tableId};
    out = out + be16((privateSyntax ? 0xF000 : 0xB000) | length) + be16(extension) +
          Bytes{static_cast<uint8_t>(0xC1 | version << 1), number, lastNumber} + body;
    const uint32_t crc = crc32Mpeg(out);
    return out + be16(crc >> 16) + be16(crc & 0xFFFF);
}

// Programme number and PMT PID each; number 0 names the NIT.
inline Bytes pat(const std::vector<std::pair<unsigned, unsigned>>& programmes,
                 uint8_t version = 0) {
    Bytes body;
    for (const auto& [number, pid] : programmes) {
        body = body + be16(number) + be16(0xE000 | pid);
    }
    return section(0x00, 1, body, version);
}

struct PmtStream {
    uint8_t streamType;
    unsigned pid;
    Bytes descriptors;
};

inline Bytes pmt(unsigned programme, unsigned pcrPid, const std::vector<PmtStream>& streams,
                 const Bytes& descriptors = {}, uint8_t version = 0) {
    Bytes body = be16(0xE000 | pcrPid) + be16(0xF000 | static_cast<unsigned>(descriptors.size())) +
                 descriptors;
    for (const PmtStream& stream : streams) {
        body = body + Bytes{stream.streamType} + be16(0xE000 | stream.pid) +
               be16(0xF000 | static_cast<unsigned>(stream.descriptors.size())) + stream.descriptors;
    }
    return section(0x02, programme, body, version);
}

struct SdtService {
    unsigned serviceId;
    uint8_t type;
    Bytes provider;
    Bytes name;
};

inline Bytes sdt(const std::vector<SdtService>& services) {
    Bytes body = be16(0x7FE0) + Bytes{0xFF};
    for (const SdtService& s : services) {
        Bytes text{s.type, static_cast<uint8_t>(s.provider.size())};
        text = text + s.provider + Bytes{static_cast<uint8_t>(s.name.size())} + s.name;
        const Bytes loop = descriptor(0x48, text);
        body = body + be16(s.serviceId) + Bytes{0xFC} +
               be16(0x8000 | static_cast<unsigned>(loop.size())) + loop;
    }
    return section(0x42, 0x7FE1, body, 0, true);
}

// With descriptors of the stream there is one, the PAT's.
inline Bytes nit(const Bytes& networkName, const Bytes& streamDescriptors = {}) {
    const Bytes loop = descriptor(0x40, networkName);
    Bytes streams;
    if (!streamDescriptors.empty()) {
        streams = be16(1) + be16(0x7FE0) +
                  be16(0xF000 | static_cast<unsigned>(streamDescriptors.size())) +
                  streamDescriptors;
    }
    return section(0x40, 0x7FE0,
                   be16(0xF000 | static_cast<unsigned>(loop.size())) + loop +
                       be16(0xF000 | static_cast<unsigned>(streams.size())) + streams,
                   0, true);
}

class TsBuilder {
public:
    static constexpr size_t PACKET = 188;

    // One packet. The payload is at most 184 bytes, 176 with a PCR; what is left over is stuffing
    // in the adaptation field. An empty payload makes a packet without one.
    TsBuilder& packet(unsigned pid, const Bytes& payload, bool start = false,
                      int64_t pcr27m = NO_TIME, bool discontinuity = false) {
        Bytes field;  // the adaptation field behind its length byte
        if (pcr27m >= 0 || discontinuity) {
            field.push_back(
                static_cast<uint8_t>((discontinuity ? 0x80 : 0) | (pcr27m >= 0 ? 0x10 : 0)));
        }
        if (pcr27m >= 0) {
            field = field + pcrBytes(pcr27m);
        }
        const size_t room = PACKET - 4 - payload.size();
        const bool hasField = room > 0;
        if (hasField && field.empty() && room > 1) {
            field.push_back(0);
        }
        uint8_t& counter = mCounters[pid];
        if (!payload.empty()) {
            counter = (counter + 1) & 0x0F;
        }
        mBytes.push_back(0x47);
        mBytes.push_back(static_cast<uint8_t>((start ? 0x40 : 0) | pid >> 8));
        mBytes.push_back(static_cast<uint8_t>(pid));
        mBytes.push_back(
            static_cast<uint8_t>((hasField ? 0x20 : 0) | (payload.empty() ? 0 : 0x10) | counter));
        if (hasField) {
            mBytes.push_back(static_cast<uint8_t>(room - 1));
            field.resize(room - 1, 0xFF);
            append(field);
        }
        append(payload);
        return *this;
    }

    TsBuilder& pcr(unsigned pid, int64_t pcr27m, bool discontinuity = false) {
        return packet(pid, {}, false, pcr27m, discontinuity);
    }

    // A PES packet in as many packets as it takes; its length field is 0 when it does not fit
    // (video only, as the standard has it). A PCR goes into the first packet.
    TsBuilder& pes(unsigned pid, uint8_t streamId, int64_t pts90k, const Bytes& payload,
                   int64_t pcr27m = NO_TIME, int64_t dts90k = NO_TIME) {
        return payloadUnit(pid, pesBytes(streamId, pts90k, payload, dts90k), pcr27m);
    }

    static Bytes pesBytes(uint8_t streamId, int64_t pts90k, const Bytes& payload,
                          int64_t dts90k = NO_TIME) {
        Bytes optional;
        if (pts90k >= 0) {
            optional = stamp(dts90k >= 0 ? 3 : 2, pts90k);
        }
        if (pts90k >= 0 && dts90k >= 0) {
            optional = optional + stamp(1, dts90k);
        }
        const size_t length = 3 + optional.size() + payload.size();
        const uint8_t flags = pts90k < 0 ? 0 : dts90k < 0 ? 0x80 : 0xC0;
        return Bytes{0, 0, 1, streamId} +
               be16(length > 0xFFFF ? 0 : static_cast<unsigned>(length)) +
               Bytes{0x80, flags, static_cast<uint8_t>(optional.size())} + optional + payload;
    }

    // A section from the start of a packet on, the rest of its last packet 0xFF.
    TsBuilder& section(unsigned pid, const Bytes& sectionBytes) {
        Bytes unit = Bytes{0} + sectionBytes;
        unit.resize((unit.size() + 183) / 184 * 184, 0xFF);
        return payloadUnit(pid, unit, NO_TIME);
    }

    TsBuilder& nulls(size_t count) {
        for (size_t i = 0; i < count; ++i) {
            packet(0x1FFF, Bytes(184, 0xFF));
        }
        return *this;
    }

    // As if `count` packets of the PID had been lost here.
    TsBuilder& lose(unsigned pid, unsigned count) {
        mCounters[pid] = static_cast<uint8_t>((mCounters[pid] + count) & 0x0F);
        return *this;
    }

    TsBuilder& raw(const Bytes& bytes) {
        append(bytes);
        return *this;
    }

    size_t size() const { return mBytes.size(); }
    const Bytes& build() const { return mBytes; }

    static Bytes pcrBytes(int64_t pcr27m) {
        const uint64_t base = static_cast<uint64_t>(pcr27m) / 300 & 0x1FFFFFFFF;
        const unsigned extension = static_cast<unsigned>(pcr27m % 300);
        return {static_cast<uint8_t>(base >> 25),
                static_cast<uint8_t>(base >> 17),
                static_cast<uint8_t>(base >> 9),
                static_cast<uint8_t>(base >> 1),
                static_cast<uint8_t>((base & 1) << 7 | 0x7E | extension >> 8),
                static_cast<uint8_t>(extension)};
    }

private:
    static Bytes stamp(unsigned prefix, int64_t time90k) {
        const uint64_t t = static_cast<uint64_t>(time90k) & 0x1FFFFFFFF;
        return {static_cast<uint8_t>(prefix << 4 | (t >> 30 & 7) << 1 | 1),
                static_cast<uint8_t>(t >> 22), static_cast<uint8_t>((t >> 15 & 0x7F) << 1 | 1),
                static_cast<uint8_t>(t >> 7), static_cast<uint8_t>((t & 0x7F) << 1 | 1)};
    }

    TsBuilder& payloadUnit(unsigned pid, const Bytes& unit, int64_t pcr27m) {
        for (size_t offset = 0; offset < unit.size();) {
            const bool first = offset == 0;
            const size_t room = first && pcr27m >= 0 ? 176 : 184;
            const size_t part = std::min(room, unit.size() - offset);
            const auto begin = unit.begin() + static_cast<std::ptrdiff_t>(offset);
            packet(pid, Bytes(begin, begin + static_cast<std::ptrdiff_t>(part)), first,
                   first ? pcr27m : NO_TIME);
            offset += part;
        }
        return *this;
    }

    void append(const Bytes& bytes) { mBytes.insert(mBytes.end(), bytes.begin(), bytes.end()); }

    Bytes mBytes;
    std::map<unsigned, uint8_t> mCounters;
};

}  // namespace orvtest
