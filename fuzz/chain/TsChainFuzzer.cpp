// Transport stream bytes through the parser and an extractor, as the player joins them. The first
// byte chooses the extractor, the packets per pass, whether every packet gets its sync byte, and
// the room for units.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "decoder/AACMediaExtractor.h"
#include "decoder/H264MediaExtractor.h"
#include "decoder/MP3MediaExtractor.h"
#include "tsparser/TSParser.h"

namespace {

using namespace OrvPlayer;
using android::sp;

constexpr unsigned RING_BYTES = 65536;
constexpr size_t LONGEST_INPUT = 1 << 17;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

struct Choice {
    explicit Choice(uint8_t byte)
        : extractor(byte & 3),
          packetsPerPass(1 + (byte >> 2 & 7)),
          sync((byte & 0x20) != 0),
          room((byte & 0x40) != 0 ? 64 : RING_BYTES) {}

    TSReceiverPIDType role() const { return extractor > 0 ? PID_TYPE_AUDIO : PID_TYPE_VIDEO; }

    sp<MediaExtractor> makeExtractor(const sp<RingBuffer>& records) const {
        switch (extractor) {
            case 1:
                return new MP3MediaExtractor(records);
            case 2:
                return new AACMediaExtractor(records, AACMediaExtractor::LOAS);
            case 3:
                return new AACMediaExtractor(records, AACMediaExtractor::ADTS);
            default:
                return new H264MediaExtractor(records);
        }
    }

    unsigned extractor;
    size_t packetsPerPass;
    bool sync;
    unsigned long room;
};

sp<RingBuffer> makeRing(const char* name) {
    sp<RingBuffer> ring = new RingBuffer;
    require(ring->configureWithSize(name, RING_BYTES) == 0);
    return ring;
}

void push(RingBuffer& input, const uint8_t* data, size_t size, bool sync) {
    const size_t padded = (size + TS_PACKET_BYTES - 1) / TS_PACKET_BYTES * TS_PACKET_BYTES;
    unsigned char* to = input.write(static_cast<unsigned>(padded), RingBuffer::NON_BLOCKING);
    require(to != nullptr);
    memset(to, 0xEE, padded);
    memcpy(to, data, size);
    for (size_t at = 0; sync && at < padded; at += TS_PACKET_BYTES) {
        to[at] = 0x47;
    }
    input.writeAdvance(padded);
}

// Cuts everything that the ring buffer holds. Every call gets on: a unit has at least a byte of its
// record, and at worst a call uses the record up.
void drain(RingBuffer& records, MediaExtractor& extractor, std::vector<uint8_t>& room) {
    size_t calls = 4 * static_cast<size_t>(records.getDataSize()) + 4;
    while (records.getDataSize() != 0) {
        unsigned long size = 0;
        long long pts = 0;
        unsigned char flags = 0;
        const int status =
            extractor.getDecodableUnit(room.data(), room.size(), &size, &pts, &flags);
        require(status != MediaExtractor::STATUS_FAULT && size <= room.size() && calls-- > 0);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return setenv("ORV_TRACE", "off", 1);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Mapping is slow: the rings are made once.
    static const sp<RingBuffer>& packets = *new sp<RingBuffer>(makeRing("packets"));
    static const sp<RingBuffer>& records = *new sp<RingBuffer>(makeRing("records"));
    if (size < 2 || size > LONGEST_INPUT) {
        return 0;
    }
    const Choice choice(*data++);
    --size;
    std::vector<uint8_t> room(choice.room);
    const sp<MediaExtractor> extractor = choice.makeExtractor(records);
    const sp<TSParser> parser = new TSParser(choice.role());
    parser->setInput(packets);
    parser->addOutput(records, nullptr);
    require(parser->open([&] { drain(*records, *extractor, room); }) == 0);
    const size_t slice = TS_PACKET_BYTES * choice.packetsPerPass;
    bool goesOn = true;
    for (size_t at = 0; goesOn && at < size; at += slice) {
        push(*packets, data + at, std::min(slice, size - at), choice.sync);
        goesOn = parser->parsePass();
        drain(*records, *extractor, room);
    }
    require(goesOn || choice.role() == PID_TYPE_VIDEO);  // only scrambling ends it
    parser->stop();
    extractor->reset();
    packets->reset();
    records->reset();
    return 0;
}
