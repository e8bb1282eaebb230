#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "common/Uint33.h"

namespace OrvPlayer {

// What became of one frame, block of sound or caption, or what happened to the presentation clock.
struct PresentationRecord {
    enum Kind : uint8_t { VIDEO, AUDIO, SILENCE, CAPTION, CLOCK };
    enum Outcome : uint8_t {
        SHOWN,      // given to the surface, the track or the listener
        SHUT,       // its time came while the outputs were shut
        LATE,       // too late to be shown
        EARLY,      // its time is absurdly far ahead
        NO_CLOCK,   // there was no presentation time
        SKIPPED,    // frames are left out until one that stands by itself
        FLUSHED,    // playback was stopped before its time came
        CLOCK_OFF,  // so far from the clock that the clock was reset
        REBASED,    // CLOCK: the base moved, or another source defines the time
        RESET,      // CLOCK: bases were forgotten that there were
    };
    static constexpr Uint33 NO_TIME = ~Uint33{0};

    int64_t timeNs = 0;  // monotonic clock: when it was shown or dropped
    Uint33 pts = 0;      // CLOCK: the new time
    Uint33 clock = NO_TIME;
    int32_t waitMs = 0;   // until it was due when it was looked at; CLOCK: how far the time jumped
    uint32_t frames = 0;  // sample frames of AUDIO and SILENCE
    Kind kind = VIDEO;
    Outcome outcome = SHOWN;
};

// Where the renderers and the clock note what they do, for whoever wants to look on.
//
//   renderers, clock --add()--> [ CAPACITY records ] --take()--> one reader
//
// Off, a writer does no more than ask isOn(). On, add() takes a place by a counter and fills it: no
// lock, no allocation, no wait, any number of threads. A full log loses what comes and counts it; a
// reader that stays away for as long again is gone, and the log turns itself off.
class PresentationLog {
public:
    static constexpr size_t CAPACITY = 4096;  // half a minute of a broadcast; a power of two

    // The one of the process. Never destroyed.
    static PresentationLog& instance();

    PresentationLog();
    PresentationLog(const PresentationLog&) = delete;  // writers know it by address
    PresentationLog& operator=(const PresentationLog&) = delete;

    bool isOn() const { return mOn.load(std::memory_order_relaxed); }
    // Turning it on forgets what an earlier reader left, and counts that as missed. The reader.
    void setOn(bool on);

    // The record gets the time of now.
    void add(PresentationRecord record);

    // Moves the oldest records, at most `most`, to `records`; their number. `missed` is how many
    // were lost since the last call. One reader at a time.
    size_t take(PresentationRecord* records, size_t most, uint64_t* missed);

private:
    // A place is free for the writer of turn n, and holds the record of turn n for its reader,
    // when its turn says so: n, then n + 1, then n + CAPACITY.
    struct Place {
        std::atomic<uint64_t> turn{0};
        PresentationRecord record;
    };

    std::atomic<bool> mOn{false};
    alignas(64) std::atomic<uint64_t> mNext{0};  // the writers'
    std::atomic<uint64_t> mMissed{0};
    alignas(64) uint64_t mRead = 0;  // the reader's
    std::array<Place, CAPACITY> mPlaces;
};

}  // namespace OrvPlayer
