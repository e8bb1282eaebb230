#pragma once

#include <utils/RefBase.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "common/RingBuffer.h"

namespace orvbench {

using Bytes = std::vector<uint8_t>;

// A stream of the sample broadcast, as the stages of the pipeline see it.
struct SampleStream {
    Bytes packets;               // its TS packets, one behind the other
    std::vector<Bytes> records;  // its PES packets, as the records of a PES ring
    uint64_t payloadBytes = 0;   // of all records: the elementary stream

    // The elementary-stream bytes of one record.
    static const uint8_t* payload(const Bytes& record, uint32_t* size);
};

// What the benchmarks read, loaded once: the file that the environment variable ORV_BENCH_SAMPLE
// names, or the one that the build makes. The program ends when there is none.
struct Sample {
    SampleStream video;     // H.264, 1080i
    SampleStream loas;      // AAC in LOAS
    SampleStream adts;      // AAC in ADTS
    uint64_t fileSize = 0;  // bytes

    static const Sample& get();
};

// A full ring buffer that can be read again and again: its contents fit its size to the byte, so
// that committing them anew, untouched, costs nothing.
class RepeatedRing {
public:
    // As many whole records as `maxBytes` hold, and an empty PES record that fills up.
    static std::unique_ptr<RepeatedRing> ofRecords(const std::vector<Bytes>& records,
                                                   uint32_t maxBytes);
    // As many packets as go into whole pages.
    static std::unique_ptr<RepeatedRing> ofPackets(const Bytes& packets, uint32_t maxBytes);

    // Makes the contents readable, all of it; they have been read before.
    void refill();

    const android::sp<OrvPlayer::RingBuffer> ring;
    uint64_t payloadBytes = 0;  // of the records, or all bytes of the packets
    size_t count = 0;           // records or packets

private:
    explicit RepeatedRing(const Bytes& contents);
};

}  // namespace orvbench
