#include "EventQueue.h"

#include <utility>

namespace orvplay {

void EventQueue::put(std::string line) {
    if (!mIsWanted) {
        return;
    }
    std::lock_guard<std::mutex> guard(mLock);
    if (mKept.lines.size() >= MAX_LINES) {
        ++mKept.missed;
        return;
    }
    mKept.lines.push_back(std::move(line));
}

EventQueue::Taken EventQueue::take() {
    std::lock_guard<std::mutex> guard(mLock);
    return std::exchange(mKept, {});
}

}  // namespace orvplay
