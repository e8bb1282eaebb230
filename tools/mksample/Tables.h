// The tables that describe the sample's services (ISO/IEC 13818-1 and the service information of
// ISDB-T): PAT, one PMT a service, NIT and SDT.

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "mksample/Options.h"

namespace mksample {

inline constexpr uint16_t kNoPcrPid = 0x1FFF;

struct AudioInfo {
    uint16_t pid = 0;
    uint8_t streamType = 0;
    uint8_t componentTag = 0;
    const char* language = "";  // ISO 639-2
};

struct ServiceInfo {
    uint16_t serviceId = 0;
    std::string name;
    bool partialReception = false;
    uint16_t pmtPid = 0;
    uint16_t pcrPid = kNoPcrPid;
    uint16_t videoPid = 0;
    std::vector<AudioInfo> audio;
    uint16_t captionPid = 0;  // 0: none
    uint8_t videoComponentTag = 0;
    uint8_t captionComponentTag = 0;
};

struct Table {
    uint16_t pid = 0;
    int periodMs = 0;
    std::vector<std::vector<uint8_t>> sections;
    // Of a table that changes: its sections so many seconds into the stream.
    std::function<std::vector<std::vector<uint8_t>>(double seconds)> renew;
};

// In the order in which a receiver wants them. Throws Failure.
std::vector<Table> buildTables(const std::vector<ServiceInfo>& services, Country country);

}  // namespace mksample
