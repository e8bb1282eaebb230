#pragma once

#include <media/AudioTrack.h>
#include <utils/Thread.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "common/CallbackTimer.h"
#include "common/Data.h"
#include "common/Module.h"
#include "common/PCRListener.h"
#include "common/PresentationLog.h"
#include "common/Synchronization.h"
#include "common/Uint33.h"
#include "renderer/OutputDeviceThread.h"

namespace OrvPlayer {

// Plays decoded sound in step with the presentation clock.
//
// The renderer keeps a clock of its own: the presentation time of the next byte to be written. It
// is taken from the presentation clock once and then advances with what is written; losing step
// ("dropping synchronisation") empties the track and takes it anew.
//
//   record's PTS - audio clock     over 201 ms early: silence first
//                                  over 201 ms late: the beginning is skipped
//                                  over 10 s either way: the presentation clock starts afresh
//
// A track that has nothing to play is fed silence, so that it and the clock go on.
class AudioRenderer : public Module, public PCRListener {
public:
    static constexpr int ERR_RENDER = 0x41001;
    static constexpr int ERR_RECORD_TYPE = 0x41003;
    static constexpr int ERR_CONFIGURATION = 0x41004;

    class AudioRenderedListener {
    public:
        virtual void onAudioRendered() {}
        // How early (positive) or late the record at hand is. Render thread, every pass.
        virtual void onAudioReady(long /*msec*/) {}
        // -1 when the track has gone.
        virtual void onAudioSessionId(int /*id*/) {}
        virtual ~AudioRenderedListener() = default;
    };

    explicit AudioRenderer(const android::sp<Synchronization>& synchronization);

    // Needs the input ring buffer. 0 or ERR_CONFIGURATION.
    int configure();
    // 1 without an input, or without a thread.
    int start() override;
    int stop() override;
    // Stops the track as well: a write into it could last as long as the sound that waits there.
    void requestExit() override;
    int dump(FILE* stream, int indent) override;

    // Full volume or none; drops synchronisation. May be called from onAudioRendered.
    void setOutputEnable(bool enable);

    // Drop synchronisation. onPCRChanged comes with the presentation clock's lock held.
    void resyncPCR();
    void onPCRChanged(unsigned long pcr) override;

    // True once after the outputs changed.
    bool checkOutputDevice();
    // Accepted and ignored.
    void setSoundEffect(int /*effect*/) {}

    void startResyncTimer();
    void stopResyncTimer();

    // Set before start().
    void setAudioRenderedListener(AudioRenderedListener* listener) { mListener = listener; }

protected:
    ~AudioRenderer() override;

private:
    class RenderThread;
    enum State { STOPPED = 1, STARTED = 2 };

    // How one pass of the render loop goes on from a step.
    enum class Step { GO_ON, PASS_DONE };

    static void onResyncTimerCallback(void* renderer);

    void halt();
    int createAudioPlayer();
    android::sp<android::AudioTrack> track();
    android::sp<OutputDeviceThread> deviceThread();
    void dropSynchronization();
    void reportSession(int id);

    // Render thread. All but render() run with the input's read lock held and say through `status`
    // what render() returns.
    int render();
    int renderSilence();
    Step checkRecord(const AudioFragmentData& record, int* status);
    Step adoptConfiguration(const AudioFragmentData& record, int* status);
    Step synchronize(bool configurationChanged);
    Step checkDistance(const AudioFragmentData& record, int64_t* distance);
    void insertSilence(const AudioFragmentData& record, int64_t distanceMs);
    void playRecord(AudioFragmentData& record, int64_t distance);
    bool writeTrack(const unsigned char* bytes, size_t size);
    void advanceClock(size_t bytes);
    void note(const AudioFragmentData& record, int64_t distance, size_t bytes,
              PresentationRecord::Outcome outcome);
    void noteSilence(size_t bytes);
    void noteBytes(PresentationRecord record, size_t bytes);
    void consume(const AudioFragmentData& record) { mInput->readAdvance(record.mSize); }

    const android::sp<Synchronization> mSynchronization;
    std::unique_ptr<CallbackTimer> mResyncTimer;
    AudioRenderedListener* mListener = nullptr;

    std::mutex mStartStopLock;  // start() against stop(), held across joins; before mLock
    android::sp<RenderThread> mRenderThread;
    std::atomic<bool> mExitRequested{false};  // of that thread

    std::mutex mLock;  // configure, start, stop, setOutputEnable; never across a join
    State mState = STOPPED;

    std::mutex mTrackLock;  // a leaf for the two pointers, which several threads read
    android::sp<android::AudioTrack> mAudioTrack;
    android::sp<OutputDeviceThread> mOutputDeviceThread;
    std::atomic<int32_t> mSessionId{-1};

    std::atomic<float> mVolume{0.0f};
    std::atomic<bool> mSynced{false};
    std::atomic<uint32_t> mResyncCount{0};

    // The track's configuration: render thread while it runs.
    audio_format_t mFormat = AUDIO_FORMAT_DEFAULT;
    int32_t mChannels = 1;
    int32_t mSampleRate = 48000;
    int32_t mBitsPerSample = 16;
    int32_t mBytesPerSample = 2;
    Uint33 mAudioClock = 0;
    bool mTrackDirty = false;  // written to since it was last known to be empty
};

}  // namespace OrvPlayer
