#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include "SyncMeter.h"
#include "audio/PlaybackTap.h"
#include "pattern/TestPattern.h"

namespace orvplay {

// Listens to what the player's sound output plays: counts sample frames and times beeps.
// Set as the playback tap from construction to destruction.
class SoundMeter : public orvhost::PlaybackTap {
public:
    explicit SoundMeter(SyncMeter& sync);
    ~SoundMeter() override;

    uint64_t frames() const { return mFrames; }
    // Something was played while the output was not muted.
    bool heard() const { return mHeard; }

    // A block of sound whose time stamp is `earlyMs` ahead of the sound clock is about to be
    // written. Render thread.
    void onAudioReady(long earlyMs);

    // PlaybackTap.
    void onBlock(const orvhost::PlaybackBlock& block) override;
    void onFlushed(int sessionId, int64_t nowNs) override;

private:
    SyncMeter& mSync;
    std::atomic<uint64_t> mFrames{0};
    std::atomic<bool> mHeard{false};
    std::atomic<double> mOutputLatencyMs{0.0};  // from a write into an empty track to the ear
    std::mutex mLock;                           // the three below: one track writes, any flushes
    std::unique_ptr<orvtest::BeepDetector> mDetector;
    uint32_t mSampleRate = 0;
    uint32_t mChannels = 0;
};

}  // namespace orvplay
