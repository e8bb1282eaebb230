// A window and a codec in two processes, with pictures of a broadcast's size.

#include <binder/IServiceManager.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>

#include "binder/BinderConnection.h"
#include "graphics/BufferQueue.h"
#include "platform/binder/ChildProcess.h"
#include "platform/graphics/BigPicture.h"
#include "platform/graphics/Holdings.h"
#include "support/Await.h"

using namespace android;
using orvhost::BinderConnection;
using orvhost::BufferQueue;
using orvtest::await;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

constexpr auto PICTURE_TIME = std::chrono::microseconds(33'367);  // 29.97 a second

// This process's end, and the other process at its own.
struct Pair {
    Pair(const char* mode, BinderConnection::Role role) {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        other = std::make_unique<ChildProcess>(
            std::vector<std::string>{ORV_TEST_PEER, mode, std::to_string(ends[0])}, ends[0]);
        std::string error;
        link = BinderConnection::overSocket(ends[1], role, &error);
        EXPECT_NE(link, nullptr) << error;
    }
    ~Pair() {
        if (link != nullptr) {
            link->disconnect();
        }
    }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;

    std::unique_ptr<ChildProcess> other;
    sp<BinderConnection> link;
};

// Shows everything while it runs; stopped, it costs pictures and no time; then it goes on.
TEST(TwoProcessesTest, WindowThatStopsForAWhile) {
    Pair pair("window", BinderConnection::SERVICE);
    ASSERT_EQ(pair.other->readLine(), "ready");
    std::string error;
    const sp<IBinder> queue = pair.link->getService(String16("OrvTestWindow"), &error);
    ASSERT_NE(queue, nullptr) << error;
    sp<Surface> surface = new Surface(interface_cast<IGraphicBufferProducer>(queue));
    ASSERT_EQ(surface->connect(NATIVE_WINDOW_API_MEDIA), OK);

    int64_t number = 0;
    int shown = 0;
    // Returns how many of so many pictures were dropped.
    const auto draw = [&](int pictures) {
        int dropped = 0;
        auto due = steady_clock::now();
        for (int i = 0; i < pictures; ++i) {
            const status_t status = BigPicture::draw(*surface, number++);
            EXPECT_TRUE(status == OK || status == WOULD_BLOCK) << status;
            (status == OK ? shown : dropped) += 1;
            due += PICTURE_TIME;
            std::this_thread::sleep_until(due);
        }
        return dropped;
    };
    printf("running: %d of 30 dropped\n", draw(30));
    EXPECT_GT(shown, 0);
    int width = 0;
    EXPECT_TRUE(await([&] {
        surface->query(NATIVE_WINDOW_WIDTH, &width);
        return width == 1280;
    }));

    pair.other->stop();
    const int droppedStopped = draw(15);
    printf("stopped: %d of 15 dropped\n", droppedStopped);
    EXPECT_GE(droppedStopped, 15 - IGraphicBufferProducer::BUFFER_SLOTS);
    EXPECT_LT(pair.link->figures().queuedOneWay, 64u + 20u);

    pair.other->signal(SIGCONT);
    EXPECT_TRUE(await([&] { return draw(1) == 0; }));
    const int droppedAgain = draw(20);
    printf("running again: %d of 20 dropped\n", droppedAgain);
    EXPECT_LT(droppedAgain, 20);

    surface->disconnect(NATIVE_WINDOW_API_MEDIA);
    surface.clear();
    EXPECT_EQ(Holdings::now(), Holdings());
    pair.link->disconnect();
    EXPECT_EQ(pair.other->readLine(), std::to_string(shown) + " 0 0 0");
    EXPECT_EQ(pair.other->exitCode(), 0);
}

// The codec's process is killed in the middle; the next one draws into the same window.
TEST(TwoProcessesTest, CodecsThatAreKilled) {
    sp<IGraphicBufferProducer> producer;
    sp<BufferQueue::Consumer> window;
    BufferQueue::create(&producer, &window);
    defaultServiceManager()->addService(String16("OrvTestWindow"), IInterface::asBinder(producer));
    for (int round = 0; round < 5; ++round) {
        Pair pair("codec", BinderConnection::APPLICATION);
        int shown = 0;
        ASSERT_TRUE(await([&] {
            orvhost::AcquiredBuffer picture;
            if (window->acquire(&picture, 0) != OK) {
                return false;
            }
            EXPECT_TRUE(BigPicture::isIn(*picture.buffer, picture.input.timestamp));
            window->release(picture.slot);
            return ++shown == 8 + round;
        }));
        pair.other->signal(SIGKILL);
        // The slots come back, and with them the right to draw.
        ASSERT_TRUE(await([&] { return producer->connect(NATIVE_WINDOW_API_CPU) == OK; }));
        EXPECT_EQ(producer->disconnect(NATIVE_WINDOW_API_CPU), OK);
    }
}

}  // namespace
