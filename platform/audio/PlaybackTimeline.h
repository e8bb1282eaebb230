#pragma once

#include <cstdint>

namespace orvhost {

// Which sample frame is due to be heard when: pure arithmetic, in frames and monotonic nanoseconds.
//
//                 heard                         written         limit
//   frames  ------->|------ ahead of the ear ----->|-- room ------>|
//                   |<----------------- capacity ----------------->|
//
// Frame 0 is heard one latency after the moment of start(), frame n exactly n / rate after it, for
// ever: neither a writer that pauses nor a device that drifts moves the line. Not thread-safe.
class PlaybackTimeline {
public:
    explicit PlaybackTimeline(uint32_t sampleRate) : mSampleRate(sampleRate) {}

    // How long after its writing the first frame of a stream of this form is heard.
    //
    // The player starts its clock with the first write and plays at once whatever is due within 201
    // ms. What is due later waits behind silence that is inserted 8,192 bytes at a time, so that
    // records are written between 201 ms and 201 ms less such a block early. The middle of the two
    // as the latency keeps sound within half a block of the picture.
    static int64_t nominalLatencyNs(uint32_t sampleRate, uint32_t bytesPerFrame);

    // Taken off by the player from every time stamp while sound goes to a Bluetooth output.
    static constexpr int64_t BLUETOOTH_LATENCY_NS = 170'000'000;

    // A writer may be this much further ahead than the latency.
    static constexpr int64_t HEADROOM_NS = 50'000'000;

    void start(int64_t nowNs, int64_t latencyNs);
    void reset() { mRunning = false; }
    bool isRunning() const { return mRunning; }

    // Everything below needs a running line.

    int64_t playTimeNs(int64_t frame) const;

    // The first frame whose play time is not before `timeNs`; negative before frame 0.
    int64_t frameDueAt(int64_t timeNs) const;

    int64_t capacityFrames() const { return mCapacityFrames; }

    // When frames up to `frame` (not included) may have been written.
    int64_t roomTimeNs(int64_t frame) const;

private:
    const uint32_t mSampleRate;
    bool mRunning = false;
    int64_t mFirstPlayTimeNs = 0;
    int64_t mCapacityFrames = 0;
};

}  // namespace orvhost
