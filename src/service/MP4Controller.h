#pragma once

#include <media/mediaplayer.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

#include <atomic>
#include <map>
#include <string>

#include "common/CallbackTimer.h"
#include "service/ControllerInterface.h"

namespace OrvPlayer {

// Plays a media file: hands it whole to the platform's media player, and what that tells on as the
// listener calls of the live pipeline. What only a broadcast has (PIDs, captions, recording, sync
// offsets, stills) is refused with 1 or does nothing.
//
// What is missing or broken shows only when the player tells so. That is code 1 for the error
// listener, the one that the service does not survive.
//
// Commands come from one thread at a time. Notifications and position reports come on threads of
// their own, take no lock of a command and never come after stop(), or the destructor, has
// returned; reports also not after pause().
class MP4Controller : public virtual ControllerInterface, public android::MediaPlayerListener {
public:
    MP4Controller();
    MP4Controller(const MP4Controller&) = delete;  // the timer knows it by address
    MP4Controller& operator=(const MP4Controller&) = delete;

    // ControllerInterface. Key of the configuration: "path". start() wants a surface before, and
    // returns 0 whatever became of it.
    int start() override;
    int stop() override;
    int configure(std::map<std::string, std::string> config) override;
    int setSurface(android::sp<android::Surface>& surface) override;
    int getFrame(int count, int intervalMs) override;
    int cancelCaptureFrame() override { return 0; }
    void setCaptureFrameListener(CaptureFrameListener* /*listener*/) override {}
    void setErrorListener(ErrorListener* listener) override { mErrorListener = listener; }
    void setAudioRenderedListener(AudioRenderer::AudioRenderedListener* listener) override {
        mAudioRenderedListener = listener;
    }
    void setVideoRenderedListener(VideoRenderer::FrameRenderedListener* listener) override {
        mVideoRenderedListener = listener;
    }
    void setServiceControllerListener(
        ServiceController::ServiceControllerListener* /*listener*/) override {}
    int getFrameRate() override { return -1; }
    int setSoundEffect(int /*effect*/) override { return 0; }
    int setAVSync(int /*offsetMs*/) override { return 1; }
    int setAudioEnable(int on) override;
    int setAudioOnlyMode(int /*on*/) override { return 1; }
    int setCaptionSync(int /*offsetMs*/) override { return 1; }
    int dump(FILE* stream, const android::Vector<android::String16>& args, int indent) override;
    void setCaptionListener(ClosedCaptionListener* /*listener*/) override {}
    int setAudioPID(int /*pid*/) override { return 1; }
    int setCCPID(int /*pid*/) override { return 1; }
    int stopTSReceiver() override { return 0; }
    int pause() override;
    int seek(int positionMs) override;
    int resume() override;
    int startRecord(Uri* /*target*/) override { return 1; }
    int stopRecord(bool /*save*/) override { return 1; }
    void setRecorderListener(IRecorderListener* /*listener*/) override {}
    void setPlayerListener(IPlayerListener* listener) override { mPlayerListener = listener; }
    int setCropRect(int left, int top, int right, int bottom, int useOriginal) override;

    // MediaPlayerListener.
    void notify(int msg, int ext1, int ext2, const android::Parcel* obj) override;

protected:
    ~MP4Controller() override;

private:
    class Notifications;

    static void onTimeUpdateTrigger(void* controller);

    void reportPosition();
    void setVideoSize(int width, int height);
    void onInfo(int info);
    void setVolume();
    void startInternalTimer();
    void stopInternalTimer();

    std::atomic<IPlayerListener*> mPlayerListener{nullptr};
    std::atomic<ErrorListener*> mErrorListener{nullptr};
    std::atomic<AudioRenderer::AudioRenderedListener*> mAudioRenderedListener{nullptr};
    std::atomic<VideoRenderer::FrameRenderedListener*> mVideoRenderedListener{nullptr};
    bool mMuted = true;    // until sound is switched on
    int mVideoWidth = 0;   // as last told; notifications only, which come one at a time
    int mVideoHeight = 0;  // the same
    android::sp<android::MediaPlayer> mMediaPlayer;
    android::sp<Notifications> mNotifications;  // what the player knows of this object
    std::atomic<bool> mReporting{false};        // the timer is armed
    CallbackTimer mTimer;
};

}  // namespace OrvPlayer
