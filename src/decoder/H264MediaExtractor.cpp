#include "decoder/H264MediaExtractor.h"

#include <cstring>
#include <iterator>

#include "common/Trace.h"
#include "decoder/H264SEI.h"

namespace OrvPlayer {

H264MediaExtractor::H264MediaExtractor(const android::sp<RingBuffer>& ringBuffer)
    : MediaExtractor(ringBuffer) {}

int H264MediaExtractor::getDecodableUnit(void* out, unsigned long capacity, unsigned long* size,
                                         long long* pts, unsigned char* flags) {
    *size = 0;
    *flags = 0;
    if (currentBlock == nullptr) {
        if (const int status = takeRecord(__func__, 0); status != STATUS_OK) {
            return status;
        }
        scanner.setPayload(payload, payloadSize);
        nextPts = static_cast<int64_t>(currentBlock->mPTS);
    }
    if (getNextAccessUnit(out, capacity, size, pts, flags) == STEP_END) {
        consumeRecord();
    }
    return STATUS_OK;
}

void H264MediaExtractor::reset() {
    spsFound = false;
    picTimingFound = false;
    frameRateKnown = false;
    dropRecord();
}

bool H264MediaExtractor::getVideoResolution(uint32_t* width, uint32_t* height) const {
    *width = sps.width;
    *height = sps.height;
    return sps.vuiParametersPresentFlag != 0;  // set in every SPS that was kept
}

int H264MediaExtractor::getNextAccessUnit(void* out, unsigned long capacity, unsigned long* size,
                                          long long* pts, unsigned char* flags) {
    Gathering gathering;
    int status = STEP_END;
    uint32_t end = payloadSize;
    NALUnitType type;
    uint32_t nalSize;
    while (scanner.getNextNalUnit(&type, &nalSize) == STEP_OK) {
        if (isBoundary(type, nalSize, &gathering, flags)) {
            if (gathering.started) {
                end = boundaryOffset();
                status = STEP_MORE;
                break;
            }
            gathering.started = true;
            gathering.start = boundaryOffset();
        }
        scanner.passOver();
    }
    if (!gathering.started) {
        noteBlockWithoutUnit();
        return STEP_END;
    }
    if (!workaround) {
        noUnitCount = 0;
    }
    const uint32_t length = end - gathering.start;
    if (spsFound && length <= capacity) {
        memcpy(out, payload + gathering.start, length);
        *size = length;
        *pts = nextPts;
        nextPts = static_cast<int64_t>(static_cast<uint64_t>(nextPts) + frameDuration);
    }
    return status;
}

bool H264MediaExtractor::isBoundary(NALUnitType type, uint32_t size, Gathering* gathering,
                                    unsigned char* flags) {
    switch (type) {
        case NAL_SEI:
            examineSEI(size);
            return false;
        case NAL_SPS:
            examineSPS(size, flags);
            return !gathering->started || gathering->pictureOpen;
        case NAL_ACCESS_UNIT_DELIMITER:
            return !gathering->started || gathering->pictureOpen;
        case NAL_IDR_SLICE:
            *flags |= FLAG_IDR;
            return isSliceBoundary(gathering);
        case NAL_SLICE:
            return isSliceBoundary(gathering);
        default:
            return false;
    }
}

bool H264MediaExtractor::isSliceBoundary(Gathering* gathering) {
    if (!spsFound || (sps.picStructPresentFlag != 0 && !picTimingFound)) {
        return false;
    }
    SliceHeader header;
    if (!readSliceHeader(&header)) {
        return false;
    }
    if (!frameRateKnown) {
        learnFrameDuration(header.fieldPic);
    }
    if (header.firstMb != 0 || !frameRateKnown) {
        return false;
    }
    if (workaround) {
        return true;
    }
    const bool pictureWasOpen = gathering->pictureOpen;
    gathering->pictureOpen = true;
    return pictureWasOpen;
}

void H264MediaExtractor::examineSEI(uint32_t size) {
    if (!spsFound || picTimingFound) {
        return;
    }
    NALBytes unit = bytesBehindHeader(size);
    unit.size -= NALScanner::HEADER_BYTES;
    if (decodeSEI(unit, true, &sps, &picTimingFound) != STEP_OK) {
        ORV_LOGE("%s: Error decoding SEI.\n", "getNextAccessUnit");
    }
}

void H264MediaExtractor::examineSPS(uint32_t size, unsigned char* flags) {
    if (spsFound) {
        return;
    }
    // Deliberate: the size is the unit's from its start code on, so four bytes behind the unit
    // count as part of the SPS. Long HRD tails are read out of them. See
    // H264MediaExtractorTest.SpsReachesFourBytesPastItsEnd.
    if (decodeSPS(bytesBehindHeader(size), true, &sps) == STEP_OK) {
        *flags |= FLAG_NEW_SPS;
    } else {
        ORV_LOGE("%s: Error decoding SPS\n", "getNextAccessUnit");
    }
    // Deliberate: true even then; the slices are read with the values of before. See
    // H264MediaExtractorTest.DamagedFirstSpsCounts.
    spsFound = true;
}

bool H264MediaExtractor::readSliceHeader(SliceHeader* header) const {
    // Deliberate: with its emulation prevention bytes. See
    // H264MediaExtractorTest.SliceHeadersAreReadAsTheyStand.
    const NALBytes unit = bytesBehindHeader(0);
    RBSPReader reader(unit.data, unit.available);
    header->firstMb = reader.parseUEGolomb();
    if (!frameRateKnown) {
        reader.parseUEGolomb();                // slice_type
        reader.parseUEGolomb();                // pic_parameter_set_id
        reader.readBits(sps.log2MaxFrameNum);  // frame_num
        header->fieldPic = sps.frameMbsOnlyFlag == 0 && reader.readFlag();
    }
    return !reader.hasOverrun();
}

void H264MediaExtractor::learnFrameDuration(bool fieldPic) {
    if (calculateFrameRate(fieldPic) != STEP_OK) {
        ORV_LOGE("%s: Error calculating frame rate.\n", "getNextAccessUnit");
        return;
    }
    frameRateKnown = true;
    if (frameRateListener != nullptr) {
        frameRateListener->onFrameDuration(frameDuration);
    }
}

int H264MediaExtractor::calculateFrameRate(bool fieldPic) {
    constexpr uint64_t CLOCK_HZ = 90000;
    constexpr uint64_t FACTOR_OF_PIC_STRUCT[] = {1, 2, 2, 2, 2, 2, 2, 2, 2};
    if (sps.timingInfoPresentFlag == 0 || sps.timeScale == 0 || sps.numUnitsInTick == 0) {
        ORV_LOGE("%s: Invalid timing\n", __func__);
        return STEP_ERROR;
    }
    uint64_t duration = sps.numUnitsInTick * CLOCK_HZ;
    if (sps.fixedFrameRateFlag != 0) {
        if (sps.picStructPresentFlag == 0) {
            duration *= fieldPic ? 2 : 1;
        } else if (sps.picStruct < std::size(FACTOR_OF_PIC_STRUCT)) {
            duration *= FACTOR_OF_PIC_STRUCT[sps.picStruct];
        } else {
            ORV_LOGE("%s: Uknown pic struct: %d\n", __func__, sps.picStruct);
            return STEP_ERROR;
        }
    }
    frameDuration = duration / sps.timeScale;
    return STEP_OK;
}

void H264MediaExtractor::noteBlockWithoutUnit() {
    if (!workaround && ++noUnitCount == BLOCKS_BEFORE_WORKAROUND) {
        workaround = true;
        ORV_LOGE("%s: apply workaround", "getNextAccessUnit");
    }
}

NALBytes H264MediaExtractor::bytesBehindHeader(uint32_t size) const {
    const uint32_t offset = scanner.getScanOffset() + NALScanner::HEADER_BYTES;
    return {payload + offset, size, payloadSize - offset};
}

uint32_t H264MediaExtractor::boundaryOffset() const {
    const uint32_t offset = scanner.getScanOffset();
    return offset > 0 && payload[offset - 1] == 0 ? offset - 1 : offset;
}

}  // namespace OrvPlayer
