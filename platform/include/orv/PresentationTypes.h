#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// How presentation is timed, in plain types: for those who look on, on either side of a process
// border.
namespace orvhost {

// What became of one frame, block of sound or caption, or what happened to the presentation clock.
struct PresentationEvent {
    enum class Kind : uint8_t { VIDEO, AUDIO, SILENCE, CAPTION, CLOCK };
    enum class Outcome : uint8_t {
        SHOWN,
        SHUT,       // its time came while the outputs were shut
        LATE,       // too late to be shown
        EARLY,      // its time is absurdly far ahead
        NO_CLOCK,   // there was no presentation time
        SKIPPED,    // frames are left out until one that stands by itself
        FLUSHED,    // playback was stopped before its time came
        CLOCK_OFF,  // so far from the clock that the clock was reset
        REBASED,    // CLOCK: its time jumped
        RESET,      // CLOCK: it begins anew
        NO_WINDOW,  // there was no free buffer of the window
    };
    static constexpr int64_t NO_TIME = -1;

    int64_t timeNs = 0;          // CLOCK_MONOTONIC: when it was shown or dropped
    int64_t pts90k = 0;          // CLOCK: the new time
    int64_t clock90k = NO_TIME;  // the presentation time at that moment
    int32_t waitMs = 0;          // until it was due when it was looked at; CLOCK: the jump
    uint32_t frames = 0;         // sample frames of AUDIO and SILENCE
    Kind kind = Kind::VIDEO;
    Outcome outcome = Outcome::SHOWN;
};

// How full a ring buffer between two stages of the player is.
struct BufferFill {
    std::string name;
    uint32_t usedBytes = 0;
    uint32_t sizeBytes = 0;
};

// What came since the last report.
struct PresentationReport {
    std::vector<PresentationEvent> events;  // in the order of their happening, thread by thread
    uint64_t missed = 0;                    // events that nobody took in time
    std::vector<BufferFill> fills;          // at this moment; none while nothing plays
    double outputLatencyMs = 0.0;  // of sound, from a write into an empty track; 0: none yet

    static constexpr size_t MAX_EVENTS = 1024;
    static constexpr size_t MAX_FILLS = 16;
    static constexpr size_t MAX_NAME = 32;
};

}  // namespace orvhost
