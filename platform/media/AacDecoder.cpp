#include "media/AacDecoder.h"

#include <algorithm>
#include <cstring>

#include "media/AudioDecoder.h"
#include "media/AudioSpecificConfig.h"
#ifdef ORV_HAVE_FDK_AAC
#include "media/FdkAacDecoder.h"
#endif

namespace orvhost {

namespace {

constexpr size_t ADTS_HEADER_BYTES = 7;
constexpr size_t ADTS_MAX_FRAME_BYTES = 8191;

// Four object types fit the header's two bits, thirteen rates its index.
bool fitsAdts(const AudioSpecificConfig& config) {
    return config.objectType >= 1 && config.objectType <= 4 && config.sampleRateIndex < 13;
}

std::unique_ptr<StreamDecoder> makeRawDecoder() {
#ifdef ORV_HAVE_FDK_AAC
    return std::make_unique<FdkAacDecoder>();
#else
    return std::make_unique<AudioDecoder>(AV_CODEC_ID_AAC);
#endif
}

}  // namespace

StreamDecoder::Status AacDecoder::open(std::span<const uint8_t> configuration) {
    if (configuration.empty()) {
        mDecoder.reset();
        mConfiguration.clear();
        mAddHeader = false;
        return mAdts ? openAdts() : Status::Ok;
    }
    if (mDecoder != nullptr && std::ranges::equal(configuration, mConfiguration)) {
        return Status::Ok;
    }
    mDecoder.reset();
    mConfiguration.assign(configuration.begin(), configuration.end());
    AudioSpecificConfig config;
    if (!AudioSpecificConfig::parse(configuration, &config)) {
        return Status::Damaged;
    }
    mAddHeader = config.channelConfiguration == 0 && fitsAdts(config);
    if (mAddHeader) {
        mObjectType = config.objectType;
        mSampleRateIndex = config.sampleRateIndex;
        return openAdts();
    }
    mDecoder = makeRawDecoder();
    Status status = mDecoder->open(configuration.first(config.bytes));
#ifdef ORV_HAVE_FDK_AAC
    if (status == Status::Damaged) {  // a configuration that this library leaves out
        mDecoder = std::make_unique<AudioDecoder>(AV_CODEC_ID_AAC);
        status = mDecoder->open(configuration.first(config.bytes));
    }
#endif
    if (status != Status::Ok) {
        mDecoder.reset();
    }
    return status;
}

StreamDecoder::Status AacDecoder::openAdts() {
    mDecoder = std::make_unique<AudioDecoder>(AV_CODEC_ID_AAC);
    return mDecoder->open({});
}

StreamDecoder::Status AacDecoder::feed(AVPacket* packet) {
    if (mDecoder == nullptr) {
        return Status::Damaged;
    }
    return mAddHeader && packet != nullptr ? feedBehindHeader(*packet) : mDecoder->feed(packet);
}

StreamDecoder::Status AacDecoder::take(DecodedOutput& output) {
    return mDecoder != nullptr ? mDecoder->take(output) : Status::Again;
}

void AacDecoder::writePcm(uint8_t* out) {
    mDecoder->writePcm(out);
}

StreamDecoder::Status AacDecoder::feedBehindHeader(const AVPacket& packet) {
    const size_t unitBytes = static_cast<size_t>(packet.size);
    const size_t frameBytes = ADTS_HEADER_BYTES + unitBytes;
    if (frameBytes > ADTS_MAX_FRAME_BYTES) {
        return Status::Damaged;
    }
    mFramed.reset(av_packet_alloc());
    if (mFramed == nullptr || av_new_packet(mFramed.get(), static_cast<int>(frameBytes)) < 0) {
        return Status::Failed;
    }
    mFramed->pts = packet.pts;
    // ISO/IEC 13818-7, 6.2: sync word, MPEG-4, no CRC; profile, rate, channel configuration 0;
    // frame length; buffer fullness "variable rate"; one raw data block.
    uint8_t* out = mFramed->data;
    out[0] = 0xFF;
    out[1] = 0xF1;
    out[2] = static_cast<uint8_t>((mObjectType - 1) << 6 | mSampleRateIndex << 2);
    out[3] = static_cast<uint8_t>(frameBytes >> 11);
    out[4] = static_cast<uint8_t>(frameBytes >> 3);
    out[5] = static_cast<uint8_t>(frameBytes << 5 | 0x1F);
    out[6] = 0xFC;
    memcpy(out + ADTS_HEADER_BYTES, packet.data, unitBytes);
    return mDecoder->feed(mFramed.get());
}

}  // namespace orvhost
