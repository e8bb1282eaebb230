// The passes of the decoder's two workers.

#include "decoder/MediaCodecDecoderThreads.h"

#include <media/stagefright/MediaErrors.h>

#include <unistd.h>

#include <cstring>
#include <new>

#include "common/Trace.h"
#include "common/Uint33.h"

namespace OrvPlayer {

namespace {

constexpr int64_t INPUT_TIMEOUT_US = 250'000;
constexpr int64_t OUTPUT_TIMEOUT_US = 100'000;

// Result codes of the codec.
constexpr int TRY_AGAIN = -11;
constexpr int CODEC_FAILED = -38;
constexpr int FORMAT_CHANGED = -1012;
constexpr int BUFFERS_CHANGED = -1014;

constexpr uint8_t BITS_PER_SAMPLE = 16;

// Truncated towards zero. A stream may say that its frames last for hours, and the sum of a few
// thousand is then any number: the product is taken modulo 2^64.
int64_t microsecondsOf(int64_t pts90k) {
    return static_cast<int64_t>(static_cast<uint64_t>(pts90k) * 1000) / 90;
}

}  // namespace

bool MediaCodecDecoder::feedCodec(InputThread& thread) {
    bool runAgain = true;
    if (!dequeueInput(thread, &runAgain)) {
        return runAgain;
    }
    const size_t index = thread.keptIndex;
    const android::sp<android::MediaCodecBuffer>& buffer = mInputBuffers[index];
    buffer->setRange(0, 0);
    unsigned long size = 0;
    long long pts = 0;
    unsigned char flags = 0;
    const int status =
        mExtractor->getDecodableUnit(buffer->base(), buffer->capacity(), &size, &pts, &flags);
    uint32_t codecFlags = 0;
    if (status == 0 && size > 0) {
        if (flags & MediaExtractor::FLAG_CODEC_CONFIG) {
            codecFlags = android::MediaCodec::BUFFER_FLAG_CODECCONFIG;
        }
        if (flags & MediaExtractor::FLAG_NEW_SPS) {
            reportResolution();
        }
    } else if (isAudio()) {
        ORV_LOGV("[%s] %s: buffer size 0 just return and reuse this index(%d)", component(),
                 __func__, static_cast<int>(index));
        return true;
    }
    // Deliberate: without a unit a video buffer is queued empty.
    thread.keptIndex = NO_INDEX;
    if (thread.isExiting()) {  // the codec was stopped meanwhile
        return false;
    }
    queueUnit(thread, index, size, pts, codecFlags);
    return true;
}

// Leaves a buffer in the thread's keptIndex. False when there is none; *runAgain then says whether
// the thread goes on.
bool MediaCodecDecoder::dequeueInput(InputThread& thread, bool* runAgain) {
    if (thread.keptIndex != NO_INDEX) {
        return true;
    }
    size_t index = 0;
    const int status = mCodec->dequeueInputBuffer(&index, INPUT_TIMEOUT_US);
    if (status == android::OK && index < mInputBuffers.size()) {
        thread.keptIndex = static_cast<uint32_t>(index);
        return true;
    }
    if (thread.isExiting()) {  // the codec was stopped under the wait
        *runAgain = false;
    } else if (status == CODEC_FAILED) {
        if (isAudio()) {
            restartDecoder(CODEC_FAILED);
            *runAgain = false;
        } else {
            usleep(10'000);  // the codec answers at once: do not spin until somebody mends it
        }
    } else if (status != TRY_AGAIN) {
        ORV_LOGE("[%s] %s: dequeue input returned: %d: %s", component(), "feedCodec", status,
                 strerror(-status));
    }
    return false;
}

void MediaCodecDecoder::queueUnit(const InputThread& thread, size_t index, size_t size, int64_t pts,
                                  uint32_t codecFlags) {
    mInputBuffers[index]->setRange(0, size);
    android::AString detail;
    const int status =
        mCodec->queueInputBuffer(index, 0, size, microsecondsOf(pts), codecFlags, &detail);
    // A codec that was stopped since the last look refuses; that is no error.
    if (status != android::OK && !thread.isExiting()) {
        ORV_LOGE("[%s] %s: Error queueing buffer on MediaCodec: %s (%d) %s", component(),
                 "feedCodec", strerror(-status), status, detail.c_str());
    }
}

void MediaCodecDecoder::reportResolution() {
    DecoderInfoListener* listener = mDecoderInfoListener;
    uint32_t width = 0;
    uint32_t height = 0;
    if (listener != nullptr && mExtractor->getVideoResolution(&width, &height)) {
        listener->onVideoResolution(static_cast<int>(width), static_cast<int>(height));
    }
}

void MediaCodecDecoder::takeOutput() {
    if (mPending.index == NO_INDEX && !dequeueOutput()) {
        return;
    }
    const uint64_t pts = static_cast<uint64_t>(mPending.timeUs * 9 / 100) & UINT33_MASK;
    if (mOutputs.empty()) {
        mCodec->releaseOutputBuffer(mPending.index);
        mPending.index = NO_INDEX;
    } else if (isAudio()) {
        writeAudio(pts);
    } else {
        writeVideo(pts);
    }
}

bool MediaCodecDecoder::dequeueOutput() {
    size_t index = 0;
    const int status =
        mCodec->dequeueOutputBuffer(&index, &mPending.offset, &mPending.size, &mPending.timeUs,
                                    &mPending.flags, OUTPUT_TIMEOUT_US);
    switch (status) {
        case android::OK:
            if (index < mOutputBuffers.size()) {
                mPending.index = static_cast<uint32_t>(index);
                return true;
            }
            mCodec->releaseOutputBuffer(index);  // none of the buffers that were announced
            break;
        case CODEC_FAILED:
            usleep(10'000);  // as on the input side
            break;
        case TRY_AGAIN:
            reclaimLostFrames();
            break;
        case BUFFERS_CHANGED:
            if (mCodec->getOutputBuffers(&mOutputBuffers) != android::OK) {
                ORV_LOGE("[%s] %s: Error getting MediaCodec output buffers", component(),
                         "takeOutput");
            }
            break;
        case FORMAT_CHANGED:
            onOutputFormatChanged();
            break;
        default:
            ORV_LOGE("[%s] %s: Returning on dequeue output: %d: %s", component(), "takeOutput",
                     status, strerror(-status));
            break;
    }
    return false;
}

void MediaCodecDecoder::reclaimLostFrames() {
    if (isAudio() || mOutputs.empty()) {
        return;
    }
    const size_t recordsWaiting = mOutputs.front()->getDataSize() / VideoFrameData::FIXED_SIZE;
    std::vector<size_t> lost;
    mOutstanding.takeLost(mOutputBuffers.size(), recordsWaiting, &lost);
    for (const size_t index : lost) {
        mCodec->releaseOutputBuffer(index);
    }
}

void MediaCodecDecoder::onOutputFormatChanged() {
    if (mCodec->getOutputFormat(&mOutputFormat) != android::OK) {
        ORV_LOGE("[%s] %s: Error getting new format", component(), "takeOutput");
        return;
    }
    mOutputFormat->findInt32("sample-rate", &mSampleRate);
    mOutputFormat->findInt32("channel-count", &mChannelCount);
    mOutputFormat->findInt32("color-format", &mColorFormat);
    android_native_rect_t crop;
    if (mOutputFormat->findRect("crop", &crop.left, &crop.top, &crop.right, &crop.bottom)) {
        videoOutputCropChanged(crop);
    }
}

void MediaCodecDecoder::writeAudio(uint64_t pts) {
    RingBuffer& output = *mOutputs.front();
    const auto recordSize = static_cast<uint32_t>(AudioFragmentData::FIXED_SIZE + mPending.size);
    unsigned char* block = output.write(recordSize, RingBuffer::BLOCKING);
    if (block == nullptr) {
        return;  // no room: the buffer stays pending for the next pass
    }
    auto* record = new (block) AudioFragmentData;
    record->mType = Data::AUDIO_FRAGMENT;
    record->mSize = recordSize;
    record->mPTS = pts;
    record->mSamplingRate = static_cast<uint32_t>(mSampleRate);
    record->mNumberChannels = static_cast<uint8_t>(mChannelCount);
    record->mBitsPerSample = BITS_PER_SAMPLE;
    if (mPending.size > 0) {
        memcpy(block + AudioFragmentData::FIXED_SIZE,
               mOutputBuffers[mPending.index]->base() + mPending.offset, mPending.size);
    }
    mCodec->releaseOutputBuffer(mPending.index);
    output.writeAdvance(recordSize);
    mPending.index = NO_INDEX;
}

void MediaCodecDecoder::writeVideo(uint64_t pts) {
    if (mVideoWidth == 0 && mVideoHeight == 0 &&
        mCodec->getOutputFormat(&mOutputFormat) == android::OK) {
        mOutputFormat->findInt32("width", &mVideoWidth);
        mOutputFormat->findInt32("height", &mVideoHeight);
        ORV_LOGW("[%s] %s: w/h is not get...w=%d, h=%d", component(), "takeOutput", mVideoWidth,
                 mVideoHeight);
    }
    RingBuffer& output = *mOutputs.front();
    unsigned char* block = output.write(VideoFrameData::FIXED_SIZE, RingBuffer::BLOCKING);
    if (block == nullptr) {
        return;
    }
    auto* record = new (block) VideoFrameData;
    record->mType = Data::VIDEO_FRAME;
    record->mSize = VideoFrameData::FIXED_SIZE;
    record->mPTS = pts;
    record->mColorFormat = static_cast<uint32_t>(mColorFormat);
    record->mBufferIndex = mPending.index;
    record->mListener = this;
    record->mWidth = mVideoWidth;
    record->mHeight = mVideoHeight;
    mOutstanding.add(mPending.index, pts);
    output.writeAdvance(VideoFrameData::FIXED_SIZE);
    mPending.index = NO_INDEX;
}

}  // namespace OrvPlayer
