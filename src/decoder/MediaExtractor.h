#pragma once

#include <utils/RefBase.h>

#include <cstdint>

#include "common/Data.h"
#include "common/RingBuffer.h"

namespace OrvPlayer {

// Cuts the units that a codec takes, whole pictures or sound frames, out of the PES records of a
// ring buffer and gives each its presentation time.
//
// One thread, the input thread of the decoder that owns the extractor, calls everything. Only
// reset() may come from another one, once that thread has ended.
class MediaExtractor : public virtual android::RefBase {
public:
    // What getDecodableUnit says of a unit.
    static constexpr unsigned char FLAG_CODEC_CONFIG = 0x01;
    static constexpr unsigned char FLAG_IDR = 0x02;
    static constexpr unsigned char FLAG_NEW_SPS = 0x10;

    enum Status : int {
        STATUS_OK = 0,        // `*size` is 0 when there was no unit this time
        STATUS_FAULT = 1,     // the ring buffer holds something that is not a record
        STATUS_NO_RECORD = 2  // none came within 100 ms, or the one at hand is used up
    };

    explicit MediaExtractor(const android::sp<RingBuffer>& ringBuffer);

    // Copies the next unit to `out`, which takes `capacity` bytes, and gives its time in 90 kHz
    // ticks.
    // May wait 100 ms for input. `*pts` is written only with a unit, `*size` and `*flags` always.
    virtual int getDecodableUnit(void* out, unsigned long capacity, unsigned long* size,
                                 long long* pts, unsigned char* flags) = 0;

    // Forgets the record at hand without consuming it, and what the extractor learnt of the stream.
    virtual void reset() = 0;

    // The size in pixels of the pictures being cut, as last announced in the stream; false for
    // sound and while none was announced. Whoever allocates by it bounds it first.
    virtual bool getVideoResolution(uint32_t* width, uint32_t* height) const;

protected:
    ~MediaExtractor() override;

    // Takes the next record, unless one is at hand already. With STATUS_OK it is at hand, its
    // payload is set and the read lock of the ring buffer is held, until one of the three below.
    // A record that is not whole stays where it is: that is logged in the name of `caller`, with
    // its size raised by `addedToPrintedSize`, and STATUS_FAULT comes after a wait of at most
    // 100 ms, so that a caller which tries again at once does not spin.
    int takeRecord(const char* caller, uint32_t addedToPrintedSize);
    // Releases the read lock and keeps the record at hand; harmless when the lock is free.
    void unlockRecord();
    // Consumes the record at hand and releases the read lock.
    void consumeRecord();
    // Forgets the record at hand, if any, and releases the read lock; the record stays unread.
    void dropRecord();

    const android::sp<RingBuffer> mRingBuffer;  // never null
    PESData* currentBlock = nullptr;            // the record at hand, in the ring buffer

    // The elementary-stream bytes of the record at hand. They are inside the record, whatever its
    // fields say.
    const unsigned char* payload = nullptr;
    uint32_t payloadSize = 0;
};

}  // namespace OrvPlayer
