#include "SoundMeter.h"

#include <cstring>
#include <vector>

namespace orvplay {

namespace {

constexpr double EARLY_MS = 201.0;        // so much ahead of its time sound is written at once
constexpr double SILENCE_BYTES = 8192.0;  // and one pass of silence before that is so long
constexpr double MAX_EARLY_MS = 1000.0;

}  // namespace

SoundMeter::SoundMeter(SyncMeter& sync) : mSync(sync) {
    orvhost::setPlaybackTap(this);
}

SoundMeter::~SoundMeter() {
    orvhost::setPlaybackTap(nullptr);
}

void SoundMeter::onAudioReady(long earlyMs) {
    const double latencyMs = mOutputLatencyMs;
    const auto early = static_cast<double>(earlyMs);
    if (latencyMs > 0.0 && early < EARLY_MS && early > -MAX_EARLY_MS) {
        mSync.onTimeStamps(latencyMs - early);
    }
}

void SoundMeter::onBlock(const orvhost::PlaybackBlock& block) {
    mFrames += block.frameCount;
    std::lock_guard<std::mutex> guard(mLock);
    if (block.sampleRate != mSampleRate || block.channelCount != mChannels) {
        mSampleRate = block.sampleRate;
        mChannels = block.channelCount;
        mDetector = std::make_unique<orvtest::BeepDetector>(static_cast<int>(mSampleRate),
                                                            static_cast<int>(mChannels));
        mOutputLatencyMs = EARLY_MS - SILENCE_BYTES * 1000.0 / (2.0 * mChannels * mSampleRate) / 2;
    }
    if (block.volumeLeft <= 0.0f || block.missedFrames >= block.frameCount) {
        mDetector->reset();
        return;
    }
    mHeard = true;
    // Samples may stand at any address; the detector wants them aligned.
    std::vector<int16_t> samples(block.frameCount * block.channelCount);
    memcpy(samples.data(), block.pPcm, samples.size() * sizeof samples[0]);
    for (const int64_t onsetUs :
         mDetector->feed(samples.data(), block.frameCount, block.playTimeNs / 1000)) {
        mSync.onBeep(onsetUs * 1000);
    }
}

void SoundMeter::onFlushed(int, int64_t) {
    std::lock_guard<std::mutex> guard(mLock);
    if (mDetector != nullptr) {
        mDetector->reset();
    }
}

}  // namespace orvplay
