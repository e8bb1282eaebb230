#include "common/PresentationLog.h"

#include <utils/Timers.h>

#include <utility>

namespace OrvPlayer {

PresentationLog& PresentationLog::instance() {
    static PresentationLog& log = *new PresentationLog;
    return log;
}

PresentationLog::PresentationLog() {
    for (size_t i = 0; i < CAPACITY; ++i) {
        mPlaces[i].turn.store(i, std::memory_order_relaxed);
    }
}

void PresentationLog::setOn(bool on) {
    if (on && !isOn()) {
        PresentationRecord forgotten;
        uint64_t missed = 0;
        uint64_t all = 0;
        while (take(&forgotten, 1, &missed) > 0) {
            all += missed + 1;
        }
        mMissed = all + missed;
    }
    mOn.store(on, std::memory_order_relaxed);
}

void PresentationLog::add(PresentationRecord record) {
    record.timeNs = systemTime(SYSTEM_TIME_MONOTONIC);
    uint64_t turn = mNext.load(std::memory_order_relaxed);
    for (;;) {
        Place& place = mPlaces[turn % CAPACITY];
        const auto ahead = static_cast<int64_t>(place.turn.load(std::memory_order_acquire) - turn);
        if (ahead < 0) {
            if (mMissed.fetch_add(1, std::memory_order_relaxed) >= CAPACITY) {
                setOn(false);
            }
            return;
        }
        if (ahead > 0) {
            turn = mNext.load(std::memory_order_relaxed);
        } else if (mNext.compare_exchange_weak(turn, turn + 1, std::memory_order_relaxed)) {
            place.record = record;
            place.turn.store(turn + 1, std::memory_order_release);
            return;
        }
    }
}

size_t PresentationLog::take(PresentationRecord* records, size_t most, uint64_t* missed) {
    size_t taken = 0;
    while (taken < most) {
        Place& place = mPlaces[mRead % CAPACITY];
        if (place.turn.load(std::memory_order_acquire) != mRead + 1) {
            break;
        }
        records[taken++] = place.record;
        place.turn.store(mRead + CAPACITY, std::memory_order_release);
        ++mRead;
    }
    *missed = mMissed.exchange(0, std::memory_order_relaxed);
    return taken;
}

}  // namespace OrvPlayer
