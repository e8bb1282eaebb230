#include "decoder/AACMediaExtractor.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "common/Trace.h"
#include "decoder/ASCParser.h"

namespace OrvPlayer {

namespace {

constexpr uint32_t DETECTION_BYTES = 4;

// Records without a configuration, and suspicious ones among them, before the framing is switched.
constexpr uint32_t ERRORS_WITH_SUSPICION = 26;
constexpr uint32_t ERRORS_WITHOUT = 50;
constexpr uint32_t SUSPICIONS_OF_LOAS = 10;
constexpr uint32_t SUSPICIONS_OF_ADTS = 1;

// A record that is not whole is logged with its size raised by its fixed part.
constexpr uint32_t ADDED_TO_PRINTED_SIZE = PESData::FIXED_SIZE;

constexpr unsigned int ADTS_FLAG_MPEG4 = 1;

}  // namespace

AACMediaExtractor::AACMediaExtractor(const android::sp<RingBuffer>& ringBuffer,
                                     transportLayer_t transportLayer)
    : MediaExtractor(ringBuffer), transport(transportLayer) {
    openTransport(__func__);
}

AACMediaExtractor::~AACMediaExtractor() {
    transportDec_Close(&transportDecoder);
}

void AACMediaExtractor::openTransport(const char* caller) {
    transportDecoder = transport == LOAS ? transportDec_Open(TT_MP4_LOAS, 0, 1)
                                         : transportDec_Open(TT_MP4_ADTS, ADTS_FLAG_MPEG4, 1);
    if (transportDecoder == nullptr) {
        ORV_LOGE("%s: Error creating transport decoder\n", caller);
        return;
    }
    if (transportDec_SetParam(transportDecoder, TPDEC_PARAM_IGNORE_BUFFERFULLNESS, 1) !=
        TRANSPORTDEC_OK) {
        ORV_LOGE("%s: Error configuring the AAC tp decoder\n", caller);
    }
    if (transportDec_RegisterAscCallback(transportDecoder, ASCCallback, this) != 0) {
        ORV_LOGE("%s: Error registering callback\n", caller);
    }
}

int AACMediaExtractor::ASCCallback(void* context, const CSAudioSpecificConfig* asc, unsigned char,
                                   unsigned char*) {
    auto* self = static_cast<AACMediaExtractor*>(context);
    if (self->ascConfig != nullptr) {
        return 0;
    }
    self->firstConfig = *asc;
    self->ascConfig = &self->firstConfig;
    self->frameDuration = asc->m_samplingFrequency == 0
                              ? 0
                              : asc->m_samplesPerFrame * 90000 / asc->m_samplingFrequency;
    return 0;
}

int AACMediaExtractor::getDecodableUnit(void* out, unsigned long capacity, unsigned long* size,
                                        long long* pts, unsigned char* flags) {
    *size = 0;
    *flags = 0;
    const int taken = takeRecord(__func__, ADDED_TO_PRINTED_SIZE);
    if (taken != STATUS_OK) {
        return taken;
    }
    switch (getNextFragment(out, capacity, size, pts)) {
        case FRAGMENT_FEED_ON:
            unlockRecord();
            return STATUS_NO_RECORD;
        case FRAGMENT_IS_CONFIG:
            *flags |= FLAG_CODEC_CONFIG;
            unlockRecord();
            detecting = false;
            errorCount = 0;
            ORV_LOGV("%s: found aac codec config", __func__);
            return STATUS_OK;
        case FRAGMENT_USED_UP: {
            // Kept aside: once consumed the record belongs to the writer.
            unsigned char start[DETECTION_BYTES] = {};
            const uint32_t startSize = std::min(payloadSize, DETECTION_BYTES);
            memcpy(start, payload, startSize);
            consumeRecord();
            if (!detecting) {
                return STATUS_OK;
            }
            detectFraming(start, startSize);
            return STATUS_NO_RECORD;
        }
        default:
            return STATUS_OK;
    }
}

void AACMediaExtractor::reset() {
    ascDelivered = false;
    dropRecord();
}

int AACMediaExtractor::getNextFragment(void* out, unsigned long capacity, unsigned long* size,
                                       long long* pts) {
    if (needFill) {
        feedTransport();
    }
    const int result = transportDec_ReadAccessUnit(transportDecoder, 0);
    switch (result) {
        case TRANSPORTDEC_OK:
            break;
        case TRANSPORTDEC_SYNC_ERROR:
            errorCount += detecting ? 1 : 0;
            ORV_LOGE("%s: transportDec_ReadAccessUnit: Sync Error 0x%X mErrorCnt(%d)", __func__,
                     static_cast<unsigned int>(result), static_cast<int>(errorCount));
            return feedNext();
        case TRANSPORTDEC_NOT_ENOUGH_BITS:
            errorCount += detecting ? 1 : 0;
            ptsFromNextBlock = true;
            return feedNext();
        default:
            ORV_LOGE("%s: transportDec_ReadAccessUnit() failed with code %d", __func__, result);
            return feedNext();
    }

    const auto unitSize =
        static_cast<uint32_t>(transportDec_GetAuBitsTotal(transportDecoder, 0)) / 8;
    if (unitSize == 0) {
        return feedNext();
    }
    if (unitSize <= capacity) {
        HANDLE_FDK_BITSTREAM bits = transportDec_GetBitstream(transportDecoder, 0);
        FDKreadBytes(bits, static_cast<unsigned char*>(out), unitSize);
        FDKbyteAlign(bits);
        takeTime(pts);
        if (ascDelivered) {
            *size = unitSize;
        }
    }
    return ascDelivered ? FRAGMENT_OK : giveConfig(out, capacity, size);
}

void AACMediaExtractor::feedTransport() {
    if (bytesValid == 0) {
        bytesValid = payloadSize;
        if (!ptsFromNextBlock) {
            currentPts = static_cast<int64_t>(currentBlock->mPTS);
        }
    }
    // A record that was forgotten half fed may have been longer than this one.
    bytesValid = std::min(bytesValid, payloadSize);
    needFill = false;
    const int result =
        transportDec_FillData(transportDecoder, payload, payloadSize, &bytesValid, 0);
    if (result != TRANSPORTDEC_OK) {
        ORV_LOGE("%s: Fill data failed with code %d", "getNextFragment", result);
        bytesValid = 0;  // it would fail for ever: the record is passed over
    }
}

int AACMediaExtractor::feedNext() {
    needFill = true;
    return bytesValid > 0 ? FRAGMENT_FEED_ON : FRAGMENT_USED_UP;
}

// The time of the unit just read, and on to that of the next.
void AACMediaExtractor::takeTime(long long* pts) {
    *pts = currentPts;
    if (ptsFromNextBlock) {
        ptsFromNextBlock = false;
        currentPts = static_cast<int64_t>(currentBlock->mPTS);
    } else {
        currentPts += frameDuration;
    }
}

// A configuration in place of the unit that was read.
int AACMediaExtractor::giveConfig(void* out, unsigned long capacity, unsigned long* size) {
    if (ascConfig == nullptr) {
        return FRAGMENT_OK;
    }
    if (getASC(out, capacity, size) != 0) {
        ORV_LOGE("%s: Error creating ASC\n", "getNextFragment");
        return FRAGMENT_OK;
    }
    ascDelivered = true;
    return FRAGMENT_IS_CONFIG;
}

int AACMediaExtractor::getASC(void* out, unsigned long capacity, unsigned long* size) {
    ASCParser parser;
    parser.audioObjectType = ascConfig->m_aot;
    parser.samplingFrequencyIndex = ascConfig->m_samplingFrequencyIndex;
    parser.samplingFrequency = ascConfig->m_samplingFrequency;
    parser.channelConfiguration = ascConfig->m_channelConfiguration;
    parser.extensionSamplingFrequencyIndex = ascConfig->m_extensionSamplingFrequencyIndex;
    parser.extensionSamplingFrequency = ascConfig->m_extensionSamplingFrequency;
    parser.extensionAudioObjectType = ascConfig->m_extensionAudioObjectType;

    unsigned char* bytes = nullptr;
    unsigned int ascSize = 0;
    const int result = parser.createASC(&bytes, &ascSize);
    const std::unique_ptr<unsigned char[]> owner(bytes);
    if (result != 0) {
        ORV_LOGE("%s: createASC failed with error %d", __func__, result);
        return 1;
    }
    if (ascSize > capacity) {
        ORV_LOGE("%s: Not enough space on output buffer. (%u > %lu)", __func__, ascSize, capacity);
        return 1;
    }
    memcpy(out, bytes, ascSize);
    *size = ascSize;
    return 0;
}

// Whether a payload begins like the framing that is not the current one. Too few bytes: no.
void AACMediaExtractor::countSuspicion(const unsigned char* start, uint32_t size) {
    if (transport == ADTS) {
        // The 11-bit sync word 0x2B7 in the first 12 bits.
        if (size >= 2 && ((start[0] << 4 | start[1] >> 4) & 0xFFE) == 0x56E) {
            suspectCount++;
            ORV_LOGW("%s: LOAS supect count : %d", "getDecodableUnit",
                     static_cast<int>(suspectCount));
        }
        return;
    }
    if (size < 4 || (start[0] << 4 | start[1] >> 4) != 0xFFF) {
        return;
    }
    const int frequencyIndex = start[2] >> 2 & 0x0F;
    const int channelConfiguration = (start[2] & 0x01) << 2 | start[3] >> 6;
    if (frequencyIndex < 13 && channelConfiguration < 7) {
        suspectCount++;
        ORV_LOGW("%s: ADTS supect count : %d", "getDecodableUnit", static_cast<int>(suspectCount));
    }
}

void AACMediaExtractor::detectFraming(const unsigned char* start, uint32_t size) {
    countSuspicion(start, size);
    const uint32_t enough = transport == ADTS ? SUSPICIONS_OF_LOAS : SUSPICIONS_OF_ADTS;
    if (errorCount < ERRORS_WITH_SUSPICION ||
        (errorCount < ERRORS_WITHOUT && suspectCount < enough)) {
        return;
    }
    errorCount = 0;
    suspectCount = 0;
    transportDec_Close(&transportDecoder);
    transport = transport == ADTS ? LOAS : ADTS;
    openTransport("getDecodableUnit");
}

}  // namespace OrvPlayer
