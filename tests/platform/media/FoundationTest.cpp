#include <gtest/gtest.h>
#include <media/MediaCodecBuffer.h>
#include <media/stagefright/foundation/ALooper.h>

#include <functional>
#include <future>

#include "media/LooperTask.h"

using namespace android;

namespace {

TEST(MediaCodecBufferTest, KeepsItsRangeInside) {
    sp<MediaCodecBuffer> buffer = MediaCodecBuffer::allocate(100);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(buffer->setRange(10, 90), OK);
    EXPECT_EQ(buffer->data(), buffer->base() + 10);
    EXPECT_EQ(buffer->setRange(10, 91), BAD_VALUE);
    EXPECT_EQ(buffer->setRange(101, 0), BAD_VALUE);
    EXPECT_EQ(buffer->setRange(1, SIZE_MAX), BAD_VALUE);
    EXPECT_EQ(buffer->size(), 90u);
    EXPECT_EQ(MediaCodecBuffer::allocate(SIZE_MAX), nullptr);
}

struct Task : orvhost::LooperTask {
    std::function<void()> work;
    explicit Task(std::function<void()> toDo) : work(std::move(toDo)) {}
    void run() override { work(); }
};

TEST(ALooperTest, MayBeDroppedByItsOwnTask) {
    std::promise<void> done;
    sp<ALooper> looper = new ALooper;
    ALooper* looperForPost = looper.get();
    ASSERT_EQ(looper->start(), OK);
    std::promise<void> handedOver;
    sp<ALooper> owned = looper;
    const auto task = std::make_shared<Task>([&] {
        handedOver.get_future().wait();
        owned.clear();
        done.set_value();
    });
    looperForPost->post(task);
    looper.clear();
    handedOver.set_value();
    EXPECT_EQ(done.get_future().wait_for(std::chrono::seconds(5)), std::future_status::ready);
}

}  // namespace
