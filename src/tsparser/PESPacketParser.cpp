#include "tsparser/PESPacketParser.h"

#include <cstring>

#include "common/Trace.h"

namespace OrvPlayer {

namespace {

constexpr int FIXED_HEADER_BYTES = 6;
constexpr int OPTIONAL_HEADER_BYTES = 9;  // up to and with PES_header_data_length

bool hasOptionalHeader(uint8_t streamId) {
    return (streamId & 0xF0) == 0xE0 || streamId == 0xBD || (streamId & 0xE0) == 0xC0;
}

bool beginsOptionalHeader(const unsigned char* packet) {
    return packet[6] >> 6 == 2;
}

// 33 bits in 5 bytes; the marker bits are not looked at.
uint64_t timeStamp(const unsigned char* b) {
    return uint64_t{b[0] & 0x0Eu} << 29 | uint64_t{b[1]} << 22 | uint64_t{b[2] & 0xFEu} << 14 |
           uint64_t{b[3]} << 7 | uint64_t{b[4]} >> 1;
}

// Hands out one field after the other. Once a field does not fit, it and all behind it are null.
class FieldReader {
public:
    FieldReader(const unsigned char* next, int left) : mNext(next), mLeft(left) {}

    const unsigned char* take(int bytes) {
        if (bytes > mLeft) {
            mLeft = 0;
            return nullptr;
        }
        const unsigned char* field = mNext;
        mNext += bytes;
        mLeft -= bytes;
        return field;
    }

private:
    const unsigned char* mNext;
    int mLeft;
};

void readFlags(const unsigned char* packet, PESParsedData* data) {
    data->PES_scrambling_control = packet[6] >> 4 & 3;
    data->PES_priority = packet[6] >> 3 & 1;
    data->data_alignment_indicator = packet[6] >> 2 & 1;
    data->PES_copy_flag = packet[6] >> 1 & 1;
    data->original_or_copy = packet[6] & 1;
    data->PTS_DTS_flags = packet[7] >> 6;
    data->ESCR_flag = packet[7] >> 5 & 1;
    data->ES_rate_flag = packet[7] >> 4 & 1;
    data->trick_mode_flag = packet[7] >> 3 & 1;
    data->additional_copy_info_flag = packet[7] >> 2 & 1;
    data->PES_CRC_flag = packet[7] >> 1 & 1;
    data->PES_extension_flag = packet[7] & 1;
    data->PES_header_data_length = packet[8];
}

void readStamps(FieldReader& fields, PESParsedData* data) {
    if (data->PTS_DTS_flags < 2) {
        return;
    }
    if (const unsigned char* b = fields.take(5)) {
        data->PTS = timeStamp(b);
    }
    if (data->PTS_DTS_flags == 3) {
        if (const unsigned char* b = fields.take(5)) {
            data->DTS = timeStamp(b);
        }
    }
}

void readExtension(FieldReader& fields, PESParsedData* data) {
    const unsigned char* flags = fields.take(1);
    if (flags == nullptr) {
        return;
    }
    data->PES_private_data_flag = flags[0] >> 7;
    data->pack_header_field_flag = flags[0] >> 6 & 1;
    data->program_packet_sequence_counter_flag = flags[0] >> 5 & 1;
    data->P_STD_buffer_flag = flags[0] >> 4 & 1;
    data->PES_extension_flag_2 = flags[0] & 1;
    if (data->PES_private_data_flag != 0) {
        if (const unsigned char* b = fields.take(sizeof data->PES_private_data)) {
            memcpy(data->PES_private_data, b, sizeof data->PES_private_data);
        }
    }
    if (data->pack_header_field_flag != 0) {
        // Deliberate: only the length is consumed, not the pack header itself. See
        // PESPacketParserTest.OptionalFields.
        if (const unsigned char* b = fields.take(1)) {
            data->pack_field_length = b[0];
        }
    }
    if (data->program_packet_sequence_counter_flag != 0) {
        if (const unsigned char* b = fields.take(2)) {
            data->program_packet_sequence_counter = b[0] & 0x7F;
            data->MPEG1_MPEG2_identifier = b[1] >> 7;
            data->original_stuff_length = b[1] & 0x3F;
        }
    }
    if (data->P_STD_buffer_flag != 0) {
        if (const unsigned char* b = fields.take(2)) {
            data->P_STD_buffer_scale = b[0] >> 5 & 1;
            data->P_STD_buffer_size = static_cast<uint16_t>((b[0] & 0x1F) << 8 | b[1]);
        }
    }
    if (data->PES_extension_flag_2 != 0) {
        if (const unsigned char* b = fields.take(2)) {
            data->PES_extension_field_length = b[0] & 0x7F;
            data->stream_id_extension_flag = b[1] >> 7;
            if (data->stream_id_extension_flag == 0) {
                data->stream_id_extension = b[1] & 0x7F;
            }
        }
    }
}

void readOptionalFields(FieldReader fields, PESParsedData* data) {
    readStamps(fields, data);
    if (data->ESCR_flag != 0) {
        if (const unsigned char* b = fields.take(6)) {
            data->ESCR_base = uint64_t{b[0] & 0x38u} << 27 | uint64_t{b[0] & 0x03u} << 28 |
                              uint64_t{b[1]} << 20 | uint64_t{b[2] & 0xF8u} << 12 |
                              uint64_t{b[2] & 0x03u} << 13 | uint64_t{b[3]} << 5 |
                              uint64_t{b[4]} >> 3;
            data->ESCR_extension = static_cast<uint16_t>((b[4] & 0x03) << 7 | b[5] >> 1);
        }
    }
    if (data->ES_rate_flag != 0) {
        if (const unsigned char* b = fields.take(3)) {
            data->ES_rate = static_cast<uint32_t>((b[0] & 0x7F) << 15 | b[1] << 7 | b[2] >> 1);
        }
    }
    if (data->trick_mode_flag != 0) {
        fields.take(1);  // trick mode, not interpreted
    }
    if (data->additional_copy_info_flag != 0) {
        if (const unsigned char* b = fields.take(1)) {
            data->additional_copy_info = b[0] & 0x7F;
        }
    }
    if (data->PES_CRC_flag != 0) {
        if (const unsigned char* b = fields.take(2)) {
            data->previous_PES_packet_CRC = static_cast<uint16_t>(b[0] << 8 | b[1]);
        }
    }
    if (data->PES_extension_flag != 0) {
        readExtension(fields, data);
    }
}

}  // namespace

unsigned int PESPacketParser::parse(unsigned char* packet, unsigned int size, PESParsedData* data) {
    if (packet == nullptr || size == 0 || data == nullptr) {
        ORV_LOGE("%s - invalid parameter!\n", __func__);
        return 0;
    }
    unsigned char* payload = parseHeader(packet, static_cast<int>(size), data);
    if (payload == nullptr) {
        ORV_LOGE("%s - header parsing error!\n", __func__);
        return 0;
    }
    data->payload = payload;
    data->payload_size = size - static_cast<unsigned int>(payload - packet);
    return 1;
}

unsigned char* PESPacketParser::parseHeader(unsigned char* packet, int size, PESParsedData* data) {
    if (size < FIXED_HEADER_BYTES || packet[0] != 0 || packet[1] != 0 || packet[2] != 1) {
        ORV_LOGE("%s - start code not found!\n", __func__);
        return nullptr;
    }
    data->stream_id = packet[3];
    data->PES_packet_length = static_cast<uint16_t>(packet[4] << 8 | packet[5]);
    if (!hasOptionalHeader(data->stream_id)) {
        return packet + FIXED_HEADER_BYTES;
    }
    // A header that runs on behind the end leaves no payload to point at.
    if (size < OPTIONAL_HEADER_BYTES ||
        (beginsOptionalHeader(packet) && OPTIONAL_HEADER_BYTES + packet[8] > size)) {
        ORV_LOGE("%s - start code not found!\n", __func__);
        return nullptr;
    }
    unsigned char* payload = parseOptHeader(packet, size, data);
    return payload != nullptr ? payload : packet + FIXED_HEADER_BYTES;
}

unsigned char* PESPacketParser::parseOptHeader(unsigned char* packet, int size,
                                               PESParsedData* data) {
    if (!beginsOptionalHeader(packet)) {
        ORV_LOGE("%s - bad optional header start bits!\n", __func__);
        return nullptr;
    }
    readFlags(packet, data);
    readOptionalFields(FieldReader(packet + OPTIONAL_HEADER_BYTES, size - OPTIONAL_HEADER_BYTES),
                       data);
    // Located by the length alone, whatever the fields consumed.
    return packet + OPTIONAL_HEADER_BYTES + data->PES_header_data_length;
}

void PESPacketParser::printPESData(PESParsedData* data) {
    if (data == nullptr) {
        ORV_LOGI("%s - null parameter!\n", __func__);
    }
}

}  // namespace OrvPlayer
