#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "audio/PlaybackTap.h"
#include "pattern/TestPattern.h"

namespace orvplayerd {

// Listens to what the player's sound output plays: counts sample frames and times the beeps of test
// streams. The figures may be read by any thread.
class SoundCounter : public orvhost::PlaybackTap {
public:
    uint64_t frames() const { return mFrames; }
    // Something was played while the output was not muted.
    bool heard() const { return mHeard; }
    // From a write into an empty track to the ear; 0 before the first sound.
    double outputLatencyMs() const { return mOutputLatencyMs; }
    // When beeps are heard (CLOCK_MONOTONIC), since the last call; the latest ones.
    std::vector<int64_t> takeBeepsNs();

    // PlaybackTap.
    void onBlock(const orvhost::PlaybackBlock& block) override;
    void onFlushed(int sessionId, int64_t nowNs) override;

private:
    void changeFormat(uint32_t sampleRate, uint32_t channels);

    std::atomic<uint64_t> mFrames{0};
    std::atomic<bool> mHeard{false};
    std::atomic<double> mOutputLatencyMs{0.0};
    std::mutex mLock;  // all below: one track writes, any thread flushes and reads
    std::unique_ptr<orvtest::BeepDetector> mDetector;
    std::vector<int16_t> mSamples;
    std::deque<int64_t> mBeepsNs;
    uint32_t mSampleRate = 0;
    uint32_t mChannels = 0;
};

}  // namespace orvplayerd
