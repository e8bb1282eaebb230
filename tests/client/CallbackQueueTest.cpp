// Order and bounds of what waits for an application that is slow.

#include "client/CallbackQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <vector>

#include "support/Await.h"

namespace orvtest {
namespace {

using orvclient::CallbackQueue;
using Kind = CallbackQueue::Kind;

TEST(CallbackQueueTest, IsBoundedAndDropsFirstWhatComesInNumbers) {
    std::promise<void> wake;
    std::atomic<bool> isBusy{false};
    std::atomic<size_t> counts[5] = {};
    CallbackQueue queue(nullptr);
    const auto post = [&](Kind kind, size_t times) {
        for (size_t i = 0; i < times; ++i) {
            queue.post(kind, [&counts, kind] { ++counts[static_cast<size_t>(kind)]; });
        }
    };
    queue.post(Kind::EVENT, [&] {
        isBusy = true;
        wake.get_future().wait();
    });
    ASSERT_TRUE(await([&] { return isBusy.load(); }));
    post(Kind::STILL, 10);
    post(Kind::FREQUENT, 1000);
    post(Kind::EVENT, 5000);
    wake.set_value();
    const auto count = [&](Kind kind) { return counts[static_cast<size_t>(kind)].load(); };
    EXPECT_TRUE(await([&] {
        return count(Kind::EVENT) == CallbackQueue::MAX_EVENTS - CallbackQueue::MAX_FREQUENT;
    }));
    EXPECT_EQ(count(Kind::STILL), CallbackQueue::MAX_STILLS);
    EXPECT_EQ(count(Kind::FREQUENT), CallbackQueue::MAX_FREQUENT - CallbackQueue::MAX_STILLS);
}

TEST(CallbackQueueTest, NothingComesAfterTheLast) {
    std::promise<void> wake;
    std::promise<void> last;
    std::vector<int> ran;
    CallbackQueue queue(nullptr);
    queue.post(Kind::EVENT, [&] { wake.get_future().wait(); });
    queue.post(Kind::EVENT, [&] { ran.push_back(1); });
    queue.post(Kind::LAST, [&] {
        ran.push_back(2);
        last.set_value();
    });
    queue.post(Kind::EVENT, [&] { ran.push_back(3); });
    wake.set_value();
    last.get_future().wait();
    std::promise<void> again;
    queue.reopen();
    queue.post(Kind::EVENT, [&] { again.set_value(); });
    again.get_future().wait();
    EXPECT_EQ(ran.back(), 2);
    EXPECT_LE(ran.size(), 2U);  // the first may have begun before the last came
}

// An executor that forgets a callback does not stop the next one.
TEST(CallbackQueueTest, ThrownAwayIsOver) {
    std::atomic<int> handed{0};
    CallbackQueue queue([&](std::function<void()>) { ++handed; });
    for (int i = 0; i < 3; ++i) {
        queue.post(Kind::EVENT, [] { FAIL(); });
    }
    EXPECT_TRUE(await([&] { return handed == 3; }));
}

}  // namespace
}  // namespace orvtest
