// PES packets through one packet parser, each in memory of exactly its size. Every packet of the
// input: its length, then its bytes behind the start code, which is put in front.

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "tsparser/PESPacketParser.h"

namespace {

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return setenv("ORV_TRACE", "off", 1);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static constexpr unsigned char START_CODE[] = {0, 0, 1};
    OrvPlayer::PESPacketParser parser;
    OrvPlayer::PESParsedData record;
    while (size > 0) {
        const size_t rest = std::min<size_t>(data[0], size - 1);
        const size_t length = rest + sizeof START_CODE;
        const auto packet = std::make_unique<unsigned char[]>(length);
        std::copy_n(START_CODE, sizeof START_CODE, packet.get());
        std::copy_n(data + 1, rest, packet.get() + sizeof START_CODE);
        if (parser.parse(packet.get(), static_cast<unsigned>(length), &record) != 0) {
            require(record.payload >= packet.get() + 6);
            require(record.payload + record.payload_size == packet.get() + length);
            require(record.PTS >> 33 == 0 && record.DTS >> 33 == 0 && record.ESCR_base >> 33 == 0);
        }
        data += 1 + rest;
        size -= 1 + rest;
    }
    return 0;
}
