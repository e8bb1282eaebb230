#include <unistd.h>

#include <chrono>
#include <future>

#include "QueueFixture.h"
#include "platform/graphics/Holdings.h"

using namespace android;
using orvhost::AcquiredBuffer;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

constexpr auto BOUND = std::chrono::seconds(20);
constexpr int SLOTS = IGraphicBufferProducer::BUFFER_SLOTS;

class RemoteQueueTest : public QueueFixture {
protected:
    void SetUp() override { makeQueue(Place::REMOTE); }

    // Draws until a picture is taken, within the bound.
    bool eventuallyPresents(int64_t number) {
        const auto deadline = steady_clock::now() + BOUND;
        while (steady_clock::now() < deadline) {
            if (present(number) == OK) {
                return true;
            }
        }
        return false;
    }
};

TEST_F(RemoteQueueTest, PictureCostsOneMessageAndAThirdOfOneBack) {
    const auto show = [&](int64_t first, int64_t last) {
        for (int64_t number = first; number <= last; ++number) {
            ASSERT_EQ(present(number), OK);
            EXPECT_EQ(takeAndRelease(), number);
        }
    };
    show(1, 10);  // all memory is known to both
    const size_t toQueue = mLoopback->received(Loopback::APPLICATION);
    const size_t toProducer = mLoopback->received(Loopback::SERVICE);
    const Holdings before = Holdings::now();
    show(11, 60);
    EXPECT_EQ(mLoopback->received(Loopback::APPLICATION), toQueue + 50);
    EXPECT_LE(mLoopback->received(Loopback::SERVICE), toProducer + 50 / 3 + 1);
    EXPECT_EQ(Holdings::now(), before);
}

// A process that is stopped costs pictures, a bounded time for each, and neither memory nor
// messages; then it shows what it was given before, and all goes on.
TEST_F(RemoteQueueTest, StoppedApplicationCostsPicturesOnly) {
    ASSERT_EQ(present(0), OK);
    mLoopback->stop(Loopback::APPLICATION);
    int64_t given = 0;
    const auto start = steady_clock::now();
    for (int64_t number = 1; number <= 120; ++number) {
        const status_t status = draw(number);
        given += status == OK;
        EXPECT_TRUE(status == WOULD_BLOCK || number == given) << status;
    }
    EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(10));
    EXPECT_EQ(given, SLOTS - 1);
    EXPECT_LE(mLoopback->waiting(Loopback::APPLICATION), static_cast<size_t>(SLOTS + 20));

    mLoopback->resume(Loopback::APPLICATION);
    settle();
    for (int64_t number = 0; number <= given; ++number) {
        EXPECT_EQ(takeAndRelease(), number);
    }
    ASSERT_EQ(present(200), OK);
    EXPECT_EQ(takeAndRelease(), 200);
    EXPECT_EQ(mConsumer->counters().dropped, static_cast<uint64_t>(120 - given));
}

// The first buffers of a size may be on their way; a side that does not answer is waited for once.
TEST_F(RemoteQueueTest, WaitsForTheFirstBuffersOfASizeOnce) {
    mLoopback->stop(Loopback::APPLICATION);
    const auto start = steady_clock::now();
    EXPECT_EQ(draw(1), WOULD_BLOCK);
    EXPECT_GE(steady_clock::now() - start, milliseconds(100));
    const auto later = steady_clock::now();
    for (uint32_t i = 0; i < 20; ++i) {
        EXPECT_EQ(draw(1, 64 + 2 * i), WOULD_BLOCK);
    }
    EXPECT_LT(steady_clock::now() - later, milliseconds(1000));

    auto codec = std::async(std::launch::async, [&] { return draw(1); });
    mLoopback->resume(Loopback::APPLICATION);
    settle();
    EXPECT_TRUE(codec.get() == OK || eventuallyPresents(1));
}

