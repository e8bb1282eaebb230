#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "dtv/SectionCollector.h"
#include "dtv/ServiceTables.h"

namespace orvhost {

// The tables of one programme: followed in a stream of many programmes, and written for a stream
// of this one alone (ISO/IEC 13818-1 2.4.4).
//
// The PMT keeps the body that it has in the source, descriptors and all, and its PID; the PAT names
// it and nothing else. Both have versions of their own, which step with each change. Not
// thread-safe.
class ProgrammeTables : private SectionSink {
public:
    explicit ProgrammeTables(TunedProgramme programme);
    ~ProgrammeTables() override;
    ProgrammeTables(const ProgrammeTables&) = delete;  // the collectors know us by address
    ProgrammeTables& operator=(const ProgrammeTables&) = delete;

    const Service& service() const { return mProgramme.service; }

    // What to follow: PAT and PMT, then the clock and the streams of the programme, each PID once.
    const std::vector<uint16_t>& pids() const { return mPids; }

    // Whether push() wants packets of the PID.
    bool isTable(uint16_t pid) const { return pid == 0 || pid == mProgramme.service.pmtPid; }

    // True when service() and pids() have changed with this packet.
    bool push(const uint8_t* packet);

    // Both tables as packets, with the continuity counters that come next. Good until the next
    // call.
    const std::vector<uint8_t>& nextPackets();

private:
    struct Table {
        std::vector<uint8_t> packets;
        uint8_t version = 0;
        uint8_t counter = 0;
    };

    void onSection(const Section& section) override;
    void followPmtPid(uint16_t pid);
    void collectPids();
    void build(Table& table, uint16_t pid, uint8_t tableId, uint16_t extension,
               const std::vector<uint8_t>& body) const;
    void buildPat();
    void buildPmt();
    static void stamp(Table& table, std::vector<uint8_t>& out);

    TunedProgramme mProgramme;
    std::vector<uint16_t> mPids;
    SectionCollector mPatCollector;
    std::unique_ptr<SectionCollector> mPmtCollector;
    Table mPat;
    Table mPmt;
    std::vector<uint8_t> mNext;
    // What a section said, for after its collector's call.
    uint16_t mNewPmtPid;
    std::vector<uint8_t> mNewPmt;
};

}  // namespace orvhost
