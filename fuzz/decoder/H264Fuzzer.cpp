// Video payloads through the H.264 extractor. Byte 0 is the room for units; then PES records
// follow: 12 bits of length, 4 of flags, and the payload.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "decoder/H264MediaExtractor.h"

#if __has_include(<sanitizer/asan_interface.h>)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, size) ((void)(address), (void)(size))
#define ASAN_UNPOISON_MEMORY_REGION(address, size) ((void)(address), (void)(size))
#endif

using namespace OrvPlayer;

namespace {

constexpr size_t GUARD_BYTES = 64;

enum RecordFlags : unsigned {
    STRANGE_BOUNDS = 1,  // fields that point outside the record
    RESET_WITHIN = 2,    // the extractor is reset in the middle of this record
    HARD_END = 4         // a read behind the record is reported
};

unsigned char* writeRecord(RingBuffer& ring, const uint8_t* payload, uint32_t size,
                           unsigned flags) {
    const uint32_t recordSize = PESData::FIXED_SIZE + size;
    unsigned char* at = ring.write(recordSize, RingBuffer::NON_BLOCKING);
    if (at == nullptr) {
        abort();
    }
    auto* record = new (at) PESData;
    record->mSize = recordSize;
    record->mPTS = 0x1FFFFFFFF;
    record->mOffsetES = (flags & STRANGE_BOUNDS) != 0 ? 0xFFFFFFFF - size : PESData::FIXED_SIZE;
    record->mSizeES = (flags & STRANGE_BOUNDS) != 0 ? 0xFFFFFFF0 : size;
    if ((flags & (STRANGE_BOUNDS | HARD_END)) == (STRANGE_BOUNDS | HARD_END)) {
        record->mOffsetES = PESData::FIXED_SIZE;
    }
    memcpy(at + PESData::FIXED_SIZE, payload, size);
    ring.writeAdvance(recordSize);
    return at + recordSize;
}

// Cuts everything that the ring buffer holds. Every call gets on: at worst it uses up a record.
void drain(RingBuffer& ring, H264MediaExtractor& extractor, unsigned char* out,
           unsigned long capacity, size_t payloadSize, bool reset) {
    size_t calls = 0;
    while (ring.getDataSize() != 0) {
        unsigned long size = 0;
        long long pts = 0;
        unsigned char flags = 0;
        const int status = extractor.getDecodableUnit(out, capacity, &size, &pts, &flags);
        if (status != MediaExtractor::STATUS_OK || size > capacity || size > payloadSize ||
            ++calls > 2 * payloadSize + 4) {
            abort();
        }
        if (reset) {
            extractor.reset();
            reset = false;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const android::sp<RingBuffer> ring = [] {
        android::sp<RingBuffer> made = new RingBuffer;
        made->configure("VideoPES RingBuffer", 16);
        return made;
    }();
    if (size < 1) {
        return 0;
    }
    const unsigned long capacity = (data[0] & 1) != 0 ? 64 : 8192;
    const std::unique_ptr<unsigned char[]> out(new unsigned char[capacity]);
    android::sp<H264MediaExtractor> extractor = new H264MediaExtractor(ring);
    for (size_t at = 1; at + 2 <= size;) {
        const unsigned head = static_cast<unsigned>(data[at] << 8 | data[at + 1]);
        at += 2;
        const auto length = static_cast<uint32_t>(std::min<size_t>(head >> 4, size - at));
        unsigned char* end = writeRecord(*ring, data + at, length, head);
        at += length;
        if ((head & HARD_END) != 0) {
            ASAN_POISON_MEMORY_REGION(end, GUARD_BYTES);
        }
        // A record at a strange place may reach into its own header: no more than the record.
        drain(*ring, *extractor, out.get(), capacity, length + PESData::FIXED_SIZE,
              (head & RESET_WITHIN) != 0);
        ASAN_UNPOISON_MEMORY_REGION(end, GUARD_BYTES);
    }
    extractor->reset();
    ring->reset();
    return 0;
}
