#include "decoder/H264ParameterSets.h"

#include <algorithm>

#include "common/Trace.h"
#include "decoder/NALScanner.h"

namespace OrvPlayer {

namespace {

constexpr char DECODE_SPS[] = "decodeSPS";

// The profiles whose SPS says the chroma format and the bit depths.
constexpr uint8_t PROFILES_WITH_CHROMA[] = {44, 83, 86, 100, 110, 118, 122, 128, 144, 244};

// The steps of one decoding, in stream order; each returns STEP_OK or STEP_ERROR.
class SPSDecoder {
public:
    SPSDecoder(RBSPReader& reader, SPS& sps) : mReader(reader), mSps(sps) {}

    int decode();

private:
    int decodeProfile();
    int decodeChroma();
    void skipScalingLists();
    int decodeFrameNumbering();
    int decodePocType1();
    int decodeSize();
    void decodeCropping();
    int decodeVUI();
    int decodeAspectRatio();
    void decodeColour();
    int decodeTiming();
    void decodeHRDs();
    void decodeHRD(HRD& hrd);
    void decodeRestrictions();

    RBSPReader& mReader;
    SPS& mSps;
};

int SPSDecoder::decode() {
    if (decodeProfile() != STEP_OK || decodeChroma() != STEP_OK ||
        decodeFrameNumbering() != STEP_OK || decodeSize() != STEP_OK) {
        return STEP_ERROR;
    }
    decodeCropping();
    mSps.vuiParametersPresentFlag = mReader.readFlag();
    if (mReader.hasOverrun()) {
        return STEP_ERROR;
    }
    if (mSps.vuiParametersPresentFlag == 0) {
        ORV_LOGE("%s: VUI is not present\n", DECODE_SPS);
        return STEP_ERROR;
    }
    if (decodeVUI() != STEP_OK) {
        ORV_LOGE("%s: Error decoding VUI\n", DECODE_SPS);
        return STEP_ERROR;
    }
    return STEP_OK;
}

int SPSDecoder::decodeProfile() {
    mSps.profileIdc = static_cast<uint8_t>(mReader.readBits(8));
    mReader.skip(8);  // constraint flags and reserved bits
    mReader.skip(8);  // level_idc
    mSps.seqParameterSetId = static_cast<uint8_t>(mReader.parseUEGolomb());
    if ((mSps.seqParameterSetId & 0xE0) != 0) {
        ORV_LOGE("%s: SPS number (%d) is out of range\n", DECODE_SPS, mSps.seqParameterSetId);
        return STEP_ERROR;
    }
    return STEP_OK;
}

int SPSDecoder::decodeChroma() {
    mSps.chromaFormatIdc = 1;
    mSps.bitDepthLuma = 8;
    mSps.bitDepthChroma = 8;
    if (std::ranges::find(PROFILES_WITH_CHROMA, mSps.profileIdc) ==
        std::end(PROFILES_WITH_CHROMA)) {
        return STEP_OK;
    }
    const uint32_t chromaFormat = mReader.parseUEGolomb();
    if (chromaFormat >= 4) {
        ORV_LOGE("%s: Chroma Format IDC %d is not valid\n", DECODE_SPS,
                 static_cast<int>(chromaFormat));
        return STEP_ERROR;
    }
    mSps.chromaFormatIdc = static_cast<uint8_t>(chromaFormat);
    if (chromaFormat == 3) {
        mReader.skip(1);  // separate_colour_plane_flag
    }
    const uint64_t luma = uint64_t{mReader.parseUEGolomb()} + 8;
    const uint64_t chroma = uint64_t{mReader.parseUEGolomb()} + 8;
    if (luma != chroma || luma > 14 || chroma >= 15) {
        ORV_LOGE("%s: Illegal bit depth values (%d, %d)\n", DECODE_SPS, static_cast<int>(luma),
                 static_cast<int>(chroma));
        return STEP_ERROR;
    }
    mSps.bitDepthLuma = static_cast<uint8_t>(luma);
    mSps.bitDepthChroma = static_cast<uint8_t>(chroma);
    mReader.skip(1);  // qpprime_y_zero_transform_bypass_flag
    if (mReader.readFlag()) {
        skipScalingLists();
    }
    return STEP_OK;
}

void SPSDecoder::skipScalingLists() {
    // Deliberate: eight lists for 4:4:4 too. See H264ParameterSetsTest.EightScalingListsIn444.
    for (int list = 0; list < 8; ++list) {
        if (!mReader.readFlag()) {
            continue;
        }
        const int entries = list < 6 ? 16 : 64;
        uint32_t scale = 8;
        for (int i = 0; i < entries && scale != 0; ++i) {
            scale = (scale + static_cast<uint32_t>(mReader.parseSEGolomb())) & 0xFF;
        }
    }
}

int SPSDecoder::decodeFrameNumbering() {
    // Deliberate: both the code number and the sum are looked at in 8 bits. See
    // SpsLimits.Decode, FrameNum256CountsAs0.
    const auto frameNumCode = static_cast<uint8_t>(mReader.parseUEGolomb());
    mSps.log2MaxFrameNum = static_cast<uint8_t>(frameNumCode + 4);
    if (frameNumCode >= 252 || mSps.log2MaxFrameNum > 16) {
        ORV_LOGE("%s; Max frame num invalid range out of range (4-16): %d\n", DECODE_SPS,
                 mSps.log2MaxFrameNum);
        return STEP_ERROR;
    }
    const uint32_t pocType = mReader.parseUEGolomb();
    mSps.picOrderCntType = static_cast<uint8_t>(pocType);
    if (pocType == 0) {
        const uint64_t log2MaxPocLsb = uint64_t{mReader.parseUEGolomb()} + 4;
        if (log2MaxPocLsb > 16) {
            ORV_LOGE("%s: log2MaxPOCLSB (%d) is out of range\n", DECODE_SPS,
                     static_cast<int>(log2MaxPocLsb));
            return STEP_ERROR;
        }
        mSps.log2MaxPocLsb = static_cast<uint8_t>(log2MaxPocLsb);
    } else if (pocType == 1) {
        if (decodePocType1() != STEP_OK) {
            return STEP_ERROR;
        }
    } else if (pocType != 2) {
        ORV_LOGE("%s: illegal POC type %d\n", DECODE_SPS, static_cast<int>(pocType));
        return STEP_ERROR;
    }
    const uint32_t refFrames = mReader.parseUEGolomb();
    if (refFrames >= 17) {
        ORV_LOGE("%s: Reference frames invalid: %d\n", DECODE_SPS, static_cast<int>(refFrames));
        return STEP_ERROR;
    }
    mSps.maxNumRefFrames = static_cast<uint8_t>(refFrames);
    mReader.skip(1);  // gaps_in_frame_num_value_allowed_flag
    return STEP_OK;
}

int SPSDecoder::decodePocType1() {
    mReader.skip(1);          // delta_pic_order_always_zero_flag
    mReader.parseSEGolomb();  // offset_for_non_ref_pic
    mReader.parseSEGolomb();  // offset_for_top_to_bottom_field
    mSps.numRefFramesInPocCycle = mReader.parseUEGolomb();
    if (mSps.numRefFramesInPocCycle >= 256) {
        ORV_LOGE("%s: Poc Cycle Length out of bounds: %u\n", DECODE_SPS,
                 mSps.numRefFramesInPocCycle);
        return STEP_ERROR;
    }
    for (uint32_t i = 0; i < mSps.numRefFramesInPocCycle; ++i) {
        mReader.parseSEGolomb();  // offset_for_ref_frame
    }
    return STEP_OK;
}

int SPSDecoder::decodeSize() {
    mSps.widthInMbs = mReader.parseUEGolomb() + 1;
    mSps.heightInMapUnits = mReader.parseUEGolomb() + 1;
    if (mSps.heightInMapUnits > 0x7FFFFFE || mSps.widthInMbs >= 0x7FFFFFF) {
        ORV_LOGE("%s: macro block width or height overflow: %d %d\n", DECODE_SPS,
                 static_cast<int>(mSps.widthInMbs), static_cast<int>(mSps.heightInMapUnits));
        return STEP_ERROR;
    }
    mSps.width = 16 * mSps.widthInMbs;
    mSps.height = 16 * mSps.heightInMapUnits;
    mSps.frameMbsOnlyFlag = mReader.readFlag();
    if (mSps.frameMbsOnlyFlag == 0) {
        mReader.skip(1);  // mb_adaptive_frame_field_flag
        mSps.height *= 2;
    }
    mReader.skip(1);  // direct_8x8_inference_flag
    return STEP_OK;
}

void SPSDecoder::decodeCropping() {
    mSps.frameCroppingFlag = mReader.readFlag();
    if (mSps.frameCroppingFlag == 0) {
        return;
    }
    const uint32_t unitX = mSps.chromaFormatIdc == 0 || mSps.chromaFormatIdc == 3 ? 1 : 2;
    const uint32_t unitY =
        (mSps.frameMbsOnlyFlag != 0 ? 1u : 2u) * (mSps.chromaFormatIdc == 1 ? 2 : 1);
    mSps.cropLeft = mReader.parseUEGolomb() * unitX;
    mSps.cropRight = mReader.parseUEGolomb() * unitX;
    mSps.cropTop = mReader.parseUEGolomb() * unitY;
    mSps.cropBottom = mReader.parseUEGolomb() * unitY;
    mSps.width -= mSps.cropLeft + mSps.cropRight;
    mSps.height -= mSps.cropTop + mSps.cropBottom;
}

int SPSDecoder::decodeVUI() {
    if (decodeAspectRatio() != STEP_OK) {
        return STEP_ERROR;
    }
    decodeColour();
    if (decodeTiming() != STEP_OK || mReader.hasOverrun()) {
        return STEP_ERROR;
    }
    decodeHRDs();
    mSps.picStructPresentFlag = mReader.readFlag();
    decodeRestrictions();
    return STEP_OK;
}

int SPSDecoder::decodeAspectRatio() {
    constexpr uint8_t EXTENDED_SAR = 255;
    mSps.aspectRatioInfoPresentFlag = mReader.readFlag();
    if (mSps.aspectRatioInfoPresentFlag == 0) {
        return STEP_OK;
    }
    mSps.aspectRatioIdc = static_cast<uint8_t>(mReader.readBits(8));
    if (mSps.aspectRatioIdc == EXTENDED_SAR) {
        mReader.skip(32);  // sar_width, sar_height
    } else if (mSps.aspectRatioIdc >= 18) {
        ORV_LOGE("%s: Illegal Aspect Ratio: %d\n", "decodeVUI", mSps.aspectRatioIdc);
        return STEP_ERROR;
    }
    return STEP_OK;
}

void SPSDecoder::decodeColour() {
    mSps.overscanInfoPresentFlag = mReader.readFlag();
    if (mSps.overscanInfoPresentFlag != 0) {
        mReader.skip(1);  // overscan_appropriate_flag
    }
    mSps.videoSignalTypePresentFlag = mReader.readFlag();
    if (mSps.videoSignalTypePresentFlag != 0) {
        mReader.skip(3 + 1);  // video_format, video_full_range_flag
        mSps.colourDescriptionPresentFlag = mReader.readFlag();
        if (mSps.colourDescriptionPresentFlag != 0) {
            mReader.skip(3 * 8);  // primaries, transfer characteristics, matrix coefficients
        }
    }
    mSps.chromaLocInfoPresentFlag = mReader.readFlag();
    if (mSps.chromaLocInfoPresentFlag != 0) {
        mReader.parseUEGolomb();  // chroma_sample_loc_type_top_field
        mReader.parseUEGolomb();  // chroma_sample_loc_type_bottom_field
    }
}

int SPSDecoder::decodeTiming() {
    mSps.timingInfoPresentFlag = mReader.readFlag();
    if (mSps.timingInfoPresentFlag == 0) {
        return STEP_OK;
    }
    mSps.numUnitsInTick = mReader.readBitsLong(32);
    mSps.timeScale = mReader.readBitsLong(32);
    mSps.fixedFrameRateFlag = mReader.readFlag();
    if (mSps.numUnitsInTick == 0 || mSps.timeScale == 0) {
        ORV_LOGE("%s: Illegal TimeScale or Number of Ticks (%d, %d)\n", "decodeVUI",
                 static_cast<int>(mSps.timeScale), static_cast<int>(mSps.numUnitsInTick));
        return STEP_ERROR;
    }
    return STEP_OK;
}

void SPSDecoder::decodeHRDs() {
    mSps.nalHrd = HRD();
    mSps.vclHrd = HRD();
    mSps.lowDelayHrdFlag = 0;
    mSps.nalHrdParametersPresentFlag = mReader.readFlag();
    if (mSps.nalHrdParametersPresentFlag != 0) {
        decodeHRD(mSps.nalHrd);
    }
    mSps.vclHrdParametersPresentFlag = mReader.readFlag();
    if (mSps.vclHrdParametersPresentFlag != 0) {
        decodeHRD(mSps.vclHrd);
    }
    if (mSps.nalHrdParametersPresentFlag != 0 || mSps.vclHrdParametersPresentFlag != 0) {
        mSps.lowDelayHrdFlag = mReader.readFlag();
    }
}

void SPSDecoder::decodeHRD(HRD& hrd) {
    hrd.cpbCntMinus1 = mReader.parseUEGolomb();
    if (hrd.cpbCntMinus1 >= HRD::MAX_CPB_COUNT) {
        hrd.cpbCntMinus1 = HRD::MAX_CPB_COUNT - 1;
        mReader.abandon();
    }
    hrd.bitRateScale = static_cast<uint8_t>(mReader.readBits(4));
    hrd.cpbSizeScale = static_cast<uint8_t>(mReader.readBits(4));
    for (uint32_t i = 0; i <= hrd.cpbCntMinus1; ++i) {
        hrd.bitRateValueMinus1[i] = mReader.parseUEGolomb();
        hrd.cpbSizeValueMinus1[i] = mReader.parseUEGolomb();
        hrd.cbrFlag[i] = mReader.readFlag();
    }
    const auto readLength = [this] { return static_cast<uint8_t>(mReader.readBits(5)); };
    hrd.initialCpbRemovalDelayLengthMinus1 = readLength();
    hrd.cpbRemovalDelayLengthMinus1 = readLength();
    // Deliberate: read twice, the second one counts, so that every later field of the VUI moves by
    // five bits. See H264ParameterSetsTest.HrdTailIs25Bits.
    hrd.dpbOutputDelayLengthMinus1 = readLength();
    hrd.dpbOutputDelayLengthMinus1 = readLength();
    hrd.timeOffsetLength = readLength();
}

void SPSDecoder::decodeRestrictions() {
    mSps.bitstreamRestrictionFlag = mReader.readFlag();
    const bool present = mSps.bitstreamRestrictionFlag != 0;
    mSps.motionVectorsOverPicBoundariesFlag = present && mReader.readFlag();
    for (uint32_t* value :
         {&mSps.maxBytesPerPicDenom, &mSps.maxBitsPerMbDenom, &mSps.log2MaxMvLengthHorizontal,
          &mSps.log2MaxMvLengthVertical, &mSps.maxNumReorderFrames, &mSps.maxDecFrameBuffering}) {
        *value = present ? mReader.parseUEGolomb() : 0;
    }
}

}  // namespace

int decodeSPS(const NALBytes& unit, bool removeEmulation, SPS* sps) {
    RBSP rbsp;
    RBSPReader reader(nullptr, 0);
    if (!openNALUnit(DECODE_SPS, unit, removeEmulation, &rbsp, &reader)) {
        return STEP_ERROR;
    }
    SPS decoded = *sps;
    if (SPSDecoder(reader, decoded).decode() != STEP_OK) {
        return STEP_ERROR;
    }
    *sps = decoded;
    return STEP_OK;
}

}  // namespace OrvPlayer
