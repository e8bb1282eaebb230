// The worker, the layout of a packet and the text. The bytes of a data unit are interpreted in
// ClosedCaptionDecoderCodes.cpp.

#include "decoder/ClosedCaptionDecoder.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>

#include "common/Trace.h"

namespace OrvPlayer {

namespace {

constexpr uint8_t SYNCHRONIZED_DATA = 0x80;  // data_identifier
constexpr uint8_t UNIT_SEPARATOR = 0x1F;
constexpr uint8_t STATEMENT_BODY = 0x20;  // data_unit_parameter
constexpr size_t DATA_GROUP_HEADER = 5;
constexpr size_t SHORT_DATA_HEADER = 1;  // TMD alone
constexpr size_t TIMED_DATA_HEADER = 6;  // TMD and STM
constexpr size_t LOOP_LENGTH = 3;
constexpr size_t LARGEST_UNIT = 256;
constexpr char32_t LINE_FEED = U'\n';

// Reads the payload of a record front to back, and stops at its end.
class PayloadReader {
public:
    explicit PayloadReader(const PESData& record)
        : mpNext(reinterpret_cast<const uint8_t*>(&record) + record.mOffsetES),
          mLeft(record.mSize > record.mOffsetES ? record.mSize - record.mOffsetES : 0) {}

    bool skip(size_t count) {
        const bool there = count <= mLeft;
        const size_t step = there ? count : mLeft;
        mpNext += step;
        mLeft -= step;
        return there;
    }
    bool read(uint8_t* byte) {
        if (mLeft == 0) {
            return false;
        }
        *byte = *mpNext++;
        --mLeft;
        return true;
    }

private:
    const uint8_t* mpNext;
    size_t mLeft;
};

}  // namespace

// Joined before the decoder goes, hence the plain pointer.
class ClosedCaptionDecoder::WorkerThread : public android::Thread {
public:
    explicit WorkerThread(ClosedCaptionDecoder* decoder)
        : android::Thread(true), mDecoder(decoder) {}

private:
    bool threadLoop() override {
        if (exitPending()) {
            return false;
        }
        mDecoder->WorkerThreadRunner();
        return true;
    }

