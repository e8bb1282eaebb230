// What the player loses of damaged copies of a stream, held against what the damage hit.
//
//   LossTable table(stream, selection, seeds);
//   for (const LossRow& row : table.measure()) { ... }
//
// The promise: a damaged packet costs at most the PES packet that it belongs to, and the units in
// it; where the way that PES packets are found to be whole takes the one before or behind a hole
// along (see PesHits), those are counted apart. So are the pictures before the first sequence
// parameter set that comes: nothing can decode them.

#pragma once

#include <functional>
#include <string>
#include <vector>

#include "damage/PesHits.h"
#include "damage/TsDamage.h"
#include "loss/TakenApart.h"

namespace orvtest {

struct LossRow {
    std::string damage;
    size_t packetsHit = 0;
    size_t pesHit = 0;
    size_t pesBesides = 0;
    size_t pesDelivered = 0;
    size_t pesLost = 0;     // not delivered, or not as they were
    size_t pesTooMany = 0;  // lost, though neither hit nor beside a hole
    size_t unitsDelivered = 0;
    size_t unitsLost = 0;
    size_t unitsWaited = 0;   // of those: pictures before the first SPS that came
    size_t unitsTooMany = 0;  // lost, though nothing of them was hit
    size_t restamped = 0;     // units delivered whole, at another time

    bool holds() const { return pesTooMany == 0 && unitsTooMany == 0; }
    std::string verdict() const;
};

class LossTable {
public:
    // Random damage is done `seeds` times, and the row is the sum. The bytes must begin with a
    // packet.
    LossTable(std::vector<uint8_t> sound, const orvplay::StreamSelection& selection, size_t seeds);

    // False when the sound stream itself cannot be taken apart.
    bool usable() const { return !mPes.video.empty() && !mPes.audio.empty(); }

    std::vector<LossRow> measure(const std::function<void(const LossRow&)>& each);

private:
    struct Damage;
    // One elementary stream of the sound copy.
    struct Reference {
        uint16_t pid;
        bool isVideo;
        const std::vector<TakenUnit>& pes;
        const std::vector<TakenUnit>& units;
    };

    static const std::vector<Damage>& damages();
    LossRow measureOne(const Damage& damage);
    static void judge(const Reference& sound, const PesHits& hits, bool otherTimes,
                      const std::vector<TakenUnit>& pes, const std::vector<TakenUnit>& units,
                      LossRow* row);

    const std::vector<uint8_t> mSound;
    const orvplay::StreamSelection mSelection;
    const size_t mSeeds;
    TakenApart mPes;
    TakenApart mUnits;
};

}  // namespace orvtest
