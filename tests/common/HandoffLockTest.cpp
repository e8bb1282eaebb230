#include "common/HandoffLock.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

using namespace OrvPlayer;

TEST(HandoffLockTest, ExcludesAndLetsEveryoneIn) {
    HandoffLock lock;
    int count = 0;  // plain: the lock alone makes this safe
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int i = 0; i < 5000; ++i) {
                lock.lock();
                ++count;
                lock.unlock();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, 20'000);
}

TEST(HandoffLockTest, IsReleasedByAnyoneAndWhenFree) {
    HandoffLock lock;
    std::thread([&] { lock.lock(); }).join();
    EXPECT_TRUE(lock.isHeld());
    EXPECT_FALSE(lock.tryLock());
    lock.unlock();
    lock.unlock();
    EXPECT_FALSE(lock.isHeld());
    EXPECT_TRUE(lock.tryLock());
    EXPECT_FALSE(lock.tryLock());  // the second release did not make room for two
}

// No broadcast is lost between a waiter's last look and its sleep: with a wait of a minute a lost
// one would show.
TEST(HandoffLockTest, NoWakeUpIsLost) {
    HandoffLock lock;
    HandoffCondition condition;
    std::atomic<int> turn{0};
    constexpr int TURNS = 2000;
    const auto play = [&](int parity) {
        for (int i = parity; i < TURNS; i += 2) {
            lock.lock();
            while (turn != i) {
                condition.waitOnce(lock, 60'000, [&] { return turn == i; });
            }
            turn = i + 1;
            lock.unlock();
            condition.broadcast();
        }
    };
    std::thread other(play, 1);
    play(0);
    other.join();
    EXPECT_EQ(turn, TURNS);
}

}  // namespace
