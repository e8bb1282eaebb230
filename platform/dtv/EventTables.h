#pragma once

#include <dtv/BroadcastTypes.h>

#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "dtv/SectionCollector.h"

namespace orvhost {

// Collects what a transport stream tells of time: its clock (TDT and TOT) and, for each service,
// what is on air and what comes next (EIT present/following of the actual stream, on the PIDs of
// full-segment, mobile and one-segment receivers). ETSI EN 300 468, ARIB STD-B10.
//
// Feed it the packets that wants() names, in order. What it keeps is bounded: two events of so many
// services. Not thread-safe.
class EventTables : private SectionSink {
public:
    EventTables();
    ~EventTables() override;
    EventTables(const EventTables&) = delete;  // the collectors know us by address
    EventTables& operator=(const EventTables&) = delete;

    static bool wants(uint16_t pid) { return pid < 64 && (WANTED >> pid & 1) != 0; }
    void push(const uint8_t* packet);

    // Counts what was taken in.
    uint64_t revision() const { return mRevision; }
    uint64_t clockRevision() const { return mClockRevision; }

    // Both events of a service, or that there are none.
    bool isTold(uint16_t serviceId) const;

    // Adds clock and events. What is there already tells the time zone where the TOT does not.
    void addTo(BroadcastInformation* information) const;

private:
    static constexpr uint16_t PID_EIT = 0x12;
    static constexpr uint16_t PID_TOT = 0x14;
    static constexpr uint16_t PID_EIT_MOBILE = 0x26;
    static constexpr uint16_t PID_EIT_ONE_SEGMENT = 0x27;
    static constexpr uint64_t WANTED =
        1ULL << PID_EIT | 1ULL << PID_TOT | 1ULL << PID_EIT_MOBILE | 1ULL << PID_EIT_ONE_SEGMENT;

    // The time zone as the TOT has it, relative to the tables' own time.
    struct Zone {
        std::string country;
        int aheadMinutes = 0;
        int64_t changesAt = -1;  // in the tables' time
        int aheadThenMinutes = 0;
    };

    void onSection(const Section& section) override;
    void takeEvents(const Section& section);
    void takeTime(const Section& section);

    // A service's section; nothing where the section was empty. Times are the tables' own.
    std::map<std::pair<uint16_t, uint8_t>, std::vector<BroadcastEvent>> mEvents;
    int mOriginalNetworkId = -1;
    int64_t mTableTime = -1;
    Zone mZone;
    uint64_t mRevision = 0;
    uint64_t mClockRevision = 0;
    std::vector<std::pair<uint16_t, std::unique_ptr<SectionCollector>>> mCollectors;  // by PID
};

}  // namespace orvhost
