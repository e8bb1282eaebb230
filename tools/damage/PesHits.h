// Which PES packets of a PID a damage hit: the most that a receiver may lose.
//
//   sound:    [start 1] [1] [1] [start 2] [2] [start 3] [3] ...
//   damaged:  [start 1] [1]  x  [start 2] [2] ...
//                            ^ PES 1 is hit
//
// A receiver knows that a PES packet is whole when the next one starts, and that nothing is missing
// from continuity_counter. The packet on either side of a hole can therefore go with it: a lost
// start takes away the end of the one before, and the start that comes right behind a hole is
// recognised but not kept (TSPacketParser begins its PES with the payload before the hole). Those
// packets are told apart from the ones hit.

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "damage/TsDamage.h"

namespace orvtest {

struct PesHits {
    size_t packets = 0;         // of the PID: changed, lost, out of place, or sent twice
    std::vector<bool> hit;      // by PES packet; the last one of the stream, never whole, left out
    std::vector<bool> besides;  // not hit, but beside a hole at its start or its end
};

PesHits pesHits(const std::vector<uint8_t>& sound, const std::vector<uint8_t>& damaged,
                const std::vector<TsDamage::Remnant>& remnants, uint16_t pid);

}  // namespace orvtest
