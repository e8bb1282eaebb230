#include "UnitChain.h"

#include <new>
#include <utility>

#include "decoder/AACMediaExtractor.h"
#include "decoder/H264MediaExtractor.h"
#include "decoder/MP3MediaExtractor.h"

using OrvPlayer::AACMediaExtractor;
using OrvPlayer::H264MediaExtractor;
using OrvPlayer::MediaExtractor;
using OrvPlayer::MP3MediaExtractor;
using OrvPlayer::PESData;
using OrvPlayer::RingBuffer;

namespace orvplay {

namespace {

// The capacities of playback for PES packets, so that none is lost here that plays, or the other
// way round. Packets come in larger batches than from the air.
constexpr unsigned int PACKETS_EXPONENT = 17;
constexpr unsigned int VIDEO_PES_BYTES = 6'291'456;
constexpr unsigned int AUDIO_PES_BYTES = 65'536;
constexpr unsigned int CAPTION_PES_BYTES = 8'192;

unsigned int pesBytesOf(OrvPlayer::TSReceiverPIDType role) {
    switch (role) {
        case OrvPlayer::PID_TYPE_VIDEO:
            return VIDEO_PES_BYTES;
        case OrvPlayer::PID_TYPE_CLOSED_CAPTION:
            return CAPTION_PES_BYTES;
        default:
            return AUDIO_PES_BYTES;
    }
}

constexpr int MOST_FRUITLESS_STARTS = 100;

}  // namespace

UnitChain::UnitChain(OrvPlayer::TSReceiverPIDType role, Extraction extraction, Sink sink)
    : mSink(std::move(sink)),
      mRole(role),
      mPackets(new RingBuffer),
      mPES(new RingBuffer),
      mParser(new OrvPlayer::TSParser(role)) {
    switch (extraction) {
        case Extraction::H264:
            mExtractor = new H264MediaExtractor(mPES);
            break;
        case Extraction::AAC_LATM:
            mExtractor = new AACMediaExtractor(mPES, AACMediaExtractor::LOAS);
            break;
        case Extraction::AAC_ADTS:
            mExtractor = new AACMediaExtractor(mPES, AACMediaExtractor::ADTS);
            break;
        case Extraction::MPEG_AUDIO:
            mExtractor = new MP3MediaExtractor(mPES);
            break;
        case Extraction::CAPTIONS:
            mCaptions = std::make_unique<CaptionReader>();
            break;
        case Extraction::NONE:
            break;
    }
}

UnitChain::~UnitChain() {
    mParser->stop();
}

bool UnitChain::open() {
    const unsigned int pesBytes = pesBytesOf(mRole);
    if (mPackets->configure("Packets", PACKETS_EXPONENT) != 0 ||
        mPES->configureWithSize("PES", pesBytes) != 0 ||
        (mCaptions != nullptr && !mCaptions->open())) {
        return false;
    }
    mUnit.reset(new (std::nothrow) uint8_t[pesBytes]);  // no unit is larger than its PES packet
    if (mUnit == nullptr) {
        return false;
    }
    mParser->setInput(mPackets);
    mParser->addOutput(mPES, nullptr);
    mParser->addErrorListener(*this);
    return openParser();
}

bool UnitChain::openParser() {
    return mParser->open([this] { drain(); }) == 0;
}

void UnitChain::onError(unsigned int code, const OrvPlayer::Module*) const {
    mScrambled = mScrambled || code == OrvPlayer::TSParser::ERR_SCRAMBLED;
}

UnitChain::State UnitChain::workOff() {
    while (mPackets->getDataSize() >= OrvPlayer::TS_PACKET_BYTES && !mSinkClosed) {
        mParser->parsePass();
        drain();
        if (mScrambled && !passScrambling()) {
            return State::SCRAMBLED;
        }
    }
    return mSinkClosed ? State::SINK_CLOSED : State::GOES_ON;
}

// Bit errors look like scrambling: the parser is started again behind them.
bool UnitChain::passScrambling() {
    mParser->stop();
    if (mPackets->read(OrvPlayer::TS_PACKET_BYTES, RingBuffer::NON_BLOCKING) != nullptr) {
        mPackets->readAdvance(mParser->getScrambledBytes());
    }
    mScrambled = false;
    mFruitlessStarts = mUnits == mUnitsAtScrambling ? mFruitlessStarts + 1 : 0;
    mUnitsAtScrambling = mUnits;
    return mFruitlessStarts < MOST_FRUITLESS_STARTS && openParser();
}

// A look at an empty ring buffer would wait for a writer.
void UnitChain::drain() {
    while (mPES->getDataSize() >= PESData::FIXED_SIZE && !mSinkClosed) {
        const bool given = mExtractor != nullptr  ? giveUnit()
                           : mCaptions != nullptr ? giveCaption()
                                                  : givePES();
        if (!given) {
            break;
        }
    }
}

// False when the ring buffer holds no record.
bool UnitChain::giveUnit() {
    Unit unit;
    unsigned long size = 0;
    long long pts = 0;
    const int status =
        mExtractor->getDecodableUnit(mUnit.get(), mPES->getSize(), &size, &pts, &unit.flags);
    if (status == MediaExtractor::STATUS_OK && size > 0) {
        unit.bytes = mUnit.get();
        unit.size = size;
        unit.pts90k = pts;
        give(unit);
    }
    return status != MediaExtractor::STATUS_FAULT;
}

bool UnitChain::givePES() {
    const unsigned char* block = mPES->read(PESData::FIXED_SIZE, RingBuffer::BLOCKING);
    if (block == nullptr) {
        return false;
    }
    const auto* record = reinterpret_cast<const PESData*>(block);
    const uint32_t size = record->mSize;
    Unit unit;
    unit.bytes = block + record->mOffsetES;
    unit.size = record->mSizeES;
    unit.pts90k = static_cast<int64_t>(record->mPTS);
    unit.dts90k = static_cast<int64_t>(record->mDTS);
    unit.streamId = block[PESData::FIXED_SIZE + 3];
    give(unit);
    mPES->readAdvance(size);
    return true;
}

bool UnitChain::giveCaption() {
    unsigned char* block = mPES->read(PESData::FIXED_SIZE, RingBuffer::BLOCKING);
    if (block == nullptr) {
        return false;
    }
    auto* record = reinterpret_cast<PESData*>(block);
    const uint32_t size = record->mSize;
    const std::string text = mCaptions->read(*record);
    Unit unit;
    unit.pts90k = static_cast<int64_t>(record->mPTS);
    mPES->readAdvance(size);
    if (!text.empty()) {
        unit.bytes = reinterpret_cast<const uint8_t*>(text.data());
        unit.size = text.size();
        give(unit);
    }
    return true;
}

void UnitChain::give(const Unit& unit) {
    ++mUnits;
    mBytes += unit.size;
    mSinkClosed = !mSink(unit);
}

}  // namespace orvplay
