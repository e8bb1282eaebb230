#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "QueueFixture.h"

using namespace android;
using orvhost::AcquiredBuffer;

namespace {

using BufferQueueThreadsTest = PlacedQueueFixture;

INSTANTIATE_TEST_SUITE_P(Places, BufferQueueThreadsTest,
                         testing::Values(Place::LOCAL, Place::REMOTE));

constexpr auto BOUND = std::chrono::seconds(20);

// A codec, a window that keeps up and falls behind, and someone taking stills, all at once, with
// the size changing under them: nobody ever sees a picture that is being written.
TEST_P(BufferQueueThreadsTest, NobodySeesAPictureBeingWritten) {
    constexpr int64_t PICTURES = 600;
    std::atomic<bool> isOver{false};
    std::atomic<int64_t> presented{0};
    std::thread codec([&] {
        for (int64_t number = 1; number <= PICTURES; ++number) {
            const bool isWide = (number / 40) % 2 == 1;
            const status_t status = draw(number, isWide ? 128 : 64, 48);
            if (status == OK) {
                presented.fetch_add(1);
            } else {
                EXPECT_EQ(status, WOULD_BLOCK);
            }
        }
        settle();
        isOver = true;
    });
    std::thread reader([&] {
        while (!isOver) {
            ANativeWindowBuffer* still = nullptr;
            native_window_dequeue_buffer_and_wait(mSurface.get(), &still);
            if (still == nullptr) {
                std::this_thread::yield();
                continue;
            }
            GraphicBuffer* buffer = static_cast<GraphicBuffer*>(still);
            void* pixels = nullptr;
            buffer->lock(GraphicBuffer::USAGE_SW_READ_OFTEN, &pixels);
            EXPECT_TRUE(shows(buffer, *static_cast<uint8_t*>(pixels)));
            buffer->unlock();
            EXPECT_EQ(giveBack(still), OK);
        }
    });

    int64_t taken = 0;
    int64_t last = 0;
    AcquiredBuffer previous;
    for (;;) {
        const bool wasOver = isOver;
        AcquiredBuffer picture;
        const status_t status = mConsumer->acquire(&picture, 20);
        if (status != OK) {
            ASSERT_EQ(status, WOULD_BLOCK);
            if (wasOver) {
                break;
            }
            continue;
        }
        ++taken;
        EXPECT_GT(picture.input.timestamp, last);
        last = picture.input.timestamp;
        EXPECT_TRUE(shows(picture.buffer.get(), last));
        if (previous.buffer != nullptr) {
            EXPECT_TRUE(shows(previous.buffer.get(), previous.input.timestamp));
            EXPECT_EQ(mConsumer->release(previous.slot), OK);
        }
        previous = picture;
    }
    codec.join();
    reader.join();
    EXPECT_EQ(taken, presented.load());
    const auto counters = mConsumer->counters();
    EXPECT_LE(counters.queued + counters.dropped, static_cast<uint64_t>(PICTURES));
    EXPECT_EQ(counters.queued, static_cast<uint64_t>(presented.load()));
}

// Whether a thread of this process sleeps, within the bound.
bool becomesIdle(pid_t thread) {
    const std::string path = "/proc/self/task/" + std::to_string(thread) + "/stat";
    const auto deadline = std::chrono::steady_clock::now() + BOUND;
    while (std::chrono::steady_clock::now() < deadline) {
        std::string stat;
        std::getline(std::ifstream(path), stat);
        const size_t state = stat.rfind(") ");
        if (state != std::string::npos && stat[state + 2] == 'S') {
            return true;
        }
        std::this_thread::yield();
    }
    return false;
}

TEST_P(BufferQueueThreadsTest, AbandonWakesAConsumerThatWaits) {
    std::promise<pid_t> thread;
    auto result = std::async(std::launch::async, [&] {
        thread.set_value(gettid());
        AcquiredBuffer picture;
        return mConsumer->acquire(&picture, 60'000);
    });
    ASSERT_TRUE(becomesIdle(thread.get_future().get()));
    mConsumer->abandon();
    EXPECT_EQ(result.wait_for(BOUND), std::future_status::ready);
    EXPECT_EQ(result.get(), NO_INIT);
}

// The window goes while the codec is anywhere in its cycle, the wait for a buffer included; its
// listener never runs once it has gone.
TEST_P(BufferQueueThreadsTest, ConsumerMayGoAtAnyMoment) {
    for (int round = 0; round < 40; ++round) {
        TearDown();
        SetUp();
        auto announced = std::make_unique<std::atomic<int>>(0);
        mConsumer->setFrameAvailableListener([&count = *announced] { count.fetch_add(1); });
        auto codec = std::async(std::launch::async, [&] {
            for (int64_t number = 0;; ++number) {
                const status_t status = draw(number);
                if (status != OK && status != WOULD_BLOCK) {
                    return status;
                }
            }
        });
        AcquiredBuffer picture;
        for (int i = 0; i < round % 4; ++i) {
            mConsumer->acquire(&picture, 1000);
        }
        mConsumer.clear();
        announced.reset();
        ASSERT_EQ(codec.wait_for(BOUND), std::future_status::ready);
        EXPECT_EQ(codec.get(), NO_INIT);
    }
}

}  // namespace