// Credits, and buffers in the codec's hands, of sizes that are out of date in between: every slot
// comes back and every picture is in memory of its own size.
TEST_F(RemoteQueueTest, SizesChangeWhileCreditsAreUnderWay) {
    enum Fate { QUEUE, CANCEL };
    int64_t number = 0;
    for (const Fate fate : {QUEUE, CANCEL, QUEUE, CANCEL}) {
        sp<GraphicBuffer> held;
        ASSERT_EQ(dequeue(&held), OK);
        ASSERT_EQ(present(++number), OK);
        mLoopback->stop(Loopback::SERVICE);
        EXPECT_EQ(takeAndRelease(), number);
        for (const uint32_t width : {128u, WIDTH, 32u}) {
            EXPECT_EQ(present(0, width), WOULD_BLOCK);
        }
        mLoopback->resume(Loopback::SERVICE);
        settle();
        ASSERT_EQ(present(++number, 32), OK);
        EXPECT_EQ(takeAndRelease(), number);
        if (fate == QUEUE) {
            QueueBufferInput input;
            input.timestamp = ++number;
            void* pixels = nullptr;
            ASSERT_EQ(held->lock(GraphicBuffer::USAGE_SW_WRITE_OFTEN, &pixels), OK);
            memset(pixels, static_cast<int>(number), held->getByteSize());
            EXPECT_EQ(mSurface->queueBuffer(held, input), OK);
            settle();
            EXPECT_EQ(takeAndRelease(), number);
        } else {
            EXPECT_EQ(mSurface->cancelBuffer(held), OK);
            settle();
        }
        // None of the slots was lost.
        EXPECT_EQ(fill(number + 1, 32), SLOTS);
        for (int i = 0; i < SLOTS; ++i) {
            EXPECT_EQ(takeAndRelease(), ++number);
        }
        ASSERT_EQ(present(++number), OK);
        EXPECT_EQ(takeAndRelease(), number);
    }
}

// Messages that the transport does not take: a picture is dropped and its buffer used again, the
// rest is said later. The queue that never heard of the end takes the next session.
TEST_F(RemoteQueueTest, FullTransportCostsPicturesOnly) {
    ASSERT_EQ(mSurface->disconnect(NATIVE_WINDOW_API_MEDIA), OK);
    settle();
    mLoopback->setRoom(Loopback::APPLICATION, 0);
    ASSERT_EQ(mSurface->connect(NATIVE_WINDOW_API_MEDIA), OK);
    EXPECT_EQ(present(1), WOULD_BLOCK);
    mLoopback->setRoom(Loopback::APPLICATION, 100);
    ASSERT_TRUE(eventuallyPresents(1));
    EXPECT_EQ(takeAndRelease(), 1);

    const uint64_t before = mConsumer->counters().dropped;
    sp<GraphicBuffer> lost;
    ASSERT_EQ(dequeue(&lost), OK);
    mLoopback->setRoom(Loopback::APPLICATION, 0);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(present(2), FAILED_TRANSACTION);
    }
    mLoopback->setRoom(Loopback::APPLICATION, 100);
    EXPECT_EQ(mSurface->cancelBuffer(lost), OK);
    ASSERT_EQ(present(3), OK);
    EXPECT_EQ(takeAndRelease(), 3);
    EXPECT_EQ(mConsumer->counters().dropped, before + 10);

    mLoopback->setRoom(Loopback::APPLICATION, 0);
    ASSERT_EQ(mSurface->disconnect(NATIVE_WINDOW_API_MEDIA), OK);
    mLoopback->setRoom(Loopback::APPLICATION, 100);
    sp<Surface> next = new Surface(newProxy());
    ASSERT_EQ(next->connect(NATIVE_WINDOW_API_MEDIA), OK);
    mSurface = next;
    mProducer.clear();
    EXPECT_EQ(fill(4), SLOTS);

    // The other direction: credits.
    mLoopback->setRoom(Loopback::SERVICE, 0);
    for (int64_t number = 4; number < 4 + SLOTS; ++number) {
        EXPECT_EQ(takeAndRelease(), number);
    }
    EXPECT_EQ(present(20), WOULD_BLOCK);
    mLoopback->setRoom(Loopback::SERVICE, 100);
    ASSERT_TRUE(eventuallyPresents(20)) << "asks again after a while";
    EXPECT_EQ(takeAndRelease(), 20);
    EXPECT_EQ(fill(21), SLOTS);
}

