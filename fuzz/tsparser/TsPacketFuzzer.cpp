// TS packets one after the other through one packet parser, each in memory of exactly its size and
// gone before the next. The first byte says whether every packet gets its sync byte and whether
// payloads are retained.

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "tsparser/TSPacketParser.h"

namespace {

using OrvPlayer::TS_PACKET_BYTES;
using OrvPlayer::TSPacketParser;
using OrvPlayer::TSParsedData;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

unsigned sumOf(const uint8_t* bytes, uint32_t size) {
    unsigned sum = 0;
    std::for_each(bytes, bytes + size, [&sum](uint8_t byte) { sum += byte; });
    return sum;
}

void check(unsigned result, const TSParsedData& data) {
    static constexpr unsigned KNOWN[] = {1, 2, 3, 6, 8, 17, 65, 129, 255};
    require(std::find(std::begin(KNOWN), std::end(KNOWN), result) != std::end(KNOWN));
    require(data.payload_size <= 184);
    require(data.program_clock_reference_base >> 33 == 0 && data.DTS_next_AU >> 33 == 0);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return setenv("ORV_TRACE", "off", 1);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const uint8_t choice = data[0];
    TSPacketParser parser;
    TSParsedData record;
    const uint8_t* firstPrivate = nullptr;
    unsigned sum = 0;
    for (size_t at = 1; at < size; at += TS_PACKET_BYTES) {
        const auto packet = std::make_unique<unsigned char[]>(TS_PACKET_BYTES);
        std::copy_n(data + at, std::min<size_t>(TS_PACKET_BYTES, size - at), packet.get());
        if ((choice & 1) != 0) {
            packet[0] = 0x47;
        }
        const unsigned result = parser.parse(packet.get(), &record);
        check(result, record);
        if (!TSPacketParser::isHeaderError(result) &&
            (result & TSPacketParser::RESULT_APPEND) != 0 &&
            ((choice & 2) != 0 || (result & TSPacketParser::RESULT_DISCARD) == 0)) {
            sum += sumOf(record.payload, record.payload_size);
        }
        if (record.private_data_byte != nullptr) {
            sum += sumOf(record.private_data_byte, record.transport_private_data_length);
            firstPrivate = firstPrivate != nullptr ? firstPrivate : record.private_data_byte;
        }
        if ((choice & 2) != 0) {
            parser.retainPayload(&record);
        }
    }
    if (firstPrivate != nullptr) {
        sum += *firstPrivate;  // an old copy stays readable
    }
    return sum == 0xFFFFFFFF ? -1 : 0;  // the sum is looked at, so the reads happen
}
