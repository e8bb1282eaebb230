// Caption packets through one decoder, which keeps what a code began over packets. Each is 12 bits
// of length, 4 of flags, and its bytes: a whole payload, or a data unit that is framed here.

#include <algorithm>
#include <cstring>
#include <vector>

#include "PesRecords.h"
#include "decoder/ClosedCaptionDecoder.h"

using namespace OrvPlayer;

namespace {

enum Flags : unsigned {
    WHOLE_PAYLOAD = 1,
    TIMED = 2,         // the frame has a time stamp
    STRANGE_SIZE = 4,  // the frame gives the unit 257 bytes more
    KEEP_SCREEN = 8    // the next packet goes on where this one ends
};

constexpr size_t GUARD_BYTES = 64;
constexpr unsigned MOST_TEXT = 3 * 32 * 4;

std::vector<uint8_t> payloadOf(const uint8_t* bytes, size_t size, unsigned flags) {
    if ((flags & WHOLE_PAYLOAD) != 0) {
        return {bytes, bytes + size};
    }
    std::vector<uint8_t> out{0x80, 0xFF, 0xF0, 4, 0, 0, 0, 0};
    if ((flags & TIMED) != 0) {
        out.insert(out.end(), {0x7F, 0, 0, 0, 0, 0});
    } else {
        out.push_back(0x3F);
    }
    const size_t said = size + ((flags & STRANGE_SIZE) != 0 ? 257 : 0);
    out.insert(out.end(), {0, 0, 0, 0x1F, 0x20, 0, static_cast<uint8_t>(said >> 8),
                           static_cast<uint8_t>(said)});
    out.insert(out.end(), bytes, bytes + size);
    return out;
}

android::sp<RingBuffer> captionRing() {
    static const android::sp<RingBuffer> ring = [] {
        android::sp<RingBuffer> made = new RingBuffer;
        made->configure("CC RingBuffer", 12);
        return made;
    }();
    return ring;
}

// A caption is there exactly when the decoder says so, and its text fits the screen.
void checkOutput(int result, ClosedCaptionDecoder& decoder) {
    RingBuffer& output = *captionRing();
    unsigned char* block =
        output.read(ClosedCaptionFragmentData::FIXED_SIZE, RingBuffer::NON_BLOCKING);
    if ((block != nullptr) != (result == ClosedCaptionDecoder::RESULT_WRITTEN)) {
        abort();
    }
    if (block == nullptr) {
        return;
    }
    const uint32_t size = reinterpret_cast<ClosedCaptionFragmentData*>(block)->mSize;
    const uint32_t text = size - ClosedCaptionFragmentData::FIXED_SIZE;
    if (size != output.getDataSize() || text == 0 || text > MOST_TEXT || text % 4 != 0 ||
        text != decoder.getCCSize()) {
        abort();
    }
    output.readAdvance(size);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const android::sp<ClosedCaptionDecoder> decoder = new ClosedCaptionDecoder;
    decoder->addOutput(captionRing(), nullptr);
    RingBuffer& input = *pesRing();
    for (size_t at = 0; at + 2 <= size;) {
        const unsigned head = static_cast<unsigned>(data[at] << 8 | data[at + 1]);
        at += 2;
        const size_t length = std::min<size_t>(head >> 4, size - at);
        const std::vector<uint8_t> payload = payloadOf(data + at, length, head);
        at += length;

        const auto recordSize = static_cast<uint32_t>(PESData::FIXED_SIZE + payload.size());
        unsigned char* block = input.write(recordSize, RingBuffer::NON_BLOCKING);
        auto* record = new (block) PESData;
        record->mSize = recordSize;
        record->mOffsetES = PESData::FIXED_SIZE;
        record->mSizeES = static_cast<uint32_t>(payload.size());
        std::copy(payload.begin(), payload.end(), block + PESData::FIXED_SIZE);
        input.writeAdvance(recordSize);
        ASAN_POISON_MEMORY_REGION(block + recordSize, GUARD_BYTES);
        const int result = decoder->processPacket(record);
        ASAN_UNPOISON_MEMORY_REGION(block + recordSize, GUARD_BYTES);
        checkOutput(result, *decoder);
        if ((head & KEEP_SCREEN) == 0) {
            decoder->clearScreenData();
        }
        input.reset();
    }
    return 0;
}
