#include "dtv/aslive/FaultInjector.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "dtv/aslive/PacketTimes.h"

namespace orvhost {

namespace {

constexpr int64_t NEVER = std::numeric_limits<int64_t>::max();
constexpr size_t HEADER_BYTES = 4;
constexpr uint8_t SCRAMBLED_EVEN = 0x80;

// Whether a packet is one of pictures, sound or captions; those of tables begin with a pointer.
bool isScrambleable(const uint8_t* packet) {
    constexpr uint16_t FIRST_FREE_PID = 0x30;  // below are tables
    return hasPayload(packet) && pidOf(packet) >= FIRST_FREE_PID && pidOf(packet) != PID_COUNT - 1;
}

}  // namespace

FaultInjector::FaultInjector(const FaultScript& script) : mRandom(script.seed) {
    mStates.reserve(script.faults.size());
    for (const Fault& fault : script.faults) {
        mStates.push_back({fault, fault.atNs});
    }
}

void FaultInjector::advance(int64_t nowNs, std::vector<Happening>* happened) {
    const size_t known = happened->size();
    mActive.clear();
    for (State& state : mStates) {
        while (state.nextNs <= nowNs) {
            happened->push_back({state.nextNs, state.fault.lengthNs, state.fault.text});
            state.untilNs = state.nextNs + state.fault.lengthNs;
            const bool isRepeated = state.fault.everyNs > 0;
            state.nextNs = isRepeated ? state.nextNs + state.fault.everyNs : NEVER;
            begin(state.fault);
        }
        if (nowNs < state.untilNs) {
            mActive.push_back(&state.fault);
        }
    }
    std::stable_sort(happened->begin() + static_cast<ptrdiff_t>(known), happened->end(),
                     [](const Happening& a, const Happening& b) { return a.atNs < b.atNs; });
}

void FaultInjector::begin(const Fault& fault) {
    switch (fault.kind) {
        case Fault::Kind::PCR_JUMP:
            mPcrShift = (mPcrShift + fault.ticks27M) % PCR_WRAP;
            break;
        case Fault::Kind::TIME_JUMP:
            mTimeShift = (mTimeShift + fault.ticks27M) % PCR_WRAP;
            break;
        case Fault::Kind::WRAP:
            mWrapAhead = fault.ticks27M;
            break;
        default:
            return;
    }
    mIsAnnouncing = fault.isAnnounced;
    mAnnounced.clear();
}

void FaultInjector::pass(const uint8_t* packet, std::vector<uint8_t>* out) {
    uint8_t changed[TS_PACKET_BYTES];
    std::copy_n(packet, TS_PACKET_BYTES, changed);
    if (mWrapAhead >= 0 && hasPcr(changed)) {
        const int64_t pcr = pcrOf(changed) + mTimeShift + mPcrShift;
        const int64_t ticks = PCR_WRAP - mWrapAhead - pcr;
        mTimeShift = (mTimeShift + ticks - ticks % TICKS_PER_STAMP) % PCR_WRAP;
        mWrapAhead = -1;
    }
    if (mTimeShift != 0 || mPcrShift != 0) {
        shiftPcr(changed, mTimeShift + mPcrShift);
        shiftStamps(changed, mTimeShift);
    }
    if (mIsAnnouncing) {
        announce(changed);
    }
    int copies = 1;
    bool isHeldBack = false;
    for (const Fault* fault : mActive) {
        const bool isHit = fault->pid == Fault::ANY_PID || fault->pid == pidOf(changed);
        if (isHit && !damage(*fault, changed, &copies, &isHeldBack)) {
            return;
        }
    }
    if (isHeldBack && mHeldBack.empty()) {
        mHeldBack.assign(changed, changed + TS_PACKET_BYTES);
        return;
    }
    for (; copies > 0; --copies) {
        out->insert(out->end(), changed, changed + TS_PACKET_BYTES);
    }
    out->insert(out->end(), mHeldBack.begin(), mHeldBack.end());
    mHeldBack.clear();
}

// The first PCR of each PID behind the jump says so (ISO/IEC 13818-1 2.4.3.5).
void FaultInjector::announce(uint8_t* packet) {
    if (hasPcr(packet) && mAnnounced.insert(pidOf(packet)).second) {
        packet[5] |= 0x80;
    }
}

// False for a packet that is lost.
bool FaultInjector::damage(const Fault& fault, uint8_t* packet, int* copies, bool* isHeldBack) {
    switch (fault.kind) {
        case Fault::Kind::GAP:
            return false;
        case Fault::Kind::DROP:
            return !chance(fault.rate);
        case Fault::Kind::BIT_ERRORS:
            flipBits(packet, fault.rate);
            break;
        case Fault::Kind::TRANSPORT_ERRORS:
            packet[1] |= chance(fault.rate) ? 0x80 : 0;
            break;
        case Fault::Kind::SCRAMBLE:
            packet[3] |= isScrambleable(packet) ? SCRAMBLED_EVEN : 0;
            break;
        case Fault::Kind::DUPLICATE:
            *copies += chance(fault.rate) ? 1 : 0;
            break;
        case Fault::Kind::REORDER:
            *isHeldBack = chance(fault.rate);
            break;
        case Fault::Kind::NO_PCR:
            removePcr(packet);
            break;
        default:
            break;
    }
    return true;
}

// From one wrong bit to the next, rather than bit by bit.
void FaultInjector::flipBits(uint8_t* packet, double rate) {
    constexpr double BITS = (TS_PACKET_BYTES - HEADER_BYTES) * 8;
    const double scale = rate < 1.0 ? std::log1p(-rate) : -1e300;
    for (double at = 0.0;; at += 1.0) {
        at += std::floor(std::log1p(-mUniform(mRandom)) / scale);
        if (!(at < BITS)) {
            return;
        }
        const auto bit = static_cast<size_t>(at);
        packet[HEADER_BYTES + bit / 8] ^= static_cast<uint8_t>(1u << (bit % 8));
    }
}

}  // namespace orvhost
