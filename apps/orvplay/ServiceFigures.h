#pragma once

#include <orvclient/Player.h>

#include <cstdint>

namespace orvplay {

// What the player service counted since begin(), although it counts since it started, and although
// another service may have taken over from one that ended. One thread.
class ServiceFigures {
public:
    // Counts from here: `now` is what the service says at this moment.
    void begin(const orvclient::PlaybackFigures& now);
    // What it says later; its beeps are in the totals until the next call. False, and all stays as
    // it is, when the service gave no answer (its process ID is 0).
    bool update(const orvclient::PlaybackFigures& now);

    const orvclient::PlaybackFigures& totals() const { return mTotals; }

private:
    int64_t mBeginNs = 0;
    orvclient::PlaybackFigures mBefore;  // where the present service began to count for us
    orvclient::PlaybackFigures mLast;    // of the present service
    orvclient::PlaybackFigures mEnded;   // what earlier ones came to
    orvclient::PlaybackFigures mTotals;
};

}  // namespace orvplay
