#include "loss/LossTable.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <unordered_map>

namespace orvtest {

namespace {

constexpr uint16_t NO_PID = 0x1FFF;
constexpr int64_t HOUR_27M = int64_t{3600} * 27'000'000;
constexpr int64_t WRAP_90K = int64_t{1} << 33;
constexpr int64_t SECOND_90K = 90'000;

// Which of the sound units came, and how many of them at another time. Silence makes equal units:
// each is taken for the nearest in time.
struct Matching {
    std::vector<bool> came;
    size_t restamped = 0;
};

Matching match(const std::vector<TakenUnit>& sound, const std::vector<TakenUnit>& taken,
               bool exactTimes) {
    std::unordered_map<uint64_t, std::vector<size_t>> byHash;
    for (size_t i = 0; i < sound.size(); ++i) {
        byHash[sound[i].hash].push_back(i);
    }
    Matching result{std::vector<bool>(sound.size()), 0};
    for (const TakenUnit& unit : taken) {
        std::vector<size_t>& left = byHash[unit.hash];
        const auto away = [&](size_t i) { return std::llabs(sound[i].pts90k - unit.pts90k); };
        const auto nearest = std::min_element(
            left.begin(), left.end(), [&](size_t a, size_t b) { return away(a) < away(b); });
        if (nearest == left.end() || (exactTimes && away(*nearest) != 0)) {
            continue;
        }
        result.restamped += away(*nearest) != 0 ? 1 : 0;
        result.came[*nearest] = true;
        left.erase(nearest);
    }
    return result;
}

// The PES packet in which each unit begins.
std::vector<size_t> pesOfUnits(const std::vector<TakenUnit>& pes,
                               const std::vector<TakenUnit>& units, bool severalInPes) {
    constexpr int64_t ROUNDING_90K = 90;
    std::vector<size_t> of;
    for (size_t i = 0, at = 0; i < units.size(); ++i) {
        at = severalInPes ? at : i;
        while (severalInPes && at + 1 < pes.size() &&
               pes[at + 1].pts90k <= units[i].pts90k + ROUNDING_90K) {
            ++at;
        }
        of.push_back(std::min(at, pes.size() - 1));
    }
    return of;
}

}  // namespace

struct LossTable::Damage {
    const char* name;
    std::function<void(TsDamage&, const orvplay::StreamSelection&)> apply;
    bool random = true;
    bool otherTimes = false;  // of all packets: they are told by their bytes alone
};

const std::vector<LossTable::Damage>& LossTable::damages() {
    using Streams = const orvplay::StreamSelection&;
    static const auto bothPids = [](Streams s) { return std::array{s.videoPid, s.audioPid}; };
    static const std::vector<Damage> all = {
        {"lost packets 1e-4", [](TsDamage& s, Streams) { s.losePackets(1e-4); }},
        {"lost packets 1e-3", [](TsDamage& s, Streams) { s.losePackets(1e-3); }},
        {"lost packets 1e-2", [](TsDamage& s, Streams) { s.losePackets(1e-2); }},
        {"lost packets 5e-2", [](TsDamage& s, Streams) { s.losePackets(5e-2); }},
        {"4 holes of 10", [](TsDamage& s, Streams) { s.loseBursts(10, 4); }, false},
        {"4 holes of 100", [](TsDamage& s, Streams) { s.loseBursts(100, 4); }, false},
        {"4 holes of 1000", [](TsDamage& s, Streams) { s.loseBursts(1000, 4); }, false},
        {"swapped 1e-3", [](TsDamage& s, Streams) { s.swapNeighbours(1e-3); }},
        {"sent twice 1e-3", [](TsDamage& s, Streams) { s.duplicatePackets(1e-3); }},
        {"bit errors 1e-6", [](TsDamage& s, Streams) { s.flipBits(1e-6); }},
        {"bit errors 1e-5", [](TsDamage& s, Streams) { s.flipBits(1e-5); }},
        {"bit errors 1e-4", [](TsDamage& s, Streams) { s.flipBits(1e-4); }},
        {"bit errors 1e-3", [](TsDamage& s, Streams) { s.flipBits(1e-3); }},
        {"marked bad 1e-3", [](TsDamage& s, Streams) { s.setTransportErrors(1e-3); }},
        {"scrambling bits 1e-3", [](TsDamage& s, Streams) { s.setScramblingBits(1e-3); }},
        {"scrambling bits 3e-2", [](TsDamage& s, Streams) { s.setScramblingBits(3e-2); }},
        {"slips, 4", [](TsDamage& s, Streams) { s.slipBytes(4); }},
        {"PCR an hour ahead", [](TsDamage& s, Streams) { s.jumpPcr(HOUR_27M); }, false},
        {"PCR an hour back", [](TsDamage& s, Streams) { s.jumpPcr(-HOUR_27M); }, false},
        {"33-bit wrap", [](TsDamage& s, Streams) { s.shiftTimes(WRAP_90K - 5 * SECOND_90K); },
         false, true},
        {"no PTS 1e-1",
         [](TsDamage& s, Streams streams) {
             for (const uint16_t pid : bothPids(streams)) {
                 s.removePts(pid, 1e-1);
             }
         },
         true, true},
        {"random PTS 1e-1",
         [](TsDamage& s, Streams streams) {
             for (const uint16_t pid : bothPids(streams)) {
                 s.randomizePts(pid, 1e-1);
             }
         },
         true, true},
        {"no PCR in the middle", [](TsDamage& s, Streams) { s.removePcrs(0.25, 0.75); }, false},
        {"clock 500 ppm fast", [](TsDamage& s, Streams) { s.skewClock(500); }, false, true},
        {"clock 500 ppm slow", [](TsDamage& s, Streams) { s.skewClock(-500); }, false, true},
    };
    return all;
}

LossTable::LossTable(std::vector<uint8_t> sound, const orvplay::StreamSelection& selection,
                     size_t seeds)
    : mSound(std::move(sound)),
      mSelection(selection),
      mSeeds(seeds),
      mPes(takeApart(mSound, selection, true)),
      mUnits(takeApart(mSound, selection, false)) {}

std::vector<LossRow> LossTable::measure(const std::function<void(const LossRow&)>& each) {
    std::vector<LossRow> rows;
    for (const Damage& damage : damages()) {
        rows.push_back(measureOne(damage));
        each(rows.back());
    }
    return rows;
}

LossRow LossTable::measureOne(const Damage& damage) {
    LossRow row;
    row.damage = damage.name;
    for (size_t seed = 1; seed <= (damage.random ? mSeeds : 1); ++seed) {
        TsDamage stream(mSound, seed);
        damage.apply(stream, mSelection);
        const std::vector<TsDamage::Remnant> remnants = stream.remnants();
        const std::vector<uint8_t> bytes = stream.take();
        const TakenApart pes = takeApart(bytes, mSelection, true);
        const TakenApart units = takeApart(bytes, mSelection, false);
        judge({mSelection.videoPid, true, mPes.video, mUnits.video},
              pesHits(mSound, bytes, remnants, mSelection.videoPid), damage.otherTimes, pes.video,
              units.video, &row);
        judge({mSelection.audioPid, false, mPes.audio, mUnits.audio},
              pesHits(mSound, bytes, remnants, mSelection.audioPid), damage.otherTimes, pes.audio,
              units.audio, &row);
    }
    return row;
}

void LossTable::judge(const Reference& sound, const PesHits& hits, bool otherTimes,
                      const std::vector<TakenUnit>& pes, const std::vector<TakenUnit>& units,
                      LossRow* row) {
    row->packetsHit += hits.packets;
    row->pesDelivered += pes.size();
    const Matching pesCame = match(sound.pes, pes, !otherTimes);
    std::vector<bool> excused(sound.pes.size());
    for (size_t i = 0; i < sound.pes.size(); ++i) {
        row->pesHit += hits.hit.at(i) ? 1 : 0;
        row->pesBesides += hits.besides.at(i) ? 1 : 0;
        // A PES packet that came whole lost nothing, whatever its packets went through.
        excused[i] = !pesCame.came[i];
        row->pesLost += pesCame.came[i] ? 0 : 1;
        row->pesTooMany += !pesCame.came[i] && !hits.hit[i] && !hits.besides[i] ? 1 : 0;
    }
    row->unitsDelivered += units.size();
    const Matching unitsCame = match(sound.units, units, false);
    row->restamped += otherTimes ? 0 : unitsCame.restamped;
    const std::vector<size_t> pesOf = pesOfUnits(sound.pes, sound.units, !sound.isVideo);
    bool spsCame = !sound.isVideo;
    for (size_t i = 0; i < sound.units.size(); ++i) {
        spsCame = spsCame || (sound.units[i].hasSps && pesCame.came[pesOf[i]]);
        if (unitsCame.came[i]) {
            continue;
        }
        ++row->unitsLost;
        bool touched = excused[pesOf[i]];
        if (!touched && !spsCame) {
            ++row->unitsWaited;
            touched = true;
        }
        if (!sound.isVideo) {
            // A unit may end in the next PES packet. Behind a hole the rest of the unit that was
            // cut is taken from the unit that follows.
            touched = touched || excused[pesOf[std::min(i + 1, pesOf.size() - 1)]] ||
                      excused[pesOf[i > 0 ? i - 1 : 0]];
        }
        row->unitsTooMany += touched ? 0 : 1;
    }
}

std::string LossRow::verdict() const {
    if (!holds()) {
        return "BROKEN: " + std::to_string(pesTooMany) + " PES, " + std::to_string(unitsTooMany) +
               " units lost that were not hit";
    }
    return pesLost <= pesHit ? "lost <= hit" : "lost <= hit + beside";
}

}  // namespace orvtest
