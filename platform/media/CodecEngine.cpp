#include "media/CodecEngine.h"

#include <media/stagefright/MediaCodec.h>
#include <media/stagefright/MediaErrors.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <new>

#include "media/AacDecoder.h"
#include "media/AudioDecoder.h"
#include "media/CodecStatistics.h"
#include "media/PictureRenderer.h"
#include "media/VideoDecoder.h"
#include "trace/HostLog.h"

namespace orvhost {

using namespace android;

namespace {

constexpr size_t VIDEO_INPUT_BUFFERS = 4;
constexpr size_t AUDIO_INPUT_BUFFERS = 8;  // the units of one PES packet
constexpr size_t OUTPUT_BUFFERS = 8;
constexpr size_t BATCH = 4;
// The units of a PES packet of sound come one right after the other, and each takes less to decode
// than to wake up for.
constexpr int64_t GATHER_US = 2000;
constexpr size_t VIDEO_INPUT_BYTES = 4 * 1024 * 1024;
constexpr size_t AUDIO_INPUT_BYTES = 64 * 1024;
constexpr size_t FIRST_PCM_BYTES = 2048 * 2 * sizeof(int16_t);  // a stereo block with SBR
constexpr int64_t MAX_WAIT_US = 100000;  // a client looks at its exit request that often
constexpr int32_t COLOR_FORMAT_YUV420_SEMI_PLANAR = 0x105;

static_assert(MediaCodecBuffer::TAIL_BYTES >= AV_INPUT_BUFFER_PADDING_SIZE,
              "the library reads past the end of a unit");

int64_t monotonicUs() {
    using namespace std::chrono;
    return duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count();
}

}  // namespace

CodecEngine::CodecEngine(const CodecComponent& component, const sp<ALooper>& looper)
    : mComponent(component), mLooper(looper) {
    routeLibraryMessages();
}

CodecEngine::~CodecEngine() {
    release();
}

status_t CodecEngine::configure(const sp<AMessage>& format, const sp<Surface>& surface) {
    std::lock_guard control(mControlLock);
    {
        Guard guard(mLock);
        if (mState != State::Created) {
            return INVALID_OPERATION;
        }
    }
    AString mime;
    if (format == nullptr || (format->findString("mime", &mime) && !(mime == mComponent.mime))) {
        return BAD_VALUE;
    }
    std::shared_ptr<PictureRenderer> renderer;
    if (mComponent.isVideo() && surface != nullptr) {
        renderer = std::make_shared<PictureRenderer>(surface);
        if (const status_t result = renderer->connect(); result != OK) {
            HOST_LOGE("[%s] %s: surface refuses the connection: %d", name(), __func__, result);
            return result;
        }
    }
    int32_t adts = 0;
    format->findInt32("is-adts", &adts);
    Guard guard(mLock);
    mAdts = adts != 0;
    mRenderer = renderer;
    mState = State::Configured;
    return OK;
}

status_t CodecEngine::start() {
    std::lock_guard control(mControlLock);
    Guard guard(mLock);
    if (mState != State::Configured) {
        return INVALID_OPERATION;
    }
    // Nobody but us touches what belongs to a run before the state says so.
    guard.unlock();
    status_t result;
    try {
        result = prepareRun();
    } catch (const std::bad_alloc&) {
        result = NO_MEMORY;
    }
    guard.lock();
    if (result != OK) {
        // Back to the beginning, so that the caller may try all of it again.
        clearRun();
        mRenderer.reset();
        mState = State::Created;
        return result;
    }
    mState = State::Started;
    return OK;
}

std::unique_ptr<StreamDecoder> CodecEngine::makeStreamDecoder() const {
    switch (mComponent.kind) {
        case CodecComponent::Kind::Avc:
            return std::make_unique<VideoDecoder>();
        case CodecComponent::Kind::Aac:
            return std::make_unique<AacDecoder>(mAdts);
        case CodecComponent::Kind::MpegAudio:
            // This decoder of the library takes all three layers.
            return std::make_unique<AudioDecoder>(AV_CODEC_ID_MP3);
    }
    return nullptr;
}

status_t CodecEngine::prepareRun() {
    mPacket.reset(av_packet_alloc());
    mDecoder = makeStreamDecoder();
    if (mPacket == nullptr || mDecoder->open({}) != StreamDecoder::Status::Ok) {
        return NO_MEMORY;
    }
    mInputs =
        std::vector<InputSlot>(mComponent.isVideo() ? VIDEO_INPUT_BUFFERS : AUDIO_INPUT_BUFFERS);
    for (InputSlot& slot : mInputs) {
        slot.engine = this;
        slot.buffer = MediaCodecBuffer::allocate(mComponent.isVideo() ? VIDEO_INPUT_BYTES
                                                                      : AUDIO_INPUT_BYTES);
        if (slot.buffer == nullptr) {
            return NO_MEMORY;
        }
    }
    mOutputs = std::vector<OutputSlot>(OUTPUT_BUFFERS);
    for (OutputSlot& slot : mOutputs) {
        slot.buffer = MediaCodecBuffer::allocate(mComponent.isVideo() ? 0 : FIRST_PCM_BYTES);
        if (slot.buffer == nullptr) {
            return NO_MEMORY;
        }
    }
    auto& first =
        mComponent.isVideo() ? codecStatistics().firstPictureUs : codecStatistics().firstSoundUs;
    first.store(0, std::memory_order_relaxed);
    if (mComponent.isVideo()) {
        codecStatistics().firstIdrQueuedUs.store(0, std::memory_order_relaxed);
        codecStatistics().firstIdrReadyUs.store(0, std::memory_order_relaxed);
    }
    return OK;
}

void CodecEngine::clearRun() {
    mPacket.reset();
    mDecoder.reset();
    mQueued.clear();
    mReady.clear();
    mInputs.clear();
    mOutputs.clear();
    mBufferGeneration = 0;
    mAnnouncedGeneration = 0;
    mAnnouncedFormat = {};
    mOutputFormat.clear();
    mStalled = false;
    mHadOutput = false;
    mHadIdr = false;
    mIdrTimeUs = -1;
    mFailed = false;
}

status_t CodecEngine::stop() {
    std::lock_guard control(mControlLock);
    std::shared_ptr<PictureRenderer> renderer;
    {
        Guard guard(mLock);
        if (mState == State::Released) {
            return INVALID_OPERATION;
        }
        if (mState == State::Started) {
            mState = State::Stopping;
            mInputChanged.notify_all();
            mOutputChanged.notify_all();
            mIdle.wait(guard, [&] { return !mInStep; });
            // The decoder gives its input back while it goes, which takes the lock.
            std::unique_ptr<StreamDecoder> decoder = std::move(mDecoder);
            guard.unlock();
            decoder.reset();
            guard.lock();
        }
        clearRun();
        renderer.swap(mRenderer);
        mState = State::Created;
    }
    if (renderer != nullptr) {
        renderer->disconnect();
    }
    return OK;
}

status_t CodecEngine::release() {
    stop();
    Guard guard(mLock);
    mState = State::Released;
    return OK;
}

status_t CodecEngine::getInputBuffers(Vector<sp<MediaCodecBuffer>>* buffers) {
    Guard guard(mLock);
    if (!isRunning()) {
        return INVALID_OPERATION;
    }
    buffers->clear();
    for (const InputSlot& slot : mInputs) {
        buffers->push_back(slot.buffer);
    }
    return OK;
}

status_t CodecEngine::getOutputBuffers(Vector<sp<MediaCodecBuffer>>* buffers) {
    Guard guard(mLock);
    if (!isRunning()) {
        return INVALID_OPERATION;
    }
    buffers->clear();
    for (const OutputSlot& slot : mOutputs) {
        buffers->push_back(slot.buffer);
    }
    return OK;
}

size_t CodecEngine::countInputs(Owner owner) const {
    return static_cast<size_t>(std::ranges::count(mInputs, owner, &InputSlot::owner));
}

size_t CodecEngine::countOutputs(Owner owner) const {
    return static_cast<size_t>(std::ranges::count(mOutputs, owner, &OutputSlot::owner));
}

// OK when `ready` came true, with the lock held throughout.
template <typename Ready>
status_t CodecEngine::waitFor(Guard& guard, std::condition_variable& condition, int64_t timeoutUs,
                              Ready ready) {
    if (mState != State::Started) {
        return INVALID_OPERATION;
    }
    // A codec that failed answers as slowly as one that has nothing: its clients ask again and
    // again until someone stops it.
    const auto done = [&] { return mState != State::Started || (!mFailed && ready()); };
    const int64_t waitUs = timeoutUs < 0 ? MAX_WAIT_US : std::min(timeoutUs, MAX_WAIT_US);
    if (waitUs > 0) {
        condition.wait_until(
            guard, std::chrono::steady_clock::now() + std::chrono::microseconds(waitUs), done);
    }
    if (!isRunning()) {
        return INVALID_OPERATION;
    }
    return ready() ? OK : -EAGAIN;
}

status_t CodecEngine::dequeueInput(size_t* index, int64_t timeoutUs) {
    Guard guard(mLock);
    const auto findFree = [&] {
        return std::ranges::find(mInputs, Owner::Free, &InputSlot::owner);
    };
    const size_t wanted = findFree() != mInputs.end() ? 1 : BATCH;
    status_t result = waitFor(guard, mInputChanged, timeoutUs,
                              [&] { return countInputs(Owner::Free) >= wanted; });
    const auto slot = findFree();
    if (result == -EAGAIN && slot != mInputs.end()) {
        result = OK;
    }
    if (result == OK) {
        slot->owner = Owner::Client;
        *index = static_cast<size_t>(slot - mInputs.begin());
    }
    return result;
}

status_t CodecEngine::queueInput(size_t index, size_t offset, size_t size, int64_t timeUs,
                                 uint32_t flags, AString* errorDetail) {
    const auto refuse = [&](status_t code, const char* why) {
        if (errorDetail != nullptr) {
            errorDetail->setTo(why);
        }
        return code;
    };
    Guard guard(mLock);
    if (!isRunning()) {
        return refuse(INVALID_OPERATION, mFailed ? "the decoder failed" : "not started");
    }
    if (index >= mInputs.size()) {
        return refuse(-ERANGE, "no such buffer");
    }
    InputSlot& slot = mInputs[index];
    if (slot.owner != Owner::Client) {
        return refuse(-EACCES, "the buffer is not the caller's");
    }
    if (slot.buffer->setRange(offset, size) != OK) {
        return refuse(BAD_VALUE, "the range exceeds the buffer");
    }
    if (size > 0) {
        slot.owner = Owner::Codec;
        const bool configuration = (flags & MediaCodec::BUFFER_FLAG_CODECCONFIG) != 0;
        const bool isTimed = mComponent.isVideo() && !mHadIdr;
        mQueued.push_back({&slot, timeUs, configuration, isTimed ? monotonicUs() : 0});
    } else {
        slot.owner = Owner::Free;
        mInputChanged.notify_one();
    }
    if (flags & MediaCodec::BUFFER_FLAG_EOS) {
        mQueued.push_back({nullptr, timeUs, false, 0});
    }
    if (!mQueued.empty() && !mStalled) {
        schedule(mComponent.isVideo() ? 0 : GATHER_US);
    }
    return OK;
}

status_t CodecEngine::dequeueOutput(size_t* index, size_t* offset, size_t* size, int64_t* timeUs,
                                    uint32_t* flags, int64_t timeoutUs) {
    Guard guard(mLock);
    if (mReady.empty()) {
        resume();
    }
    const status_t result =
        waitFor(guard, mOutputChanged, timeoutUs, [&] { return !mReady.empty(); });
    if (result != OK) {
        return result;
    }
    OutputSlot& slot = mOutputs[mReady.front()];
    if (slot.bufferGeneration > mAnnouncedGeneration) {
        mAnnouncedGeneration = mBufferGeneration;
        return INFO_OUTPUT_BUFFERS_CHANGED;
    }
    const bool end = (slot.flags & MediaCodec::BUFFER_FLAG_EOS) != 0;
    if (!end && !(slot.output.format == mAnnouncedFormat)) {
        announce(slot.output.format);
        return INFO_FORMAT_CHANGED;
    }
    *index = mReady.front();
    mReady.pop_front();
    slot.owner = Owner::Client;
    *offset = 0;
    *size = slot.buffer->size();
    *timeUs = slot.output.timeUs;
    *flags = slot.flags;
    return OK;
}

void CodecEngine::announce(const StreamFormat& format) {
    mAnnouncedFormat = format;
    mOutputFormat = new AMessage;
    if (mComponent.isVideo()) {
        mOutputFormat->setString("mime", "video/raw");
        mOutputFormat->setInt32("width", format.width);
        mOutputFormat->setInt32("height", format.height);
        mOutputFormat->setInt32("stride", format.width + (format.width & 1));
        mOutputFormat->setInt32("slice-height", format.height);
        mOutputFormat->setInt32("color-format", COLOR_FORMAT_YUV420_SEMI_PLANAR);
        mOutputFormat->setRect("crop", 0, 0, format.width - 1, format.height - 1);
    } else {
        mOutputFormat->setString("mime", "audio/raw");
        mOutputFormat->setInt32("sample-rate", format.sampleRate);
        mOutputFormat->setInt32("channel-count", format.channels);
    }
}

status_t CodecEngine::getOutputFormat(sp<AMessage>* format) {
    Guard guard(mLock);
    if (!isRunning() || mOutputFormat == nullptr) {
        return INVALID_OPERATION;
    }
    *format = mOutputFormat;
    return OK;
}

status_t CodecEngine::releaseOutput(size_t index, bool render) {
    Guard guard(mLock);
    if (!isRunning()) {
        return INVALID_OPERATION;
    }
    if (index >= mOutputs.size()) {
        return -ERANGE;
    }
    OutputSlot& slot = mOutputs[index];
    if (slot.owner != Owner::Client) {
        return -EACCES;
    }
    const AvFrame picture = std::move(slot.output.picture);
    const int64_t timeUs = slot.output.timeUs;
    slot.output = {};
    slot.owner = Owner::Free;
    if (!mStalled || countOutputs(Owner::Free) >= BATCH) {
        resume();
    }
    if (!render || picture == nullptr) {
        if (picture != nullptr) {
            ++codecStatistics().picturesReleasedUnseen;
        }
        return OK;
    }
    // The picture is ours now: the codec goes on, and may even stop, while it is being copied.
    const std::shared_ptr<PictureRenderer> renderer = mRenderer;
    guard.unlock();
    const bool shown = renderer != nullptr && renderer->render(*picture, timeUs);
    if (shown) {
        ++codecStatistics().picturesRendered;
    } else {
        codecStatistics().countWindowDrop(timeUs);
    }
    return OK;
}

// Goes on after releaseOutput(), when there is a buffer to go on with.
void CodecEngine::resume() {
    if (mState == State::Started && countOutputs(Owner::Free) > 0) {
        mStalled = false;
        schedule();
    }
}

// Whoever waits for an output is woken when no more come soon, or when it is about to run dry.
bool CodecEngine::isConsumerDue(bool more) const {
    const bool runsDry = mComponent.isVideo() && countOutputs(Owner::Client) < OUTPUT_BUFFERS / 2;
    return !mReady.empty() && (!more || runsDry || mReady.size() >= OUTPUT_BUFFERS / 2);
}

void CodecEngine::schedule(int64_t delayUs) {
    if (!mScheduled && mLooper != nullptr) {
        mScheduled = true;
        mLooper->post(weak_from_this(), delayUs);
    }
}

void CodecEngine::fail(const char* reason) {
    HOST_LOGE("[%s] %s: %s", name(), __func__, reason);
    mFailed = true;
}

void CodecEngine::run() {
    Guard guard(mLock);
    mScheduled = false;
    if (!isRunning()) {
        return;
    }
    mInStep = true;
    bool more = false;
    try {
        more = step(guard);
    } catch (const std::bad_alloc&) {
        if (!guard.owns_lock()) {
            guard.lock();
        }
        fail("out of memory");
    }
    mInStep = false;
    if (mState == State::Stopping) {
        mIdle.notify_all();
        return;
    }
    if (more) {
        schedule();
    }
    const bool wake = isConsumerDue(more);
    guard.unlock();  // or the consumer would wake up to wait for the lock
    if (wake) {
        mOutputChanged.notify_one();
    }
}

bool CodecEngine::step(Guard& guard) {
    const auto free = std::ranges::find(mOutputs, Owner::Free, &OutputSlot::owner);
    if (free == mOutputs.end()) {
        mStalled = true;
        return false;  // resume() goes on
    }
    OutputSlot& slot = *free;
    slot.owner = Owner::Codec;
    guard.unlock();
    const StreamDecoder::Status status = mDecoder->take(slot.output);
    guard.lock();
    switch (status) {
        case StreamDecoder::Status::Ok:
            slot.flags = 0;
            return deliver(guard, slot);
        case StreamDecoder::Status::EndOfStream:
            slot.flags = MediaCodec::BUFFER_FLAG_EOS;
            slot.output = {};
            slot.buffer->setRange(0, 0);
            mReady.push_back(static_cast<size_t>(free - mOutputs.begin()));
            return true;
        case StreamDecoder::Status::Failed:
            fail("the decoder failed");
            return false;
        case StreamDecoder::Status::Damaged:
            countDamage();
            break;
        case StreamDecoder::Status::Again:
            break;
    }
    slot.owner = Owner::Free;
    return feedNext(guard);
}

bool CodecEngine::deliver(Guard& guard, OutputSlot& slot) {
    if (!mComponent.isVideo()) {
        if (!reserve(slot, slot.output.pcmBytes)) {
            fail("no memory for the samples");
            return false;
        }
        guard.unlock();
        mDecoder->writePcm(slot.buffer->base());
        guard.lock();
        slot.buffer->setRange(0, slot.output.pcmBytes);
    }
    countOutput(slot);
    mReady.push_back(static_cast<size_t>(&slot - mOutputs.data()));
    return true;
}

// Larger blocks than before (more channels, SBR) want larger buffers: all that are not in use are
// replaced at once, so that the client hears about it as rarely as possible.
bool CodecEngine::reserve(OutputSlot& slot, size_t bytes) {
    if (slot.buffer->capacity() >= bytes) {
        return true;
    }
    ++mBufferGeneration;
    for (OutputSlot& other : mOutputs) {
        if (&other != &slot && other.owner != Owner::Free) {
            continue;
        }
        sp<MediaCodecBuffer> buffer = MediaCodecBuffer::allocate(bytes);
        if (buffer == nullptr) {
            return false;
        }
        other.buffer = buffer;
        other.bufferGeneration = mBufferGeneration;
    }
    return true;
}

bool CodecEngine::feedNext(Guard& guard) {
    if (mQueued.empty()) {
        return false;  // queueInput() goes on
    }
    const QueuedUnit unit = mQueued.front();
    mQueued.pop_front();
    if (unit.slot != nullptr && unit.queuedUs != 0 && !mHadIdr) {
        noteIdr(unit);
    }
    guard.unlock();
    const StreamDecoder::Status status = feed(unit);
    guard.lock();
    if (status == StreamDecoder::Status::Failed) {
        fail("the decoder failed");
        return false;
    }
    if (status == StreamDecoder::Status::Damaged) {
        countDamage();
    }
    return true;
}

StreamDecoder::Status CodecEngine::feed(const QueuedUnit& unit) {
    if (unit.slot == nullptr) {
        return mDecoder->feed(nullptr);
    }
    MediaCodecBuffer& buffer = *unit.slot->buffer;
    if (unit.configuration) {
        const StreamDecoder::Status status = mDecoder->open({buffer.data(), buffer.size()});
        giveBack(*unit.slot);
        return status;
    }
    memset(buffer.data() + buffer.size(), 0, MediaCodecBuffer::TAIL_BYTES);
    mPacket->buf = av_buffer_create(
        buffer.base(), buffer.capacity() + MediaCodecBuffer::TAIL_BYTES,
        [](void* slot, uint8_t*) {
            auto* input = static_cast<InputSlot*>(slot);
            input->engine->giveBack(*input);
        },
        unit.slot, AV_BUFFER_FLAG_READONLY);
    if (mPacket->buf == nullptr) {
        return StreamDecoder::Status::Failed;
    }
    mPacket->data = buffer.data();
    mPacket->size = static_cast<int>(buffer.size());
    mPacket->pts = unit.timeUs;
    const StreamDecoder::Status status = mDecoder->feed(mPacket.get());
    av_packet_unref(mPacket.get());
    return status;
}

// From whatever thread drops the last reference to the unit's bytes.
void CodecEngine::giveBack(InputSlot& slot) {
    Guard guard(mLock);
    slot.owner = Owner::Free;
    const bool wake = countInputs(Owner::Free) >= BATCH;
    guard.unlock();
    if (wake) {
        mInputChanged.notify_one();
    }
}

void CodecEngine::noteIdr(const QueuedUnit& unit) {
    MediaCodecBuffer& buffer = *unit.slot->buffer;
    mHadIdr = VideoDecoder::isIdr({buffer.data(), buffer.size()});
    if (mHadIdr) {
        mIdrTimeUs = unit.timeUs;
        codecStatistics().firstIdrQueuedUs.store(unit.queuedUs, std::memory_order_relaxed);
    }
}

void CodecEngine::countOutput(const OutputSlot& slot) {
    CodecStatistics& statistics = codecStatistics();
    auto& count = mComponent.isVideo() ? statistics.picturesDecoded : statistics.audioBlocksDecoded;
    count.fetch_add(1, std::memory_order_relaxed);
    if (!mHadOutput) {
        mHadOutput = true;
        auto& first = mComponent.isVideo() ? statistics.firstPictureUs : statistics.firstSoundUs;
        first.store(monotonicUs(), std::memory_order_relaxed);
    }
    if (mIdrTimeUs >= 0 && slot.output.timeUs == mIdrTimeUs) {
        mIdrTimeUs = -1;
        statistics.firstIdrReadyUs.store(monotonicUs(), std::memory_order_relaxed);
    }
}

void CodecEngine::countDamage() {
    auto& count = mComponent.isVideo() ? codecStatistics().videoUnitsDamaged
                                       : codecStatistics().audioUnitsDamaged;
    count.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace orvhost
