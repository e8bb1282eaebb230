#include "dtv/network/RtpReorder.h"

#include <utility>

namespace orvhost {

namespace {

// RFC 3550 A.1: a step of fewer numbers ahead is a loss, a larger one begins another sequence.
constexpr int MAX_DROPOUT = 3000;

// So many late packets with consecutive numbers, and none that is not late for the time of a wait,
// come from a sender that began anew a little behind.
constexpr int LATE_IN_ROW = 8;

int distanceOf(uint16_t from, uint16_t to) {
    return static_cast<int16_t>(static_cast<uint16_t>(to - from));
}

}  // namespace

void RtpReorder::begin(uint32_t ssrc, uint16_t number, int64_t nowNs) {
    mBegun = true;
    mSsrc = ssrc;
    mNext = number;
    mHighest = number;
    mLastGoodNs = nowNs;
    mLateInRow = 0;
    mWasHere.reset();
}

bool RtpReorder::isLateInRow(uint16_t number, int64_t nowNs) {
    const bool follows = number == static_cast<uint16_t>(mLastLate + 1);
    mLateInRow = mLateInRow > 0 && follows ? mLateInRow + 1 : 1;
    mLastLate = number;
    return mLateInRow >= LATE_IN_ROW && nowNs - mLastGoodNs >= WAIT_NS;
}

bool RtpReorder::isAnother(uint32_t ssrc, uint16_t number, int64_t nowNs) {
    const int distance = distanceOf(mNext, number);
    if (ssrc != mSsrc || distance >= MAX_DROPOUT || distance < -static_cast<int>(WINDOW)) {
        return true;
    }
    if (distance < 0) {
        return isLateInRow(number, nowNs);
    }
    mLateInRow = 0;
    mLastGoodNs = nowNs;
    return false;
}

bool RtpReorder::offer(uint32_t ssrc, uint16_t number, int64_t nowNs, int packet) {
    if (!mBegun) {
        begin(ssrc, number, nowNs);
    }
    const Entry entry{packet, nowNs};
    if (isAnother(ssrc, number, nowNs)) {
        ++mRestarts;
        mPending = {entry, ssrc, number, true};
        return true;
    }
    const int distance = distanceOf(mNext, number);
    if (distance >= static_cast<int>(WINDOW)) {
        mPending = {entry, ssrc, number, false};
        return true;
    }
    const bool isDuplicate =
        distance < 0 ? mWasHere[number % WINDOW] : entryOf(number).packet != NONE;
    mDuplicates += isDuplicate ? 1 : 0;
    if (isDuplicate || distance < 0) {
        return false;
    }
    keep(number, entry);
    return true;
}

void RtpReorder::keep(uint16_t number, const Entry& entry) {
    entryOf(number) = entry;
    ++mHeld;
    if (distanceOf(mHighest, number) < 0) {
        ++mReordered;
    } else {
        mHighest = number;
    }
}

int RtpReorder::handOut(Entry& entry) {
    mWasHere[mNext % WINDOW] = true;
    ++mNext;
    --mHeld;
    return std::exchange(entry.packet, NONE);
}

void RtpReorder::giveUpNext() {
    mWasHere[mNext % WINDOW] = false;
    ++mNext;
    ++mLost;
}

// While one is pending nothing is waited for.
void RtpReorder::settlePending() {
    if (mPending.begins && mHeld == 0) {
        begin(mPending.ssrc, mPending.number, mPending.entry.cameNs);
    } else if (mPending.begins || distanceOf(mNext, mPending.number) >= static_cast<int>(WINDOW)) {
        giveUpNext();
        return;
    }
    keep(mPending.number, mPending.entry);
    mPending.entry.packet = NONE;
}

int RtpReorder::take(int64_t nowNs) {
    for (;;) {
        Entry& next = entryOf(mNext);
        if (next.packet != NONE) {
            return handOut(next);
        }
        if (mPending.entry.packet != NONE) {
            settlePending();
        } else if (mHeld > 0 && nowNs - firstHeld().cameNs >= WAIT_NS) {
            giveUpNext();
        } else {
            return NONE;
        }
    }
}

// While mHeld > 0 only.
const RtpReorder::Entry& RtpReorder::firstHeld() const {
    uint16_t number = mNext;
    while (entryOf(number).packet == NONE) {
        ++number;
    }
    return entryOf(number);
}

int64_t RtpReorder::deadlineNs(int64_t unknown) const {
    return mHeld > 0 ? firstHeld().cameNs + WAIT_NS : unknown;
}

}  // namespace orvhost
