#pragma once

#include <dtv/BroadcastTypes.h>

#include <array>
#include <bitset>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dtv/SectionCollector.h"
#include "dtv/Services.h"
#include "dtv/TsPacket.h"

namespace orvhost {

// A programme as its tables have it: what they say, and the PMT itself.
struct TunedProgramme {
    uint16_t transportStreamId = 0;  // of the PAT; 0 without one
    Service service;
    std::vector<uint8_t> pmt;  // the section's body, see Section
};

// What the body of a PMT says. A body that contradicts itself gives what fits into it.
Service readPmt(uint16_t serviceId, uint16_t pmtPid, const uint8_t* body, size_t size);

// Where the PAT has the PMT of a programme, as far as this section of it tells; else PID_NONE.
uint16_t pmtPidIn(const Section& pat, uint16_t serviceId);

// Collects the services of a transport stream from its tables: PAT, PMT (ISO/IEC 13818-1), SDT and
// NIT (ETSI EN 300 468, ARIB STD-B10). Without a PAT, as in a stream of one-segment services alone,
// the PIDs kept for their PMTs (0x1FC8 to 0x1FCF) are looked at.
//
// Feed it the packets that wants() names, in order; newer versions replace what it knows. Tables
// that contradict themselves give what fits into them. Not thread-safe.
class ServiceTables : private SectionSink {
public:
    ServiceTables();
    ~ServiceTables() override;
    ServiceTables(const ServiceTables&) = delete;  // the collectors know us by address
    ServiceTables& operator=(const ServiceTables&) = delete;

    bool wants(uint16_t pid) const { return mWanted[pid] != 0; }
    void push(const uint8_t* packet);

    // PAT, the PMT of each programme in it, and the SDT are there.
    bool isComplete() const;

    // Those whose PMT was read, in the order of their service ids.
    std::vector<Service> services() const;

    // The programme with streams on these PIDs: on both, else on one; among equals `preferredId`,
    // else the lowest id. Nothing when none has either.
    std::optional<TunedProgramme> findProgramme(int videoPid, int audioPid,
                                                uint16_t preferredId) const;

    const std::string& networkName() const { return mNetworkName; }

    // Adds what NIT and SDT tell of the network and of the stream in it.
    void addTo(BroadcastInformation* information) const;

    // The services of which the SDT says that their events are told.
    std::vector<uint16_t> servicesWithEvents() const;

private:
    // Which sections of a table of several were seen.
    struct Progress {
        int version = -1;
        std::bitset<256> seen;
        size_t wanted = 0;

        bool isNewVersion(const Section& section);  // and begins it
        void note(const Section& section);
        bool isWhole() const { return version >= 0 && seen.count() >= wanted; }
    };

    struct Label {
        uint8_t type = 0;
        std::vector<uint8_t> name;
        std::vector<uint8_t> provider;
        bool hasEvents = false;
    };

    // What the NIT says of a stream of the network.
    struct Stream {
        int remoteControlKey = -1;
        std::vector<uint8_t> name;
        std::vector<uint16_t> oneSegment;
    };

    void onSection(const Section& section) override;
    void takePat(const Section& section);
    void takePmt(const Section& section);
    void takeSdt(const Section& section);
    void takeNit(const Section& section);
    static Stream readStream(const std::vector<Descriptor>& descriptors);
    void follow(uint16_t pid);
    void followPat();

    std::array<uint8_t, PID_COUNT> mWanted{};
    std::map<uint16_t, std::unique_ptr<SectionCollector>> mCollectors;  // by PID
    Progress mPat;
    Progress mSdt;
    std::map<uint16_t, uint16_t> mPmtPids;  // by service id, from the PAT
    uint16_t mTransportStreamId = 0;
    std::map<uint16_t, Service> mProgrammes;         // by service id, from the PMTs
    std::map<uint16_t, std::vector<uint8_t>> mPmts;  // their bodies
    std::map<uint16_t, Label> mLabels;               // by service id, from the SDT
    std::string mNetworkName;
    std::vector<uint8_t> mRawNetworkName;
    int mNetworkId = -1;
    int mOriginalNetworkId = -1;          // of the SDT, else of the NIT
    std::map<uint16_t, Stream> mStreams;  // by transport_stream_id
    bool mPatChanged = false;  // collectors follow after the packet, not inside their own call
};

// The part of a broadcast text that can be told without its own character coding: ASCII and Latin-1
// letters. Always valid UTF-8.
std::string latinText(const std::vector<uint8_t>& raw);

}  // namespace orvhost
