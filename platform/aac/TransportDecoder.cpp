#include <aac/TransportDecoder.h>

#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "aac/AdtsFraming.h"
#include "aac/LoasFraming.h"

struct FDK_BITSTREAM : orvhost::AacBitReader {
    using AacBitReader::AacBitReader;
};

// Buffer, search for sync and pace; what a frame looks like is the framing's knowledge.
//
// In sync the next frame must start where the last one ended. Out of sync a frame start counts only
// if another one follows it, as far as the bytes to tell are there: a stream of single frames
// loses nothing by that, and chance matches in other data seldom pass. While the end of a frame
// has not arrived, a chain of frames behind its start shows that its length is wrong: waiting for
// 8 KiB that it never had would cost a second of low-rate sound. Sync begins with a frame that can
// be read: those in front of a stream's first configuration are passed over together.
//
// A breach never ends a call while bytes are left: the search goes on behind it. A caller that
// feeds a packet per failed call would otherwise fall behind by the units left in the buffer.
struct TRANSPORTDEC {
public:
    explicit TRANSPORTDEC(std::unique_ptr<orvhost::AacFraming> framing)
        : mFraming(std::move(framing)) {}

    bool allocate() {
        mBuffer.reset(new (std::nothrow) uint8_t[kCapacity]);
        return mBuffer != nullptr;
    }

    void setCallback(cbUpdateConfig_t callback, void* context) {
        mCallback = callback;
        mContext = context;
    }

    unsigned fill(const unsigned char* data, unsigned size);
    TRANSPORTDEC_ERROR readAccessUnit();

    FDK_BITSTREAM mBits;
    unsigned mUnitBits = 0;

private:
    // The largest audio PES packet and what the one before left: a packet is taken at one go. As
    // a whole frame always fits, full never means waiting for more.
    static constexpr size_t kCapacity = 128 * 1024;
    static_assert(kCapacity > orvhost::AacFraming::kMaxFrameSize);

    size_t available() const { return mEnd - mBegin; }
    const uint8_t* front() const { return mBuffer.get() + mBegin; }

    // What comes next while a unit is looked for.
    enum class Step {
        Frame,       // a complete frame is at the front, or in hand
        Starved,     // the front starts a frame as far as can be told, or there is none
        Dropped,     // a breach: bytes went, look again
        Exhausted,   // searched to the end of the bytes
        Unsupported  // a sound frame was skipped
    };

    Step locateFrame();
    Step followFrame();
    Step searchFrame();
    bool startsChain(size_t at) const;
    bool findChain(size_t from, size_t* at) const;
    Step takeFrame();
    Step refuseFrame();
    bool announceConfig();
    void openUnit(size_t index);
    void passFrame();
    Step loseSync(size_t bytes);

    std::unique_ptr<orvhost::AacFraming> mFraming;
    std::unique_ptr<uint8_t[]> mBuffer;
    size_t mBegin = 0;      // of the frame in hand, or where to look for the next
    size_t mEnd = 0;        // of the bytes
    size_t mFrameSize = 0;  // of the frame in hand, complete in the buffer
    size_t mNextUnit = 0;   // in the frame in hand
    bool mHasFrame = false;
    bool mInSync = false;
    size_t mCallBegin = 0;     // where the call at hand began to look
    size_t mRefusedBytes = 0;  // size of all frames that it read in vain

    cbUpdateConfig_t mCallback = nullptr;
    void* mContext = nullptr;
    CSAudioSpecificConfig mAnnounced;
    bool mHasAnnounced = false;
};

unsigned TRANSPORTDEC::fill(const unsigned char* data, unsigned size) {
    mBits = FDK_BITSTREAM();
    if (size > kCapacity - mEnd && mBegin != 0) {
        // What is left is mostly less than a frame, and this comes once in many frames.
        memmove(mBuffer.get(), front(), available());
        mEnd -= mBegin;
        mBegin = 0;
    }
    const size_t room = kCapacity - mEnd;
    const unsigned taken = size < room ? size : static_cast<unsigned>(room);
    memcpy(mBuffer.get() + mEnd, data, taken);
    mEnd += taken;
    return taken;
}

TRANSPORTDEC_ERROR TRANSPORTDEC::readAccessUnit() {
    mBits = FDK_BITSTREAM();
    mUnitBits = 0;
    if (mHasFrame) {
        if (mNextUnit < mFraming->unitCount()) {
            openUnit(mNextUnit++);
            return TRANSPORTDEC_OK;
        }
        passFrame();
    }
    mCallBegin = mBegin;
    mRefusedBytes = 0;
    for (;;) {
        Step step = mInSync ? followFrame() : searchFrame();
        if (step == Step::Frame) {
            step = takeFrame();
        }
        switch (step) {
            case Step::Frame:
                if (mFraming->unitCount() != 0) {
                    openUnit(0);
                    mNextUnit = 1;
                    return TRANSPORTDEC_OK;
                }
                passFrame();  // a frame that only fills time or completes no unit yet
                break;
            case Step::Dropped:
                break;
            case Step::Starved:
                return TRANSPORTDEC_NOT_ENOUGH_BITS;
            case Step::Exhausted:
                return TRANSPORTDEC_SYNC_ERROR;
            case Step::Unsupported:
                return TRANSPORTDEC_UNSUPPORTED_FORMAT;
        }
    }
}

