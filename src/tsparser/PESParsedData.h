#pragma once

#include <cstdint>

#include "common/Uint33.h"

namespace OrvPlayer {

// What the header of one PES packet says (ISO/IEC 13818-1, 2.4.3.6); the fields carry the names of
// the syntax. One record is used for packet after packet: a field that a packet does not carry
// keeps its value.
struct PESParsedData {
    uint8_t stream_id = 0;
    uint16_t PES_packet_length = 0;
    uint8_t PES_scrambling_control = 0;
    uint8_t PES_priority = 0;
    uint8_t data_alignment_indicator = 0;
    uint8_t PES_copy_flag = 0;
    uint8_t original_or_copy = 0;
    uint8_t PTS_DTS_flags = 0;
    uint8_t ESCR_flag = 0;
    uint8_t ES_rate_flag = 0;
    uint8_t trick_mode_flag = 0;
    uint8_t additional_copy_info_flag = 0;
    uint8_t PES_CRC_flag = 0;
    uint8_t PES_extension_flag = 0;
    uint8_t PES_header_data_length = 0;
    Uint33 PTS = 0;
    Uint33 DTS = 0;
    uint64_t ESCR_base = 0;
    uint16_t ESCR_extension = 0;
    uint32_t ES_rate = 0;
    uint8_t additional_copy_info = 0;
    uint16_t previous_PES_packet_CRC = 0;
    uint8_t PES_private_data_flag = 0;
    uint8_t pack_header_field_flag = 0;
    uint8_t program_packet_sequence_counter_flag = 0;
    uint8_t P_STD_buffer_flag = 0;
    uint8_t PES_extension_flag_2 = 0;
    uint8_t PES_private_data[16] = {};
    uint8_t pack_field_length = 0;
    uint8_t program_packet_sequence_counter = 0;
    uint8_t MPEG1_MPEG2_identifier = 0;
    uint8_t original_stuff_length = 0;
    uint8_t P_STD_buffer_scale = 0;
    uint16_t P_STD_buffer_size = 0;
    uint8_t PES_extension_field_length = 0;
    uint8_t stream_id_extension_flag = 0;
    uint8_t stream_id_extension = 0;
    uint8_t* payload = nullptr;  // inside the caller's buffer
    uint32_t payload_size = 0;   // bytes
};

}  // namespace OrvPlayer
