#pragma once

#include <atomic>
#include <cstdint>

namespace OrvPlayer {

// What controllers count while they play, for whoever hosts the service. Written by threads of the
// pipeline, read by any; each figure is exact by itself, the set is no snapshot. Counts go on over
// controllers.
struct PlaybackFigures {
    std::atomic<uint64_t> framesTimed{0};      // pictures whose time came, shown or not
    std::atomic<int64_t> lastFrameTimedNs{0};  // monotonic clock; 0: none yet
    std::atomic<int64_t> audioEarlyMs{
        0};  // of the sound at hand against the sound clock, the latest
    std::atomic<uint64_t> audioEarlyCount{0};  // how often that was told
    std::atomic<int64_t> firstPcrUs{0};  // the clock was set, since the last start; 0: not yet
};

// How full a ring buffer is, for the same.
struct BufferFill {
    const char* name;  // for ever
    uint32_t usedBytes;
    uint32_t sizeBytes;
};

}  // namespace OrvPlayer
