#include "common/CallbackTimer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

namespace {

using namespace OrvPlayer;
using std::chrono::seconds;

constexpr seconds LIMIT{10};

// What a timer did, and where its callback is held up.
class Owner {
public:
    static void onTimer(void* owner) { static_cast<Owner*>(owner)->run(); }

    // How many began before: all after these are held.
    int holdCallbacks() {
        std::lock_guard<std::mutex> guard(mLock);
        mHeld = true;
        return mBegun;
    }
    void release() {
        std::lock_guard<std::mutex> guard(mLock);
        mHeld = false;
        mChanged.notify_all();
    }
    bool awaitBegun(int count) {
        std::unique_lock<std::mutex> guard(mLock);
        return mChanged.wait_for(guard, LIMIT, [this, count] { return mBegun >= count; });
    }
    int begun() {
        std::lock_guard<std::mutex> guard(mLock);
        return mBegun;
    }
    bool ended() const { return mEnded; }

private:
    void run() {
        std::unique_lock<std::mutex> guard(mLock);
        ++mBegun;
        mChanged.notify_all();
        mChanged.wait_for(guard, LIMIT, [this] { return !mHeld; });
        guard.unlock();
        std::this_thread::yield();
        mEnded = true;
    }

    std::mutex mLock;
    std::condition_variable mChanged;
    int mBegun = 0;
    bool mHeld = false;
    std::atomic<bool> mEnded{false};
};

// The second timer, armed later for the same time, is the measure: when it has fired, the first
// would have fired too.
TEST(CallbackTimerTest, FiresOnceEachTimeItIsArmedUnlessDisarmed) {
    Owner owner, disarmed, measure;
    CallbackTimer timer(Owner::onTimer, &owner);
    CallbackTimer quiet(Owner::onTimer, &disarmed);
    CallbackTimer last(Owner::onTimer, &measure);
    ASSERT_EQ(timer.creationError(), 0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(timer.arm(1), 0);
    EXPECT_EQ(quiet.arm(1), 0);
    EXPECT_EQ(quiet.disarm(), 0);
    EXPECT_EQ(last.arm(1), 0);
    EXPECT_TRUE(measure.awaitBegun(1));
    EXPECT_TRUE(owner.awaitBegun(1));
    EXPECT_GE(std::chrono::steady_clock::now() - start, seconds(1));

    EXPECT_EQ(last.arm(1), 0);  // neither of the others goes on by itself
    EXPECT_TRUE(measure.awaitBegun(2));
    EXPECT_EQ(owner.begun(), 1);
    EXPECT_EQ(disarmed.begun(), 0);

    EXPECT_EQ(quiet.arm(1), 0);
    EXPECT_TRUE(disarmed.awaitBegun(1));
}

// While a callback runs, expiries of its period neither run beside it nor wait behind it.
TEST(CallbackTimerTest, APeriodGoesOnUntilDisarmedOneCallbackAtATime) {
    Owner owner, measure;
    CallbackTimer timer(Owner::onTimer, &owner);
    CallbackTimer other(Owner::onTimer, &measure);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(timer.armPeriodic(20), 0);
    EXPECT_TRUE(owner.awaitBegun(3));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(60));

    const int held = owner.holdCallbacks() + 1;
    EXPECT_TRUE(owner.awaitBegun(held));
    EXPECT_EQ(other.armPeriodic(20), 0);
    EXPECT_TRUE(measure.awaitBegun(10));
    EXPECT_EQ(owner.begun(), held);
    EXPECT_EQ(timer.disarm(), 0);
    const int begun = measure.begun();
    EXPECT_TRUE(measure.awaitBegun(begun + 5));  // one that was on its way has come
    owner.release();
    timer.waitForCallback();
    EXPECT_TRUE(measure.awaitBegun(begun + 10));
    EXPECT_EQ(owner.begun(), held);
}

TEST(CallbackTimerTest, TheDestructorWaitsForARunningCallback) {
    Owner owner;
    auto timer = std::make_unique<CallbackTimer>(Owner::onTimer, &owner);
    owner.holdCallbacks();
    ASSERT_EQ(timer->arm(1), 0);
    ASSERT_TRUE(owner.awaitBegun(1));
    std::atomic<bool> entering{false};
    std::thread releaser([&] {
        while (!entering) {
            std::this_thread::yield();
        }
        owner.release();
    });
    entering = true;
    timer = nullptr;
    EXPECT_TRUE(owner.ended());
    releaser.join();
}

TEST(CallbackTimerTest, RefusesEverythingOnceItIsRemoved) {
    Owner owner;
    CallbackTimer timer(Owner::onTimer, &owner);
    EXPECT_EQ(timer.remove(), 0);
    EXPECT_NE(timer.arm(1), 0);
    EXPECT_NE(timer.armPeriodic(1), 0);
    EXPECT_NE(timer.disarm(), 0);
    EXPECT_EQ(timer.remove(), 0);
}

}  // namespace
