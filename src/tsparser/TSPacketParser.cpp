#include "tsparser/TSPacketParser.h"

#include <algorithm>
#include <cstring>

#include "common/Trace.h"

namespace OrvPlayer {

namespace {

constexpr uint8_t SYNC_BYTE = 0x47;
constexpr uint32_t CLOCK_REFERENCE_BYTES = 6;

enum AdaptationFieldControl { PAYLOAD_ONLY = 1, FIELD_ONLY = 2, FIELD_AND_PAYLOAD = 3 };

uint64_t clockReferenceBase(const unsigned char* b) {
    return uint64_t{b[0]} << 25 | uint64_t{b[1]} << 17 | uint64_t{b[2]} << 9 | uint64_t{b[3]} << 1 |
           uint64_t{b[4]} >> 7;
}

// Deliberate: the extension is kept in 8 bits, its top bit merged into bit 7. See
// TSPacketParserTest.NarrowsTheClockReferenceExtension.
uint16_t clockReferenceExtension(const unsigned char* b) {
    return static_cast<uint16_t>((b[4] & 0x01) << 7 | b[5]);
}

}  // namespace

unsigned int TSPacketParser::parse(unsigned char* packet, TSParsedData* data) {
    if (packet == nullptr || data == nullptr) {
        ORV_LOGE("%s - null parameter!\n", __func__);
        mInPES = false;
        return RESULT_DISCARD;
    }
    if (const unsigned int error = parseHeader(packet, data); error != 0) {
        ORV_LOGE("%s - header parsing error!\n", __func__);
        mInPES = false;
        return error | RESULT_DISCARD;
    }
    const bool starts = data->payload_unit_start_indicator != 0;
    if (!mInPES && !starts) {
        return RESULT_SKIP;
    }
    uint8_t* payload = packet;  // stays with a size of 0 where there is only an adaptation field
    uint32_t size = 0;
    switch (data->adaptation_field_control) {
        case PAYLOAD_ONLY:
            payload = packet + 4;
            size = MAX_PAYLOAD;
            break;
        case FIELD_ONLY:
            break;
        case FIELD_AND_PAYLOAD:
            payload = packet + 5 + data->adaptation_field_length;
            size = 183u - data->adaptation_field_length;
            break;
        default:  // reserved
            mInPES = false;
            return RESULT_DISCARD;
    }
    if (mInPES) {
        const uint32_t expected = data->adaptation_field_control == FIELD_ONLY
                                      ? mLastContinuityCounter
                                      : (mLastContinuityCounter + 1) & 0x0F;
        if (expected != data->continuity_counter) {
            ORV_LOGE(
                "%s - [PID = %d] continuity error! Discarding entire PES packet (expected "
                "0x%02X, received 0x%02X)\n",
                __func__, data->PID, expected, data->continuity_counter);
            mInPES = starts;
            if (!starts) {
                return RESULT_DISCARD;
            }
            mLastContinuityCounter = data->continuity_counter;
            // Deliberate: the payload fields still describe the packet before. See
            // TSPacketParserTest.StartAfterAHoleRepeatsThePayloadBefore.
            return RESULT_DISCARD | RESULT_APPEND;
        }
    }
    const bool completes = mInPES && starts;
    mInPES = true;
    mLastContinuityCounter = data->continuity_counter;
    data->payload = payload;
    data->payload_size = size;
    return completes ? RESULT_COMPLETE | RESULT_APPEND : RESULT_APPEND;
}

unsigned int TSPacketParser::parseHeader(unsigned char* packet, TSParsedData* data) {
    if (packet == nullptr || data == nullptr) {
        ORV_LOGE("%s - null parameter!\n", __func__);
        return HEADER_NULL;
    }
    if (packet[0] != SYNC_BYTE) {
        ORV_LOGE("%s - sync byte not found!\n", __func__);
        return HEADER_NO_SYNC;
    }
    data->transport_error_indicator = packet[1] >> 7;
    if (data->transport_error_indicator != 0) {
        ORV_LOGE("%s - Transport error indicator is true - discarding packet.\n", __func__);
        return HEADER_TRANSPORT_ERROR;
    }
    data->payload_unit_start_indicator = packet[1] >> 6 & 1;
    data->transport_priority = packet[1] >> 5 & 1;
    data->PID = static_cast<uint16_t>((packet[1] & 0x1F) << 8 | packet[2]);
    data->transport_scrambling_control = packet[3] >> 6;
    data->adaptation_field_control = packet[3] >> 4 & 3;
    data->continuity_counter = packet[3] & 0x0F;
    if ((packet[3] & 0x20) != 0) {
        parseAdaptationField(packet, data);
        if (data->adaptation_field_length >= MAX_PAYLOAD) {
            ORV_LOGE("%s: Invalid adaptation field length: %u\n", __func__,
                     data->adaptation_field_length);
            return HEADER_ADAPTATION_LENGTH;
        }
    }
    return 0;
}

void TSPacketParser::parseAdaptationField(unsigned char* packet, TSParsedData* data) {
    if (packet == nullptr || data == nullptr) {
        ORV_LOGE("%s - null parameter!\n", __func__);
        return;
    }
    data->adaptation_field_length = packet[4];
    if (data->adaptation_field_length == 0) {
        return;
    }
    const uint8_t flags = packet[5];
    data->discontinuity_indicator = flags >> 7;
    data->random_access_indicator = flags >> 6 & 1;
    data->elementary_stream_priority_indicator = flags >> 5 & 1;
    data->PCR_flag = flags >> 4 & 1;
    data->OPCR_flag = flags >> 3 & 1;
    data->splicing_point_flag = flags >> 2 & 1;
    data->transport_private_data_flag = flags >> 1 & 1;
    data->adaptation_field_extension_flag = flags & 1;

    // The fixed fields end at byte 20 at the latest, well inside the packet.
    const unsigned char* cursor = packet + 6;
    if (data->PCR_flag != 0) {
        data->program_clock_reference_base = clockReferenceBase(cursor);
        data->program_clock_reference_extension = clockReferenceExtension(cursor);
        cursor += CLOCK_REFERENCE_BYTES;
    }
    if (data->OPCR_flag != 0) {
        data->original_program_clock_reference_base = clockReferenceBase(cursor);
        data->original_program_clock_reference_extension = clockReferenceExtension(cursor);
        cursor += CLOCK_REFERENCE_BYTES;
    }
    if (data->splicing_point_flag != 0) {
        data->splice_countdown = *cursor++;
    }
    if (data->transport_private_data_flag != 0) {
        data->transport_private_data_length = *cursor;
        if (data->transport_private_data_length != 0) {
            const auto left = static_cast<uint32_t>(packet + TS_PACKET_BYTES - (cursor + 1));
            data->private_data_byte = copyPrivateData(
                cursor + 1, std::min<uint32_t>(data->transport_private_data_length, left));
        }
    } else {
        data->transport_private_data_length = 0;
        data->private_data_byte = nullptr;
    }
    if (data->adaptation_field_extension_flag != 0) {
        // Deliberate: the byte of the private length is stepped over also when there is none. See
        // TSPacketParserTest.ExtensionWithoutPrivateDataIsReadOneByteOn.
        const auto offset = static_cast<uint32_t>(cursor - packet);
        parseExtension(packet, offset + data->transport_private_data_length + 1, data);
    }
}

// The sub-fields sit at fixed offsets, whatever flags precede them.
void TSPacketParser::parseExtension(const unsigned char* packet, uint32_t offset,
                                    TSParsedData* data) {
    if (offset >= TS_PACKET_BYTES) {
        return;
    }
    const unsigned char* x = packet + offset;
    const uint32_t available = TS_PACKET_BYTES - offset;
    data->adaptation_field_extension_length = x[0];
    if (data->adaptation_field_extension_length == 0 || available < 2) {
        return;
    }
    data->ltw_flag = x[1] & 0x80;
    data->piecewise_rate_flag = x[1] & 0x40;
    data->seamless_splice_flag = x[1] & 0x20;
    if (data->ltw_flag != 0 && available >= 4) {
        data->ltw_valid_flag = x[2] >> 7;
        data->ltw_offset = static_cast<uint16_t>((x[2] & 0x7F) << 8 | x[3]);
    }
    if (data->piecewise_rate_flag != 0 && available >= 6) {
        // Deliberate: byte 4 feeds the top and the low bits. See
        // TSPacketParserTest.ReadsTheExtensionAtFixedOffsets.
        data->piecewise_rate = static_cast<uint32_t>((x[4] & 0x3F) << 16 | x[5] << 8 | x[4]);
    }
    if (data->seamless_splice_flag != 0 && available >= 12) {
        if ((x[7] & x[9] & x[11] & 1) == 0) {
            ORV_LOGE("%s - bad seamless splice marker bits!\n", "parseAdaptationField");
            return;
        }
        data->splice_type = x[7] >> 4;
        data->DTS_next_AU = uint64_t{x[7] & 0x0Eu} << 29 | uint64_t{x[8]} << 22 |
                            uint64_t{x[9]} >> 1 << 15 | uint64_t{x[10]} << 7 | uint64_t{x[11]} >> 1;
    }
}

unsigned char* TSPacketParser::copyPrivateData(const unsigned char* source, uint32_t size) {
    unsigned char* copy = mPrivateData[mPrivateCopies++ % PRIVATE_COPIES];
    memcpy(copy, source, size);
    return copy;
}

void TSPacketParser::retainPayload(TSParsedData* data) {
    // Only a start behind a hole asks for it again, and only while a PES is being collected.
    if (!mInPES || data->payload == mRetained) {
        return;
    }
    memcpy(mRetained, data->payload, data->payload_size);
    data->payload = mRetained;
}

void TSPacketParser::printTSData(TSParsedData* data) {
    if (data == nullptr) {
        ORV_LOGI("%s - null parameter!\n", __func__);
    }
}

}  // namespace OrvPlayer
