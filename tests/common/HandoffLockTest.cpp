#include "common/HandoffLock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

namespace {

using namespace OrvPlayer;

// The predicate changes without the waiter's lock, as a ring buffer's counters do. Whoever changes
// it around the waiter's last look is not missed: a wake-up that was lost would cost a whole wait.
TEST(HandoffLockTest, NoWakeUpIsLost) {
    constexpr unsigned WAIT_MS = 10'000;
    HandoffLock lock;
    HandoffCondition condition;
    const auto begin = std::chrono::steady_clock::now();
    lock.lock();
    // In front of the last look: it sees the change and does not sleep.
    condition.waitOnce(lock, WAIT_MS, [] { return true; });
    // Behind it: the waiter has announced itself and the broadcast waits for its sleep.
    std::thread changer;
    condition.waitOnce(lock, WAIT_MS, [&] {
        changer = std::thread([&condition] { condition.broadcast(); });
        return false;
    });
    changer.join();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(WAIT_MS));
    EXPECT_TRUE(lock.isHeld());
    // The lock is free during the sleep.
    std::thread other([&] {
        lock.lock();
        condition.broadcast();
        lock.unlock();
    });
    condition.waitOnce(lock, WAIT_MS, [] { return false; });
    other.join();
    lock.unlock();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(WAIT_MS));
}

}  // namespace
