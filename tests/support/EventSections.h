#pragma once

#include <cstdint>

#include "support/TsBuilder.h"

// Tables of time for TsBuilder (ETSI EN 300 468, ARIB STD-B10).
namespace orvtest {

struct EitEvent {
    unsigned eventId;
    Bytes startAndDuration;  // as timeBytes() and three decimal bytes have it
    Bytes name;
    Bytes text;
};

// A modified Julian date and a time of day, each two digits as 0x12 for 12.
inline Bytes timeBytes(unsigned day, uint8_t hour, uint8_t minute, uint8_t second) {
    return be16(day) + Bytes{hour, minute, second};
}

inline Bytes shortEvent(const Bytes& name, const Bytes& text) {
    return descriptor(0x4D, bytesOf("por") + Bytes{static_cast<uint8_t>(name.size())} + name +
                                Bytes{static_cast<uint8_t>(text.size())} + text);
}

// The EIT present (0) or following (1) of a service.
inline Bytes eit(unsigned serviceId, uint8_t number, const std::vector<EitEvent>& events,
                 unsigned networkId = 0x0640) {
    Bytes body = be16(1) + be16(networkId) + Bytes{1, 0x4E};
    for (const EitEvent& event : events) {
        const Bytes loop = shortEvent(event.name, event.text);
        body = body + be16(event.eventId) + event.startAndDuration +
               be16(0x8000 | static_cast<unsigned>(loop.size())) + loop;
    }
    return section(0x4E, serviceId, body, 0, true, number, 1);
}

// The short form: no extension, number and version. With a CRC where the table has one.
inline Bytes shortSection(uint8_t tableId, const Bytes& body, bool withCrc) {
    const unsigned length = static_cast<unsigned>(body.size()) + (withCrc ? 4 : 0);
    const Bytes whole = Bytes{tableId} + be16(0x7000 | length) + body;
    const uint32_t crc = crc32Mpeg(whole);
    return withCrc ? whole + be16(crc >> 16) + be16(crc & 0xFFFF) : whole;
}

inline Bytes tdt(const Bytes& time) {
    return shortSection(0x70, time, false);
}

inline Bytes tot(const Bytes& time, const Bytes& descriptors) {
    return shortSection(
        0x73, time + be16(0xF000 | static_cast<unsigned>(descriptors.size())) + descriptors, true);
}

// A local time offset descriptor; offsets as 0x0100 for an hour.
inline Bytes timeOffset(std::string_view country, bool behind, unsigned offset, const Bytes& change,
                        unsigned next) {
    return descriptor(0x58, bytesOf(country) + Bytes{static_cast<uint8_t>(0x02 | behind)} +
                                be16(offset) + change + be16(next));
}

}  // namespace orvtest
