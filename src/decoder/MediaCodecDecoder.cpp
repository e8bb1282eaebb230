#include "decoder/MediaCodecDecoder.h"

#include "common/Trace.h"
#include "decoder/AACMediaExtractor.h"
#include "decoder/CaptureThread.h"
#include "decoder/H264MediaExtractor.h"
#include "decoder/MP3MediaExtractor.h"
#include "decoder/MediaCodecDecoderThreads.h"

using android::sp;

namespace OrvPlayer {

namespace {

// What differs between the coding types, indexed by codingType_t.
struct StreamKind {
    const char* mime;
    const char* componentName;  // null: any component for the type
};

constexpr StreamKind STREAM_KINDS[] = {
    {"video/avc", nullptr},
    {"audio/mp4a-latm", nullptr},
    {"audio/mp4a-latm", nullptr},
    {"audio/mpeg", "OMX.QEL.mp3.dec"},
};

constexpr int STREAM_KIND_COUNT = sizeof STREAM_KINDS / sizeof STREAM_KINDS[0];

}  // namespace

MediaCodecDecoder::MediaCodecDecoder(const std::string& name) : Module(name) {}

MediaCodecDecoder::~MediaCodecDecoder() {
    if (mState == STARTED) {
        MediaCodecDecoder::stop();
    }
    joinCapture();
    {
        std::lock_guard<std::mutex> guard(mLock);
        mState = CREATED;  // a restart that comes now finds nothing to do
    }
    // No worker is left that could ask for another one.
    if (mRestartThread != nullptr) {
        mRestartThread->join();
    }
    releaseMediaDecoder();
    if (mLooper != nullptr) {
        mLooper->stop();
    }
}

int MediaCodecDecoder::configure(codingType_t type) {
    std::lock_guard<std::mutex> guard(mLock);
    if (mLooper != nullptr) {
        return 1;
    }
    mFormat = new android::AMessage;
    if (const int status = createExtractor(type); status != 0) {
        return status;
    }
    const StreamKind& kind = STREAM_KINDS[type];
    mMime = kind.mime;
    mUseComponentName = kind.componentName != nullptr;
    if (mUseComponentName) {
        mComponentName = kind.componentName;
    }
    mFormat->setString("mime", mMime.c_str());
    if (type == H264) {
        mFormat->setInt32("width", 1920);
        mFormat->setInt32("height", 1080);
    } else {
        mFormat->setInt32("channel-count", mChannelCount);
        mFormat->setInt32("sample-rate", mSampleRate);
    }
    if (type == AAC_ADTS) {
        mFormat->setInt32("is-adts", 1);
    }
    mCodingType = type;
    mLooper = new android::ALooper;
    mLooper->setName("MTVMediaCodecLoop");
    mLooper->start();
    if (allocateMediaDecoder() != 0) {
        ORV_LOGE("[%s] %s: Error allocating Media Codec", component(), __func__);
    }
    mState = CONFIGURED;
    return 0;
}

int MediaCodecDecoder::createExtractor(codingType_t type) {
    if (type < 0 || type >= STREAM_KIND_COUNT) {
        ORV_LOGE("%s: Unsupported type: %d", "configure", type);
        return ERR_UNSUPPORTED_TYPE;
    }
    switch (type) {
        case H264:
            mExtractor = new H264MediaExtractor(mInput);
            break;
        case AAC_LATM:
            mExtractor = new AACMediaExtractor(mInput, AACMediaExtractor::LOAS);
            break;
        case AAC_ADTS:
            mExtractor = new AACMediaExtractor(mInput, AACMediaExtractor::ADTS);
            break;
        case MPEG_AUDIO:
            mExtractor = new MP3MediaExtractor(mInput);
            break;
    }
    return 0;
}

int MediaCodecDecoder::allocateMediaDecoder() {
    mCodec = mUseComponentName
                 ? android::MediaCodec::CreateByComponentName(mLooper, mComponentName.c_str())
                 : android::MediaCodec::CreateByType(mLooper, mMime.c_str(), false);
    if (mCodec == nullptr) {
        ORV_LOGE("%s: Error creating MediaCodec", __func__);
        return ERR_CODEC;
    }
    android::AString name;
    if (mCodec->getName(&name) != android::OK) {
        ORV_LOGE("%s: Error getting decoder name", __func__);
        return ERR_CODEC;
    }
    mComponentName = name.c_str();
    return 0;
}

void MediaCodecDecoder::releaseMediaDecoder() {
    if (mCodec != nullptr) {
        mCodec->release();
        mCodec = nullptr;
    }
}

int MediaCodecDecoder::start() {
    std::lock_guard<std::mutex> guard(mLock);
    if (mState != CONFIGURED) {
        ORV_LOGE("%s: Called in wrong state: %d", __func__, mState);
        return 1;
    }
    mExiting = false;
    if (mCodec != nullptr && startMediaCodec() != 0) {
        return 1;
    }
    mState = STARTED;
    return 0;
}

// Without mLock: a restart may hold it for as long as a codec takes to come up.
void MediaCodecDecoder::requestExit() {
    mExiting = true;
    if (mInput != nullptr) {
        mInput->wakeReaders();
    }
    for (const sp<RingBuffer>& output : mOutputs) {
        output->wakeWriters();
    }
}

int MediaCodecDecoder::stop() {
    std::lock_guard<std::mutex> guard(mLock);
    if (mState != STARTED) {
        return 1;
    }
    if (stopMediaCodec() != 0) {
        ORV_LOGE("[%s] %s: Error stopping MediaCodec", component(), __func__);
        return 1;
    }
    mState = CONFIGURED;
    return 0;
}

int MediaCodecDecoder::startMediaCodec() {
    const sp<android::Surface> surface = getSurface();
    if (mCodingType == H264) {
        std::lock_guard<std::mutex> guard(mWindowLock);
        mOrgNativeWindowCropRect = {-1, -1, -1, -1};
    }
    if (mCodec->configure(mFormat, surface, nullptr, 0) != android::OK) {
        ORV_LOGE("%s: Error configuring MediaCodec", __func__);
        return ERR_CODEC;
    }
    if (mCodec->start() != android::OK) {
        ORV_LOGE("[%s] %s: Error starting MediaCodec", component(), __func__);
        return ERR_CODEC;
    }
    if (mCodec->getInputBuffers(&mInputBuffers) != android::OK) {
        ORV_LOGE("[%s] %s: Error getting MediaCodec input buffers", component(), __func__);
        mCodec->stop();
        return ERR_CODEC;
    }
    if (mCodec->getOutputBuffers(&mOutputBuffers) != android::OK) {
        ORV_LOGE("[%s] %s: Error getting MediaCodec output buffers", component(), __func__);
        mCodec->stop();
        return ERR_CODEC;
    }
    return runThreads();
}

int MediaCodecDecoder::runThreads() {
    mPending = OutputBuffer();
    m_pInputThread = new InputThread(this);
    m_pInputThread->run("MCInputThread", android::PRIORITY_DEFAULT);
    m_pOutputThread = new OutputThread(this);
    m_pOutputThread->run("MCOutputThread", android::PRIORITY_DEFAULT);
    return 0;
}

int MediaCodecDecoder::stopMediaCodec() {
    // Both are asked before the first is joined, and nobody keeps waiting inside the codec.
    if (m_pOutputThread != nullptr) {
        m_pOutputThread->requestExit();
    }
    if (m_pInputThread != nullptr) {
        m_pInputThread->requestExit();
    }
    if (mInput != nullptr) {
        mInput->wakeReaders();
    }
    for (const sp<RingBuffer>& output : mOutputs) {
        output->wakeWriters();
    }
    const bool codecStopped = mCodec == nullptr || mCodec->stop() == android::OK;
    if (const int status = joinThreads(); status != 0) {
        return status;
    }
    // No lock that a finished thread took stays held.
    if (mInput != nullptr) {
        mInput->readAdvance(0);
    }
    for (const sp<RingBuffer>& output : mOutputs) {
        output->writeAdvance(0);
    }
    mExtractor->reset();
    mOutstanding.clear();
    if (!codecStopped) {
        ORV_LOGE("[%s] %s: Error stopping MediaCodec", component(), __func__);
    }
    return 0;
}

int MediaCodecDecoder::joinThreads() {
    if (m_pOutputThread != nullptr) {
        if (m_pOutputThread->requestExitAndWait() != android::OK) {
            ORV_LOGE("%s - could not stop m_pOutputThread!", "stopMediaCodec");
            return ERR_THREAD_STOP;
        }
        m_pOutputThread = nullptr;
    }
    if (m_pInputThread != nullptr) {
        if (m_pInputThread->requestExitAndWait() != android::OK) {
            ORV_LOGE("%s - could not stop m_pInputThread!", "stopMediaCodec");
            return ERR_THREAD_STOP;
        }
        m_pInputThread = nullptr;
    }
    return 0;
}

void MediaCodecDecoder::emptyOutput() {
    if (!mOutputs.empty()) {
        mOutputs.front()->reset();
    }
}

int MediaCodecDecoder::setSurface(sp<android::Surface>& surface) {
    std::lock_guard<std::mutex> guard(mLock);
    if (surface == getSurface()) {
        ORV_LOGV("[%s] %s: same surface skip setSurface", component(), __func__);
        return 0;
    }
    {
        std::lock_guard<std::mutex> window(mWindowLock);
        m_pSurface = surface;
    }
    if (surface == nullptr) {
        return 0;
    }
    rebuildCodec(__func__);
    return 0;
}

sp<android::Surface> MediaCodecDecoder::getSurface() {
    std::lock_guard<std::mutex> guard(mWindowLock);
    return m_pSurface;
}

void MediaCodecDecoder::setDecoderInfoListenerListener(DecoderInfoListener* listener) {
    mDecoderInfoListener = listener;
}

bool MediaCodecDecoder::renderFrame(bool render, VideoFrameData& frame) {
    std::lock_guard<std::mutex> guard(mLock);
    std::vector<size_t> skipped;
    if (mCodec == nullptr || !mOutstanding.takeBack(frame.mBufferIndex, frame.mPTS, &skipped)) {
        return true;
    }
    for (const size_t index : skipped) {
        mCodec->releaseOutputBuffer(index);
    }
    if (render) {
        mCodec->renderOutputBufferAndRelease(frame.mBufferIndex);
    } else {
        mCodec->releaseOutputBuffer(frame.mBufferIndex);
    }
    return true;
}

void MediaCodecDecoder::restartDecoder(int errorCode) {
    ORV_LOGE("%s errorCode = %d", __func__, errorCode);
    std::lock_guard<std::mutex> guard(mRestartLock);
    if (mRestartPending) {
        return;  // one that has not begun yet rebuilds the codec of this moment as well
    }
    mRestartThread = new RestartThread(this, mRestartThread);
    mRestartPending =
        mRestartThread->run("RestartThread", android::PRIORITY_DEFAULT) == android::OK;
}

void MediaCodecDecoder::runRestart() {
    std::lock_guard<std::mutex> guard(mLock);
    {
        std::lock_guard<std::mutex> restart(mRestartLock);
        mRestartPending = false;
    }
    restartInternal();
}

void MediaCodecDecoder::restartInternal() {
    rebuildCodec(__func__);
}

// A fresh codec for the state at hand, which does not change; nothing of the old one stays.
void MediaCodecDecoder::rebuildCodec(const char* caller) {
    const bool started = mState == STARTED;
    if (started) {
        if (stopMediaCodec() != 0) {
            ORV_LOGE("[%s] %s: Error stopping MediaCodec", component(), caller);
        }
        emptyOutput();
    }
    if (mState != CREATED) {
        releaseMediaDecoder();
        if (allocateMediaDecoder() != 0) {
            ORV_LOGE("[%s] %s: Error allocating Media Codec", component(), caller);
        }
    }
    if (started && (mCodec == nullptr || startMediaCodec() != 0)) {
        ORV_LOGE("[%s] %s: Error starting Media Codec", component(), caller);
    }
}

}  // namespace OrvPlayer
