#pragma once

#include <cstdint>
#include <deque>
#include <mutex>

#include "Distribution.h"

namespace orvplay {

// Measures sound against picture at the outputs: a flash on screen and the beep that belongs to it.
//
// Skew is the time of the sound minus that of the picture, positive when sound is late. A flash and
// a beep belong together when they are less than half a second apart. A stream without both is
// measured by its time stamps instead. Thread-safe: pictures and sound come on threads of their
// own.
class SyncMeter {
public:
    // A flash began on the picture shown at `timeNs`, a beep begins at `timeNs`: monotonic clock.
    void onFlash(int64_t timeNs);
    void onBeep(int64_t timeNs);
    // What was announced may never come: no flash or beep of before belongs to one that follows.
    void onBreak();
    // Skew by time stamps alone, of one block of sound.
    void onTimeStamps(double skewMs);

    // The skews by flashes and beeps where there were any, else by time stamps.
    Distribution skew() const;
    bool measuredByMarks() const;

private:
    void match();

    mutable std::mutex mLock;
    std::deque<int64_t> mFlashes;  // still without a partner, ascending
    std::deque<int64_t> mBeeps;
    Distribution mByMarks;
    Distribution mByTimeStamps;
};

}  // namespace orvplay
