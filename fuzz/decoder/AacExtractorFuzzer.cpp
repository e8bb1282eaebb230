// PES records through the AAC extractor. Byte 0 is the framing and the room for units; then records
// follow: 12 bits of length, 4 of flags, and the payload.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "decoder/AACMediaExtractor.h"

using namespace OrvPlayer;

namespace {

enum RecordFlags : unsigned {
    STRANGE_BOUNDS = 1,  // fields that point outside the record
    RESET_BEFORE = 2,    // the extractor is reset in the middle of this record
    KEEP_UNREAD = 4      // written together with the next record
};

void writeRecord(RingBuffer& ring, const uint8_t* payload, uint32_t size, unsigned flags) {
    const uint32_t recordSize = PESData::FIXED_SIZE + size;
    unsigned char* at = ring.write(recordSize, RingBuffer::NON_BLOCKING);
    if (at == nullptr) {
        return;
    }
    auto* record = new (at) PESData;
    record->mSize = recordSize;
    record->mPTS = 0x1FFFFFFFF;
    record->mOffsetES = (flags & STRANGE_BOUNDS) != 0 ? 0xFFFFFFFF - size : PESData::FIXED_SIZE;
    record->mSizeES = (flags & STRANGE_BOUNDS) != 0 ? 0xFFFFFFF0 : size;
    memcpy(at + PESData::FIXED_SIZE, payload, size);
    ring.writeAdvance(recordSize);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const android::sp<RingBuffer> ring = [] {
        android::sp<RingBuffer> made = new RingBuffer;
        made->configure("AudioPES RingBuffer", 16);
        return made;
    }();
    if (size < 1) {
        return 0;
    }
    std::vector<uint8_t> out((data[0] & 2) != 0 ? 64 : 8192);
    android::sp<AACMediaExtractor> extractor = new AACMediaExtractor(
        ring, (data[0] & 1) != 0 ? AACMediaExtractor::ADTS : AACMediaExtractor::LOAS);
    size_t calls = 0;
    for (size_t at = 1; at + 2 <= size;) {
        const unsigned head = static_cast<unsigned>(data[at] << 8 | data[at + 1]);
        at += 2;
        const auto length = static_cast<uint32_t>(std::min<size_t>(head >> 4, size - at));
        writeRecord(*ring, data + at, length, head);
        at += length;
        bool resetDue = (head & RESET_BEFORE) != 0;
        while (ring->getDataSize() != 0 && (head & KEEP_UNREAD) == 0) {
            unsigned long unitSize = 0;
            long long pts = 0;
            unsigned char flags = 0;
            const int status =
                extractor->getDecodableUnit(out.data(), out.size(), &unitSize, &pts, &flags);
            if (++calls > 4 * size + 16 || unitSize > out.size() ||
                status == MediaExtractor::STATUS_FAULT) {
                abort();
            }
            if (resetDue) {
                extractor->reset();
                resetDue = false;
            }
        }
    }
    extractor->reset();
    ring->reset();
    return 0;
}
