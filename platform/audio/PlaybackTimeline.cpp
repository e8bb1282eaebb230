#include "audio/PlaybackTimeline.h"

#include <algorithm>

namespace orvhost {
namespace {

constexpr int64_t NS_PER_SECOND = 1'000'000'000;
constexpr int64_t EARLY_LIMIT_NS = 201'000'000;
constexpr int64_t SILENCE_BLOCK_BYTES = 8192;

// Forms so slow that a block of silence lasts longer than the limit would need no latency at all:
// what a sound server needs at least.
constexpr int64_t MIN_LATENCY_NS = 40'000'000;

int64_t mulDivFloor(int64_t value, int64_t factor, int64_t divisor) {
    const __int128 product = static_cast<__int128>(value) * factor;
    const __int128 quotient = product / divisor;
    const bool below = product % divisor < 0;
    return static_cast<int64_t>(quotient) - (below ? 1 : 0);
}

int64_t mulDivCeil(int64_t value, int64_t factor, int64_t divisor) {
    return -mulDivFloor(-value, factor, divisor);
}

}  // namespace

int64_t PlaybackTimeline::nominalLatencyNs(uint32_t sampleRate, uint32_t bytesPerFrame) {
    const int64_t bytesPerSecond = static_cast<int64_t>(sampleRate) * bytesPerFrame;
    const int64_t halfBlockNs = mulDivFloor(SILENCE_BLOCK_BYTES, NS_PER_SECOND / 2, bytesPerSecond);
    return std::max(EARLY_LIMIT_NS - halfBlockNs, MIN_LATENCY_NS);
}

void PlaybackTimeline::start(int64_t nowNs, int64_t latencyNs) {
    mRunning = true;
    mFirstPlayTimeNs = nowNs + latencyNs;
    mCapacityFrames = mulDivCeil(latencyNs + HEADROOM_NS, mSampleRate, NS_PER_SECOND);
}

int64_t PlaybackTimeline::playTimeNs(int64_t frame) const {
    return mFirstPlayTimeNs + mulDivCeil(frame, NS_PER_SECOND, mSampleRate);
}

int64_t PlaybackTimeline::frameDueAt(int64_t timeNs) const {
    // playTimeNs(f) rounds up, so it is before a time t exactly when f / rate is at most t - 1 ns.
    return mulDivFloor(timeNs - mFirstPlayTimeNs - 1, mSampleRate, NS_PER_SECOND) + 1;
}

int64_t PlaybackTimeline::roomTimeNs(int64_t frame) const {
    return playTimeNs(frame - mCapacityFrames - 1) + 1;
}

}  // namespace orvhost
