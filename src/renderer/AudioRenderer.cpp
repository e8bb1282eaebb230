#include "renderer/AudioRenderer.h"

#include <cerrno>
#include <cstring>
#include <string>

#include "common/Trace.h"
#include "renderer/AudioRendererThread.h"

using android::sp;

namespace OrvPlayer {

namespace {

constexpr int PRIORITY_AUDIO = -16;
constexpr unsigned int RESYNC_DELAY_S = 3;

audio_channel_mask_t channelMask(int channels) {
    constexpr audio_channel_mask_t MASKS[] = {0x0, 0x1, 0x3, 0xB, 0x33, 0x37, 0x3F, 0x13F, 0x63F};
    constexpr int COUNT = sizeof MASKS / sizeof MASKS[0];
    return channels >= 0 && channels < COUNT ? MASKS[channels] : AUDIO_CHANNEL_INVALID;
}

}  // namespace

AudioRenderer::AudioRenderer(const sp<Synchronization>& synchronization)
    : Module("AudioRenderer"),
      mSynchronization(synchronization),
      mResyncTimer(std::make_unique<CallbackTimer>(onResyncTimerCallback, this)) {
    if (const int error = mResyncTimer->creationError(); error != 0) {
        ORV_LOGE("%s: Error creating timer: %d (%s)\n", __func__, error, strerror(error));
        mResyncTimer = nullptr;
    }
}

AudioRenderer::~AudioRenderer() {
    // A configured renderer holds a track and watches the outputs even if it never started. The
    // listener hears nothing of it: it may be on its way out itself.
    requestExit();
    halt();
    mResyncTimer = nullptr;  // ahead of what its callback uses
}

int AudioRenderer::configure() {
    std::lock_guard<std::mutex> guard(mLock);
    if (mInput == nullptr) {
        ORV_LOGE("%s: AudioRenderer must have an input\n", __func__);
        return ERR_CONFIGURATION;
    }
    if (createAudioPlayer() != 0) {
        ORV_LOGE("%s: Error in createAudioPlayer\n", __func__);
        return ERR_CONFIGURATION;
    }
    return 0;
}

int AudioRenderer::start() {
    std::lock_guard<std::mutex> order(mStartStopLock);
    if (mInput == nullptr) {
        return 1;
    }
    if (mExitRequested) {
        halt();
    }
    std::lock_guard<std::mutex> guard(mLock);
    // A live render thread without a track is about to have one again.
    const bool rendering = mRenderThread != nullptr && mRenderThread->isRunning();
    if (!rendering && track() == nullptr) {
        createAudioPlayer();
    }
    if (mRenderThread == nullptr) {
        mRenderThread = new RenderThread(this);
        if (mRenderThread->run("AudioRenderer", PRIORITY_AUDIO) != android::OK) {
            ORV_LOGE("%s: Could not initialize rendering Thread", __func__);
            mRenderThread = nullptr;
            return 1;
        }
    }
    mState = STARTED;
    return 0;
}

int AudioRenderer::stop() {
    requestExit();
    std::lock_guard<std::mutex> order(mStartStopLock);
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (mState == STOPPED) {
            return 0;
        }
    }
    halt();
    std::lock_guard<std::mutex> guard(mLock);
    reportSession(-1);
    mState = STOPPED;
    return 0;
}

void AudioRenderer::requestExit() {
    std::lock_guard<std::mutex> order(mStartStopLock);
    if (mRenderThread != nullptr) {
        mExitRequested = true;
        mRenderThread->requestExit();
        mInput->wakeReaders();
        mInput->wakeWriters();
        if (const sp<android::AudioTrack> current = track(); current != nullptr) {
            current->stop();
        }
        if (const sp<OutputDeviceThread> watch = deviceThread(); watch != nullptr) {
            watch->requestExit();
        }
    }
}

// Ends both threads, of which the one that renders was asked to exit, and the track. With
// mStartStopLock held, or in the destructor.
void AudioRenderer::halt() {
    // Joined without mLock: the thread may be on its way to setOutputEnable through its listener.
    if (mRenderThread != nullptr) {
        mRenderThread->requestExitAndWait();
    }
    stopResyncTimer();
    sp<OutputDeviceThread> oldWatch;
    sp<android::AudioTrack> oldTrack;
    {
        std::lock_guard<std::mutex> guard(mTrackLock);
        oldWatch = mOutputDeviceThread;
        mOutputDeviceThread = nullptr;
        oldTrack = mAudioTrack;
        mAudioTrack = nullptr;
    }
    if (oldWatch != nullptr) {
        oldWatch->requestExit();
        oldWatch->requestExitAndWait();
    }
    if (oldTrack != nullptr) {
        oldTrack->stop();
        oldTrack->flush();
    }
    mRenderThread = nullptr;
    mExitRequested = false;
}

