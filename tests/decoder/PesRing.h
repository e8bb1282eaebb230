#pragma once

#include <gtest/gtest.h>
#include <utils/RefBase.h>

#include <algorithm>
#include <cstdint>
#include <new>
#include <ostream>
#include <vector>

#include "common/Data.h"
#include "common/RingBuffer.h"
#include "decoder/MediaExtractor.h"

#if __has_include(<sanitizer/asan_interface.h>)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, size) ((void)(address), (void)(size))
#define ASAN_UNPOISON_MEMORY_REGION(address, size) ((void)(address), (void)(size))
#endif

namespace OrvPlayer {

// The writing end of a PES ring buffer, and what comes out of an extractor at its reading end. The
// address sanitizer reports a read behind the record written last.
class PesRing {
public:
    using Bytes = std::vector<uint8_t>;

    struct Unit {
        Bytes bytes;
        long long pts;
        unsigned flags = 0;

        bool operator==(const Unit&) const = default;
        friend std::ostream& operator<<(std::ostream& out, const Unit& unit) {
            return out << "{" << ::testing::PrintToString(unit.bytes) << " pts " << unit.pts
                       << " flags " << unit.flags << "}";
        }
    };

    explicit PesRing(unsigned sizeExponent = 16) : buffer(new RingBuffer) {
        EXPECT_EQ(buffer->configure("PES of a test", sizeExponent), 0);
    }
    ~PesRing() { unpoison(); }

    // One record; `header` stands between its fixed part and the payload, as a PES header does.
    PESData* push(uint64_t pts, const Bytes& payload, const Bytes& header = {}) {
        unpoison();
        const auto size = static_cast<uint32_t>(40 + header.size() + payload.size());
        unsigned char* start = buffer->write(size, RingBuffer::NON_BLOCKING);
        EXPECT_NE(start, nullptr);
        auto* record = new (start) PESData;
        record->mSize = size;
        record->mPTS = pts;
        record->mOffsetES = static_cast<uint32_t>(40 + header.size());
        record->mSizeES = static_cast<uint32_t>(payload.size());
        std::ranges::copy(header, start + 40);
        std::ranges::copy(payload, start + 40 + header.size());
        buffer->writeAdvance(size);
        mPoisoned = start + size;
        ASAN_POISON_MEMORY_REGION(mPoisoned, POISONED_BYTES);
        return record;
    }

    // Calls until every record is consumed, so no call has to wait for one.
    std::vector<Unit> drain(MediaExtractor& extractor, unsigned long capacity = 65536) {
        std::vector<Unit> units;
        for (int calls = 0; buffer->getDataSize() > 0; ++calls) {
            if (calls == 100'000) {
                ADD_FAILURE() << "endless";
                break;
            }
            Unit unit = next(extractor, capacity);
            if (!unit.bytes.empty()) {
                units.push_back(std::move(unit));
            }
        }
        return units;
    }

    // One call; without bytes when no unit came.
    Unit next(MediaExtractor& extractor, unsigned long capacity = 65536) {
        Bytes out(capacity);
        unsigned long size = 12345;
        long long pts = -1;
        unsigned char flags = 0xFF;
        EXPECT_NE(extractor.getDecodableUnit(out.data(), capacity, &size, &pts, &flags),
                  MediaExtractor::STATUS_FAULT);
        EXPECT_LE(size, capacity);
        out.resize(std::min(size, capacity));
        return {out, pts, flags};
    }

    const android::sp<RingBuffer> buffer;

private:
    static constexpr size_t POISONED_BYTES = 64;

    void unpoison() {
        if (mPoisoned != nullptr) {
            ASAN_UNPOISON_MEMORY_REGION(mPoisoned, POISONED_BYTES);
        }
    }

    unsigned char* mPoisoned = nullptr;
};

}  // namespace OrvPlayer
