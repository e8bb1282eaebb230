#include "dtv/aslive/LoopJoint.h"

#include <algorithm>

#include "dtv/TsPacket.h"
#include "dtv/aslive/PacketTimes.h"

namespace orvhost {

namespace {

constexpr int64_t LONGEST_INTERVAL = 10 * PCR_HZ;  // a longer step of the PCR is a jump
constexpr int64_t MOST_OVERHANG = PCR_HZ;          // of pictures and sound over the PCRs
constexpr int64_t DEFAULT_LENGTH = PCR_HZ;         // of a file without any time

bool isPictureOrSound(uint8_t streamId) {
    return streamId >= 0xC0 && streamId <= 0xEF;  // ISO/IEC 13818-1, table 2-22
}

// The shorter way round the circle.
int64_t stampDistance(int64_t from, int64_t to) {
    const int64_t distance = (to - from) & (STAMP_WRAP - 1);
    return distance >= STAMP_WRAP / 2 ? distance - STAMP_WRAP : distance;
}

}  // namespace

bool LoopJoint::pass(uint8_t* packet) {
    const uint16_t number = pidOf(packet);
    if (number == PID_COUNT - 1) {
        mPackets += mLap == 0 ? 1 : 0;
        return true;
    }
    Pid& pid = mPids[number];
    if (mLap == 0) {
        learn(packet, pid);
        pid.lastCounter = continuityCounterOf(packet);
        return true;
    }
    const bool isFirst = pid.lap != mLap;
    if (isFirst) {
        pid.lap = mLap;
        pid.hasUnit = false;
    }
    shiftPcr(packet, mOffset);
    const bool isPayload = hasPayload(packet);
    if (isPayload && !pid.hasUnit && !startsUnit(packet)) {
        if (!hasPcr(packet)) {
            pid.lap = mLap - 1;  // the counter begins with the first that passes
            return false;
        }
        removePayload(packet);
        packet[3] = static_cast<uint8_t>((packet[3] & 0xF0) | pid.lastCounter);
        pid.lap = mLap - 1;
        return true;
    }
    pid.hasUnit = pid.hasUnit || isPayload;
    shiftStamps(packet, mOffset);
    continueCounter(packet, pid, isFirst);
    return true;
}

void LoopJoint::continueCounter(uint8_t* packet, Pid& pid, bool isFirstOfLap) {
    if (isFirstOfLap) {
        const int wanted = pid.lastCounter + (hasPayload(packet) ? 1 : 0);
        pid.counterOffset = static_cast<uint8_t>((wanted - continuityCounterOf(packet)) & 0x0F);
    }
    pid.lastCounter =
        static_cast<uint8_t>((continuityCounterOf(packet) + pid.counterOffset) & 0x0F);
    packet[3] = static_cast<uint8_t>((packet[3] & 0xF0) | pid.lastCounter);
}

void LoopJoint::learn(const uint8_t* packet, Pid& pid) {
    if (hasPcr(packet) && (mPcrPid == 0xFFFF || mPcrPid == pidOf(packet))) {
        mPcrPid = pidOf(packet);
        learnPcr(packet);
    }
    ++mPackets;
    uint8_t streamId = 0;
    const size_t at = stampOffsetOf(packet, &streamId);
    if (at == 0 || !isPictureOrSound(streamId)) {
        return;
    }
    const int64_t stamp = stampAt(packet + at);
    if (pid.firstStamp < 0) {
        pid.firstStamp = stamp;
    }
    const int64_t distance = stampDistance(pid.firstStamp, stamp);
    pid.least = std::min(pid.least, distance);
    pid.most = std::max(pid.most, distance);
    ++pid.stamps;
}

void LoopJoint::learnPcr(const uint8_t* packet) {
    const int64_t pcr = pcrOf(packet);
    if (mFirstPcr < 0) {
        mFirstPcr = pcr;
        mFirstPcrAt = mPackets;
    } else if (const int64_t step = pcrDistance(mLastPcr, pcr); step <= LONGEST_INTERVAL) {
        mRatedTicks += step;
        mRatedPackets += mPackets - mLastPcrAt;
    }
    mLastPcr = pcr;
    mLastPcrAt = mPackets;
}

int64_t LoopJoint::length27M() const {
    int64_t length = 0;
    if (mRatedPackets > 0) {
        const int64_t outside = mPackets - (mLastPcrAt - mFirstPcrAt);
        length =
            pcrDistance(mFirstPcr, mLastPcr) +
            static_cast<int64_t>(static_cast<double>(mRatedTicks) /
                                 static_cast<double>(mRatedPackets) * static_cast<double>(outside));
    }
    for (const auto& [number, pid] : mPids) {
        if (pid.stamps < 2) {
            continue;
        }
        const int64_t span = pid.most - pid.least;
        const int64_t whole = (span + span / (pid.stamps - 1)) * TICKS_PER_STAMP;
        if (mRatedPackets == 0 || whole - length < MOST_OVERHANG) {
            length = std::max(length, whole);
        }
    }
    length = (length + TICKS_PER_STAMP - 1) / TICKS_PER_STAMP * TICKS_PER_STAMP;
    return length > 0 ? length : DEFAULT_LENGTH;
}

void LoopJoint::beginLap() {
    if (mLap == 0) {
        mLength = length27M();
    }
    ++mLap;
    mOffset = (mOffset + mLength) % PCR_WRAP;
}

}  // namespace orvhost