int AudioRenderer::createAudioPlayer() {
    {
        std::lock_guard<std::mutex> guard(mTrackLock);
        mAudioTrack = nullptr;
    }
    sp<android::AudioTrack> newTrack = new android::AudioTrack(
        AUDIO_STREAM_MUSIC, static_cast<uint32_t>(mSampleRate), mFormat, channelMask(mChannels));
    if (const int status = newTrack->initCheck(); status != 0) {
        ORV_LOGE("%s: Error initializing AudioTrack: %d", __func__, status);
        return ERR_CONFIGURATION;
    }
    const float volume = mVolume;
    if (const int status = newTrack->setVolume(volume, volume); status < 0) {
        ORV_LOGE("%s: Error setting the volume: %d", __func__, status);
    }
    newTrack->start();
    {
        std::lock_guard<std::mutex> guard(mTrackLock);
        mAudioTrack = newTrack;
        if (mOutputDeviceThread == nullptr) {
            mOutputDeviceThread = new OutputDeviceThread;
            mOutputDeviceThread->run("OutputDeviceThread");
        }
    }
    // Whoever changed the volume meanwhile may have found no track to tell.
    if (mVolume != volume) {
        newTrack->setVolume(mVolume, mVolume);
    }
    reportSession(newTrack->getSessionId());
    return 0;
}

sp<android::AudioTrack> AudioRenderer::track() {
    std::lock_guard<std::mutex> guard(mTrackLock);
    return mAudioTrack;
}

sp<OutputDeviceThread> AudioRenderer::deviceThread() {
    std::lock_guard<std::mutex> guard(mTrackLock);
    return mOutputDeviceThread;
}

void AudioRenderer::reportSession(int id) {
    mSessionId = id;
    if (mListener != nullptr) {
        mListener->onAudioSessionId(id);
    }
}

void AudioRenderer::setOutputEnable(bool enable) {
    ORV_LOGI("%s: enable: %s\n", __func__, enable ? "true" : "false");
    std::lock_guard<std::mutex> guard(mLock);
    dropSynchronization();
    mVolume = enable ? 1.0f : 0.0f;
    if (const sp<android::AudioTrack> current = track(); current != nullptr) {
        if (const int status = current->setVolume(mVolume, mVolume); status < 0) {
            ORV_LOGE("%s: Error setting the volume: %d (%s)\n", __func__, status,
                     strerror(-status));
        }
    }
}

void AudioRenderer::dropSynchronization() {
    if (const sp<android::AudioTrack> current = track(); current != nullptr) {
        current->flush();
    }
    mSynced = false;
    ++mResyncCount;
}

void AudioRenderer::resyncPCR() {
    dropSynchronization();
}

void AudioRenderer::onPCRChanged(unsigned long) {
    dropSynchronization();
}

bool AudioRenderer::checkOutputDevice() {
    const sp<OutputDeviceThread> watch = deviceThread();
    return watch != nullptr && watch->outputStatusChanged();
}

void AudioRenderer::startResyncTimer() {
    const int error = mResyncTimer != nullptr ? mResyncTimer->arm(RESYNC_DELAY_S) : 0;
    if (error != 0) {
        ORV_LOGE("%s: Error starting resync timer: %d (%s)\n", __func__, error, strerror(error));
    }
}

void AudioRenderer::stopResyncTimer() {
    const int error = mResyncTimer != nullptr ? mResyncTimer->disarm() : 0;
    if (error != 0) {
        ORV_LOGE("%s: Error stopping resync timer: %d (%s)\n", __func__, error, strerror(error));
    }
}

void AudioRenderer::onResyncTimerCallback(void* renderer) {
    ORV_LOGI("%s: Resync PCR by timer\n", __func__);
    static_cast<AudioRenderer*>(renderer)->dropSynchronization();
}

int AudioRenderer::dump(FILE* stream, int indent) {
    if (stream == nullptr) {
        return 0;
    }
    Module::dump(stream, indent);
    const std::string start(static_cast<size_t>(indent) + 1, '\t');
    const char* prefix = start.c_str();
    // Written without a lock: whoever reads the report may be slow.
    const sp<OutputDeviceThread> watch = deviceThread();
    const sp<android::AudioTrack> current = track();
    fprintf(stream, "%sAudio Volume: %1.1f\n", prefix, static_cast<double>(mVolume));
    fprintf(stream, "%sResync PCR Count: %d\n", prefix, static_cast<int>(mResyncCount));
    if (watch != nullptr) {
        fprintf(stream, "%smOutputStatus: %d\n", prefix, static_cast<int>(watch->outputStatus()));
    }
    fprintf(stream, "%sAudio Track: %p\n", prefix, static_cast<void*>(current.get()));
    if (current != nullptr) {
        fprintf(stream, "%sSession ID: %d\n", prefix, static_cast<int>(mSessionId));
    }
    return 0;
}

}  // namespace OrvPlayer
