#include "aac/LoasFraming.h"

namespace orvhost {

namespace {

constexpr size_t kHeaderBytes = 3;

// LatmGetValue: one to four bytes.
uint32_t readLatmValue(AacBitReader& reader) {
    const unsigned bytes = reader.read(2) + 1;
    return reader.read(8 * bytes);
}

// MuxSlotLengthBytes. Ends at the frame's end at the latest: past it the bits are 0.
size_t readSlotLength(AacBitReader& reader) {
    size_t length = 0;
    uint32_t piece;
    do {
        piece = reader.read(8);
        length += piece;
    } while (piece == 255);
    return length;
}

// otherDataLenBits of audioMuxVersion 0, saturated far above what any frame holds.
uint64_t readOtherDataLength(AacBitReader& reader) {
    constexpr uint64_t kMost = uint64_t{1} << 32;
    uint64_t length = 0;
    bool escape;
    do {
        escape = reader.read(1) != 0;
        length = length * 256 + reader.read(8);
        length = length < kMost ? length : kMost;
    } while (escape);
    return length;
}

}  // namespace

bool LoasFraming::startsFrame(const uint8_t* data, size_t size) const {
    return data[0] == 0x56 && (size < 2 || (data[1] & 0xE0) == 0xE0);
}

bool LoasFraming::follows(const uint8_t*, const uint8_t* next, size_t size) const {
    return startsFrame(next, size);
}

size_t LoasFraming::frameSize(const uint8_t* header) const {
    const size_t length = static_cast<size_t>((header[1] & 0x1F) << 8 | header[2]);
    return length == 0 ? 0 : kHeaderBytes + length;
}

bool LoasFraming::isReadable(const uint8_t* frame) const {
    const bool useSameStreamMux = (frame[kHeaderBytes] & 0x80) != 0;
    return mMux.isKnown || !useSameStreamMux;
}

AacParse LoasFraming::parse(const uint8_t* frame, size_t size) {
    if (!isReadable(frame)) {
        return AacParse::Breach;
    }
    AacBitReader reader(frame, 8 * kHeaderBytes, 8 * size);
    StreamMux mux = mMux;
    if (reader.read(1) == 0) {  // useSameStreamMux
        const AacParse result = parseStreamMux(reader, &mux);
        if (result != AacParse::Ok) {
            return result;
        }
    }

    mUnitCount = 0;
    mIsGathered = !mux.allStreamsSameTimeFraming;
    mGatheredSize = mCarried;
    mGatheredUnitEnd = 0;
    for (unsigned i = 0; i < mux.subFrames; i++) {
        if (!(mIsGathered ? readChunks(reader, mux) : readSlots(reader, mux))) {
            return AacParse::Breach;
        }
    }
    reader.skip(mux.otherDataBits);
    reader.align();
    if (reader.overrun()) {
        return AacParse::Breach;
    }
    mFillsFrame = reader.bitsLeft() == 0;
    mMux = mux;
    mConfig = mux.config;
    return AacParse::Ok;
}

AacParse LoasFraming::parseStreamMux(AacBitReader& reader, StreamMux* mux) {
    *mux = StreamMux();
    const unsigned audioMuxVersion = reader.read(1);
    if (audioMuxVersion == 1) {
        if (reader.read(1) != 0) {
            return AacParse::Unsupported;  // audioMuxVersionA: syntax to be defined
        }
        readLatmValue(reader);  // taraBufferFullness
    }
    mux->allStreamsSameTimeFraming = reader.read(1) != 0;
    mux->subFrames = reader.read(6) + 1;
    const unsigned numProgram = reader.read(4);
    const unsigned numLayer = reader.read(3);
    if (reader.overrun()) {
        return AacParse::Breach;
    }
    if (numProgram != 0 || numLayer != 0) {
        return AacParse::Unsupported;
    }
    const AacParse result = parseLayerConfig(reader, audioMuxVersion, mux);
    if (result != AacParse::Ok) {
        return result;
    }
    if (reader.read(1) != 0) {  // otherDataPresent
        mux->otherDataBits =
            audioMuxVersion == 1 ? readLatmValue(reader) : readOtherDataLength(reader);
    }
    if (reader.read(1) != 0) {  // crcCheckPresent
        reader.skip(8);         // crcCheckSum
    }
    mux->isKnown = true;
    return reader.overrun() ? AacParse::Breach : AacParse::Ok;
}

AacParse LoasFraming::parseLayerConfig(AacBitReader& reader, unsigned audioMuxVersion,
                                       StreamMux* mux) {
    AacParse result;
    if (audioMuxVersion == 0) {
        // A reader of its own, because alignment inside counts from the configuration's start.
        AacBitReader inner = reader.rest();
        result = parseAudioSpecificConfig(inner, false, &mux->config);
        reader.skip(inner.position() - reader.position());
    } else {
        const uint32_t ascLen = readLatmValue(reader);
        if (ascLen > reader.bitsLeft()) {
            return AacParse::Breach;
        }
        AacBitReader inner = reader.next(ascLen);
        result = parseAudioSpecificConfig(inner, true, &mux->config);
        reader.skip(ascLen);  // with the fill bits
    }
    if (result != AacParse::Ok) {
        return result;
    }
    mux->frameLengthType = reader.read(3);
    switch (mux->frameLengthType) {
        case 0:
            reader.skip(8);  // latmBufferFullness
            return AacParse::Ok;
        case 1:
            mux->fixedLengthBytes = reader.read(9) + 20;
            return AacParse::Ok;
        default:
            return AacParse::Unsupported;  // CELP and HVXC
    }
}

bool LoasFraming::readSlots(AacBitReader& reader, const StreamMux& mux) {
    const size_t length = mux.frameLengthType == 0 ? readSlotLength(reader) : mux.fixedLengthBytes;
    if (8 * length > reader.bitsLeft()) {
        return false;
    }
    addUnit(reader.position(), 8 * length);
    reader.skip(8 * length);
    return true;
}

// One subframe of a stream with its own time framing: the lengths of all chunks, then their bytes.
bool LoasFraming::readChunks(AacBitReader& reader, const StreamMux& mux) {
    struct Chunk {
        size_t bytes;
        bool endsUnit;
    };
    std::array<Chunk, 16> chunks;
    const unsigned chunkCount = reader.read(4) + 1;
    for (unsigned i = 0; i < chunkCount; i++) {
        if (reader.read(4) != 0) {  // streamIndx
            return false;
        }
        if (mux.frameLengthType == 0) {
            chunks[i].bytes = readSlotLength(reader);
            chunks[i].endsUnit = reader.read(1) != 0;  // AuEndFlag
        } else {
            chunks[i] = {mux.fixedLengthBytes, true};
        }
    }
    for (unsigned i = 0; i < chunkCount; i++) {
        const size_t bytes = chunks[i].bytes;
        if (8 * bytes > reader.bitsLeft() || bytes > mGathered.size() - mGatheredSize) {
            return false;
        }
        reader.readBytes(mGathered.data() + mGatheredSize, bytes);
        mGatheredSize += bytes;
        if (chunks[i].endsUnit) {
            addUnit(8 * mGatheredUnitEnd, 8 * (mGatheredSize - mGatheredUnitEnd));
            mGatheredUnitEnd = mGatheredSize;
        }
    }
    return true;
}

const uint8_t* LoasFraming::unitBytes(const uint8_t* frame) const {
    return mIsGathered ? mGathered.data() : frame;
}

void LoasFraming::retire() {
    const size_t rest = mIsGathered ? mGatheredSize - mGatheredUnitEnd : 0;
    // A unit longer than any frame is none: its start would otherwise stay for ever.
    mCarried = rest > kMaxFrameSize ? 0 : rest;
    memmove(mGathered.data(), mGathered.data() + mGatheredUnitEnd, mCarried);
}

void LoasFraming::forget() {
    mCarried = 0;
}

}  // namespace orvhost
