#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "dtv/TsPacket.h"
#include "dtv/Tuner.h"

namespace orvhost {

// Counts what passes, per PID: packets, continuity errors, PCR intervals. Not thread-safe.
class PacketCounter {
public:
    void count(const uint8_t* packet);

    // After a jump in the source: the next counter and PCR of each PID are taken as they come.
    void forgetContinuity();

    uint64_t packets() const { return mPackets; }
    std::vector<PidStatistics> pids() const;  // ascending

private:
    struct Entry {
        PidStatistics statistics;
        uint8_t counter = 0;
        bool counterKnown = false;
        bool duplicated = false;  // the last payload packet came twice already
        int64_t pcr = -1;
    };

    void countContinuity(const uint8_t* packet, Entry& entry);
    void countPcr(const uint8_t* packet, Entry& entry);

    uint64_t mPackets = 0;
    std::array<uint16_t, PID_COUNT> mIndex{};  // into mEntries, plus one; 0: not seen
    std::vector<Entry> mEntries;
};

}  // namespace orvhost
