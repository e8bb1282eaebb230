#include "tsparser/TSParser.h"

#include <dtv/RecPlayerBinder.h>

#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "common/Trace.h"

namespace OrvPlayer {

namespace {

constexpr std::memory_order RELAXED = std::memory_order_relaxed;
constexpr uint32_t HEADER = PESData::FIXED_SIZE;
constexpr uint16_t SCRAMBLED_TOLERATED = 11;
constexpr uint32_t MAX_PAYLOAD = 184;

// The functions that the lines of log name.
constexpr char START[] = "start";
constexpr char WORKER[] = "threadLoop";

constexpr char TS_ERROR[] = "TS parser error; discarding entire PES packet.";
constexpr char PES_ERROR[] = "PES parser error; discarding entire packet.";

constexpr uint32_t roundUp4(uint32_t size) {
    return (size + 3) & ~3u;
}

}  // namespace

TSParser::TSParser(int role) : Module("TS Parser"), android::Thread(true), mStreamType(role) {}

TSParser::~TSParser() {
    if (mpParsers != nullptr) {
        release();
    }
}

int TSParser::configure(const android::sp<Synchronization>& sync) {
    mSync = sync;
    return 0;
}

int TSParser::start() {
    if (isRunning()) {
        return 0;
    }
    if (const int result = open(); result != 0) {
        return result;
    }
    if (run("TSParser", android::PRIORITY_DEFAULT) != android::NO_ERROR) {
        ORV_LOGE("%s - could not start thread!\n", __func__);
        release();
        return ERR_WORKER;
    }
    return 0;
}

int TSParser::open(std::function<void()> makeRoom) {
    if (mpParsers != nullptr) {
        release();  // a worker that ended by itself left them and its locks behind
    }
    if (mInput == nullptr) {
        ORV_LOGE("%s - no input Ring Buffer set!\n", START);
        return ERR_NO_INPUT;
    }
    if (!mOutputs.empty() && !reserveBlock(START)) {
        return ERR_WORKER;
    }
    mMakeRoom = std::move(makeRoom);
    mpParsers = std::make_unique<Parsers>();
    mScrambledCount = 0;
    mExiting.store(false);
    return 0;
}

void TSParser::requestExit() {
    mExiting.store(true);
    android::Thread::requestExit();
    if (mInput != nullptr) {
        mInput->wakeReaders();
        mInput->wakeWriters();
    }
    for (const android::sp<RingBuffer>& output : mOutputs) {
        output->wakeReaders();
        output->wakeWriters();
    }
}

int TSParser::stop() {
    requestExit();
    if (join() != android::NO_ERROR) {
        ORV_LOGE("%s - could not stop thread!\n", __func__);
        return ERR_WORKER;
    }
    release();
    return 0;
}

// The worker is gone, and may have left holding the input's and the outputs' locks.
void TSParser::release() {
    mpParsers.reset();
    mpPESWriter = nullptr;
    mpPESData = nullptr;
    if (mInput != nullptr) {
        mInput->readAdvance(0);
    }
    for (const android::sp<RingBuffer>& output : mOutputs) {
        output->writeAdvance(0);
    }
}

bool TSParser::parsePass() {
    unsigned char* packet = mInput->read(TS_PACKET_BYTES, RingBuffer::BLOCKING);
    if (packet == nullptr) {
        return true;
    }
    const unsigned int readable = mInput->getDataSize();
    mPCRSeen = false;
    for (unsigned int left = readable / TS_PACKET_BYTES; left > 0; --left) {
        const Step step = isExiting() ? Step::LEAVE : handlePacket(packet);
        if (step != Step::NEXT) {
            mInput->readAdvance(0);
            if (step == Step::SCRAMBLED) {
                mScrambledBytes = (readable / TS_PACKET_BYTES - left + 1) * TS_PACKET_BYTES;
                leaveScrambled();
            }
            return false;
        }
        packet += TS_PACKET_BYTES;
    }
    mpParsers->ts.retainPayload(&mpParsers->tsData);
    if (mStreamType == PID_TYPE_PCR && mSync != nullptr && mPCRSeen) {
        mSync->setBasePCR(mLastPCR, Synchronization::REAL_PCR);
    }
    mInput->readAdvance(readable);
    return true;
}

TSParser::Step TSParser::handlePacket(unsigned char* packet) {
    TSParsedData& data = mpParsers->tsData;
    data.transport_scrambling_control = 0;
    const unsigned int result = mpParsers->ts.parse(packet, &data);
    if (mStreamType == PID_TYPE_VIDEO && isTooScrambled(result)) {
        return Step::SCRAMBLED;
    }
    // The record's flag, which a packet without an adaptation field leaves as it was.
    if (data.PCR_flag != 0) {
        mLastPCR = data.program_clock_reference_base & UINT33_MASK;
        mPCRSeen = true;
    }
    if (mOutputs.empty()) {
        return Step::NEXT;
    }
    if (TSPacketParser::isHeaderError(result)) {
        discardBlock(TS_ERROR);
        return Step::NEXT;
    }
    if ((result & TSPacketParser::RESULT_SKIP) != 0) {
        return Step::NEXT;
    }
    if ((result & TSPacketParser::RESULT_COMPLETE) != 0) {
        finishPES();
    }
    if ((result & TSPacketParser::RESULT_DISCARD) != 0 || data.payload_size > MAX_PAYLOAD) {
        discardBlock(TS_ERROR);
    }
    if ((result & TSPacketParser::RESULT_APPEND) != 0 && data.payload_size != 0) {
        return append(data.payload, data.payload_size);
    }
    return Step::NEXT;
}

// Only a damaged packet takes the count back, a clear one does not.
bool TSParser::isTooScrambled(unsigned int result) {
    if (mpParsers->tsData.transport_scrambling_control != 0) {
        if (mScrambledCount >= SCRAMBLED_TOLERATED) {
            return true;
        }
        ++mScrambledCount;
    }
    if ((result & TSPacketParser::RESULT_DISCARD) != 0) {
        mScrambledCount = 0;
    }
    return false;
}

void TSParser::leaveScrambled() {
    ORV_LOGE("%s send error by scrambled ts pid = 0x%x\n", WORKER, mpParsers->tsData.PID);
    onError(ERR_SCRAMBLED);
}

TSParser::Step TSParser::append(const unsigned char* payload, uint32_t size) {
    unsigned char* writer = mpPESWriter.load(RELAXED);
    if (writer == nullptr) {
        ORV_LOGE("%s - mpPESWriter is NULL !!!!\n", WORKER);
        return Step::NEXT;
    }
    const RingBuffer& output = *mOutputs.front();
    const uint32_t collected = mPESSize.load(RELAXED) + size;
    if (HEADER + collected > output.getSize()) {
        // Room for it cannot come, however long the reader is waited for.
        discardBlock(TS_ERROR);
        mpParsers->ts.abandonPES();
        return Step::NEXT;
    }
    if (mRBFreeSpace.load(RELAXED) < static_cast<int32_t>(size) && !waitForRoom(size)) {
        return Step::LEAVE;
    }
    memcpy(writer, payload, size);
    mpPESWriter.store(writer + size, RELAXED);
    mPESSize.store(collected, RELAXED);
    mRBFreeSpace.store(static_cast<int32_t>(output.getFreeSpace() - HEADER - collected), RELAXED);
    return Step::NEXT;
}

// Waits until the block has room for `size` more bytes, without a limit: the reader decides. False
// when the worker is asked to exit.
bool TSParser::waitForRoom(uint32_t size) {
    RingBuffer& output = *mOutputs.front();
    const uint32_t needed = HEADER + mPESSize + size;
    const uint32_t target = roundUp4(needed);
    if (mMakeRoom) {
        mMakeRoom();
        if (output.getFreeSpace() >= target) {
            return true;
        }
    }
    ORV_LOGW("%s - output RB is full; waiting for free space. payload size = %d type = %d", WORKER,
             static_cast<int>(size), mStreamType);
    while (!isExiting() && output.getFreeSpace() < target) {
        output.waitForSpace(target);
        if (isExiting()) {
            break;
        }
        ORV_LOGW("%s - lack of buffer...remained ringbuffer (%u), request size = %u\n", WORKER,
                 output.getFreeSpace(), needed);
        ORV_LOGW("%s - waiting for free space in PES ring buffer (%d)\n", WORKER,
                 static_cast<int>(size));
    }
    return !isExiting();
}

void TSParser::finishPES() {
    PESData* record = mpPESData;
    if (mpPESWriter == nullptr) {
        reserveBlock(WORKER);
        return;
    }
    auto* block = reinterpret_cast<unsigned char*>(record);
    if (mpParsers->pes.parse(block + HEADER, mPESSize, &mpParsers->pesData) == 0) {
        discardBlock(PES_ERROR);
        return;
    }
    fillRecord(*record);
    const uint32_t size = record->mSize;
    const Uint33 pts = record->mPTS;
    copyPEStoOtherOutputs(block, size);
    feedClock(pts);
    mOutputs.front()->writeAdvance(size);
    reserveBlock(WORKER);
}

void TSParser::fillRecord(PESData& record) {
    const PESParsedData& pes = mpParsers->pesData;
    record.mType = Data::PES;
    record.mSize = mPESSize + HEADER;
    record.mPTS = pes.PTS & UINT33_MASK;
    record.mDTS = pes.DTS & UINT33_MASK;
    record.mOffsetES = record.mSize - pes.payload_size;
    record.mSizeES = pes.payload_size;
}

void TSParser::feedClock(Uint33 pts) {
    if (mStreamType == PID_TYPE_AUDIO) {
        if (mSync != nullptr) {
            mSync->setBasePCR(pts, Synchronization::AUDIO);
        }
        if (mNotifyAudioPTS) {
            RecPlayerBinder_NotifyAudioPTS(pts / 90);
        }
    } else if (mStreamType == PID_TYPE_VIDEO && mSync != nullptr) {
        mSync->setBasePCR(pts, Synchronization::VIDEO);
    }
}

// An output without room loses this PES. True when every copy was made.
bool TSParser::copyPEStoOtherOutputs(unsigned char* block, unsigned int size) {
    bool complete = true;
    for (auto output = std::next(mOutputs.begin()); output != mOutputs.end(); ++output) {
        const unsigned int rounded = roundUp4(size);
        unsigned char* copy = (*output)->write(rounded, RingBuffer::BLOCKING);
        if (copy == nullptr) {
            complete = false;
            continue;
        }
        memcpy(copy, block, size);
        (*output)->writeAdvance(rounded);
    }
    return complete;
}

// On success this thread holds the first output's write lock until the block is committed; a
// discarded block is begun anew in place.
bool TSParser::reserveBlock(const char* caller) {
    if (mMakeRoom && mOutputs.front()->getFreeSpace() < HEADER) {
        mMakeRoom();
    }
    unsigned char* block = mOutputs.front()->write(HEADER, RingBuffer::BLOCKING);
    if (block == nullptr) {
        mpPESWriter = nullptr;
        ORV_LOGE("%s - mpPESWriter is NULL !!!!\n", caller);
        return false;
    }
    beginBlock(block);
    return true;
}

void TSParser::beginBlock(unsigned char* block) {
    mpPESData = new (block) PESData;
    mPESSize = 0;
    mpPESWriter = block + HEADER;
    mRBFreeSpace = static_cast<int32_t>(mOutputs.front()->getFreeSpace() - HEADER);
}

void TSParser::discardBlock(const char* reason) {
    ORV_LOGE("%s - %s", WORKER, reason);
    if (mpPESWriter == nullptr) {
        reserveBlock(WORKER);
        return;
    }
    beginBlock(reinterpret_cast<unsigned char*>(mpPESData.load()));
}

int TSParser::dump(FILE* stream, int indent) {
    if (stream == nullptr) {
        return 0;
    }
    Module::dump(stream, indent);
    const std::string start(static_cast<size_t>(indent) + 1, '\t');
    const char* prefix = start.c_str();
    fprintf(stream, "%s - mpPESWriter: %p\n", prefix, static_cast<void*>(mpPESWriter.load()));
    fprintf(stream, "%s - mpPESData: %p\n", prefix, static_cast<void*>(mpPESData.load()));
    fprintf(stream, "%s - mPESSize: %d\n", prefix, static_cast<int>(mPESSize.load()));
    fprintf(stream, "%s - mRBFreeSpace: %d\n", prefix, mRBFreeSpace.load());
    return 0;
}

}  // namespace OrvPlayer
