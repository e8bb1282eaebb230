#pragma once

#include <cstdint>

#include "audio/PlaybackTap.h"

namespace orvhost {

// The tracks' side of the process-wide tap.
class PlaybackTapSlot {
public:
    PlaybackTapSlot() = delete;

    // False lets a track skip preparing the call. One relaxed load.
    static bool isSet();

    // Pass on to the tap, which cannot be exchanged meanwhile.
    static void played(const PlaybackBlock& block);
    static void flushed(int sessionId, int64_t nowNs);
};

}  // namespace orvhost
