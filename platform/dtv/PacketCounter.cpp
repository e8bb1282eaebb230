#include "dtv/PacketCounter.h"

#include <algorithm>

namespace orvhost {

namespace {

// A longer step of the PCR is a jump, not an interval.
constexpr int64_t LONGEST_INTERVAL_NS = 10'000'000'000;

}  // namespace

void PacketCounter::countUnusual(const uint8_t* packet) {
    const uint16_t pid = pidOf(packet);
    if (mIndex[pid] == 0) {
        mEntries.emplace_back().statistics.pid = pid;
        mIndex[pid] = static_cast<uint16_t>(mEntries.size());
    }
    Entry& entry = mEntries[mIndex[pid] - 1u];
    ++entry.statistics.packets;
    if (hasTransportError(packet)) {
        ++entry.statistics.transportErrors;
        return;  // nothing in it can be trusted, its counter included
    }
    if (isScrambled(packet)) {
        ++entry.statistics.scrambled;
    }
    if (pid != PID_NONE) {
        countContinuity(packet, entry);
    } else {
        entry.counterStep = 0;
        entry.expectAfter(continuityCounterOf(packet));
    }
    if (hasPcr(packet)) {
        countPcr(packet, entry);
    }
}

// ISO/IEC 13818-1 2.4.3.3: one step per packet with payload, none without, one repetition allowed.
void PacketCounter::countContinuity(const uint8_t* packet, Entry& entry) {
    const uint8_t counter = continuityCounterOf(packet);
    const bool known = entry.counterKnown && !hasDiscontinuityIndicator(packet);
    const bool repeats = counter == entry.counter;
    bool good = true;
    bool duplicated = false;
    if (known && !hasPayload(packet)) {
        good = repeats;
        duplicated = entry.duplicated;
    } else if (known && repeats) {
        good = !entry.duplicated;
        duplicated = true;
    } else if (known) {
        good = counter == ((entry.counter + 1) & 0x0F);
    }
    entry.statistics.continuityErrors += good ? 0 : 1;
    entry.counter = counter;
    entry.counterKnown = true;
    entry.duplicated = duplicated;
    entry.expectAfter(counter);
}

void PacketCounter::countPcr(const uint8_t* packet, Entry& entry) {
    const int64_t pcr = pcrOf(packet);
    ++entry.statistics.pcrCount;
    if (entry.pcr >= 0 && !hasDiscontinuityIndicator(packet)) {
        const int64_t interval = pcrToNs(pcrDistance(entry.pcr, pcr));
        if (interval <= LONGEST_INTERVAL_NS) {
            entry.statistics.maxPcrIntervalNs =
                std::max(entry.statistics.maxPcrIntervalNs, interval);
        }
    }
    entry.pcr = pcr;
}

void PacketCounter::forgetContinuity() {
    for (Entry& entry : mEntries) {
        entry.counterKnown = false;
        entry.duplicated = false;
        entry.usual = NO_USUAL;
        entry.pcr = -1;
    }
}

uint64_t PacketCounter::packets() const {
    uint64_t all = 0;
    for (const Entry& entry : mEntries) {
        all += entry.statistics.packets;
    }
    return all;
}

std::vector<PidStatistics> PacketCounter::pids() const {
    std::vector<PidStatistics> list;
    for (uint16_t index : mIndex) {
        if (index != 0) {
            list.push_back(mEntries[index - 1u].statistics);
        }
    }
    return list;
}

}  // namespace orvhost
