#pragma once

#include <binder/IBinder.h>
#include <utils/StrongPointer.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <mutex>

#include "common/CaptureFrameListener.h"
#include "common/ClosedCaptionListener.h"
#include "common/ErrorListener.h"
#include "common/IPlayerListener.h"
#include "common/IRecorderListener.h"
#include "renderer/AudioRenderer.h"
#include "renderer/VideoRenderer.h"
#include "service/ControllerInterface.h"
#include "service/ICOrvPlayer.h"
#include "service/PlaybackFigures.h"
#include "servicecontroller/ServiceController.h"

namespace OrvPlayer {

// The player service: one object in its process, driven by one application.
//
//               openUri                 start                  pause
//     IDLE  ---------------->  OPEN  ---------->  PLAY  <------------------>  PAUSE
//           <----------------        <----------                 resume
//           close (from any)            stop (also from PAUSE)
//
// It makes a controller for what is opened, hands commands and settings on to it, and tells the
// registered client what becomes of them and what happens in the pipeline. Settings are kept and
// handed to each new controller.
//
// Commands come from any threads of the binder pool and are executed one at a time. Listener
// operations come from threads of the pipeline, which a command may be waiting for: they take no
// lock that a command holds. Everything told to the client goes one-way, and through the binder
// even where client and service are in one process.
//
// An internal fault ends the process: a stop that fails or that nothing was there for, and the
// errors 1 and 0x31004 of a module. Its exit status is 0; one line on standard error precedes it.
// The object is never destroyed on that way, nor at the regular end of the process.
class COrvPlayer : public BnCOrvPlayer,
                   public android::IBinder::DeathRecipient,
                   public CaptureFrameListener,
                   public ClosedCaptionListener,
                   public ErrorListener,
                   public AudioRenderer::AudioRenderedListener,
                   public VideoRenderer::FrameRenderedListener,
                   public IPlayerListener,
                   public IRecorderListener,
                   public ServiceController::ServiceControllerListener {
public:
    enum State : int32_t {
        ORVPLAYER_STATE_IDLE = 1,  // nothing open, no controller
        ORVPLAYER_STATE_OPEN = 2,  // not started, or stopped
        ORVPLAYER_STATE_PLAY = 3,
        ORVPLAYER_STATE_PAUSE = 4,
    };

    static constexpr int UNKNOWN_ERROR_CODE = 1;  // this and the next end the process
    static constexpr int CODEC_LOST_CODE = 0x31004;
    static constexpr int RECORDER_ERROR_CODE = 0x60003;  // startRecorder() could not

    COrvPlayer();
    COrvPlayer(const COrvPlayer&) = delete;  // known to others by address
    COrvPlayer& operator=(const COrvPlayer&) = delete;

    // Makes the one object of the process and registers it as "OrvPlayer"; logged when there is one
    // already.
    static void instantiate();
    // Null before instantiate().
    static android::sp<COrvPlayer> instance();

    // ICOrvPlayer. Another client replaces the one before. openUri() closes what is open.
    int registerClient(const android::sp<ICOrvPlayerClient>& client) override;
    int start() override;
    int stop() override;
    int getState() override;
    int pause() override;
    int resume() override;
    int seek(int positionMs) override;
    int openUri(const char* uri, int type) override;
    int close() override;
    int setSurface(const android::sp<android::Surface>& surface) override;
    int getFrame(int count, int intervalMs) override;
    int cancelCaptureFrame() override;
    int setSoundEffect(int unused, int option) override;
    int startRecorder(const char* uri) override;
    int stopRecorder(int save) override;
    int setAVSync(int value) override;
    int setCaptionSync(int value) override;
    int setAudioEnable(int on) override;
    int setCaptionLanguage(int language) override;
    int setAudioPID(int pid) override;
    int setAudioPathForce(int config) override;
    int setCCPID(int pid) override;
    int getFrameRate() override;
    int setCropRect(int left, int top, int right, int bottom, int useOriginal) override;
    int setAudioOnlyMode(int on) override;
    int64_t getPCRValue() override;

    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;
    // Writes nothing to who may ask, a refusal to who may not.
    android::status_t dump(int fd, const android::Vector<android::String16>& args) override;
    // The client's process is gone: everything is closed.
    void binderDied(const android::wp<android::IBinder>& who) override;

    // Listener operations.
    void onCaptureFrame(unsigned char* pixels, unsigned int width, unsigned int height,
                        bool twoBytesPerPixel) override;
    void onClosedCaptionReceived(unsigned char* text, int length) override;
    void onError(unsigned int code, const Module* module) const override;
    void onAudioSessionId(int id) override;
    void onFirstFrameRendered(int width, int height) override;
    void onTimeUpdate(int elapsedSeconds) override;
    void onEndOfContent() override;
    void onRecorderStarted(int result) override;
    void onRecorderStopped(int result) override;
    void onError(int code) override;  // of players and recorders
    void onServiceControllerEvent(ServiceController::event_t event, unsigned int value1,
                                  unsigned int value2) override;

    // For the hosting process: the state of the controller, if there is one, while commands wait;
    // and what controllers counted.
    void dumpController(FILE* stream);
    const PlaybackFigures& figures() const { return mFigures; }
    // See ControllerInterface; 0 while nothing plays.
    size_t bufferFills(BufferFill* fills, size_t most);

protected:
    ~COrvPlayer() override;

    // A controller for transport streams, and one for media files; null where there is none.
    virtual android::sp<ControllerInterface> createMainController();
    virtual android::sp<ControllerInterface> createFileController();

private:
    class PlayerUse;

    static constexpr int8_t NO_SOUND_EFFECT = -1;

    android::sp<ICOrvPlayerClient> client() const;
    void setPlayer(const android::sp<ControllerInterface>& player);
    void releasePlayer();
    bool isClient(const android::IBinder* binder) const;
    void setClient(android::sp<android::IBinder> binder, android::sp<ICOrvPlayerClient> client);
    void dropClient(const android::IBinder* dead);

    // All with mLock held.
    int openSource(const char* uri, int type);
    int configureSource(const char* uri, int type);
    int configureUri(const char* text);
    void preparePlayer();
    int performStop();
    int performClose();

    static android::sp<COrvPlayer>& m_pSelf;  // never destroyed

    std::mutex mLock;                                   // commands
    std::atomic<int32_t> mState{ORVPLAYER_STATE_IDLE};  // written by commands
    int32_t mSourceType = -1;                           // of what was opened last
    android::sp<android::IBinder> mClientBinder;        // with mPointerLock, as the next two
    android::sp<ICOrvPlayerClient> mClient;
    android::sp<ControllerInterface> m_pPlayer;
    android::sp<android::Surface> mSurface;
    bool mAudioEnabled = true;
    bool mAudioOnlyMode = false;  // deliberate: a new controller is not told
    int8_t mSoundEffect = NO_SOUND_EFFECT;
    int32_t mCaptionSync = 0;  // deliberate: no controller is told
    int32_t mAVSyncOffset = 0;

    // A leaf, for the pointers that threads without mLock read. Commands alone change m_pPlayer.
    mutable std::mutex mPointerLock;
    std::condition_variable mPlayerUnused;
    unsigned int mPlayerUses = 0;  // calls to m_pPlayer under way without mLock

    PlaybackFigures mFigures;
};

}  // namespace OrvPlayer
