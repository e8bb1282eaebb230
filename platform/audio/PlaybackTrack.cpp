#include "audio/PlaybackTrack.h"

#include <utils/Errors.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "audio/PlaybackTapSlot.h"

namespace orvhost {
namespace {

// 40 ms: most of the headroom, so that a writer is woken once for two records of sound.
constexpr uint32_t PIECES_PER_SECOND = 25;

// No sound server is waited for longer than this; a slower one is heard with gaps.
constexpr int64_t MAX_DEVICE_LATENCY_NS = 2'000'000'000;

// Between a device's reported latency and ours, for its jitter.
constexpr int64_t DEVICE_MARGIN_NS = 20'000'000;

constexpr audio_channel_mask_t LEFT_CHANNELS =
    AUDIO_CHANNEL_OUT_FRONT_LEFT | AUDIO_CHANNEL_OUT_BACK_LEFT |
    AUDIO_CHANNEL_OUT_FRONT_LEFT_OF_CENTER | AUDIO_CHANNEL_OUT_SIDE_LEFT;
constexpr audio_channel_mask_t RIGHT_CHANNELS =
    AUDIO_CHANNEL_OUT_FRONT_RIGHT | AUDIO_CHANNEL_OUT_BACK_RIGHT |
    AUDIO_CHANNEL_OUT_FRONT_RIGHT_OF_CENTER | AUDIO_CHANNEL_OUT_SIDE_RIGHT;

}  // namespace

PlaybackTrack::PlaybackTrack(uint32_t sampleRate, audio_channel_mask_t channelMask, int sessionId,
                             AudioClock& clock)
    : mSampleRate(sampleRate),
      mChannelMask(channelMask),
      mChannelCount(static_cast<uint32_t>(std::popcount(channelMask))),
      mSessionId(sessionId),
      mFrameBytes(mChannelCount * sizeof(int16_t)),
      mPieceFrames(std::max(1U, sampleRate / PIECES_PER_SECOND)),
      mNominalLatencyNs(PlaybackTimeline::nominalLatencyNs(
          sampleRate, mChannelCount * static_cast<uint32_t>(sizeof(int16_t)))),
      mClock(clock),
      mTimeline(sampleRate) {
    mGains.fill(1.0F);
}

void PlaybackTrack::dropLocked() {
    mRun++;
    mTimeline.reset();
    mWritten = 0;
    mChanged.notify_all();
    if (PlaybackTapSlot::isSet()) {
        PlaybackTapSlot::flushed(mSessionId, mClock.nowNs());
    }
}

void PlaybackTrack::start() {
    const std::lock_guard<std::mutex> guard(mLock);
    if (mIsRunning) {
        return;
    }
    mIsRunning = true;
    dropLocked();
}

void PlaybackTrack::stop() {
    const std::lock_guard<std::mutex> guard(mLock);
    if (!mIsRunning) {
        return;
    }
    mIsRunning = false;
    mStops++;
    dropLocked();
}

void PlaybackTrack::flush() {
    const std::lock_guard<std::mutex> guard(mLock);
    mFlushes++;
    dropLocked();
}

void PlaybackTrack::setVolume(float left, float right) {
    const std::lock_guard<std::mutex> guard(mLock);
    mVolumeLeft = left;
    mVolumeRight = right;
    audio_channel_mask_t rest = mChannelMask;
    for (uint32_t channel = 0; channel < mChannelCount; channel++) {
        const audio_channel_mask_t lowest = rest & (~rest + 1);
        rest &= ~lowest;
        const bool isMono = mChannelCount == 1;
        mGains[channel] = !isMono && (lowest & LEFT_CHANNELS) != 0    ? left
                          : !isMono && (lowest & RIGHT_CHANNELS) != 0 ? right
                                                                      : (left + right) / 2;
    }
}

void PlaybackTrack::setDeviceLatency(int64_t latencyNs) {
    mDeviceLatencyNs.store(std::clamp<int64_t>(latencyNs, 0, MAX_DEVICE_LATENCY_NS),
                           std::memory_order_relaxed);
}

void PlaybackTrack::setBluetooth(bool isBluetooth) {
    mIsBluetooth.store(isBluetooth, std::memory_order_relaxed);
}

ssize_t PlaybackTrack::write(const void* pData, size_t size, bool blocking) {
    const auto* pPcm = static_cast<const uint8_t*>(pData);
    const size_t frames = size / mFrameBytes;
    size_t taken = 0;
    std::unique_lock<std::mutex> lock(mLock);
    const uint64_t flushes = mFlushes;
    const uint64_t stops = mStops;
    while (mIsRunning && mStops == stops) {
        taken += takeLocked(pPcm + taken * mFrameBytes, frames - taken, mClock.nowNs());
        if (taken == frames) {
            return static_cast<ssize_t>(size);
        }
        if (!blocking) {
            break;
        }
        mClock.waitUntil(lock, mChanged,
                         mTimeline.roomTimeNs(mWritten + static_cast<int64_t>(mPieceFrames)));
        if (mFlushes != flushes) {
            return static_cast<ssize_t>(size);  // dropped whole, what went before included
        }
    }
    if (taken > 0) {
        return static_cast<ssize_t>(taken * mFrameBytes);
    }
    return mIsRunning && mStops == stops ? android::WOULD_BLOCK : android::INVALID_OPERATION;
}

void PlaybackTrack::startTimelineLocked(int64_t nowNs) {
    const int64_t wantedNs =
        mNominalLatencyNs +
        (mIsBluetooth.load(std::memory_order_relaxed) ? PlaybackTimeline::BLUETOOTH_LATENCY_NS : 0);
    const int64_t deviceNs = mDeviceLatencyNs.load(std::memory_order_relaxed);
    mTimeline.start(nowNs, std::max(wantedNs, deviceNs + DEVICE_MARGIN_NS));
    mRingFrames = mTimeline.capacityFrames();
    mRing.resize(static_cast<size_t>(mRingFrames) * mChannelCount);
}

// Takes what has room, and all that is too late to be heard.
size_t PlaybackTrack::takeLocked(const uint8_t* pPcm, size_t frames, int64_t nowNs) {
    if (frames == 0) {
        return 0;
    }
    if (!mTimeline.isRunning()) {
        startTimelineLocked(nowNs);
    }
    const int64_t due = mTimeline.frameDueAt(nowNs);
    const int64_t room = due + mTimeline.capacityFrames() - mWritten;
    const size_t taken = std::min(frames, static_cast<size_t>(std::max<int64_t>(room, 0)));
    if (taken > 0 && PlaybackTapSlot::isSet()) {
        const auto late = static_cast<size_t>(std::max<int64_t>(due - mWritten, 0));
        PlaybackTapSlot::played({pPcm, taken, std::min(late, taken), mSampleRate, mChannelCount,
                                 mTimeline.playTimeNs(mWritten), mVolumeLeft, mVolumeRight,
                                 mSessionId});
    }
    storeLocked(pPcm, taken);
    return taken;
}

// What is late goes into the ring as well: it only keeps the place of its frames.
void PlaybackTrack::storeLocked(const uint8_t* pPcm, size_t frames) {
    while (frames > 0) {
        const auto at = static_cast<size_t>(mWritten % mRingFrames);
        const size_t run = std::min(frames, static_cast<size_t>(mRingFrames) - at);
        std::memcpy(&mRing[at * mChannelCount], pPcm, run * mFrameBytes);
        pPcm += run * mFrameBytes;
        frames -= run;
        mWritten += static_cast<int64_t>(run);
    }
}

PlaybackTrack::Position PlaybackTrack::positionAt(int64_t timeNs) {
    const std::lock_guard<std::mutex> guard(mLock);
    if (!mTimeline.isRunning()) {
        return {false, mRun, 0};
    }
    return {true, mRun, mTimeline.frameDueAt(timeNs)};
}

void PlaybackTrack::read(uint64_t run, int64_t frame, int16_t* pOut, size_t count) {
    const std::lock_guard<std::mutex> guard(mLock);
    const int64_t end = frame + static_cast<int64_t>(count);
    int64_t first = end;  // [first, last): the wanted frames that the ring holds
    int64_t last = end;
    if (mTimeline.isRunning() && run == mRun) {
        first = std::clamp(std::max<int64_t>(0, mWritten - mRingFrames), frame, end);
        last = std::clamp(mWritten, first, end);
    }
    const auto lead = static_cast<size_t>(first - frame);
    const auto held = static_cast<size_t>(last - first);
    std::memset(pOut, 0, lead * mFrameBytes);
    copyScaledLocked(first, pOut + lead * mChannelCount, held);
    std::memset(pOut + (lead + held) * mChannelCount, 0, (count - lead - held) * mFrameBytes);
}

void PlaybackTrack::copyScaledLocked(int64_t frame, int16_t* pOut, size_t count) const {
    while (count > 0) {
        const auto at = static_cast<size_t>(frame % mRingFrames);
        const size_t run = std::min(count, static_cast<size_t>(mRingFrames) - at);
        const int16_t* pIn = &mRing[at * mChannelCount];
        for (size_t sample = 0; sample < run * mChannelCount; sample++) {
            const float gain = mGains[sample % mChannelCount];
            *pOut++ = static_cast<int16_t>(std::lrintf(static_cast<float>(pIn[sample]) * gain));
        }
        frame += static_cast<int64_t>(run);
        count -= run;
    }
}

}  // namespace orvhost