// Frame, Starved or Dropped.
TRANSPORTDEC::Step TRANSPORTDEC::locateFrame() {
    const size_t size = available();
    if (size == 0) {
        return Step::Starved;
    }
    if (!mFraming->startsFrame(front(), size)) {
        return loseSync(1);
    }
    if (size < mFraming->headerSize()) {
        return Step::Starved;
    }
    mFrameSize = mFraming->frameSize(front());
    if (mFrameSize == 0) {
        return loseSync(1);
    }
    return size < mFrameSize ? Step::Starved : Step::Frame;
}

// In sync.
TRANSPORTDEC::Step TRANSPORTDEC::followFrame() {
    const Step step = locateFrame();
    size_t chain;
    if (step == Step::Starved && findChain(mBegin + 1, &chain)) {
        return loseSync(1);
    }
    return step;
}

// Out of sync.
TRANSPORTDEC::Step TRANSPORTDEC::searchFrame() {
    while (mBegin < mEnd) {
        const void* found = memchr(front(), mFraming->syncByte(), available());
        if (found == nullptr) {
            mBegin = mEnd;
            break;
        }
        mBegin = static_cast<size_t>(static_cast<const uint8_t*>(found) - mBuffer.get());
        if (!mFraming->startsFrame(front(), available())) {
            mBegin++;
            continue;
        }
        const Step step = locateFrame();
        if (step == Step::Starved && findChain(mBegin + 1, &mBegin)) {
            continue;
        }
        if (step != Step::Frame) {
            return step;
        }
        const size_t behind = available() - mFrameSize;
        if (behind != 0 && !mFraming->follows(front(), front() + mFrameSize, behind)) {
            mBegin++;
            continue;
        }
        if (mFraming->isReadable(front())) {
            return Step::Frame;
        }
        mBegin += mFrameSize;
    }
    return mBegin != mCallBegin ? Step::Exhausted : Step::Starved;
}

// Whether two complete frames stand at `at` and a third starts behind them: three matches in a row
// are not chance.
bool TRANSPORTDEC::startsChain(size_t at) const {
    for (int frames = 0; frames < 2; frames++) {
        const uint8_t* frame = mBuffer.get() + at;
        const size_t left = mEnd - at;
        if (left < mFraming->headerSize() || !mFraming->startsFrame(frame, left)) {
            return false;
        }
        const size_t size = mFraming->frameSize(frame);
        if (size == 0 || left < size + 2 || !mFraming->follows(frame, frame + size, left - size)) {
            return false;
        }
        at += size;
    }
    return true;
}

// `*at` is written only on success.
bool TRANSPORTDEC::findChain(size_t from, size_t* at) const {
    while (from < mEnd) {
        const void* found = memchr(mBuffer.get() + from, mFraming->syncByte(), mEnd - from);
        if (found == nullptr) {
            return false;
        }
        from = static_cast<size_t>(static_cast<const uint8_t*>(found) - mBuffer.get());
        if (startsChain(from)) {
            *at = from;
            return true;
        }
        from++;
    }
    return false;
}

// Reads the complete frame at the front and makes it the frame in hand.
TRANSPORTDEC::Step TRANSPORTDEC::takeFrame() {
    const size_t behind = available() - mFrameSize;
    const bool followed = behind != 0 && mFraming->follows(front(), front() + mFrameSize, behind);
    orvhost::AacParse parsed = mFraming->parse(front(), mFrameSize);
    if (parsed == orvhost::AacParse::Ok && !mFraming->fillsFrame() && behind != 0 && !followed) {
        parsed = orvhost::AacParse::Breach;  // its length is damaged: the next frame is inside
    }
    if (parsed == orvhost::AacParse::Ok) {
        mInSync = true;
        mHasFrame = true;
        if (announceConfig()) {
            return Step::Frame;
        }
        passFrame();
        return Step::Unsupported;
    }
    // The frame's place is certain when it stood where one was due and another stands behind it.
    const bool placed = mInSync ? behind == 0 || followed : followed;
    if (parsed == orvhost::AacParse::Unsupported && placed) {
        mInSync = true;
        mFraming->forget();
        mBegin += mFrameSize;
        return Step::Unsupported;
    }
    if (mInSync && followed) {
        mFraming->forget();
        mBegin += mFrameSize;  // damaged inside: costs this frame alone
        return Step::Dropped;
    }
    return refuseFrame();
}

// A frame that was read in vain and whose place is in doubt costs one byte, so that frames inside
// it are found. Frames made to overlap would be read over and over that way: once that took more
// than a handful of times the bytes passed over in this call, a refused frame goes whole.
TRANSPORTDEC::Step TRANSPORTDEC::refuseFrame() {
    constexpr size_t kMostReadings = 16;
    mRefusedBytes += mFrameSize;
    const size_t passed = mBegin - mCallBegin + orvhost::AacFraming::kMaxFrameSize;
    return loseSync(mRefusedBytes > kMostReadings * passed ? mFrameSize : 1);
}

