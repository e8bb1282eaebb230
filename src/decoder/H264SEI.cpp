#include "decoder/H264SEI.h"

#include "common/Trace.h"
#include "decoder/NALScanner.h"

namespace OrvPlayer {

namespace {

constexpr uint64_t PAYLOAD_PIC_TIMING = 1;
constexpr uint8_t TIMESTAMPS_OF_PIC_STRUCT[] = {1, 1, 1, 2, 2, 3, 3, 2, 3};

// payload_type and payload_size are written alike: every 0xFF says that more follows.
uint64_t readByteSum(RBSPReader& reader) {
    uint64_t sum = 0;
    uint32_t byte;
    do {
        byte = reader.readBits(8);
        sum += byte;
    } while (byte == 0xFF);
    return sum;
}

void decodeTimeOfDay(RBSPReader& reader, ClockTimestamp& stamp) {
    const auto read = [&reader](unsigned char n) {
        return static_cast<uint8_t>(reader.readBits(n));
    };
    if (stamp.fullTimestampFlag != 0) {
        stamp.secondsValue = read(6);
        stamp.minutesValue = read(6);
        stamp.hoursValue = read(5);
        return;
    }
    stamp.secondsFlag = read(1);
    if (stamp.secondsFlag == 0) {
        return;
    }
    stamp.secondsValue = read(6);
    stamp.minutesFlag = read(1);
    if (stamp.minutesFlag == 0) {
        return;
    }
    stamp.minutesValue = read(6);
    stamp.hoursFlag = read(1);
    if (stamp.hoursFlag != 0) {
        stamp.hoursValue = read(5);
    }
}

void decodeClockTimestamp(RBSPReader& reader, uint8_t timeOffsetLength, ClockTimestamp& stamp) {
    const auto read = [&reader](unsigned char n) {
        return static_cast<uint8_t>(reader.readBits(n));
    };
    stamp.clockTimestampFlag = read(1);
    if (stamp.clockTimestampFlag == 0) {
        return;
    }
    stamp.ctType = read(2);
    stamp.nuitFieldBasedFlag = read(1);
    stamp.countingType = read(5);
    stamp.fullTimestampFlag = read(1);
    stamp.discontinuityFlag = read(1);
    stamp.cntDroppedFlag = read(1);
    stamp.nFrames = read(8);
    decodeTimeOfDay(reader, stamp);
    if (timeOffsetLength != 0) {
        stamp.timeOffset = reader.readBits(timeOffsetLength);
    }
}

uint8_t timeOffsetLengthOf(const SPS& sps) {
    constexpr uint8_t DEFAULT_LENGTH = 24;
    if (sps.vclHrdParametersPresentFlag != 0) {
        return sps.vclHrd.timeOffsetLength;
    }
    return sps.nalHrdParametersPresentFlag != 0 ? sps.nalHrd.timeOffsetLength : DEFAULT_LENGTH;
}

// Bits missing at the end count as 0 and are no error: the lengths can be off, see decodeHRD, and
// pictures wait for this message.
int decodePicTimingSEI(RBSPReader& reader, SPS& sps) {
    if (sps.nalHrdParametersPresentFlag != 0 || sps.vclHrdParametersPresentFlag != 0) {
        const HRD& hrd = sps.nalHrdParametersPresentFlag != 0 ? sps.nalHrd : sps.vclHrd;
        const auto length = static_cast<unsigned char>(hrd.cpbRemovalDelayLengthMinus1 + 1);
        // Deliberate: dpb_output_delay is read with the same length and into the same field. See
        // H264SEITest.BothDelaysHaveTheCpbLength.
        sps.cpbRemovalDelay = static_cast<uint8_t>(reader.readBits(length));
        sps.cpbRemovalDelay = static_cast<uint8_t>(reader.readBits(length));
    }
    if (sps.picStructPresentFlag == 0) {
        return STEP_OK;
    }
    sps.picStruct = static_cast<uint8_t>(reader.readBits(4));
    if (sps.picStruct >= 9) {
        ORV_LOGE("%s: Invalid picStruct value: %d\n", __func__, sps.picStruct);
        return STEP_ERROR;
    }
    for (uint8_t i = 0; i < TIMESTAMPS_OF_PIC_STRUCT[sps.picStruct]; ++i) {
        decodeClockTimestamp(reader, timeOffsetLengthOf(sps), sps.clockTimestamps[i]);
    }
    return STEP_OK;
}

}  // namespace

int decodeSEI(const NALBytes& unit, bool removeEmulation, SPS* sps, bool* picTimingFound) {
    RBSP rbsp;
    RBSPReader reader(nullptr, 0);
    if (!openNALUnit(__func__, unit, removeEmulation, &rbsp, &reader)) {
        return STEP_ERROR;
    }
    while (reader.getSize() > 0) {
        const uint64_t type = readByteSum(reader);
        const uint64_t size = readByteSum(reader);
        if (type == PAYLOAD_PIC_TIMING) {
            if (decodePicTimingSEI(reader, *sps) == STEP_OK) {
                *picTimingFound = true;
            } else {
                ORV_LOGE("%s: Error decoding SEI\n", __func__);
            }
        } else {
            // Deliberate: the count of bits is taken modulo 256. See
            // H264SEITest.LongMessagesAreSkippedModulo32Bytes.
            reader.skip(static_cast<unsigned char>(size * 8));
        }
        reader.byteAlign(nullptr);
        if (reader.peekBits(1) != 0) {  // the stop bit behind the last message
            reader.skip(1);
            reader.byteAlign(nullptr);
        }
    }
    return STEP_OK;
}

}  // namespace OrvPlayer
