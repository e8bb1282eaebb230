// Transport stream bytes through a whole parser between two ring buffers, on this thread. The first
// byte chooses the role, the packets per pass and whether every packet gets its sync byte; the
// consumed bytes are overwritten between two passes.

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "support/FakeRecPlayer.h"
#include "tsparser/TSParser.h"

namespace {

using namespace OrvPlayer;

constexpr unsigned RING_BYTES = 65536;
// All of it fits into the output, so no pass ever waits for a reader.
constexpr size_t LONGEST_INPUT = RING_BYTES / 2;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// Mapping is slow: the rings are made once.
struct Rings {
    android::sp<RingBuffer> input = new RingBuffer;
    android::sp<RingBuffer> output = new RingBuffer;
    Rings() {
        require(input->configureWithSize("in", RING_BYTES) == 0);
        require(output->configureWithSize("out", RING_BYTES) == 0);
    }
};

void push(RingBuffer& input, const uint8_t* data, size_t size, bool sync) {
    const size_t padded = (size + TS_PACKET_BYTES - 1) / TS_PACKET_BYTES * TS_PACKET_BYTES;
    unsigned char* to = input.write(RING_BYTES, RingBuffer::NON_BLOCKING);
    require(to != nullptr);
    memset(to, 0xEE, RING_BYTES);
    memcpy(to, data, size);
    for (size_t at = 0; sync && at < padded; at += TS_PACKET_BYTES) {
        to[at] = 0x47;
    }
    input.writeAdvance(padded);
}

void drain(RingBuffer& output) {
    while (unsigned char* bytes = output.read(PESData::FIXED_SIZE, RingBuffer::NON_BLOCKING)) {
        const auto* record = reinterpret_cast<const PESData*>(bytes);
        require(record->mType == Data::PES);
        require(record->mSize >= PESData::FIXED_SIZE + 6 && record->mSize <= output.getDataSize());
        require(record->mOffsetES >= PESData::FIXED_SIZE + 6 && record->mOffsetES <= record->mSize);
        require(record->mSizeES == record->mSize - record->mOffsetES);
        output.readAdvance(record->mSize);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return setenv("ORV_TRACE", "off", 1);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Rings& rings = *new Rings;
    if (size < 2 || size > LONGEST_INPUT) {
        return 0;
    }
    const uint8_t choice = *data++;
    --size;
    const int role = choice & 3;
    const size_t slice = TS_PACKET_BYTES * (1 + (choice >> 2 & 7));
    const bool sync = (choice & 0x20) != 0;

    const android::sp<TSParser> parser = new TSParser(role);
    parser->setInput(rings.input);
    parser->addOutput(rings.output, nullptr);
    parser->configure(new Synchronization);
    parser->setNotifyAudioPTS(true);
    require(parser->open() == 0);
    bool goesOn = true;
    for (size_t at = 0; goesOn && at < size; at += slice) {
        push(*rings.input, data + at, std::min(slice, size - at), sync);
        goesOn = parser->parsePass();
        drain(*rings.output);
    }
    require(goesOn || role == PID_TYPE_VIDEO);  // only scrambling ends it
    parser->stop();
    rings.input->reset();
    rings.output->reset();
    orvtest::FakeRecPlayer::instance().take();
    return 0;
}
