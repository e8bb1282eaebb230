#include "dtv/StreamClock.h"

#include "dtv/TsPacket.h"

namespace orvhost {

namespace {

// Without DTS the stamps of reordered pictures go back and forth: only those ahead of all before
// count. What lies further back than this is a jump.
constexpr int64_t REORDER_TICKS = PCR_HZ * 4 / 10;

constexpr size_t STAMP_OFFSET = 9;  // of the PTS in a PES packet
constexpr size_t STAMP_BYTES = 5;

// Whether the PES header of this stream_id has flags and time stamps (ISO/IEC 13818-1 2.4.3.6).
bool mayHaveStamps(uint8_t streamId) {
    switch (streamId) {
        case 0xBC:  // program_stream_map
        case 0xBE:  // padding_stream
        case 0xBF:  // private_stream_2
        case 0xF0:  // ECM
        case 0xF1:  // EMM
        case 0xF2:  // DSMCC
        case 0xF8:  // H.222.1 type E
        case 0xFF:  // program_stream_directory
            return false;
        default:
            return true;
    }
}

// -1 when its marker bits say that this is no time stamp.
int64_t stampAt(const uint8_t* p) {
    if ((p[0] & 1) == 0 || (p[2] & 1) == 0 || (p[4] & 1) == 0) {
        return -1;
    }
    return int64_t{p[0] & 0x0E} << 29 | int64_t{p[1]} << 22 | int64_t{p[2] & 0xFE} << 14 |
           int64_t{p[3]} << 7 | int64_t{p[4]} >> 1;
}

// The PTS, or the DTS where there is one and it is wanted; -1 without any.
int64_t stampOfUnit(const uint8_t* packet, bool wantDts) {
    if (!startsUnit(packet) || !hasPayload(packet) || hasTransportError(packet) ||
        isScrambled(packet)) {
        return -1;
    }
    const size_t start = (packet[3] & 0x20) != 0 ? 5u + packet[4] : 4u;
    if (start + STAMP_OFFSET + STAMP_BYTES > TS_PACKET_BYTES) {
        return -1;
    }
    const uint8_t* pes = packet + start;
    const bool isPes = pes[0] == 0 && pes[1] == 0 && pes[2] == 1 && (pes[6] & 0xC0) == 0x80;
    if (!isPes || !mayHaveStamps(pes[3])) {
        return -1;
    }
    const int flags = pes[7] >> 6;  // PTS_DTS_flags
    const size_t at = flags == 3 && wantDts ? STAMP_OFFSET + STAMP_BYTES : STAMP_OFFSET;
    const size_t end = at + STAMP_BYTES;
    if (flags < 2 || STAMP_OFFSET + pes[8] < end || start + end > TS_PACKET_BYTES) {
        return -1;
    }
    const int64_t stamp = stampAt(pes + at);
    return stamp < 0 ? -1 : stamp * 300;
}

}  // namespace

int64_t decodingTimeOf(const uint8_t* packet) {
    return stampOfUnit(packet, true);
}

int64_t presentationTimeOf(const uint8_t* packet) {
    return stampOfUnit(packet, false);
}

bool StreamClock::setPcrPid(uint16_t pid) {
    const bool changes = pid != mPcrPid;
    mPcrPid = pid;
    return changes;
}

void StreamClock::choose(const uint8_t* packets, size_t count) {
    if (mChosen || count == 0) {
        return;
    }
    mChosen = true;
    bool stamped = false;
    for (size_t i = 0; i < count; ++i) {
        const uint8_t* packet = packets + i * TS_PACKET_BYTES;
        if (hasPcr(packet)) {
            return;
        }
        stamped = stamped || (pidOf(packet) == mStampPid && decodingTimeOf(packet) >= 0);
    }
    mByStamps = true;
    mStampPid = stamped ? mStampPid : PID_NONE;
}

int64_t StreamClock::sampleOf(const uint8_t* packet) {
    if (hasPcr(packet) && (mPcrPid == PID_NONE || pidOf(packet) == mPcrPid)) {
        mPcrPid = pidOf(packet);
        mByStamps = false;
        return pcrOf(packet);
    }
    return mByStamps && startsUnit(packet) ? stampOf(packet) : -1;
}

int64_t StreamClock::stampOf(const uint8_t* packet) {
    if (mStampPid != PID_NONE && pidOf(packet) != mStampPid) {
        return -1;
    }
    const int64_t stamp = decodingTimeOf(packet);
    if (stamp < 0) {
        return -1;
    }
    mStampPid = pidOf(packet);
    if (mLastStamp >= 0 && pcrDistance(stamp, mLastStamp) <= REORDER_TICKS) {
        return -1;
    }
    mLastStamp = stamp;
    return stamp;
}

void StreamClock::takeAnyPid() {
    mPcrPid = PID_NONE;
    mStampPid = PID_NONE;
    forgetStamp();
}

}  // namespace orvhost
