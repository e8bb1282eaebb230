#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <unordered_set>
#include <vector>

#include "dtv/TsPacket.h"
#include "dtv/aslive/FaultScript.h"

namespace orvhost {

// Has the faults of a script happen to packets, when their time comes. The same packets at the same
// times, with the same seed, come out the same.
//
// Times are counted from the first packet on and handed in, ascending. One thread.
class FaultInjector {
public:
    // One that began.
    struct Happening {
        int64_t atNs;
        int64_t lengthNs;
        std::string text;
    };

    explicit FaultInjector(const FaultScript& script);

    // Faults that are due begin, others end; those that began, in the order of their times, are
    // added to `happened`.
    void advance(int64_t nowNs, std::vector<Happening>* happened);

    // Adds what becomes of the next packet to `out`: nothing, or one packet, or several.
    void pass(const uint8_t* packet, std::vector<uint8_t>* out);

private:
    struct State {
        const Fault fault;
        int64_t nextNs;        // when it begins next
        int64_t untilNs = -1;  // while it lasts
    };

    void begin(const Fault& fault);
    void announce(uint8_t* packet);
    bool damage(const Fault& fault, uint8_t* packet, int* copies, bool* isHeldBack);
    void flipBits(uint8_t* packet, double rate);
    bool chance(double rate) { return mUniform(mRandom) < rate; }

    std::vector<State> mStates;
    std::vector<const Fault*> mActive;
    std::mt19937_64 mRandom;
    std::uniform_real_distribution<double> mUniform{0.0, 1.0};
    int64_t mPcrShift = 0;    // 27 MHz, beside the next one
    int64_t mTimeShift = 0;   // of all times
    int64_t mWrapAhead = -1;  // a wrap waits for the next PCR; -1: none does
    bool mIsAnnouncing = false;
    std::unordered_set<uint16_t> mAnnounced;  // PIDs, of the last jump
    std::vector<uint8_t> mHeldBack;           // a packet that comes behind the next one
};

}  // namespace orvhost
