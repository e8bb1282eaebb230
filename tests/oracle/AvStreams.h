#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/codec_id.h>
}

#include "support/AacFrames.h"

// What libavformat and the parsers of libavcodec find in a transport stream.
namespace orvtest {

struct PesPacket {
    int streamId = 0;
    int64_t pts = 0;  // 33 bits of 90 kHz
    int64_t dts = 0;  // the presentation time where the packet has no other
    Bytes payload;
};

// Of every PID that the tables name, in order. The last packet of each is as long as the file
// leaves it.
std::map<int, std::vector<PesPacket>> readPesPackets(const std::string& file);

struct ParsedUnit {
    int64_t pts = 0;  // of its PES packet or, behind the first in it, `duration` more than before
    bool isKey = false;
    Bytes bytes;
};

// What the parser for `codec` cuts out of these payloads; of AAC, the whole frames.
std::vector<ParsedUnit> parseUnits(AVCodecID codec, const std::vector<PesPacket>& packets,
                                   int64_t duration);

}  // namespace orvtest
