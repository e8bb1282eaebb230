#pragma once

#include <cstdint>

#include "decoder/RBSPReader.h"

namespace OrvPlayer {

// Hypothetical reference decoder parameters (ITU-T H.264, E.1.2).
struct HRD {
    static constexpr uint32_t MAX_CPB_COUNT = 32;

    uint32_t cpbCntMinus1 = 0;  // at most 31
    uint8_t bitRateScale = 0;
    uint8_t cpbSizeScale = 0;
    uint32_t bitRateValueMinus1[MAX_CPB_COUNT] = {};
    uint32_t cpbSizeValueMinus1[MAX_CPB_COUNT] = {};
    uint8_t cbrFlag[MAX_CPB_COUNT] = {};
    uint8_t initialCpbRemovalDelayLengthMinus1 = 0;
    uint8_t cpbRemovalDelayLengthMinus1 = 0;
    uint8_t dpbOutputDelayLengthMinus1 = 0;
    uint8_t timeOffsetLength = 0;
};

// One clock timestamp of a picture timing message (D.1.2).
struct ClockTimestamp {
    uint8_t clockTimestampFlag = 0;
    uint8_t ctType = 0;
    uint8_t nuitFieldBasedFlag = 0;
    uint8_t countingType = 0;
    uint8_t fullTimestampFlag = 0;
    uint8_t discontinuityFlag = 0;
    uint8_t cntDroppedFlag = 0;
    uint8_t nFrames = 0;
    uint8_t secondsFlag = 0;
    uint8_t secondsValue = 0;
    uint8_t minutesFlag = 0;
    uint8_t minutesValue = 0;
    uint8_t hoursFlag = 0;
    uint8_t hoursValue = 0;
    uint32_t timeOffset = 0;  // as read, sign bit and all
};

// A sequence parameter set with its VUI (7.3.2.1.1, E.1.1), and the picture timing read last under
// it. Plain data: copied to decode into, and only kept when that succeeded.
struct SPS {
    uint8_t profileIdc = 0;
    uint8_t seqParameterSetId = 0;
    uint8_t chromaFormatIdc = 0;
    uint8_t bitDepthLuma = 8;
    uint8_t bitDepthChroma = 8;
    uint8_t log2MaxFrameNum = 0;
    uint8_t picOrderCntType = 0;
    uint32_t numRefFramesInPocCycle = 0;
    uint8_t log2MaxPocLsb = 0;
    uint8_t maxNumRefFrames = 0;
    uint32_t widthInMbs = 0;
    uint32_t heightInMapUnits = 0;
    uint32_t width = 0;   // pixels, after cropping, modulo 2^32
    uint32_t height = 0;  // likewise
    uint8_t frameMbsOnlyFlag = 0;
    uint8_t frameCroppingFlag = 0;
    uint32_t cropLeft = 0;  // the four in pixels
    uint32_t cropRight = 0;
    uint32_t cropTop = 0;
    uint32_t cropBottom = 0;

    uint8_t vuiParametersPresentFlag = 0;
    uint8_t aspectRatioInfoPresentFlag = 0;
    uint8_t aspectRatioIdc = 0;
    uint8_t overscanInfoPresentFlag = 0;
    uint8_t videoSignalTypePresentFlag = 0;
    uint8_t colourDescriptionPresentFlag = 0;
    uint8_t chromaLocInfoPresentFlag = 0;
    uint8_t timingInfoPresentFlag = 0;
    uint32_t numUnitsInTick = 0;
    uint32_t timeScale = 0;
    uint8_t fixedFrameRateFlag = 0;
    uint8_t nalHrdParametersPresentFlag = 0;
    HRD nalHrd;
    uint8_t vclHrdParametersPresentFlag = 0;
    HRD vclHrd;
    uint8_t lowDelayHrdFlag = 0;
    uint8_t picStructPresentFlag = 0;
    uint8_t bitstreamRestrictionFlag = 0;
    uint8_t motionVectorsOverPicBoundariesFlag = 0;
    uint32_t maxBytesPerPicDenom = 0;
    uint32_t maxBitsPerMbDenom = 0;
    uint32_t log2MaxMvLengthHorizontal = 0;
    uint32_t log2MaxMvLengthVertical = 0;
    uint32_t maxNumReorderFrames = 0;
    uint32_t maxDecFrameBuffering = 0;

    uint8_t cpbRemovalDelay = 0;
    uint8_t picStruct = 0;
    ClockTimestamp clockTimestamps[3];
};

// Decodes the SPS whose bytes behind the NAL header are `unit` into `*sps`. STEP_OK, or STEP_ERROR
// (logged) with `*sps` unchanged: the VUI is mandatory, and so is everything up to its timing.
// Behind the timing nothing fails any more: what cannot be read there is 0, since without its first
// SPS a stream would stay black.
int decodeSPS(const NALBytes& unit, bool removeEmulation, SPS* sps);

}  // namespace OrvPlayer
