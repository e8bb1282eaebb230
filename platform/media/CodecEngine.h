#pragma once

#include <media/MediaCodecBuffer.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>
#include <utils/Errors.h>
#include <utils/StrongPointer.h>
#include <utils/Vector.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "media/CodecComponent.h"
#include "media/LooperTask.h"
#include "media/StreamDecoder.h"

namespace android {
class Surface;
}

namespace orvhost {

class PictureRenderer;

// What stands behind a MediaCodec: its states, its buffers and the work on the looper's thread.
// The calls are those of MediaCodec, which documents them.
//
//   input buffer:   free -> client -> queued -> free (when the decoder let go of its bytes)
//   output buffer:  free -> being filled -> ready -> client -> free
//
// A run of the task does one step: take one output from the decoder when an output buffer is free,
// or else feed it one unit. Without a free output buffer there is no step at all, which is how a
// consumer that keeps its pictures holds the stream back.
//
// A picture that comes back every 33 ms would then wake the looper, both clients and the looper
// again. So whoever had to wait is woken for BATCH buffers, not for each, as long as the other
// side has enough to go on with.
class CodecEngine : public LooperTask, public std::enable_shared_from_this<CodecEngine> {
public:
    CodecEngine(const CodecComponent& component, const android::sp<android::ALooper>& looper);
    CodecEngine(const CodecEngine&) = delete;  // input buffers point here
    CodecEngine& operator=(const CodecEngine&) = delete;
    ~CodecEngine() override;

    const char* name() const { return mComponent.name; }

    android::status_t configure(const android::sp<android::AMessage>& format,
                                const android::sp<android::Surface>& surface);
    android::status_t start();
    android::status_t stop();
    android::status_t release();

    android::status_t getInputBuffers(
        android::Vector<android::sp<android::MediaCodecBuffer>>* buffers);
    android::status_t getOutputBuffers(
        android::Vector<android::sp<android::MediaCodecBuffer>>* buffers);

    android::status_t dequeueInput(size_t* index, int64_t timeoutUs);
    android::status_t queueInput(size_t index, size_t offset, size_t size, int64_t timeUs,
                                 uint32_t flags, android::AString* errorDetail);
    android::status_t dequeueOutput(size_t* index, size_t* offset, size_t* size, int64_t* timeUs,
                                    uint32_t* flags, int64_t timeoutUs);
    android::status_t releaseOutput(size_t index, bool render);
    android::status_t getOutputFormat(android::sp<android::AMessage>* format);

    void run() override;

private:
    enum class State { Created, Configured, Started, Stopping, Released };
    enum class Owner { Free, Client, Codec };

    // Stays in place while the codec runs: the library gives the bytes back through its address.
    struct InputSlot {
        CodecEngine* engine = nullptr;
        android::sp<android::MediaCodecBuffer> buffer;
        Owner owner = Owner::Free;
    };
    struct QueuedUnit {
        InputSlot* slot;  // null: the end of the stream
        int64_t timeUs;
        bool configuration;
        int64_t queuedUs;  // 0 where nobody asks
    };
    struct OutputSlot {
        android::sp<android::MediaCodecBuffer> buffer;
        uint32_t bufferGeneration = 0;
        Owner owner = Owner::Free;
        DecodedOutput output;
        uint32_t flags = 0;
    };
    using Guard = std::unique_lock<std::mutex>;

    std::unique_ptr<StreamDecoder> makeStreamDecoder() const;
    android::status_t prepareRun();
    void clearRun();

    bool isRunning() const { return mState == State::Started && !mFailed; }
    size_t countInputs(Owner owner) const;
    size_t countOutputs(Owner owner) const;
    template <typename Ready>
    android::status_t waitFor(Guard& guard, std::condition_variable& condition, int64_t timeoutUs,
                              Ready ready);
    void announce(const StreamFormat& format);

    // On the looper's thread. All of them enter and leave with the lock held and give it up
    // around the library's calls.
    bool step(Guard& guard);
    bool feedNext(Guard& guard);
    bool deliver(Guard& guard, OutputSlot& slot);
    bool reserve(OutputSlot& slot, size_t bytes);
    StreamDecoder::Status feed(const QueuedUnit& unit);
    void giveBack(InputSlot& slot);
    void noteIdr(const QueuedUnit& unit);
    void countOutput(const OutputSlot& slot);
    void countDamage();
    void resume();
    bool isConsumerDue(bool more) const;
    void schedule(int64_t delayUs = 0);
    void fail(const char* reason);

    const CodecComponent& mComponent;
    const android::sp<android::ALooper> mLooper;

    std::mutex mControlLock;  // taken first: configure, start, stop and release, one at a time
    std::mutex mLock;         // everything below; never held across a call of the library
    std::condition_variable mInputChanged;
    std::condition_variable mOutputChanged;
    std::condition_variable mIdle;

    State mState = State::Created;
    bool mFailed = false;
    bool mScheduled = false;  // the looper has us in its queue
    bool mInStep = false;
    bool mStalled = false;  // for want of output buffers
    bool mAdts = false;
    std::shared_ptr<PictureRenderer> mRenderer;

    // From start() to stop(). Decoder and packet belong to the looper's thread.
    std::unique_ptr<StreamDecoder> mDecoder;
    AvPacket mPacket;
    std::vector<InputSlot> mInputs;
    std::deque<QueuedUnit> mQueued;
    std::vector<OutputSlot> mOutputs;
    std::deque<size_t> mReady;  // indices of mOutputs, in order
    uint32_t mBufferGeneration = 0;
    uint32_t mAnnouncedGeneration = 0;
    StreamFormat mAnnouncedFormat;
    android::sp<android::AMessage> mOutputFormat;
    bool mHadOutput = false;
    bool mHadIdr = false;     // among the units
    int64_t mIdrTimeUs = -1;  // of the first one, until its picture comes out
};

}  // namespace orvhost
