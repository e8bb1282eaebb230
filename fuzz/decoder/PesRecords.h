#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "decoder/MediaExtractor.h"

#if __has_include(<sanitizer/asan_interface.h>)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, size) ((void)(address), (void)(size))
#define ASAN_UNPOISON_MEMORY_REGION(address, size) ((void)(address), (void)(size))
#endif

namespace OrvPlayer {

// Runs fuzz data through an extractor. Byte 0 is the caller's; then PES records follow: 12 bits of
// length, 4 of flags, and the payload.
class PesRecords {
public:
    enum Flags : unsigned {
        STRANGE_BOUNDS = 1,  // fields that point outside the record; with HARD_END only the size
        RESET_WITHIN = 2,    // the extractor is reset in the middle of this record
        HARD_END = 4,        // a read behind the record is reported
        KEEP_UNREAD = 8      // written together with the next record
    };

    PesRecords(RingBuffer& ring, MediaExtractor& extractor, unsigned long capacity)
        : mRing(ring),
          mExtractor(extractor),
          mCapacity(capacity),
          mOut(new unsigned char[capacity]) {}

    // Everything ends in a bounded number of calls and no unit is larger than the room for it.
    void run(const uint8_t* data, size_t size) {
        for (size_t at = 1; at + 2 <= size;) {
            const unsigned head = static_cast<unsigned>(data[at] << 8 | data[at + 1]);
            at += 2;
            const auto length = static_cast<uint32_t>(std::min<size_t>(head >> 4, size - at));
            unsigned char* end = write(data + at, length, head);
            at += length;
            if ((head & KEEP_UNREAD) != 0) {
                continue;
            }
            if (end != nullptr && (head & HARD_END) != 0) {
                ASAN_POISON_MEMORY_REGION(end, GUARD_BYTES);
            }
            drain(4 * size + 16, (head & RESET_WITHIN) != 0);
            if (end != nullptr) {
                ASAN_UNPOISON_MEMORY_REGION(end, GUARD_BYTES);
            }
        }
        mExtractor.reset();
        mRing.reset();
    }

private:
    static constexpr size_t GUARD_BYTES = 64;

    // The record's end; null when there is no room.
    unsigned char* write(const uint8_t* payload, uint32_t size, unsigned flags) {
        const uint32_t recordSize = PESData::FIXED_SIZE + size;
        unsigned char* at = mRing.write(recordSize, RingBuffer::NON_BLOCKING);
        if (at == nullptr) {
            return nullptr;
        }
        auto* record = new (at) PESData;
        const bool strange = (flags & STRANGE_BOUNDS) != 0;
        record->mSize = recordSize;
        record->mPTS = 0x1FFFFFFFF;
        record->mOffsetES =
            strange && (flags & HARD_END) == 0 ? 0xFFFFFFFF - size : PESData::FIXED_SIZE;
        record->mSizeES = strange ? 0xFFFFFFF0 : size;
        memcpy(at + PESData::FIXED_SIZE, payload, size);
        mRing.writeAdvance(recordSize);
        return at + recordSize;
    }

    void drain(size_t mostCalls, bool reset) {
        for (size_t calls = 0; mRing.getDataSize() != 0; calls++) {
            unsigned long size = 0;
            long long pts = 0;
            unsigned char flags = 0;
            const int status =
                mExtractor.getDecodableUnit(mOut.get(), mCapacity, &size, &pts, &flags);
            if (status == MediaExtractor::STATUS_FAULT || size > mCapacity || calls > mostCalls) {
                abort();
            }
            if (reset) {
                mExtractor.reset();
                reset = false;
            }
        }
    }

    RingBuffer& mRing;
    MediaExtractor& mExtractor;
    const unsigned long mCapacity;
    const std::unique_ptr<unsigned char[]> mOut;
};

inline android::sp<RingBuffer> pesRing() {
    static const android::sp<RingBuffer> ring = [] {
        android::sp<RingBuffer> made = new RingBuffer;
        made->configure("PES RingBuffer", 16);
        return made;
    }();
    return ring;
}

}  // namespace OrvPlayer
