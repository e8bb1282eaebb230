#include "damage/PesHits.h"

#include <cstring>
#include <unordered_map>

#include "damage/PacketView.h"

namespace orvtest {

namespace {

// The packets of the PID from its first start on, and the PES packet that each belongs to.
struct Numbered {
    std::vector<const uint8_t*> packets;
    std::vector<size_t> pes;
    std::unordered_map<size_t, size_t> byOrigin;  // index in the whole stream: index here
};

Numbered number(const std::vector<uint8_t>& sound, uint16_t pid) {
    Numbered numbered;
    size_t started = 0;
    for (size_t origin = 0; (origin + 1) * PACKET_BYTES <= sound.size(); ++origin) {
        const uint8_t* packet = sound.data() + origin * PACKET_BYTES;
        if (pidOf(packet) != pid) {
            continue;
        }
        started += startsUnit(packet) ? 1 : 0;
        if (started > 0) {
            numbered.byOrigin[origin] = numbered.packets.size();
            numbered.packets.push_back(packet);
            numbered.pes.push_back(started - 1);
        }
    }
    return numbered;
}

// Follows the damaged packets of the PID in the order in which they arrive.
class Follower {
public:
    explicit Follower(const Numbered& sound)
        : mSound(sound),
          mHits{0, std::vector<bool>(sound.pes.empty() ? 0 : sound.pes.back() + 1), {}} {
        mHits.besides = mHits.hit;
    }

    void arrive(const TsDamage::Remnant& remnant, const uint8_t* packet) {
        const auto found = mSound.byOrigin.find(remnant.origin);
        const bool own = found != mSound.byOrigin.end();
        if (!own || found->second < mNext) {  // another PID's, late, or for the second time
            if (mNext > 0) {
                strike(mNext - 1);
                hole(mNext, mNext);
            }
            return;
        }
        const size_t at = found->second;
        lose(at);
        mNext = at + 1;
        const uint8_t* const was = mSound.packets[at];
        const size_t header = payloadOf(was);
        if (memcmp(packet, was, PACKET_BYTES) != 0) {
            strike(at);
            if (memcmp(packet, was, header) != 0) {
                hole(at, at + 1);
            }
        }
    }

    PesHits finish() {
        lose(mSound.packets.size());
        for (size_t pes = 0; pes < mHits.hit.size(); ++pes) {
            mHits.besides[pes] = mHits.besides[pes] && !mHits.hit[pes];
        }
        if (!mHits.hit.empty()) {
            mHits.hit.pop_back();
            mHits.besides.pop_back();
        }
        return std::move(mHits);
    }

private:
    void strike(size_t at) {
        ++mHits.packets;
        mHits.hit[mSound.pes[at]] = true;
    }
    // Everything up to `end` did not come.
    void lose(size_t end) {
        for (size_t at = mNext; at < end; ++at) {
            strike(at);
        }
        if (end > mNext) {
            hole(mNext, end);
        }
    }
    // The packets from `begin` to `end` do not count for the receiver.
    void hole(size_t begin, size_t end) {
        const bool more = end < mSound.packets.size();
        for (size_t at = begin; at < end || (at == end && more); ++at) {
            if (!startsUnit(mSound.packets[at])) {
                continue;
            }
            if (at == end) {
                mHits.besides[mSound.pes[at]] = true;
            } else if (at > 0) {
                mHits.besides[mSound.pes[at] - 1] = true;
            }
        }
    }

    const Numbered& mSound;
    size_t mNext = 0;  // the packet that is due
    PesHits mHits;
};

}  // namespace

PesHits pesHits(const std::vector<uint8_t>& sound, const std::vector<uint8_t>& damaged,
                const std::vector<TsDamage::Remnant>& remnants, uint16_t pid) {
    const Numbered numbered = number(sound, pid);
    Follower follower(numbered);
    for (const TsDamage::Remnant& remnant : remnants) {
        const uint8_t* packet = damaged.data() + remnant.offset;
        const bool counts = packet[0] == SYNC_BYTE && (packet[1] & TRANSPORT_ERROR) == 0;
        if (counts && pidOf(packet) == pid) {
            follower.arrive(remnant, packet);
        }
    }
    return follower.finish();
}

}  // namespace orvtest