bool TRANSPORTDEC::announceConfig() {
    const CSAudioSpecificConfig& config = mFraming->config();
    if (mCallback == nullptr || (mHasAnnounced && config == mAnnounced)) {
        return true;
    }
    unsigned char changed = mHasAnnounced ? 1 : 0;
    mAnnounced = config;
    mHasAnnounced = mCallback(mContext, &mAnnounced, 0, &changed) == 0;
    return mHasAnnounced;
}

void TRANSPORTDEC::openUnit(size_t index) {
    const orvhost::AacFraming::Unit& unit = mFraming->unit(index);
    mUnitBits = unit.bitCount;
    mBits = FDK_BITSTREAM(mFraming->unitBytes(front()), unit.firstBit,
                          size_t{unit.firstBit} + unit.bitCount);
}

void TRANSPORTDEC::passFrame() {
    mFraming->retire();
    mBegin += mFrameSize;
    mHasFrame = false;
}

// What was taken for a frame's first bytes goes; the search starts behind it.
TRANSPORTDEC::Step TRANSPORTDEC::loseSync(size_t bytes) {
    mInSync = false;
    mFraming->forget();
    mBegin += bytes;
    return Step::Dropped;
}

HANDLE_TRANSPORTDEC transportDec_Open(TRANSPORT_TYPE type, unsigned, unsigned layers) {
    if (layers != 1) {
        return nullptr;
    }
    std::unique_ptr<orvhost::AacFraming> framing;
    if (type == TT_MP4_LOAS) {
        framing.reset(new (std::nothrow) orvhost::LoasFraming);
    } else if (type == TT_MP4_ADTS) {
        framing.reset(new (std::nothrow) orvhost::AdtsFraming);
    }
    if (framing == nullptr) {
        return nullptr;
    }
    std::unique_ptr<TRANSPORTDEC> decoder(new (std::nothrow) TRANSPORTDEC(std::move(framing)));
    return decoder != nullptr && decoder->allocate() ? decoder.release() : nullptr;
}

TRANSPORTDEC_ERROR transportDec_SetParam(HANDLE_TRANSPORTDEC decoder, TPDEC_PARAM param, int) {
    const bool isKnown = decoder != nullptr && param == TPDEC_PARAM_IGNORE_BUFFERFULLNESS;
    return isKnown ? TRANSPORTDEC_OK : TRANSPORTDEC_INVALID_PARAMETER;
}

int transportDec_RegisterAscCallback(HANDLE_TRANSPORTDEC decoder, cbUpdateConfig_t callback,
                                     void* context) {
    if (decoder == nullptr) {
        return 1;
    }
    decoder->setCallback(callback, context);
    return 0;
}

TRANSPORTDEC_ERROR transportDec_FillData(HANDLE_TRANSPORTDEC decoder, const unsigned char* buffer,
                                         unsigned bufferSize, unsigned* bytesValid, int layer) {
    if (decoder == nullptr || buffer == nullptr || bytesValid == nullptr || layer != 0 ||
        *bytesValid > bufferSize) {
        return TRANSPORTDEC_INVALID_PARAMETER;
    }
    *bytesValid -= decoder->fill(buffer + (bufferSize - *bytesValid), *bytesValid);
    return TRANSPORTDEC_OK;
}

TRANSPORTDEC_ERROR transportDec_ReadAccessUnit(HANDLE_TRANSPORTDEC decoder, unsigned layer) {
    if (decoder == nullptr || layer != 0) {
        return TRANSPORTDEC_INVALID_PARAMETER;
    }
    return decoder->readAccessUnit();
}

int transportDec_GetAuBitsTotal(HANDLE_TRANSPORTDEC decoder, unsigned layer) {
    return decoder != nullptr && layer == 0 ? static_cast<int>(decoder->mUnitBits) : 0;
}

HANDLE_FDK_BITSTREAM transportDec_GetBitstream(HANDLE_TRANSPORTDEC decoder, unsigned layer) {
    return decoder != nullptr && layer == 0 ? &decoder->mBits : nullptr;
}

void transportDec_Close(HANDLE_TRANSPORTDEC* decoder) {
    if (decoder != nullptr) {
        delete *decoder;
        *decoder = nullptr;
    }
}

uint32_t FDKreadBits(HANDLE_FDK_BITSTREAM bits, unsigned count) {
    return bits->read(count < 32 ? count : 32);
}

void FDKreadBytes(HANDLE_FDK_BITSTREAM bits, unsigned char* out, unsigned count) {
    bits->readBytes(out, count);
}

void FDKbyteAlign(HANDLE_FDK_BITSTREAM bits) {
    bits->align();
}

unsigned FDKgetValidBits(HANDLE_FDK_BITSTREAM bits) {
    return static_cast<unsigned>(bits->bitsLeft());
}
