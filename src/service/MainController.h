#pragma once

#include <utils/RefBase.h>

#include <atomic>
#include <list>
#include <memory>
#include <mutex>

#include "common/Module.h"
#include "common/OneShotTimer.h"
#include "common/RingBuffer.h"
#include "common/Synchronization.h"
#include "decoder/MediaCodecDecoder.h"
#include "service/ControllerInterface.h"
#include "tsparser/TSParser.h"
#include "tsreceiver/TSReceiver.h"

namespace OrvPlayer {

// Builds and drives the pipeline of a transport stream.
//
//              PCRTS     PCR parser ------------------> clock
//   receiver - VideoTS - video parser - VideoPES - video decoder - VideoRaw - video renderer
//              AudioTS - audio parser - AudioPES - audio decoder - AudioRaw - audio renderer
//
// Playback begins with the outputs shut: pictures and sound run through the renderers unseen and
// unheard until the first of both has come, or until a timer fires, so that they begin together.
//
// Commands come from one thread at a time. Listener operations come from module threads and never
// wait for a command.
class MainController : public VideoRenderer::FrameRenderedListener,
                       public virtual ControllerInterface,
                       public AudioRenderer::AudioRenderedListener,
                       public Decoder::DecoderInfoListener,
                       public virtual android::RefBase {
public:
    MainController();
    MainController(const MainController&) = delete;  // modules know it by address
    MainController& operator=(const MainController&) = delete;

    // ControllerInterface. Keys of the configuration, all decimal text, a missing one counting as
    // 0: "sourceType" (0: live), "pcrPid", "videoPid", "audioPid" (0 and 8191: no such stream);
    // "IsLATMAudio" and "isMPEG2Audio" begin with "1" for yes.
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
    int setSoundEffect(int effect) override;
    int setAVSync(int offsetMs) override;
    int setAudioEnable(int on) override;
    int setAudioOnlyMode(int on) override;
    int64_t getPCRValue() override;
    int dump(FILE* stream, const android::Vector<android::String16>& args, int indent) override;
    int setAudioPID(int pid) override;
    int stopTSReceiver() override;
    int pause() override;
    int resume() override;
    int setCropRect(int left, int top, int right, int bottom, int useOriginal) override;

    // Listener operations, from module threads.
    void onFrameRendered(int width, int height, Uint33 pts) override;
    void onAudioRendered() override;
    void onAudioReady(long msec) override;
    void onAudioSessionId(int id) override;

protected:
    ~MainController() override;

private:
    using Configuration = std::map<std::string, std::string>;
    using PIDMap = std::map<TSReceiverPIDType, unsigned short>;

    static void playbackTimerCallback(void* controller);

    android::sp<RingBuffer> addRingBuffer();
    template <typename ModuleType>
    android::sp<ModuleType> addModule(const android::sp<ModuleType>& module);

    // Steps of configure(): false, and the label logged, at the first failure.
    bool configurePCR(Configuration& config, PIDMap& pids);
    bool configureVideo(Configuration& config, PIDMap& pids);
    bool configureAudio(Configuration& config, PIDMap& pids);
    bool receivePID(Configuration& config, const char* key, TSReceiverPIDType role,
                    const android::sp<RingBuffer>& buffer, const char* label, PIDMap& pids);

    void setClockOffsets();
    void askModulesToExit();
    void armPlaybackTimer(unsigned int seconds);
    void checkEnableOutputs(bool force);
    void openGate();

    std::list<android::sp<Module>> mModules;          // in construction order
    std::list<android::sp<RingBuffer>> mRingBuffers;  // in construction order

    android::sp<Synchronization> mSynchronization;
    android::sp<TSReceiver> mReceiver;
    android::sp<TSParser> mPCRParser;
    android::sp<TSParser> mVideoParser;
    android::sp<MediaCodecDecoder> mVideoDecoder;
    android::sp<VideoRenderer> mVideoRenderer;
    android::sp<TSParser> mAudioParser;
    android::sp<MediaCodecDecoder> mAudioDecoder;
    android::sp<AudioRenderer> mAudioRenderer;
    android::sp<RingBuffer> mPCRTS;
    android::sp<RingBuffer> mVideoTS;
    android::sp<RingBuffer> mVideoPES;
    android::sp<RingBuffer> mVideoRaw;
    android::sp<RingBuffer> mAudioTS;
    android::sp<RingBuffer> mAudioPES;
    android::sp<RingBuffer> mAudioRaw;

    unsigned short mPIDs[4] = {};  // by TSReceiverPIDType; 0 when none
    int mAudioCodingType = 4;      // none yet
    int mSourceType = -1;          // none yet
    std::unique_ptr<OneShotTimer> mPlaybackTimer;

    // The gate. The lock is held while it opens and when stop() shuts it for good, never across a
    // join: a timer that fires into a stop finds the playback over.
    std::mutex mGateLock;
    bool mStarted = false;
    int mAudioEnabled = 1;
    std::atomic<bool> mVideoRendered{false};
    std::atomic<bool> mAudioRendered{false};

    std::atomic<AudioRenderer::AudioRenderedListener*> mAudioRenderedListener{nullptr};
    std::atomic<VideoRenderer::FrameRenderedListener*> mVideoRenderedListener{nullptr};
};

}  // namespace OrvPlayer
