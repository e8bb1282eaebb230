#pragma once

#include <cstddef>
#include <cstdint>

namespace orvhost {

// Finds the packets in a run of bytes: past leading garbage, over slips inside, in packets of 188
// bytes or with 4 bytes of time stamp (192) or 16 of parity (204) between them.
//
//   bytes in:   ..junk.. [47 A ] [47 B | [47 C ] [47 D ]      (the end of B is missing)
//   in place:   [47 A ] [47 C ] [47 D ]                       (B is dropped: C begins inside it)
//
// A packet is good when the next one begins where it should; with a wrong byte there it still is
// when the one after that does (then only that sync byte was hit, and its packet is dropped).
class PacketSynchronizer {
public:
    struct Result {
        size_t packets = 0;   // now at the start of the buffer, 188 bytes each
        size_t consumed = 0;  // input bytes done with; pass the others again, with more behind them
    };

    // Works on `size` bytes in place. `last`: no more will come, so judge the end as it is.
    Result align(uint8_t* data, size_t size, bool last);

    // Forgets the phase (not the counts), for a jump in the source.
    void reset();

    // 188, 192 or 204; 0 before the first packet.
    size_t period() const { return mPeriod; }
    uint64_t syncLosses() const { return mSyncLosses; }
    uint64_t skippedBytes() const { return mSkippedBytes; }

    // The most input that one call leaves over.
    static constexpr size_t MAX_LEFT_OVER = 5 * 204;

private:
    enum class Verdict { Good, Damaged, Lost, NeedMore };

    Verdict judge(const uint8_t* data, size_t size, size_t at, bool last) const;
    size_t search(const uint8_t* data, size_t size, size_t from, bool last);

    size_t mPeriod = 0;
    bool mInSync = false;
    uint64_t mSyncLosses = 0;
    uint64_t mSkippedBytes = 0;
};

}  // namespace orvhost
