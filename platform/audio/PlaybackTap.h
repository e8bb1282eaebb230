#pragma once

#include <cstddef>
#include <cstdint>

namespace orvhost {

// What a track took from its writer: all of one write(), or a part of it when the track was full.
struct PlaybackBlock {
    const void* pPcm;     // 16-bit, interleaved, maybe not aligned; valid during the call only
    size_t frameCount;    // sample frames at pPcm
    size_t missedFrames;  // of them, so many at the front came too late and are not heard
    uint32_t sampleRate;  // Hz
    uint32_t channelCount;
    int64_t playTimeNs;  // monotonic time at which the first frame of pPcm is (was) due to be heard
    float volumeLeft;    // gain at the time of writing: 0 on a muted track
    float volumeRight;
    int sessionId;
};

// Hears about everything that is played by any track of the process: for measuring sound against
// picture and for counting. The calls of one track come in order, on the writer's thread and with
// the track locked, so a listener is quick and calls no track.
class PlaybackTap {
public:
    virtual ~PlaybackTap() = default;

    virtual void onBlock(const PlaybackBlock& block) = 0;

    // Start, flush or stop at `nowNs`: of the session's blocks, what was due later is not heard.
    virtual void onFlushed(int sessionId, int64_t nowNs) = 0;
};

// Sets the process-wide tap, null for none. When it returns the former tap is called no more, so
// the caller may destroy it. Without a tap a write pays one relaxed load.
void setPlaybackTap(PlaybackTap* pTap);

}  // namespace orvhost
