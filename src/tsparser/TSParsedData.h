#pragma once

#include <cstdint>

namespace OrvPlayer {

// What one TS packet says (ISO/IEC 13818-1, 2.4.3); the fields carry the names of the syntax.
//
// One record is used for packet after packet: a field that a packet does not carry keeps the value
// of the last packet that did, flags of the adaptation field included.
struct TSParsedData {
    uint8_t transport_error_indicator = 0;
    uint8_t payload_unit_start_indicator = 0;
    uint8_t transport_priority = 0;
    uint16_t PID = 0xFFFF;
    uint8_t transport_scrambling_control = 0;
    uint8_t adaptation_field_control = 0;
    uint8_t continuity_counter = 0;
    uint8_t adaptation_field_length = 0;
    uint8_t discontinuity_indicator = 0;
    uint8_t random_access_indicator = 0;
    uint8_t elementary_stream_priority_indicator = 0;
    uint8_t PCR_flag = 0;
    uint8_t OPCR_flag = 0;
    uint8_t splicing_point_flag = 0;
    uint8_t transport_private_data_flag = 0;
    uint8_t adaptation_field_extension_flag = 0;
    uint64_t program_clock_reference_base = 0;
    uint16_t program_clock_reference_extension = 0;  // narrowed to 8 bits, see TSPacketParser
    uint64_t original_program_clock_reference_base = 0;
    uint16_t original_program_clock_reference_extension = 0;
    uint8_t splice_countdown = 0;
    uint8_t transport_private_data_length = 0;
    // A copy in the packet parser's keeping, see TSPacketParser; null without private data.
    uint8_t* private_data_byte = nullptr;
    uint8_t adaptation_field_extension_length = 0;
    uint8_t ltw_flag = 0;              // 0x80 or 0
    uint8_t piecewise_rate_flag = 0;   // 0x40 or 0
    uint8_t seamless_splice_flag = 0;  // 0x20 or 0
    uint8_t ltw_valid_flag = 0;
    uint16_t ltw_offset = 0;
    uint32_t piecewise_rate = 0;
    uint8_t splice_type = 0;
    uint64_t DTS_next_AU = 0;
    uint8_t* payload = nullptr;  // inside the caller's packet
    uint32_t payload_size = 0;   // bytes
};

}  // namespace OrvPlayer