TEST_F(RemoteQueueTest, EverythingComesBackWhenTheApplicationDies) {
    ASSERT_EQ(present(1), OK);
    AcquiredBuffer acquired;
    ASSERT_EQ(take(&acquired), 1);
    ANativeWindowBuffer* borrowed = borrow();
    ASSERT_NE(borrowed, nullptr);
    while (draw(2) == OK) {
    }
    EXPECT_GT(Holdings::now().descriptors, static_cast<size_t>(SLOTS));

    // Whoever waits is woken, here by chance before or in the wait.
    auto codec = std::async(std::launch::async, [&] {
        for (;;) {
            const status_t status = draw(3);
            if (status != OK && status != WOULD_BLOCK) {
                return status;
            }
        }
    });
    mLoopback->cut();
    settle();
    ASSERT_EQ(codec.wait_for(BOUND), std::future_status::ready);
    EXPECT_EQ(codec.get(), NO_INIT);

    acquired = {};
    mConsumer.clear();
    mQueue.clear();
    EXPECT_EQ(Holdings::now(), (Holdings{1, 1})) << "the picture that somebody reads";
    EXPECT_TRUE(shows(GraphicBuffer::from(borrowed).get(), 1));
    EXPECT_EQ(giveBack(borrowed), NO_INIT);
    EXPECT_EQ(Holdings::now(), Holdings());
    int width = 0;
    EXPECT_EQ(mSurface->query(NATIVE_WINDOW_WIDTH, &width), NO_INIT);
    EXPECT_EQ(mSurface->disconnect(NATIVE_WINDOW_API_MEDIA), NO_INIT);
    EXPECT_EQ(mSurface->connect(NATIVE_WINDOW_API_MEDIA), NO_INIT);
    // Nor does a new window over the same binder work.
    const sp<Surface> late =
        new Surface(interface_cast<IGraphicBufferProducer>(IInterface::asBinder(mProducer)));
    EXPECT_EQ(late->connect(NATIVE_WINDOW_API_MEDIA), NO_INIT);
}

TEST_F(RemoteQueueTest, EverythingComesBackWhenTheServiceDies) {
    ASSERT_EQ(fill(1), SLOTS);
    AcquiredBuffer acquired;
    ASSERT_EQ(take(&acquired), 1);
    ASSERT_EQ(takeAndRelease(), 2);
    sp<GraphicBuffer> held;
    ASSERT_EQ(dequeue(&held), OK);
    mLoopback->cut();
    settle();
    held.clear();
    mSurface.clear();
    mProducer.clear();
    EXPECT_LE(Holdings::now().mappings, static_cast<size_t>(SLOTS));

    // The next service finds all slots but those of pictures that were queued before.
    mLoopback = std::make_unique<Loopback>(getpid() + 1);
    mProducer = newProxy();
    mSurface = new Surface(mProducer);
    ASSERT_EQ(mSurface->connect(NATIVE_WINDOW_API_MEDIA), OK);
    settle();
    EXPECT_EQ(fill(10), 1);
    EXPECT_EQ(mConsumer->release(acquired.slot), OK);
    acquired = {};
    for (int64_t number = 3; number <= SLOTS; ++number) {
        EXPECT_EQ(takeAndRelease(), number);
    }
    EXPECT_EQ(takeAndRelease(), 10);
    EXPECT_EQ(fill(20), SLOTS);
    TearDown();
    EXPECT_EQ(Holdings::now(), Holdings());
}

TEST_F(RemoteQueueTest, OneProducerOfAllProcesses) {
    const auto local = interface_cast<IGraphicBufferProducer>(mQueue);
    EXPECT_EQ(IInterface::asBinder(local), mQueue);
    EXPECT_EQ(local->connect(NATIVE_WINDOW_API_MEDIA), BAD_VALUE);
    const sp<Surface> sibling = new Surface(newProxy());
    EXPECT_EQ(sibling->connect(NATIVE_WINDOW_API_MEDIA), BAD_VALUE);

    Loopback elsewhere(getpid() + 1);
    sp<Surface> other = new Surface(
        interface_cast<IGraphicBufferProducer>(elsewhere.proxyOf(Loopback::APPLICATION, mQueue)));
    sp<GraphicBuffer> buffer;
    const auto dequeueOther = [&] {
        const status_t status =
            other->dequeueBuffer(WIDTH, HEIGHT, PIXEL_FORMAT_YCBCR_420_SP, &buffer);
        elsewhere.settle();
        return status;
    };
    ASSERT_EQ(other->connect(NATIVE_WINDOW_API_MEDIA), OK);
    elsewhere.settle();
    EXPECT_EQ(dequeueOther(), NO_INIT) << "refused";
    EXPECT_EQ(other->disconnect(NATIVE_WINDOW_API_MEDIA), OK);
    elsewhere.settle();
    ASSERT_EQ(present(1), OK) << "the first one goes on";

    EXPECT_EQ(mSurface->disconnect(NATIVE_WINDOW_API_MEDIA), OK);
    settle();
    ASSERT_EQ(other->connect(NATIVE_WINDOW_API_MEDIA), OK);
    EXPECT_EQ(dequeueOther(), OK);
    EXPECT_EQ(other->queueBuffer(buffer, {}), OK);
    elsewhere.settle();
    EXPECT_EQ(mConsumer->counters().queued, 2u);

    // Its window is dropped while connected: that ends the session.
    buffer.clear();
    other.clear();
    elsewhere.settle();
    EXPECT_EQ(local->connect(NATIVE_WINDOW_API_MEDIA), OK);
    elsewhere.cut();
    elsewhere.settle();
}

}  // namespace
