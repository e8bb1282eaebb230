#include "decoder/MediaExtractor.h"

#include <algorithm>

#include "common/Trace.h"

namespace OrvPlayer {

MediaExtractor::MediaExtractor(const android::sp<RingBuffer>& ringBuffer)
    : mRingBuffer(ringBuffer) {}

MediaExtractor::~MediaExtractor() = default;

bool MediaExtractor::getVideoResolution(uint32_t*, uint32_t*) const {
    return false;
}

int MediaExtractor::takeRecord(const char* caller, uint32_t addedToPrintedSize) {
    if (currentBlock != nullptr) {
        return STATUS_OK;
    }
    unsigned char* start = mRingBuffer->read(PESData::FIXED_SIZE, RingBuffer::BLOCKING);
    if (start == nullptr) {
        return STATUS_NO_RECORD;
    }
    auto* record = reinterpret_cast<PESData*>(start);
    const uint32_t recordSize = record->mSize;
    const uint32_t readable = mRingBuffer->getDataSize();
    if (recordSize < PESData::FIXED_SIZE || recordSize > readable) {
        ORV_LOGE("%s: RingBuffer fatal errror: %d %u\n", caller, static_cast<int>(readable),
                 recordSize + addedToPrintedSize);
        mRingBuffer->readAdvance(0);
        if (mRingBuffer->read(readable + 1, RingBuffer::BLOCKING) != nullptr) {
            mRingBuffer->readAdvance(0);
        }
        return STATUS_FAULT;
    }
    currentBlock = record;
    const uint32_t offset = std::min(record->mOffsetES, recordSize);
    payload = start + offset;
    payloadSize = std::min(record->mSizeES, recordSize - offset);
    return STATUS_OK;
}

void MediaExtractor::unlockRecord() {
    mRingBuffer->readAdvance(0);
}

void MediaExtractor::consumeRecord() {
    const uint32_t recordSize = currentBlock->mSize;
    currentBlock = nullptr;
    mRingBuffer->readAdvance(recordSize);
}

void MediaExtractor::dropRecord() {
    if (currentBlock != nullptr) {
        currentBlock = nullptr;
        mRingBuffer->readAdvance(0);
    }
}

}  // namespace OrvPlayer
