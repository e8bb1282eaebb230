#pragma once

#include <dtv/TunerTypes.h>

#include <cstdint>
#include <string>
#include <vector>

// What a broadcast tells of itself beside its services. Texts are in its own character coding.
namespace orvhost {

// A programme that is on air or comes next, from the EIT present/following of this stream.
struct BroadcastEvent {
    uint16_t serviceId = 0;
    bool following = false;  // comes next; else it is on air
    uint16_t eventId = 0;
    int64_t startUtcS = -1;  // seconds since 1970; -1: the broadcast does not say
    int32_t durationS = -1;  // likewise
    std::string language;    // ISO 639-2, of the texts
    std::vector<uint8_t> rawName;
    std::vector<uint8_t> rawText;
};

// The clock of the stream, from its TOT or TDT.
struct BroadcastClock {
    int64_t utcS = -1;               // as told last, seconds since 1970; -1: not told
    int32_t ageMs = 0;               // how long ago that was read
    int32_t localOffsetMinutes = 0;  // what local time is ahead of UTC, summer time included
    std::string country;             // ISO 3166, three letters; empty when no TOT names one
};

struct BroadcastInformation {
    TuneResult result;
    int networkId = -1;  // this and the next two: -1 where no table tells
    int originalNetworkId = -1;
    int transportStreamId = -1;
    int remoteControlKey = -1;  // -1 without a TS information descriptor
    std::vector<uint8_t> rawNetworkName;
    std::vector<uint8_t> rawStreamName;  // TS information descriptor
    std::vector<uint16_t> oneSegment;    // services of partial reception, as the NIT has them
    BroadcastClock clock;
    std::vector<BroadcastEvent> events;  // by service, what is on air before what comes next
};

}  // namespace orvhost
