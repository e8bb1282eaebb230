#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace orvtest {

// The payload of a caption PES packet (ARIB STD-B24, volume 1, part 3): a data group with caption
// data that holds one data unit. Every field may be set wrong.
struct CaptionPacket {
    std::string unit = {};  // the bytes of the data unit
    uint8_t dataIdentifier = 0x80;
    uint8_t headerLength = 0;  // PES_data_packet_header_length; that many bytes are there
    uint8_t timeControlMode = 0;
    uint8_t unitSeparator = 0x1F;
    uint8_t unitParameter = 0x20;
    int64_t unitSize = -1;  // what the packet says; -1 for the truth

    std::vector<uint8_t> bytes() const {
        std::vector<uint8_t> out{dataIdentifier, 0xFF, static_cast<uint8_t>(0xF0 | headerLength)};
        // Stuffing, and from here on reserved bits, that would be codes of a caption if read as
        // one.
        out.insert(out.end(), headerLength & 0x0F, 0x1F);
        const bool timed = timeControlMode == 1 || timeControlMode == 2;
        const std::vector<uint8_t> unitHeader = sizedUnit();
        const size_t loop = unitHeader.size() + unit.size();
        const size_t group = (timed ? 6 : 1) + 3 + loop;
        out.insert(out.end(), {0x04, 0, 0, byteOf(group, 1), byteOf(group, 0)});
        out.push_back(static_cast<uint8_t>(timeControlMode << 6 | 0x3F));
        if (timed) {
            out.insert(out.end(), {0x12, 0x34, 0x56, 0x78, 0x9F});
        }
        out.insert(out.end(), {byteOf(loop, 2), byteOf(loop, 1), byteOf(loop, 0)});
        out.insert(out.end(), unitHeader.begin(), unitHeader.end());
        out.insert(out.end(), unit.begin(), unit.end());
        return out;
    }

private:
    static uint8_t byteOf(size_t value, int index) {
        return static_cast<uint8_t>(value >> (8 * index));
    }
    std::vector<uint8_t> sizedUnit() const {
        const size_t size = unitSize < 0 ? unit.size() : static_cast<size_t>(unitSize);
        return {unitSeparator, unitParameter, byteOf(size, 2), byteOf(size, 1), byteOf(size, 0)};
    }
};

}  // namespace orvtest
