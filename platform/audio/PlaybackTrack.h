#pragma once

#include <sys/types.h>
#include <system/audio.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "audio/AudioClock.h"
#include "audio/PlaybackTimeline.h"

namespace orvhost {

// The track without a device: takes PCM at the pace of the timeline and keeps what is not heard
// yet.
//
//   writer ---> [ ring: the last capacity frames ] <--- a device reads what is due when it plays
//                  paced by the clock alone
//
// A device only looks into the ring: it neither paces the writer nor can hold it up. With no device
// looking the track is the silent one, and nothing that happens to a device changes a time stamp.
//
// One lock, never held across a wait for anything but room. It is a leaf: the device's thread takes
// it inside its own lock, the tap is called under it.
class PlaybackTrack {
public:
    // A valid rate, and a mask of 1 to 8 loudspeakers.
    PlaybackTrack(uint32_t sampleRate, audio_channel_mask_t channelMask, int sessionId,
                  AudioClock& clock = AudioClock::system());
    PlaybackTrack(const PlaybackTrack&) = delete;  // writers and a device hold its address
    PlaybackTrack& operator=(const PlaybackTrack&) = delete;

    // The writer's side: as AudioTrack, whose contract is theirs.
    void start();
    void stop();
    void flush();
    void setVolume(float left, float right);
    ssize_t write(const void* pData, size_t size, bool blocking);

    // The device's side.

    struct Position {
        bool isDue;     // false while nothing was written since start or flush
        uint64_t run;   // changes with each start, flush and stop
        int64_t frame;  // due to be heard at the time asked for; may be negative: silence before 0
    };
    Position positionAt(int64_t timeNs);

    // Copies frames [frame, frame + count) with the volume applied. Silence stands for what is not
    // written yet, has left the ring, or belongs to another run than `run`.
    void read(uint64_t run, int64_t frame, int16_t* pOut, size_t count);

    // What the device adds, used from the next start or flush on. A device slower than the nominal
    // latency makes the track as late as it has to be: late sound is better than none.
    void setDeviceLatency(int64_t latencyNs);
    void setBluetooth(bool isBluetooth);

    uint32_t sampleRate() const { return mSampleRate; }
    audio_channel_mask_t channelMask() const { return mChannelMask; }
    uint32_t channelCount() const { return mChannelCount; }
    int64_t nominalLatencyNs() const { return mNominalLatencyNs; }
    AudioClock& clock() const { return mClock; }

private:
    void dropLocked();
    void startTimelineLocked(int64_t nowNs);
    size_t takeLocked(const uint8_t* pPcm, size_t frames, int64_t nowNs);
    void storeLocked(const uint8_t* pPcm, size_t frames);
    void copyScaledLocked(int64_t frame, int16_t* pOut, size_t count) const;

    const uint32_t mSampleRate;
    const audio_channel_mask_t mChannelMask;
    const uint32_t mChannelCount;
    const int mSessionId;
    const size_t mFrameBytes;
    const size_t mPieceFrames;  // a waiting writer goes on when this much has room
    const int64_t mNominalLatencyNs;
    AudioClock& mClock;

    std::atomic<int64_t> mDeviceLatencyNs{0};
    std::atomic<bool> mIsBluetooth{false};

    std::mutex mLock;  // guards all below
    std::condition_variable mChanged;
    bool mIsRunning = false;
    uint64_t mFlushes = 0;  // told apart by a writer that waited through one
    uint64_t mStops = 0;
    uint64_t mRun = 0;
    float mVolumeLeft = 1.0F;
    float mVolumeRight = 1.0F;
    std::array<float, 8> mGains;  // of each channel, from the two volumes
    PlaybackTimeline mTimeline;
    int64_t mWritten = 0;        // frames taken in this run
    std::vector<int16_t> mRing;  // frame n at n mod mRingFrames
    int64_t mRingFrames = 0;
};

}  // namespace orvhost
