#pragma once

#include <orvclient/Player.h>

#include <cstdint>

#include "SyncMeter.h"

namespace orvplay {

// Measures the sound by what the player service tells of it: the beeps of a test broadcast, and how
// far sound is ahead of its clock. One thread.
class SoundMeter {
public:
    explicit SoundMeter(SyncMeter& sync) : mSync(sync) {}

    // What the service counted so far; its beeps are those since the last call.
    void onFigures(const orvclient::PlaybackFigures& figures);

private:
    SyncMeter& mSync;
    uint64_t mEarlyCount = 0;
};

}  // namespace orvplay
