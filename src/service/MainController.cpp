#include "service/MainController.h"

#include <utils/Timers.h>

#include <string>

#include "common/Trace.h"

using android::sp;

namespace OrvPlayer {

namespace {

constexpr unsigned int LIVE_TIMEOUT_S = 17;
constexpr unsigned int RECORDED_TIMEOUT_S = 10;
constexpr int LIVE_OFFSET_MS = 2000;
constexpr int RECORDED_OFFSET_MS = 500;
constexpr int PCR_OFFSET_MS = 1500;

}  // namespace

MainController::MainController()
    : mServiceController(new ServiceController), mSynchronization(new Synchronization) {
    mReceiver = addModule(sp<TSReceiver>(new TSReceiver));
    mPCRTS = addRingBuffer();
    mPCRParser = addModule(sp<TSParser>(new TSParser(PID_TYPE_PCR)));
    mVideoTS = addRingBuffer();
    mVideoParser = addModule(sp<TSParser>(new TSParser(PID_TYPE_VIDEO)));
    mVideoPES = addRingBuffer();
    mVideoDecoder = addModule(sp<MediaCodecDecoder>(new MediaCodecDecoder("VideoDecoder")));
    mVideoRaw = addRingBuffer();
    mVideoRenderer = addModule(sp<VideoRenderer>(new VideoRenderer(mSynchronization)));
    mAudioTS = addRingBuffer();
    mAudioParser = addModule(sp<TSParser>(new TSParser(PID_TYPE_AUDIO)));
    mAudioPES = addRingBuffer();
    mAudioDecoder = addModule(sp<MediaCodecDecoder>(new MediaCodecDecoder("AudioDecoder")));
    mAudioRaw = addRingBuffer();
    mAudioRenderer = addModule(sp<AudioRenderer>(new AudioRenderer(mSynchronization)));
    mSynchronization->addListener(mAudioRenderer.get());
    mSynchronization->addListener(this);
    mCCTS = addRingBuffer();
    mCCParser = addModule(sp<TSParser>(new TSParser(PID_TYPE_CLOSED_CAPTION)));
    mCCPES = addRingBuffer();
    mCCDecoder = addModule(sp<ClosedCaptionDecoder>(new ClosedCaptionDecoder));
    mCCRaw = addRingBuffer();
    mCCRenderer = addModule(sp<ClosedCaptionRenderer>(new ClosedCaptionRenderer(mSynchronization)));
    mVideoDecoder->setDecoderInfoListenerListener(this);
    mVideoRenderer->setFrameRenderedListener(this);
    mAudioRenderer->setAudioRenderedListener(this);
    mPlaybackTimer = std::make_unique<CallbackTimer>(playbackTimerCallback, this);
    if (const int error = mPlaybackTimer->creationError(); error != 0) {
        ORV_LOGE("%s: Error creating timer (%d)\n", __func__, error);
        mPlaybackTimer = nullptr;
    }
}

MainController::~MainController() {
    {
        std::lock_guard<std::mutex> guard(mGateLock);
        mStarted = false;  // nobody touches the timer any more
    }
    if (mPlaybackTimer != nullptr) {
        if (const int error = mPlaybackTimer->remove(); error != 0) {
            ORV_LOGE("%s: Error deleting timer (%d)\n", __func__, error);
        }
    }
    // Nothing is told any more from here on, whatever became of the last start or stop.
    mServiceController->setListener(nullptr);
    stopPlayerAndRecorder();
    mServiceController->stopAll();
    // No module thread outlives the controller.
    askModulesToExit();
    for (const sp<Module>& module : mModules) {
        module->stop();
    }
}

sp<RingBuffer> MainController::addRingBuffer() {
    mRingBuffers.push_back(new RingBuffer);
    return mRingBuffers.back();
}

template <typename ModuleType>
sp<ModuleType> MainController::addModule(const sp<ModuleType>& module) {
    mModules.push_back(module);
    return module;
}

int MainController::start() {
    {
        std::lock_guard<std::mutex> guard(mGateLock);
        mStarted = true;
    }
    if (mFigures != nullptr) {
        mFigures->firstPcrUs = 0;
    }
    beginSource();
    setClockOffsets();
    armPlaybackTimer(mSourceType == LIVE ? LIVE_TIMEOUT_S : RECORDED_TIMEOUT_S);
    mServiceController->startBuffering();
    for (const sp<Module>& module : mModules) {
        if (const int status = module->start(); status != 0) {
            ORV_LOGE("%s: Error starting module %s", __func__, module->getModuleName().c_str());
            return status;
        }
    }
    return 0;
}

// A live source can lose its signal, a recorded one can end.
void MainController::beginSource() {
    if (mSourceType == LIVE) {
        mServiceController->startCheckSignal();
        mServiceController->startCheckFrameRate();
        return;
    }
    mEndOfContent = false;
    if (m_pPlayer != nullptr) {
        m_pPlayer->start();
    }
}

// A source's clock runs that much behind what arrives: decoders have that long.
void MainController::setClockOffsets() {
    const int offsetMs = mSourceType == LIVE ? LIVE_OFFSET_MS : RECORDED_OFFSET_MS;
    mSynchronization->setOffsetTime(offsetMs, Synchronization::VIDEO);
    mSynchronization->setOffsetTime(offsetMs, Synchronization::AUDIO);
    mSynchronization->setOffsetTime(PCR_OFFSET_MS, Synchronization::REAL_PCR);
}

void MainController::armPlaybackTimer(unsigned int seconds) {
    const int error = mPlaybackTimer != nullptr ? mPlaybackTimer->arm(seconds) : 0;
    if (error != 0) {
        ORV_LOGE("%s: Error enabling playack timer (%d)\n", "start", error);
    }
}

int MainController::stop() {
    {
        std::lock_guard<std::mutex> guard(mGateLock);
        mStarted = false;
        if (mPlaybackTimer != nullptr) {
            mPlaybackTimer->disarm();
        }
    }
    askModulesToExit();
    if (m_pPlayer != nullptr && mSourceType == RECORDER_SERVICE && !mEndOfContent) {
        m_pPlayer->stop();
    }
    if (mRecording) {
        stopRecord(false);
    }
    mServiceController->stopAll();
    if (mPlaybackTimer != nullptr) {
        mPlaybackTimer->waitForCallback();  // it may be at the end of this run's buffering
    }
    mReceiver->stop();  // nothing new enters from here on, no event of a recording comes
    mServiceController->stopCheckEndOfContent();  // one that came meanwhile ends no later run
    for (const sp<Module>& module : mModules) {
        if (const int status = module->stop(); status != 0) {
            ORV_LOGE("%s: Error stopping module %s", __func__, module->getModuleName().c_str());
            return status;
        }
    }
    emptyRingBuffers();
    mSynchronization->resetPCR();
    mVideoRendered = false;
    mAudioRendered = false;
    mAudioRenderer->setOutputEnable(false);
    mVideoRenderer->setOutputEnabled(false);
    mCCRenderer->setOutputEnabled(false);
    return 0;
}

void MainController::emptyRingBuffers() {
    for (const sp<RingBuffer>& buffer : mRingBuffers) {
        buffer->reset();
    }
}

// All of them before the first is joined: a stop takes as long as the slowest, not as their sum.
void MainController::askModulesToExit() {
    for (const sp<Module>& module : mModules) {
        module->requestExit();
    }
}

// Opens the outputs once the first picture and the first sound have come, or by force. Several
// threads may come here at once; to open them again changes nothing.
void MainController::checkEnableOutputs(bool force) {
    if (openGate(force)) {
        mServiceController->stopBuffering();
    }
}

bool MainController::openGate(bool force) {
    std::lock_guard<std::mutex> guard(mGateLock);
    if (!mStarted || (!force && (!mVideoRendered || !mAudioRendered))) {
        return false;
    }
    mAudioRenderer->setOutputEnable(mAudioEnabled != 0);
    mVideoRenderer->setOutputEnabled(true);
    mCCRenderer->setOutputEnabled(true);
    const int error = mPlaybackTimer != nullptr ? mPlaybackTimer->disarm() : 0;
    if (error != 0) {
        ORV_LOGE("%s: Error disabling playack timer (%d)\n", "checkEnableOutputs", error);
    }
    return true;
}

void MainController::playbackTimerCallback(void* controller) {
    ORV_LOGI("%s: Playback timer timeout. Enabling audio and video.\n", __func__);
    static_cast<MainController*>(controller)->checkEnableOutputs(true);
}

void MainController::onFrameRendered(int width, int height, Uint33 pts) {
    if (mFigures != nullptr) {
        mFigures->lastFrameTimedNs = systemTime(SYSTEM_TIME_MONOTONIC);
        ++mFigures->framesTimed;
    }
    mServiceController->onFrameRendered(width, height, pts);
    if (VideoRenderer::FrameRenderedListener* listener = mVideoRenderedListener;
        listener != nullptr) {
        listener->onFrameRendered(width, height, pts);
    }
    if (!mVideoRendered.exchange(true)) {
        checkEnableOutputs(false);
    }
    if (mSourceType == RECORDER_SERVICE && !mEndOfContent && mVideoRendered && mAudioRendered) {
        m_pPlayer->updateCurTime(pts);
    }
}

void MainController::onAudioRendered() {
    if (!mAudioRendered.exchange(true)) {
        checkEnableOutputs(false);
    }
}

void MainController::onAudioReady(long msec) {
    if (mFigures != nullptr) {
        mFigures->audioEarlyMs = msec;
        ++mFigures->audioEarlyCount;
    }
    mServiceController->onAudioReady(msec);
}

void MainController::onPCRChanged(unsigned long) {
    if (mFigures != nullptr && mFigures->firstPcrUs == 0) {
        mFigures->firstPcrUs = systemTime(SYSTEM_TIME_MONOTONIC) / 1000;
    }
}

void MainController::onAudioSessionId(int id) {
    if (AudioRenderer::AudioRenderedListener* listener = mAudioRenderedListener;
        listener != nullptr) {
        listener->onAudioSessionId(id);
    }
}

void MainController::onVideoResolution(int width, int height) {
    mServiceController->onVideoResolution(width, height);
}

int MainController::setSurface(sp<android::Surface>& surface) {
    mVideoDecoder->setSurface(surface);
    return 0;
}

int MainController::getFrame(int count, int intervalMs) {
    return mVideoRenderer->getFrame(count, intervalMs);
}

int MainController::cancelCaptureFrame() {
    return mVideoRenderer->cancelCaptureFrame();
}

void MainController::setCaptureFrameListener(CaptureFrameListener* listener) {
    mVideoRenderer->setCaptureFrameListener(listener);
}

void MainController::setErrorListener(ErrorListener* listener) {
    for (const sp<Module>& module : mModules) {
        module->addErrorListener(*listener);
    }
    mErrorListeners.push_back(listener);
}

void MainController::setAudioRenderedListener(AudioRenderer::AudioRenderedListener* listener) {
    mAudioRenderedListener = listener;
}

void MainController::setVideoRenderedListener(VideoRenderer::FrameRenderedListener* listener) {
    mVideoRenderedListener = listener;
}

void MainController::setServiceControllerListener(
    ServiceController::ServiceControllerListener* listener) {
    mServiceController->setListener(listener);
}

int MainController::getFrameRate() {
    return mServiceController->getFrameRate();
}

void MainController::setCaptionListener(ClosedCaptionListener* listener) {
    mCCRenderer->registerListener(listener);
}

int MainController::setCaptionSync(int offsetMs) {
    mCCRenderer->setCaptionSync(offsetMs);
    return 0;
}

int MainController::setSoundEffect(int effect) {
    mAudioRenderer->setSoundEffect(effect);
    return 0;
}

int MainController::setAVSync(int offsetMs) {
    mVideoRenderer->setAVSyncOffset(offsetMs);
    return 0;
}

int MainController::setAudioEnable(int on) {
    std::lock_guard<std::mutex> guard(mGateLock);  // against a gate that opens now
    if (mVideoRendered && mAudioRendered) {
        mAudioRenderer->setOutputEnable(on != 0);
    }
    mAudioEnabled = on;
    return 0;
}

int MainController::setAudioOnlyMode(int on) {
    return mVideoDecoder->setAudioOnlyMode(on);
}

int64_t MainController::getPCRValue() {
    return static_cast<int64_t>(mSynchronization->getPCRValue());
}

int MainController::setAudioPID(int pid) {
    const auto newPID = static_cast<unsigned short>(pid);
    if (mReceiver->changePID(PID_TYPE_AUDIO, mPIDs[PID_TYPE_AUDIO], newPID) != 0) {
        return 1;
    }
    mPIDs[PID_TYPE_AUDIO] = newPID;
    return 0;
}

int MainController::setCCPID(int pid) {
    const auto newPID = static_cast<unsigned short>(pid);
    const unsigned short oldPID = mPIDs[PID_TYPE_CLOSED_CAPTION];
    if (mReceiver->isPIDSet(oldPID)) {
        if (mReceiver->changePID(PID_TYPE_CLOSED_CAPTION, oldPID, newPID) != 0) {
            return 1;
        }
        ORV_LOGI("%s setCCPID: %d -> %d", __func__, oldPID, newPID);
    } else if (!addCCPID(newPID)) {
        return 1;
    }
    mPIDs[PID_TYPE_CLOSED_CAPTION] = newPID;
    return 0;
}

bool MainController::addCCPID(unsigned short pid) {
    Module::OutputPosition position;
    if (mReceiver->addOutput(mCCTS, &position) != 0) {
        ORV_LOGE("%s: Error configuring %s.", "setCCPID",
                 "addOutput on TSReceiver (Closed Caption)");
        return false;
    }
    if (mReceiver->startFilteringNewPID(PID_TYPE_CLOSED_CAPTION, pid) != 0) {
        mReceiver->removeOutput(&position);  // outputs and PIDs go in pairs
        return false;
    }
    return true;
}

int MainController::stopTSReceiver() {
    return static_cast<int>(mReceiver->stop());
}

int MainController::setCropRect(int left, int top, int right, int bottom, int useOriginal) {
    return mVideoDecoder->setCropRect(left, top, right, bottom, useOriginal);
}

int MainController::dump(FILE* stream, const android::Vector<android::String16>&, int indent) {
    if (stream == nullptr) {
        return 0;
    }
    const std::string start(static_cast<size_t>(indent), '\t');
    const char* prefix = start.c_str();
    fprintf(stream, "%sMainControler:\n", prefix);
    fprintf(stream, "%s+ Ring Buffers:\n", prefix);
    for (const sp<RingBuffer>& buffer : mRingBuffers) {
        buffer->dump(stream, indent + 2);
    }
    fprintf(stream, "\n%s+ Modules:\n", prefix);
    for (const sp<Module>& module : mModules) {
        module->dump(stream, indent + 2);
    }
    fprintf(stream, "\n%s+ Synchronization:\n", prefix);
    mSynchronization->dump(stream, indent + 2);
    return 0;
}

size_t MainController::bufferFills(BufferFill* fills, size_t most) {
    const std::pair<const char*, const RingBuffer*> buffers[] = {
        {"VideoTS", mVideoTS.get()}, {"VideoPES", mVideoPES.get()}, {"VideoRaw", mVideoRaw.get()},
        {"AudioTS", mAudioTS.get()}, {"AudioPES", mAudioPES.get()}, {"AudioRaw", mAudioRaw.get()}};
    size_t count = 0;
    for (const auto& [name, buffer] : buffers) {
        if (count < most && buffer->getSize() > 0) {
            fills[count++] = {name, buffer->getDataSize(), buffer->getSize()};
        }
    }
    return count;
}

}  // namespace OrvPlayer