    ClosedCaptionDecoder* const mDecoder;
};

ClosedCaptionDecoder::ClosedCaptionDecoder() : Module("ClosedCaptionDecoder") {
    mCCString.reserve(ROWS * (COLUMNS + 1));
}

ClosedCaptionDecoder::~ClosedCaptionDecoder() {
    ClosedCaptionDecoder::stop();
}

int ClosedCaptionDecoder::start() {
    std::lock_guard<std::mutex> guard(mStartStopLock);
    if (mInput == nullptr || mOutputs.empty()) {
        ORV_LOGE("%s NULL parameter!", __func__);
        return 1;
    }
    if (mWorker != nullptr && !mExitRequested) {
        return 0;
    }
    join();
    mExitRequested = false;
    mBadRecordLogged = false;
    mWorker = new WorkerThread(this);
    if (mWorker->run("CCWorkerThread") != android::OK) {
        ORV_LOGE("%s: could not start thread!\n", __func__);
        mWorker = nullptr;
        return 1;
    }
    return 0;
}

int ClosedCaptionDecoder::stop() {
    requestExit();
    std::lock_guard<std::mutex> guard(mStartStopLock);
    join();
    return 0;
}

void ClosedCaptionDecoder::requestExit() {
    std::lock_guard<std::mutex> guard(mStartStopLock);
    if (mWorker == nullptr) {
        return;
    }
    mExitRequested = true;
    mWorker->requestExit();
    mInput->wakeReaders();
    mInput->wakeWriters();
    for (const android::sp<RingBuffer>& output : mOutputs) {
        output->wakeReaders();
        output->wakeWriters();
    }
}

// After requestExit(), with mStartStopLock held.
void ClosedCaptionDecoder::join() {
    if (mWorker != nullptr) {
        mWorker->requestExitAndWait();
        mWorker = nullptr;
    }
}

void ClosedCaptionDecoder::WorkerThreadRunner() {
    unsigned char* start = mInput->read(PESData::FIXED_SIZE, RingBuffer::BLOCKING);
    if (start == nullptr) {
        return;
    }
    auto* record = reinterpret_cast<PESData*>(start);
    const unsigned int readable = mInput->getDataSize();
    if (!isWhole(*record, readable)) {
        mInput->readAdvance(0);
        // It stays. Whoever comes back to it at once would spin.
        if (mInput->read(readable + 1, RingBuffer::BLOCKING) != nullptr) {
            mInput->readAdvance(0);
        }
        return;
    }
    processPacket(record);
    mInput->readAdvance(record->mSize);
    clearScreenData();
}

bool ClosedCaptionDecoder::isWhole(const PESData& record, unsigned int readable) {
    if (record.mSize >= PESData::FIXED_SIZE && record.mSize >= record.mOffsetES &&
        record.mSize <= readable) {
        mBadRecordLogged = false;
        return true;
    }
    if (record.mSize != 0 && !mBadRecordLogged) {
        mBadRecordLogged = true;
        ORV_LOGE("%s: record of %u bytes, payload at %u, readable %u\n", "WorkerThreadRunner",
                 record.mSize, record.mOffsetES, readable);
    }
    return false;
}

int ClosedCaptionDecoder::processPacket(PESData* record) {
    PayloadReader payload(*record);
    uint8_t byte = 0;
    if (!payload.read(&byte) || byte != SYNCHRONIZED_DATA) {
        return RESULT_NOTHING_WRITTEN;
    }
    payload.skip(1);  // private_stream_id
    if (!payload.read(&byte)) {
        return RESULT_NOTHING_WRITTEN;
    }
    payload.skip((byte & 0x0F) + DATA_GROUP_HEADER);  // PES_data_packet_header_length
    if (!payload.read(&byte)) {
        return RESULT_NOTHING_WRITTEN;
    }
    const int timeControlMode = byte >> 6;
    const bool timed = timeControlMode == 1 || timeControlMode == 2;
    payload.skip((timed ? TIMED_DATA_HEADER : SHORT_DATA_HEADER) - 1 + LOOP_LENGTH);
    if (!payload.read(&byte) || byte != UNIT_SEPARATOR || !payload.read(&byte)) {
        return RESULT_NOTHING_WRITTEN;
    }
    if (byte != STATEMENT_BODY) {
        return RESULT_OTHER_DATA_UNIT;
    }
    size_t size = 0;
    for (int i = 0; i < 3; ++i) {
        if (!payload.read(&byte)) {
            return RESULT_NOTHING_WRITTEN;
        }
        size = size << 8 | byte;
    }
    // Deliberate: the bytes are counted in 8 bits. Of a larger unit only what comes before the
    // counter wraps is interpreted. See ClosedCaptionDecoderTest.CountsBytesInEightBits.
    for (size_t left = std::min(size, LARGEST_UNIT); left > 0; --left) {
        if (!payload.read(&byte)) {
            return RESULT_NOTHING_WRITTEN;
        }
        processCCByte(byte);
    }
    if (mRow == NOT_PLACED && mColumn == NOT_PLACED) {
        return RESULT_EMPTY_SCREEN;
    }
    const int textBytes = buildCCString();
    return textBytes != 0 ? writeText(record->mPTS, textBytes) : RESULT_NOTHING_WRITTEN;
}

int ClosedCaptionDecoder::writeText(uint64_t pts90k, int textBytes) {
    RingBuffer& output = *mOutputs.front();
    const uint32_t size = ClosedCaptionFragmentData::FIXED_SIZE + static_cast<uint32_t>(textBytes);
    unsigned char* block = output.write(size, RingBuffer::BLOCKING);
    if (block == nullptr) {
        return RESULT_NOTHING_WRITTEN;
    }
    auto* caption = new (block) ClosedCaptionFragmentData;
    caption->mType = Data::CLOSED_CAPTION;
    caption->mSize = size;
    caption->mPTS = pts90k;
    getCC(block + ClosedCaptionFragmentData::FIXED_SIZE, static_cast<unsigned int>(textBytes));
    output.writeAdvance(size);
    return RESULT_WRITTEN;
}

int ClosedCaptionDecoder::buildCCString() {
    std::lock_guard<std::mutex> guard(mCCLock);
    mCCString.clear();
    for (const auto& row : mScreen) {
        const auto* end = std::find(std::begin(row), std::begin(row) + COLUMNS, 0u);
        if (end == std::begin(row)) {
            break;
        }
        mCCString.append(std::begin(row), end);
        if (end != std::begin(row) + COLUMNS) {
            mCCString.push_back(LINE_FEED);
        }
    }
    return static_cast<int>(mCCString.size() * sizeof(char32_t));
}

unsigned int ClosedCaptionDecoder::getCCSize() {
    std::lock_guard<std::mutex> guard(mCCLock);
    return static_cast<unsigned int>(mCCString.size() * sizeof(char32_t));
}

void ClosedCaptionDecoder::getCC(unsigned char* buffer, unsigned int size) {
    std::lock_guard<std::mutex> guard(mCCLock);
    const size_t bytes = mCCString.size() * sizeof(char32_t);
    if (bytes != 0 && size >= bytes) {
        memcpy(buffer, mCCString.data(), bytes);
    }
}

void ClosedCaptionDecoder::clearScreenData() {
    memset(mScreen, 0, sizeof mScreen);
    mRow = NOT_PLACED;
    mColumn = NOT_PLACED;
}

}  // namespace OrvPlayer
