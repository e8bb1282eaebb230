#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "dtv/Services.h"
#include "dtv/TsPacket.h"

namespace orvhost {

// Collects the services of a transport stream from its tables: PAT, PMT (ISO/IEC 13818-1), SDT and
// NIT (ETSI EN 300 468, ARIB STD-B10). Without a PAT, as in a stream of one-segment services alone,
// the PIDs kept for their PMTs (0x1FC8 to 0x1FCF, ARIB STD-B10) are looked at.
//
// Feed it the packets that wants() names, in order; newer versions replace what it knows. Not
// thread-safe.
class ServiceTables {
public:
    ServiceTables();
    ~ServiceTables();
    ServiceTables(const ServiceTables&) = delete;  // the table decoders know us by address
    ServiceTables& operator=(const ServiceTables&) = delete;

    bool wants(uint16_t pid) const { return mWanted[pid] != 0; }
    void push(const uint8_t* packet);

    // PAT, the PMT of each programme in it, and the SDT are there.
    bool isComplete() const;

    // Those whose PMT was read, in the order of their service ids.
    std::vector<Service> services() const;
    const std::string& networkName() const { return mNetworkName; }

private:
    struct Decoders;  // hides the table library

    struct Label {
        uint8_t type = 0;
        std::vector<uint8_t> name;
        std::vector<uint8_t> provider;
    };

    std::array<uint8_t, PID_COUNT> mWanted{};
    bool mHasPat = false;
    bool mHasSdt = false;
    std::map<uint16_t, uint16_t> mPmtPids;    // by service id, from the PAT
    std::map<uint16_t, Service> mProgrammes;  // by service id, from the PMTs
    std::map<uint16_t, Label> mLabels;        // by service id, from the SDT
    std::string mNetworkName;
    std::unique_ptr<Decoders> mpDecoders;
};

// The part of a broadcast text that can be told without its own character coding: ASCII and Latin-1
// letters. Always valid UTF-8.
std::string latinText(const std::vector<uint8_t>& raw);

}  // namespace orvhost
