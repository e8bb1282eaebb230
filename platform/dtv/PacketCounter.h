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
    void count(const uint8_t* packet) {
        const uint16_t index = mIndex[pidOf(packet)];
        if (index != 0 && (packet[1] & 0x80) == 0) {
            Entry& entry = mEntries[index - 1u];
            if (packet[3] == entry.usual) {
                entry.passUsual();
                return;
            }
        }
        countUnusual(packet);
    }

    // After a jump in the source: the next counter and PCR of each PID are taken as they come.
    void forgetContinuity();

    uint64_t packets() const;
    std::vector<PidStatistics> pids() const;  // ascending

private:
    struct Entry {
        PidStatistics statistics;
        uint8_t counter = 0;
        bool counterKnown = false;
        bool duplicated = false;  // the last payload packet came twice already
        // Byte 3 of a packet that needs no look: clear, no adaptation field, the next counter.
        uint16_t usual = NO_USUAL;
        uint8_t counterStep = 1;  // 0 for null packets, whose counters mean nothing
        int64_t pcr = -1;

        void passUsual() {
            ++statistics.packets;
            counter = usual & 0x0F;
            duplicated = false;
            expectAfter(counter);
        }
        void expectAfter(uint8_t last) {
            usual = static_cast<uint16_t>(0x10 | ((last + counterStep) & 0x0F));
        }
    };
    static constexpr uint16_t NO_USUAL = 0x100;  // no byte

    void countUnusual(const uint8_t* packet);
    void countContinuity(const uint8_t* packet, Entry& entry);
    void countPcr(const uint8_t* packet, Entry& entry);

    std::array<uint16_t, PID_COUNT> mIndex{};  // into mEntries, plus one; 0: not seen
    std::vector<Entry> mEntries;
};

}  // namespace orvhost
