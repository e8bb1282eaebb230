#include "dtv/PacketSynchronizer.h"

#include <algorithm>
#include <cstring>

#include "dtv/TsPacket.h"

namespace orvhost {

namespace {

constexpr size_t PERIODS[] = {188, 192, 204};
constexpr size_t SYNCS_TO_LOCK = 5;

// The bytes of the packets in sync from `data` on, without those whose end is not in sight.
size_t cleanRun(const uint8_t* data, size_t size) {
    size_t at = 0;
    while (size - at > TS_PACKET_BYTES && data[at] == TS_SYNC_BYTE &&
           data[at + TS_PACKET_BYTES] == TS_SYNC_BYTE) {
        at += TS_PACKET_BYTES;
    }
    return at;
}

enum class Match { Yes, No, Unknown };

// Whether packets of `period` bytes begin at `at`. At the very end of the data fewer sync bytes
// have to do: any number when the packets are known already or fill the data from its start on.
Match matches(const uint8_t* data, size_t size, size_t at, size_t period, bool last, bool known) {
    for (size_t i = 0; i < SYNCS_TO_LOCK; ++i) {
        const size_t position = at + i * period;
        if (position >= size) {
            if (!last) {
                return Match::Unknown;
            }
            const bool whole = at + TS_PACKET_BYTES <= size;
            return whole && (known || at == 0 || i >= 3) ? Match::Yes : Match::No;
        }
        if (data[position] != TS_SYNC_BYTE) {
            return Match::No;
        }
    }
    return Match::Yes;
}

}  // namespace

void PacketSynchronizer::reset() {
    mInSync = false;
}

// Returns where the next packet begins; the end of what is certainly none when there is no telling
// yet. Sets mInSync and mPeriod when found.
size_t PacketSynchronizer::search(const uint8_t* data, size_t size, size_t from, bool last) {
    size_t at = from;
    while (at < size) {
        const void* found = std::memchr(data + at, TS_SYNC_BYTE, size - at);
        if (found == nullptr) {
            return size;
        }
        at = static_cast<size_t>(static_cast<const uint8_t*>(found) - data);
        bool unknown = false;
        for (size_t period : PERIODS) {
            if (mPeriod != 0 && period != mPeriod) {
                continue;  // a source does not change its packets
            }
            const Match match = matches(data, size, at, period, last, mPeriod != 0);
            if (match == Match::Yes) {
                mPeriod = period;
                mInSync = true;
                return at;
            }
            unknown = unknown || match == Match::Unknown;
        }
        if (unknown) {
            return at;
        }
        ++at;
    }
    return size;
}

PacketSynchronizer::Verdict PacketSynchronizer::judge(const uint8_t* data, size_t size, size_t at,
                                                      bool last) const {
    if (size - at < TS_PACKET_BYTES) {
        return Verdict::NeedMore;
    }
    const size_t next = at + mPeriod;
    const bool here = data[at] == TS_SYNC_BYTE;
    if (next >= size) {
        return !last ? Verdict::NeedMore : here ? Verdict::Good : Verdict::Damaged;
    }
    if (data[next] == TS_SYNC_BYTE) {
        return here ? Verdict::Good : Verdict::Damaged;
    }
    if (!here) {
        return Verdict::Lost;
    }
    const size_t afterNext = next + mPeriod;
    if (afterNext >= size) {
        return last ? Verdict::Good : Verdict::NeedMore;
    }
    return data[afterNext] == TS_SYNC_BYTE ? Verdict::Good : Verdict::Lost;
}

PacketSynchronizer::Result PacketSynchronizer::align(uint8_t* data, size_t size, bool last) {
    size_t in = 0;
    size_t out = 0;
    while (in < size) {
        if (!mInSync) {
            const size_t found = search(data, size, in, last);
            mSkippedBytes += found - in;
            in = found;
            if (!mInSync) {
                break;
            }
        }
        if (out == in && mPeriod == TS_PACKET_BYTES) {
            in += cleanRun(data + in, size - in);
            out = in;
        }
        const Verdict verdict = judge(data, size, in, last);
        if (verdict == Verdict::NeedMore) {
            break;
        }
        if (verdict == Verdict::Lost) {
            mInSync = false;
            ++mSyncLosses;
            ++in;  // the packet that begins here is not whole: look on inside it
            ++mSkippedBytes;
            continue;
        }
        if (verdict == Verdict::Good) {
            if (out != in) {
                std::memmove(data + out, data + in, TS_PACKET_BYTES);
            }
            out += TS_PACKET_BYTES;
        } else {
            mSkippedBytes += TS_PACKET_BYTES;
            ++mSyncLosses;
        }
        in += std::min(mPeriod, size - in);
    }
    if (last && in < size) {
        mSkippedBytes += size - in;
        in = size;
    }
    return {out / TS_PACKET_BYTES, in};
}

}  // namespace orvhost
