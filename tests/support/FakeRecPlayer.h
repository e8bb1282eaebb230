#pragma once

#include <dtv/RecPlayerBinder.h>

#include <mutex>
#include <utility>
#include <vector>

// The recorder service's half that the parser calls: keeps every audio time stamp it is told.
// Included by the one source of a test program that wants it.

namespace orvtest {

struct FakeRecPlayer {
    static FakeRecPlayer& instance() {
        static FakeRecPlayer only;
        return only;
    }
    void add(unsigned long ms) {
        std::lock_guard<std::mutex> guard(mLock);
        mTimes.push_back(ms);
    }
    // What came since the last call.
    std::vector<unsigned long> take() {
        std::lock_guard<std::mutex> guard(mLock);
        return std::exchange(mTimes, {});
    }

private:
    std::mutex mLock;
    std::vector<unsigned long> mTimes;
};

}  // namespace orvtest

extern "C" void RecPlayerBinder_NotifyAudioPTS(unsigned long ms) {
    orvtest::FakeRecPlayer::instance().add(ms);
}
