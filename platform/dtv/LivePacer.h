#pragma once

#include <cstddef>
#include <cstdint>

#include "dtv/PcrPacer.h"

namespace orvhost {

// Says when packets that a live sender sends are handed over: each DELAY_NS after it came, but at
// the even pace of the stream's own clock.
//
//   arrival     |||  ||     |||||  |||   ||        as the network has it
//   handed over      | | | | | | | | | | | | |     150 ms later, by the PCR
//
// The sender's clock is not ours. How far ahead of its time the newest packet is when it comes (the
// cushion) tells how the two run apart; the pace follows slowly, so that the cushion stays what it
// is for as long as the sender sends. A cushion that is far off (the sender sent a heap at once,
// its time jumped) is set right in one step, and after a pause the pace begins anew.
//
// Not thread-safe; knows no clock: times are handed in.
class LivePacer {
public:
    LivePacer();

    void setPcrPid(uint16_t pid) { mPacer.setPcrPid(pid); }

    // `count` packets have come by nowNs.
    void add(const uint8_t* packets, size_t count, int64_t nowNs);

    // How many more packets are due at nowNs; they are done with.
    size_t takeDue(int64_t nowNs);

    // Whether packets wait for their time.
    bool isEmpty() const { return mWaiting == 0; }

    // By how much the newest packet was ahead of its time when it came, on average.
    int64_t cushionNs() const { return DELAY_NS + mOffNs; }

    // How often the cushion was set right in one step.
    uint64_t steps() const { return mSteps; }

    static constexpr int64_t DELAY_NS = 150'000'000;
    // What is that much longer than the delay, or late by so much, is not waited out.
    static constexpr int64_t MOST_AHEAD_NS = 250'000'000;
    static constexpr int64_t MOST_BEHIND_NS = 500'000'000;

private:
    void follow(int64_t offNs, int64_t nowNs);
    void settle(int64_t offNs, int64_t nowNs);
    size_t takeAll();
    bool hasPaused(int64_t nowNs) const;

    PcrPacer mPacer;
    size_t mWaiting = 0;
    bool mBegun = false;
    int64_t mLastCameNs = 0;
    int64_t mOffNs = 0;   // the cushion against DELAY_NS, smoothed
    int64_t mLastNs = 0;  // when the pace followed last
    uint64_t mSteps = 0;
};

}  // namespace orvhost
