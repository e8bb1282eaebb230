#include <gtest/gtest.h>
#include <media/MediaCodecBuffer.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>

#include <fstream>
#include <functional>
#include <future>
#include <string>

#include "media/LooperTask.h"

using namespace android;

namespace {

TEST(AMessageTest, FindsOnlyWhatHasThatNameAndType) {
    sp<AMessage> message = new AMessage;
    message->setInt32("width", 1920);
    message->setString("mime", "video/avc");
    message->setRect("crop", 0, 1, 2, 3);
    int32_t width = 7, left = 7, top = 7, right = 7, bottom = 7;
    int64_t wide = 7;
    AString text;
    EXPECT_TRUE(message->findInt32("width", &width));
    EXPECT_FALSE(message->findInt64("width", &wide));
    EXPECT_FALSE(message->findInt32("mime", &width));
    EXPECT_FALSE(message->findInt32("height", &width));
    EXPECT_EQ(width, 1920);
    EXPECT_EQ(wide, 7);
    EXPECT_TRUE(message->findString("mime", &text));
    EXPECT_TRUE(text == "video/avc");
    EXPECT_TRUE(message->findRect("crop", &left, &top, &right, &bottom));
    EXPECT_EQ((std::array{left, top, right, bottom}), (std::array{0, 1, 2, 3}));

    sp<AMessage> copy = message->dup();
    message->setString("width", "wide");  // another type replaces the old value
    EXPECT_FALSE(message->findInt32("width", &width));
    EXPECT_TRUE(copy->findInt32("width", &width));
    EXPECT_EQ(message->countEntries(), 3u);
}

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

TEST(ALooperTest, RunsTasksInOrderOnItsNamedThread) {
    sp<ALooper> looper = new ALooper;
    looper->setName("MTVMediaCodecLoop");
    std::string order;
    std::promise<std::string> name;
    const auto first = std::make_shared<Task>([&] { order += "1"; });
    const auto last = std::make_shared<Task>([&] {
        std::ifstream comm("/proc/thread-self/comm");
        std::string text;
        std::getline(comm, text);
        name.set_value(text);
    });
    looper->post(first);  // waits for the start
    looper->post(std::make_shared<Task>([&] { order += "gone"; }));
    EXPECT_EQ(looper->start(), OK);
    EXPECT_EQ(looper->start(), INVALID_OPERATION);
    looper->post(last);
    auto future = name.get_future();
    ASSERT_EQ(future.wait_for(std::chrono::seconds(5)), std::future_status::ready);
    EXPECT_EQ(future.get(), "MTVMediaCodecLo");
    EXPECT_EQ(order, "1");
    EXPECT_EQ(looper->stop(), OK);
    EXPECT_EQ(looper->stop(), INVALID_OPERATION);
}

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
