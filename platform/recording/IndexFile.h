#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "recording/RecordingIndex.h"

namespace orvhost {

// NAME.index as bytes: a header of 64 and a record of 40 bytes for each point, in the machine's
// byte order, each with a check sum at its end. Records are appended; the header is written again
// when the recording is whole.
//
// A reader believes the records up to the first one that is damaged, cut off or goes back.

constexpr size_t INDEX_HEADER_BYTES = 64;
constexpr size_t INDEX_POINT_BYTES = 40;

// Recordings are told apart by so many bytes at their start: whole packets of any size.
constexpr size_t INDEX_HEAD_BYTES = 21 * TS_PACKET_BYTES;

uint64_t hashOfHead(const uint8_t* head, size_t size);

struct IndexHeader {
    IndexedProgramme programme;
    uint32_t packetBytes = TS_PACKET_BYTES;
    uint32_t headBytes = 0;  // at the start of the recording that the hash is of; 0: not known yet
    uint64_t headHash = 0;
    bool whole = false;  // the three below are known
    uint32_t pointCount = 0;
    uint64_t scannedBytes = 0;
    int64_t duration27M = 0;
};

void encodeIndexHeader(const IndexHeader& header, uint8_t out[INDEX_HEADER_BYTES]);
// `number` counts the records from 0 on.
void encodeIndexPoint(const RandomAccessPoint& point, uint32_t number,
                      uint8_t out[INDEX_POINT_BYTES]);

// Nothing when the header is none, or tells of a longer recording. Points beyond `recordingBytes`,
// and what follows them, are left out. The index ends at its last point unless it is whole.
struct DecodedIndex {
    IndexHeader header;
    RecordingIndex index;
};
std::optional<DecodedIndex> decodeIndex(const uint8_t* data, size_t size, uint64_t recordingBytes);

}  // namespace orvhost
