#include "Sample.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <new>

#include "common/Data.h"
#include "tsparser/TSParser.h"

namespace orvbench {

using OrvPlayer::PESData;
using OrvPlayer::RingBuffer;

namespace {

constexpr size_t PACKET = OrvPlayer::TS_PACKET_BYTES;
constexpr size_t PAGE = 4096;

// Where mksample puts the streams.
constexpr unsigned VIDEO_PID = 273;
constexpr unsigned LOAS_PID = 274;
constexpr unsigned ADTS_PID = 386;

[[noreturn]] void fail(const char* text, const char* what) {
    fprintf(stderr, "orv_bench: %s: %s\n", text, what);
    exit(1);
}

android::sp<RingBuffer> makeRing(size_t size) {
    android::sp<RingBuffer> ring = new RingBuffer;
    if (ring->configureWithSize("bench", static_cast<unsigned>(size)) != 0) {
        fail("no ring buffer", "out of memory");
    }
    return ring;
}

void append(RingBuffer& ring, const uint8_t* bytes, size_t size) {
    unsigned char* to = ring.write(static_cast<unsigned>(size), RingBuffer::NON_BLOCKING);
    if (to == nullptr) {
        fail("no room", "ring buffer");
    }
    memcpy(to, bytes, size);
    ring.writeAdvance(size);
}

SampleStream streamOf(const Bytes& file, unsigned pid, int role) {
    constexpr size_t PACKETS_PER_PASS = 1024;
    SampleStream stream;
    for (size_t at = 0; at + PACKET <= file.size(); at += PACKET) {
        if (((file[at + 1] & 0x1Fu) << 8 | file[at + 2]) == pid) {
            stream.packets.insert(stream.packets.end(), &file[at], &file[at] + PACKET);
        }
    }
    const android::sp<RingBuffer> input = makeRing(1 << 20);
    const android::sp<RingBuffer> output = makeRing(1 << 23);
    const android::sp<OrvPlayer::TSParser> parser = new OrvPlayer::TSParser(role);
    parser->setInput(input);
    parser->addOutput(output, nullptr);
    parser->open();
    for (size_t at = 0; at < stream.packets.size(); at += PACKETS_PER_PASS * PACKET) {
        append(*input, &stream.packets[at],
               std::min(PACKETS_PER_PASS * PACKET, stream.packets.size() - at));
        parser->parsePass();
        while (output->getDataSize() > 0) {
            unsigned char* bytes = output->read(PESData::FIXED_SIZE, RingBuffer::NON_BLOCKING);
            const auto* record = reinterpret_cast<const PESData*>(bytes);
            stream.records.emplace_back(bytes, bytes + record->mSize);
            stream.payloadBytes += record->mSizeES;
            output->readAdvance(record->mSize);
        }
    }
    parser->stop();
    if (stream.records.empty()) {
        fail("the sample lacks a stream", "make it with mksample");
    }
    return stream;
}

}  // namespace

const uint8_t* SampleStream::payload(const Bytes& record, uint32_t* size) {
    const auto* fields = reinterpret_cast<const PESData*>(record.data());
    *size = fields->mSizeES;
    return record.data() + fields->mOffsetES;
}

const Sample& Sample::get() {
    static const Sample sample = [] {
        const char* named = getenv("ORV_BENCH_SAMPLE");
        const char* name = named != nullptr ? named : ORV_BENCH_DEFAULT_SAMPLE;
        std::ifstream stream(name, std::ios::binary);
        const Bytes file{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
        if (file.empty()) {
            fail(name, "cannot be read");
        }
        Sample made;
        made.fileSize = file.size();
        made.video = streamOf(file, VIDEO_PID, OrvPlayer::PID_TYPE_VIDEO);
        made.loas = streamOf(file, LOAS_PID, OrvPlayer::PID_TYPE_AUDIO);
        made.adts = streamOf(file, ADTS_PID, OrvPlayer::PID_TYPE_AUDIO);
        return made;
    }();
    return sample;
}

RepeatedRing::RepeatedRing(const Bytes& contents) : ring(makeRing(contents.size())) {
    append(*ring, contents.data(), contents.size());
}

std::unique_ptr<RepeatedRing> RepeatedRing::ofRecords(const std::vector<Bytes>& records,
                                                      uint32_t maxBytes) {
    Bytes contents;
    uint64_t payloadBytes = 0;
    size_t count = 0;
    for (const Bytes& record : records) {
        if (contents.size() + record.size() + PESData::FIXED_SIZE + PAGE > maxBytes) {
            break;
        }
        uint32_t size;
        SampleStream::payload(record, &size);
        payloadBytes += size;
        contents.insert(contents.end(), record.begin(), record.end());
        contents.resize((contents.size() + 3) / 4 * 4);
        ++count;
    }
    const size_t filler = contents.size();
    contents.resize((filler + PESData::FIXED_SIZE + PAGE - 1) / PAGE * PAGE);
    auto* empty = new (&contents[filler]) PESData;
    empty->mSize = static_cast<uint32_t>(contents.size() - filler);
    empty->mOffsetES = empty->mSize;
    std::unique_ptr<RepeatedRing> made(new RepeatedRing(contents));
    made->payloadBytes = payloadBytes;
    made->count = count;
    return made;
}

std::unique_ptr<RepeatedRing> RepeatedRing::ofPackets(const Bytes& packets, uint32_t maxBytes) {
    constexpr size_t UNIT = PAGE / 4 * PACKET;  // 188 is 4 times 47: whole pages, whole packets
    const size_t size = std::min<size_t>(packets.size(), maxBytes) / UNIT * UNIT;
    std::unique_ptr<RepeatedRing> made(
        new RepeatedRing(Bytes(packets.begin(), packets.begin() + static_cast<ptrdiff_t>(size))));
    made->payloadBytes = size;
    made->count = size / PACKET;
    return made;
}

void RepeatedRing::refill() {
    ring->write(ring->getSize(), RingBuffer::NON_BLOCKING);
    ring->writeAdvance(ring->getSize());
}

}  // namespace orvbench
