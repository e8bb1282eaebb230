#pragma once

#include <utils/RefBase.h>

#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <string>

#include "common/CallbackTimer.h"
#include "common/Module.h"
#include "common/RingBuffer.h"
#include "common/Synchronization.h"
#include "decoder/ClosedCaptionDecoder.h"
#include "decoder/MediaCodecDecoder.h"
#include "recorder/Player.h"
#include "recorder/Recorder.h"
#include "renderer/ClosedCaptionRenderer.h"
#include "service/ControllerInterface.h"
#include "service/PlaybackFigures.h"
#include "servicecontroller/ServiceController.h"
#include "tsparser/TSParser.h"
#include "tsreceiver/TSReceiver.h"

namespace OrvPlayer {

// Builds and drives the pipeline of a transport stream.
//
//              PCRTS     PCR parser ------------------> clock
//   receiver - VideoTS - video parser - VideoPES - video decoder - VideoRaw - video renderer
//              AudioTS - audio parser - AudioPES - audio decoder - AudioRaw - audio renderer
//              CCTS - caption parser - CCPES - caption decoder - CCRaw - caption renderer
//
// Playback begins with the outputs shut: pictures, sound and captions run through the renderers
// unseen and unheard until the first picture and the first sound have come, or until a timer fires,
// so that they begin together.
//
// A live source is watched for its signal and its frame rate. A recorded one has a Player beside
// the pipeline, which talks to the service that feeds it; once that has told the end, playback ends
// with the last picture.
//
// Commands come from one thread at a time. Listener operations come from threads of modules, of the
// player and of the recorder, and never wait for a command: stop() and the destructor wait for
// them.
class MainController : public VideoRenderer::FrameRenderedListener,
                       public virtual ControllerInterface,
                       public AudioRenderer::AudioRenderedListener,
                       public Decoder::DecoderInfoListener,
                       public IPlayerListener,
                       public IRecorderListener,
                       public PCRListener,
                       public virtual android::RefBase {
public:
    MainController();
    MainController(const MainController&) = delete;  // modules know it by address
    MainController& operator=(const MainController&) = delete;

    // ControllerInterface. Keys of the configuration, all decimal text, a missing one counting as
    // 0: "sourceType" (0: live), "pcrPid", "videoPid", "audioPid", "subtitlePid" (0 and 8191: no
    // such stream); "IsLATMAudio" and "isMPEG2Audio" begin with "1" for yes; "filePath" of a
    // recorded source.
    int start() override;
    int stop() override;
    int configure(std::map<std::string, std::string> config) override;
    int setSurface(android::sp<android::Surface>& surface) override;
    int getFrame(int count, int intervalMs) override;
    int cancelCaptureFrame() override;
    void setCaptureFrameListener(CaptureFrameListener* listener) override;
    void setErrorListener(ErrorListener* listener) override;
    void setAudioRenderedListener(AudioRenderer::AudioRenderedListener* listener) override;
    void setVideoRenderedListener(VideoRenderer::FrameRenderedListener* listener) override;
    void setServiceControllerListener(
        ServiceController::ServiceControllerListener* listener) override;
    int getFrameRate() override;
    int setSoundEffect(int effect) override;
    int setAVSync(int offsetMs) override;
    int setAudioEnable(int on) override;
    int setAudioOnlyMode(int on) override;
    int64_t getPCRValue() override;
    int setCaptionSync(int offsetMs) override;
    int dump(FILE* stream, const android::Vector<android::String16>& args, int indent) override;
    size_t bufferFills(BufferFill* fills, size_t most) override;
    void setCaptionListener(ClosedCaptionListener* listener) override;
    int setAudioPID(int pid) override;
    int setCCPID(int pid) override;
    int stopTSReceiver() override;
    int pause() override;
    int seek(int position) override;
    int resume() override;
    int startRecord(Uri* target) override;
    int stopRecord(bool save) override;
    void setRecorderListener(IRecorderListener* listener) override;
    void setPlayerListener(IPlayerListener* listener) override;
    int setCropRect(int left, int top, int right, int bottom, int useOriginal) override;

    // Where to count what is played; not owned, null for nowhere. Before the first start().
    void setFigures(PlaybackFigures* figures) { mFigures = figures; }

    // Listener operations.
    void onFrameRendered(int width, int height, Uint33 pts) override;
    void onAudioRendered() override;
    void onAudioReady(long msec) override;
    void onAudioSessionId(int id) override;
    void onPCRChanged(unsigned long pcr) override;  // with the clock's lock held
    void onVideoResolution(int width, int height) override;
    void onTimeUpdate(int elapsedSeconds) override;
    void onEndOfContent() override;
    void onRecorderStarted(int result) override;
    void onRecorderStopped(int result) override;
    // Of the player and of the recorder; both go to the recorder listener.
    void onError(int code) override;

protected:
    ~MainController() override;

private:
    using Configuration = std::map<std::string, std::string>;
    using PIDMap = std::map<TSReceiverPIDType, unsigned short>;

    // Kinds of sources; any other is a recording as well.
    static constexpr int LIVE = 0;
    static constexpr int RECORDER_SERVICE = 2;  // its player follows what is shown and heard

    static void playbackTimerCallback(void* controller);

    android::sp<RingBuffer> addRingBuffer();
    template <typename ModuleType>
    android::sp<ModuleType> addModule(const android::sp<ModuleType>& module);

    // Steps of configure(): false, and the label logged, at the first failure.
    bool configurePCR(Configuration& config, PIDMap& pids);
    bool configureVideo(Configuration& config, PIDMap& pids);
    bool configureAudio(Configuration& config, PIDMap& pids);
    bool configureAudioDecoder(Configuration& config);
    bool configureCaptions(Configuration& config, PIDMap& pids);
    void createPlayerOf(const std::string& filePath);
    bool receivePID(Configuration& config, const char* key, TSReceiverPIDType role,
                    const android::sp<RingBuffer>& buffer, const char* label, PIDMap& pids);

    void beginSource();
    void setClockOffsets();
    bool addCCPID(unsigned short pid);
    void askModulesToExit();
    void stopPlayerAndRecorder();
    void emptyRingBuffers();
    int replaceVideoDecoder();
    void armPlaybackTimer(unsigned int seconds);
    void checkEnableOutputs(bool force);
    bool openGate(bool force);

    std::list<android::sp<Module>> mModules;          // in construction order
    std::list<android::sp<RingBuffer>> mRingBuffers;  // in construction order

    android::sp<ServiceController> mServiceController;
    android::sp<Synchronization> mSynchronization;
    android::sp<TSReceiver> mReceiver;
    android::sp<TSParser> mPCRParser;
    android::sp<TSParser> mVideoParser;
    android::sp<MediaCodecDecoder> mVideoDecoder;
    android::sp<VideoRenderer> mVideoRenderer;
    android::sp<TSParser> mAudioParser;
    android::sp<MediaCodecDecoder> mAudioDecoder;
    android::sp<AudioRenderer> mAudioRenderer;
    android::sp<TSParser> mCCParser;
    android::sp<ClosedCaptionDecoder> mCCDecoder;
    android::sp<ClosedCaptionRenderer> mCCRenderer;
    android::sp<RingBuffer> mPCRTS;
    android::sp<RingBuffer> mVideoTS;
    android::sp<RingBuffer> mVideoPES;
    android::sp<RingBuffer> mVideoRaw;
    android::sp<RingBuffer> mAudioTS;
    android::sp<RingBuffer> mAudioPES;
    android::sp<RingBuffer> mAudioRaw;
    android::sp<RingBuffer> mCCTS;
    android::sp<RingBuffer> mCCPES;
    android::sp<RingBuffer> mCCRaw;
    android::sp<Player> m_pPlayer;      // of a recorded source; from configure() on
    android::sp<Recorder> m_pRecorder;  // while recording

    unsigned short mPIDs[4] = {};      // by TSReceiverPIDType; 0 when none
    int mAudioCodingType = 4;          // none yet
    std::atomic<int> mSourceType{-1};  // none yet; with it the player is there
    int mRecType = 0;                  // of the last recording
    bool mRecording = false;
    std::list<ErrorListener*> mErrorListeners;  // for modules to come
    std::unique_ptr<CallbackTimer> mPlaybackTimer;
    PlaybackFigures* mFigures = nullptr;

    // The gate. The lock is held while the outputs open and when stop() shuts them for good, never
    // across a join or an event: a timer that fires into a stop finds the playback over.
    std::mutex mGateLock;
    bool mStarted = false;
    int mAudioEnabled = 1;
    std::atomic<bool> mVideoRendered{false};
    std::atomic<bool> mAudioRendered{false};
    std::atomic<bool> mEndOfContent{false};  // told by the player, until the next start

    std::atomic<AudioRenderer::AudioRenderedListener*> mAudioRenderedListener{nullptr};
    std::atomic<VideoRenderer::FrameRenderedListener*> mVideoRenderedListener{nullptr};
    std::atomic<IPlayerListener*> mPlayerListener{nullptr};
    std::atomic<IRecorderListener*> mRecorderListener{nullptr};
};

}  // namespace OrvPlayer
