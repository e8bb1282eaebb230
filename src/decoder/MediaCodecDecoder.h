#pragma once

#include <media/MediaCodecBuffer.h>
#include <media/stagefright/MediaCodec.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>
#include <system/window.h>
#include <utils/Thread.h>
#include <utils/Vector.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "common/Data.h"
#include "common/Module.h"
#include "decoder/Decoder.h"
#include "decoder/MediaExtractor.h"
#include "decoder/OutstandingFrames.h"

namespace OrvPlayer {

// Decodes one elementary stream through the platform codec.
//
//   PES ring -> extractor -> codec input     MCInputThread
//                            codec output -> raw ring      MCOutputThread
//
// Sound is copied into AudioFragmentData records. A picture stays in the codec's output buffer:
// only a VideoFrameData record that names the buffer goes on, and the renderer hands the frame
// back through renderFrame(), to be presented on the surface or dropped.
//
// Public operations may be called from any thread; mLock serialises them. The two workers never
// take it, so it may be held while they are joined.
class MediaCodecDecoder : public Module, public Decoder, public VideoFrameData::VideoListener {
public:
    static constexpr int ERR_UNSUPPORTED_TYPE = 0x31001;
    static constexpr int ERR_CODEC = 0x31002;
    static constexpr int ERR_CROP = 0x31004;
    static constexpr int ERR_THREAD_STOP = 0x11001;

    explicit MediaCodecDecoder(const std::string& name = "MediaCodecDecoder");

    // Decoder. The input ring buffer must be set before configure().
    int configure(codingType_t type) override;
    int setSurface(android::sp<android::Surface>& surface) override;
    android::sp<android::Surface> getSurface() override;
    int setCropRect(int left, int top, int right, int bottom, int useOriginal) override;
    void setDecoderInfoListenerListener(DecoderInfoListener* listener) override;

    // Module.
    int start() override;
    int stop() override;
    void requestExit() override;

    // VideoFrameData::VideoListener. The frame's record may be a copy.
    bool renderFrame(bool render, VideoFrameData& frame) override;
    // Copies the picture that the surface shows, which is the one before this frame, and converts
    // it on "CaptureThread", which calls the listener: words of blue, green, red and alpha. One at
    // a time: false while one runs. False as well without a surface, before its first picture, and
    // for a picture of another size than the frame's, of odd size or narrower than 16 pixels.
    // Waits for a reader of the surface a few milliseconds at most. The listener must outlive the
    // decoder, and may keep CaptureThread as long as it likes.
    bool captureFrame(VideoFrameData& frame, CaptureFrameListener* listener) override;

    // Rebuilds the codec on a thread of its own and does not wait for it: the rebuilding joins the
    // input thread, which is the one that asks for it and then ends.
    void restartDecoder(int errorCode);

    // The codec announced the part of its pictures that is to be shown; edges are inside.
    int videoOutputCropChanged(android_native_rect_t rect);

protected:
    ~MediaCodecDecoder() override;

private:
    enum State { CREATED = 0, CONFIGURED = 1, STARTED = 2 };
    static constexpr uint32_t NO_INDEX = 0xFFFFFFFF;

    class CaptureThread;
    class InputThread;
    class OutputThread;
    class RestartThread;

    struct OutputBuffer {
        uint32_t index = NO_INDEX;
        size_t offset = 0;
        size_t size = 0;
        int64_t timeUs = 0;
        uint32_t flags = 0;
    };

    bool isAudio() const { return mCodingType != H264; }
    const char* component() const { return mComponentName.c_str(); }

    // With mLock held.
    int createExtractor(codingType_t type);
    int allocateMediaDecoder();
    void releaseMediaDecoder();
    int startMediaCodec();
    int stopMediaCodec();
    int runThreads();
    int joinThreads();
    void emptyOutput();
    void restartInternal();
    void rebuildCodec(const char* caller);
    void runRestart();  // takes mLock; restart thread
    bool setCropSize(int left, int top, int right, int bottom, android_native_rect_t* crop);

    // Input thread.
    bool feedCodec(InputThread& thread);
    bool dequeueInput(InputThread& thread, bool* runAgain);
    void queueUnit(const InputThread& thread, size_t index, size_t size, int64_t pts,
                   uint32_t codecFlags);
    void reportResolution();

    void joinCapture();  // the end of the last still

    // Output thread.
    void takeOutput();
    bool dequeueOutput();
    void reclaimLostFrames();
    void onOutputFormatChanged();
    void writeAudio(uint64_t pts);
    void writeVideo(uint64_t pts);

    std::mutex mLock;
    State mState = CREATED;
    codingType_t mCodingType = H264;
    android::sp<android::MediaCodec> mCodec;
    android::sp<MediaExtractor> mExtractor;
    android::sp<android::AMessage> mFormat;
    android::sp<android::AMessage> mOutputFormat;  // output thread
    std::string mComponentName;
    std::string mMime;
    android::sp<android::ALooper> mLooper;
    bool mUseComponentName = false;
    OutputBuffer mPending;  // dequeued but not yet handed on; output thread
    android::sp<InputThread> m_pInputThread;
    android::sp<OutputThread> m_pOutputThread;
    android::Vector<android::sp<android::MediaCodecBuffer>> mInputBuffers;
    android::Vector<android::sp<android::MediaCodecBuffer>> mOutputBuffers;
    int32_t mColorFormat = 0;  // this and the four below: output thread while started
    int32_t mVideoWidth = 0;
    int32_t mVideoHeight = 0;
    int32_t mChannelCount = 2;
    int32_t mSampleRate = 48000;
    std::atomic<DecoderInfoListener*> mDecoderInfoListener{nullptr};
    OutstandingFrames mOutstanding;
    std::atomic<bool> mExiting{false};  // from requestExit() to start(), for workers to come too

    std::mutex mWindowLock;  // a leaf for the two below, which the output thread reads
    android::sp<android::Surface> m_pSurface;
    android_native_rect_t mOrgNativeWindowCropRect{-1, -1, -1, -1};

    std::mutex mCaptureLock;  // never held while the listener runs, but in joinCapture()
    android::sp<CaptureThread> mCaptureThread;

    std::mutex mRestartLock;  // a leaf for the two below
    android::sp<RestartThread> mRestartThread;
    bool mRestartPending = false;  // the thread was started and has not begun yet
};

}  // namespace OrvPlayer
