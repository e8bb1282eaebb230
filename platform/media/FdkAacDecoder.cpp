#include "media/FdkAacDecoder.h"

#include <cstring>

namespace orvhost {

namespace {

static_assert(sizeof(INT_PCM) == sizeof(int16_t), "the library must give 16-bit samples");

// The largest block: 8 channels of 2048 samples.
constexpr size_t MAX_SAMPLES = 8 * 2048;

bool setParameters(AAC_DECODER_INSTANCE* decoder) {
    return aacDecoder_SetParam(decoder, AAC_PCM_LIMITER_ENABLE, 0) == AAC_DEC_OK &&
           aacDecoder_SetParam(decoder, AAC_PCM_MAX_OUTPUT_CHANNELS, 0) == AAC_DEC_OK &&
           aacDecoder_SetParam(decoder, AAC_CONCEAL_METHOD, 1) == AAC_DEC_OK &&
           aacDecoder_SetParam(decoder, AAC_DRC_REFERENCE_LEVEL, -1) == AAC_DEC_OK;
}

}  // namespace

StreamDecoder::Status FdkAacDecoder::open(std::span<const uint8_t> configuration) {
    mHasBlock = false;
    mAtEnd = false;
    mFormat = {};
    mDecoder.reset(aacDecoder_Open(TT_MP4_RAW, 1));
    if (mDecoder == nullptr || !setParameters(mDecoder.get())) {
        mDecoder.reset();
        return Status::Failed;
    }
    mPcm.resize(MAX_SAMPLES);
    std::vector<UCHAR> bytes(configuration.begin(), configuration.end());
    UCHAR* data = bytes.data();
    const UINT size = static_cast<UINT>(bytes.size());
    if (aacDecoder_ConfigRaw(mDecoder.get(), &data, &size) != AAC_DEC_OK) {
        mDecoder.reset();
        return Status::Damaged;
    }
    return Status::Ok;
}

StreamDecoder::Status FdkAacDecoder::feed(AVPacket* packet) {
    if (mDecoder == nullptr) {
        return Status::Damaged;
    }
    if (packet == nullptr) {
        mAtEnd = true;
        return Status::Ok;
    }
    UCHAR* data = packet->data;
    const UINT size = static_cast<UINT>(packet->size);
    UINT left = size;
    if (aacDecoder_Fill(mDecoder.get(), &data, &size, &left) != AAC_DEC_OK || left != 0) {
        aacDecoder_SetParam(mDecoder.get(), AAC_TPDEC_CLEAR_BUFFER, 1);
        return Status::Damaged;
    }
    const AAC_DECODER_ERROR result =
        aacDecoder_DecodeFrame(mDecoder.get(), mPcm.data(), static_cast<INT>(mPcm.size()), 0);
    // One unit, one block: a rest would shift every later block.
    aacDecoder_SetParam(mDecoder.get(), AAC_TPDEC_CLEAR_BUFFER, 1);
    const CStreamInfo* info = aacDecoder_GetStreamInfo(mDecoder.get());
    if (!IS_OUTPUT_VALID(result) || info == nullptr || info->sampleRate <= 0 ||
        info->numChannels <= 0 || info->frameSize <= 0) {
        return Status::Damaged;
    }
    if (result != AAC_DEC_OK && mFormat == StreamFormat{}) {
        return Status::Damaged;  // nothing was good yet: silence of an unproved format
    }
    mFormat = {.sampleRate = info->sampleRate, .channels = info->numChannels};
    mPcmBytes = static_cast<size_t>(info->frameSize) * static_cast<size_t>(info->numChannels) *
                sizeof(INT_PCM);
    mTimeUs = packet->pts;
    mHasBlock = true;
    return result == AAC_DEC_OK ? Status::Ok : Status::Damaged;
}

StreamDecoder::Status FdkAacDecoder::take(DecodedOutput& output) {
    if (mHasBlock) {
        mHasBlock = false;
        output.timeUs = mTimeUs;
        output.format = mFormat;
        output.pcmBytes = mPcmBytes;
        return Status::Ok;
    }
    if (mAtEnd) {
        mAtEnd = false;
        return Status::EndOfStream;
    }
    return Status::Again;
}

void FdkAacDecoder::writePcm(uint8_t* out) {
    memcpy(out, mPcm.data(), mPcmBytes);
}

}  // namespace orvhost
