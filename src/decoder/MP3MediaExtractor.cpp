#include "decoder/MP3MediaExtractor.h"

#include <algorithm>
#include <cstring>

#include "common/Trace.h"
#include "decoder/BitInterface.h"

namespace OrvPlayer {

namespace {

constexpr uint32_t HEADER_BYTES = 4;
constexpr uint32_t HEADER_BYTES_WITH_CRC = 6;
constexpr uint32_t SYNC_WORD = 0x7FF;

constexpr uint32_t RESERVED_VERSION = 1;
constexpr uint32_t MPEG_2 = 2;
constexpr uint32_t MPEG_1 = 3;
constexpr uint32_t RESERVED_LAYER = 0;
constexpr uint32_t LAYER_I = 3;
constexpr uint32_t FREE_FORMAT = 0;
constexpr uint32_t FORBIDDEN_BIT_RATE = 15;
constexpr uint32_t RESERVED_SAMPLING_RATE = 3;
constexpr uint32_t RESERVED_EMPHASIS = 2;

// A record that is not whole is logged with its size raised by its fixed part.
constexpr uint32_t ADDED_TO_PRINTED_SIZE = PESData::FIXED_SIZE;

// Deliberate: outside Layer I padding counts before the multiplication, and the lower rates of
// Layer III take the factor of MPEG-1. See MP3MediaExtractorTest.LengthsByHeader.
constexpr uint32_t lengthOf(bool layerI, uint32_t bitRate, uint32_t rate, uint32_t padding) {
    if (layerI) {
        return static_cast<uint32_t>(bitRate * 12000.0 / rate + padding) * 4;
    }
    return static_cast<uint32_t>((bitRate * 1000.0 / rate + padding) * 144);
}

}  // namespace

MP3MediaExtractor::MP3MediaExtractor(const android::sp<RingBuffer>& ringBuffer)
    : MediaExtractor(ringBuffer) {
    static_assert(LONGEST_FRAME == lengthOf(false, bitRateTable[14][4], samplingRateTable[2][2], 1),
                  "the lowest rate has the longest frames");
}

MP3MediaExtractor::~MP3MediaExtractor() = default;

int MP3MediaExtractor::getDecodableUnit(void* out, unsigned long capacity, unsigned long* size,
                                        long long* pts, unsigned char* flags) {
    *size = 0;
    *flags = 0;
    const bool isNew = currentBlock == nullptr;
    const int taken = takeRecord(__func__, ADDED_TO_PRINTED_SIZE);
    if (taken != STATUS_OK) {
        return taken;
    }
    if (isNew) {
        position = 0;
        currentPts = static_cast<int64_t>(currentBlock->mPTS);
    }
    if (getNextFragment(out, capacity, size, pts) == PARSE_ENDED || position >= payloadSize) {
        consumeRecord();
    }
    return STATUS_OK;
}

void MP3MediaExtractor::reset() {
    dropRecord();
    clearSplit();
    synced = false;
}

void MP3MediaExtractor::clearSplit() {
    carryBytes = 0;
    splitPending = false;
}

int MP3MediaExtractor::getNextFragment(void* out, unsigned long capacity, unsigned long* size,
                                       long long* pts) {
    if (position >= payloadSize) {
        return PARSE_ENDED;  // an empty payload
    }
    if (!synced) {
        if (resync() != PARSE_OK) {
            return PARSE_ENDED;
        }
        synced = true;
    } else if (!splitPending && parseHeader() != PARSE_OK) {
        ORV_LOGE("%s: Failed to parse header.\n", __func__);
        synced = false;
        return PARSE_INVALID;
    }
    const uint64_t missing = frameLength - carryBytes;
    if (missing > payloadSize - position) {
        keepFirstPart();
        return PARSE_SPLIT;
    }
    if (frameLength > capacity) {
        ORV_LOGE("%s: not enough space in output buffer for MPEG audio frame.\n", __func__);
        position += missing;
        clearSplit();
        return PARSE_INVALID;
    }
    deliverFrame(static_cast<unsigned char*>(out), size, pts);
    return PARSE_OK;
}

void MP3MediaExtractor::deliverFrame(unsigned char* out, unsigned long* size, long long* pts) {
    const uint32_t missing = frameLength - carryBytes;
    memcpy(out, carryBuffer.data(), carryBytes);
    memcpy(out + carryBytes, payload + position, missing);
    position += missing;
    *size = frameLength;
    if (splitPending) {
        *pts = carryPts;
        clearSplit();
    } else {
        *pts = currentPts;
        currentPts += static_cast<int64_t>(frameDuration);
    }
}

// The rest of the payload is less than what is missing of the frame, so it fits the buffer.
void MP3MediaExtractor::keepFirstPart() {
    const uint32_t rest = payloadSize - static_cast<uint32_t>(position);
    memcpy(carryBuffer.data() + carryBytes, payload + position, rest);
    carryBytes += rest;
    carryPts = currentPts;
    splitPending = true;
    position = payloadSize;
}

int MP3MediaExtractor::parseHeader() {
    const uint32_t available = payloadSize - static_cast<uint32_t>(position);
    if (available < HEADER_BYTES) {
        ORV_LOGE("%s: No enough bits to parse header.\n", __func__);
        return PARSE_TOO_SHORT;
    }
    ReadBitInterface reader(payload + position, available);
    const uint32_t syncWord = reader.readBits(11);
    if (syncWord != SYNC_WORD) {
        ORV_LOGE("%s: Invalid sync word: 0x%X\n", __func__, syncWord);
        return PARSE_INVALID;
    }
    versionId = reader.readBits(2);
    if (versionId == RESERVED_VERSION) {
        ORV_LOGE("%s: Invalid Version ID: 0x%X\n", __func__, versionId);
        return PARSE_INVALID;
    }
    layerIndex = reader.readBits(2);
    if (layerIndex == RESERVED_LAYER) {
        ORV_LOGE("%s: Invalid Layer Index: 0x%X\n", __func__, layerIndex);
        return PARSE_INVALID;
    }
    crcPresent = reader.readBits(1) ^ 1;
    // Deliberate: asked for with or without a CRC.
    if (available < HEADER_BYTES_WITH_CRC) {
        ORV_LOGE("%s: No enough bits to parse header with CRC.\n", __func__);
        return PARSE_TOO_SHORT;
    }
    bitRateIndex = reader.readBits(4);
    if (bitRateIndex == FREE_FORMAT || bitRateIndex == FORBIDDEN_BIT_RATE) {
        ORV_LOGE("%s: Invalid bit rate index: 0x%X\n", __func__, bitRateIndex);
        return PARSE_INVALID;
    }
    samplingRateIndex = reader.readBits(2);
    if (samplingRateIndex == RESERVED_SAMPLING_RATE) {
        ORV_LOGE("%s: Invalid sampling rate index: 0x%X\n", __func__, samplingRateIndex);
        return PARSE_INVALID;
    }
    padding = reader.readBits(1);
    reader.skipBits(1, nullptr);  // private bit
    mode = reader.readBits(2);
    modeExtension = reader.readBits(2);
    ownershipFlag = reader.readBits(1);
    original = reader.readBits(1);
    emphasis = reader.readBits(2);
    if (emphasis == RESERVED_EMPHASIS) {
        ORV_LOGE("%s: Invalid emphasis value: 0x%X\n", __func__, emphasis);
        return PARSE_INVALID;
    }
    const uint32_t bitRate = bitRateTable[bitRateIndex][bitRateColumn()];
    const uint32_t rate = samplingRateTable[samplingRateIndex][samplingRateColumn()];
    frameLength = lengthOf(layerIndex == LAYER_I, bitRate, rate, padding);
    frameDuration = frameLength * 8 / bitRate * 90;  // whole milliseconds
    return PARSE_OK;
}

uint32_t MP3MediaExtractor::bitRateColumn() const {
    if (versionId == MPEG_1) {
        return 3 - layerIndex;
    }
    return layerIndex == LAYER_I ? 3 : 4;
}

uint32_t MP3MediaExtractor::samplingRateColumn() const {
    return versionId == MPEG_1 ? 0 : versionId == MPEG_2 ? 1 : 2;
}

int MP3MediaExtractor::resync() {
    while (position + 1 < payloadSize) {
        const auto* found = static_cast<const unsigned char*>(
            memchr(payload + position, 0xFF, payloadSize - 1 - position));
        if (found == nullptr) {
            break;
        }
        position = static_cast<uint64_t>(found - payload);
        if ((found[1] & 0xE0) == 0xE0 && parseHeader() == PARSE_OK) {
            return PARSE_OK;
        }
        position++;
    }
    return PARSE_NO_SYNC;
}

}  // namespace OrvPlayer
