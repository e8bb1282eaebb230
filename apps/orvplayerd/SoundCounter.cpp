#include "SoundCounter.h"

#include <orv/IMonitor.h>

#include <cstring>
#include <utility>

namespace orvplayerd {

namespace {

constexpr double EARLY_MS = 201.0;        // so much ahead of its time sound is written at once
constexpr double SILENCE_BYTES = 8192.0;  // and one pass of silence before that is so long

}  // namespace

void SoundCounter::onBlock(const orvhost::PlaybackBlock& block) {
    mFrames += block.frameCount;
    std::lock_guard lock(mLock);
    if (block.sampleRate != mSampleRate || block.channelCount != mChannels) {
        changeFormat(block.sampleRate, block.channelCount);
    }
    if (block.volumeLeft <= 0.0f || block.missedFrames >= block.frameCount) {
        mDetector->reset();
        return;
    }
    mHeard = true;
    // Samples may stand at any address; the detector wants them aligned.
    mSamples.resize(block.frameCount * block.channelCount);
    memcpy(mSamples.data(), block.pPcm, mSamples.size() * sizeof mSamples[0]);
    for (const int64_t onsetUs :
         mDetector->feed(mSamples.data(), block.frameCount, block.playTimeNs / 1000)) {
        mBeepsNs.push_back(onsetUs * 1000);
        if (mBeepsNs.size() > orvhost::PlaybackFigures::MAX_BEEPS) {
            mBeepsNs.pop_front();
        }
    }
}

void SoundCounter::changeFormat(uint32_t sampleRate, uint32_t channels) {
    mSampleRate = sampleRate;
    mChannels = channels;
    mDetector = std::make_unique<orvtest::BeepDetector>(static_cast<int>(sampleRate),
                                                        static_cast<int>(channels));
    mOutputLatencyMs = EARLY_MS - SILENCE_BYTES * 1000.0 / (2.0 * channels * sampleRate) / 2;
}

void SoundCounter::onFlushed(int, int64_t) {
    std::lock_guard lock(mLock);
    if (mDetector != nullptr) {
        mDetector->reset();
    }
}

std::vector<int64_t> SoundCounter::takeBeepsNs() {
    std::lock_guard lock(mLock);
    const std::deque<int64_t> beeps = std::exchange(mBeepsNs, {});
    return {beeps.begin(), beeps.end()};
}

}  // namespace orvplayerd
