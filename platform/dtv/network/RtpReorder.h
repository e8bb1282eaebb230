#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>

namespace orvhost {

// Puts RTP packets back into the order of their sequence numbers (RFC 3550 5.1), 16 bits that wrap.
//
//   offered     7  8  11  9  9  12  ..........  13
//   taken       7  8      9      |  after WAIT_NS: 11 12 13     (10 is lost, a 9 was a duplicate)
//                                holds 11, 12
//
// What is missing is waited for, for WAIT_NS and WINDOW numbers at most. Another SSRC, or a number
// far from those before it, is a sender that began anew: what is held goes out and its packets
// follow at once.
//
// Packets are known by the caller's own small number for them. Not thread-safe; times are handed
// in.
class RtpReorder {
public:
    static constexpr size_t WINDOW = 128;
    static constexpr int64_t WAIT_NS = 100'000'000;
    static constexpr int NONE = -1;

    // A packet came. True: it is kept, and comes out of take() some time. False: it is not wanted,
    // a duplicate or one that came too late. take() until it answers NONE before the next one.
    bool offer(uint32_t ssrc, uint16_t number, int64_t nowNs, int packet);

    // The next packet that may go on, NONE when there is none yet.
    int take(int64_t nowNs);

    // When take() has something whatever comes; `unknown` while nothing is held.
    int64_t deadlineNs(int64_t unknown) const;

    size_t held() const { return mHeld; }

    uint64_t lost() const { return mLost; }
    uint64_t reordered() const { return mReordered; }
    uint64_t duplicates() const { return mDuplicates; }
    uint64_t restarts() const { return mRestarts; }

private:
    struct Entry {
        int packet = NONE;
        int64_t cameNs = 0;
    };

    // One that came and that mEntries have no place for before take() has made it.
    struct Pending {
        Entry entry;
        uint32_t ssrc = 0;
        uint16_t number = 0;
        bool begins = false;  // another sequence
    };

    void begin(uint32_t ssrc, uint16_t number, int64_t nowNs);
    bool isAnother(uint32_t ssrc, uint16_t number, int64_t nowNs);
    bool isLateInRow(uint16_t number, int64_t nowNs);
    void keep(uint16_t number, const Entry& entry);
    void settlePending();
    int handOut(Entry& entry);
    void giveUpNext();
    const Entry& firstHeld() const;
    Entry& entryOf(uint16_t number) { return mEntries[number % WINDOW]; }
    const Entry& entryOf(uint16_t number) const { return mEntries[number % WINDOW]; }

    std::array<Entry, WINDOW> mEntries;  // of mNext and the WINDOW - 1 numbers behind it
    std::bitset<WINDOW> mWasHere;        // of the WINDOW numbers before mNext
    size_t mHeld = 0;
    Pending mPending;
    bool mBegun = false;
    uint32_t mSsrc = 0;
    uint16_t mNext = 0;     // the number that is due
    uint16_t mHighest = 0;  // that came
    int64_t mLastGoodNs = 0;
    uint16_t mLastLate = 0;
    int mLateInRow = 0;

    uint64_t mLost = 0;
    uint64_t mReordered = 0;
    uint64_t mDuplicates = 0;
    uint64_t mRestarts = 0;
};

}  // namespace orvhost
