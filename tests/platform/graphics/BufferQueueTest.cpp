#include <chrono>
#include <limits>
#include <vector>

#include "QueueFixture.h"

using namespace android;
using orvhost::AcquiredBuffer;
using orvhost::BufferQueue;

namespace {

using BufferQueueTest = PlacedQueueFixture;
INSTANTIATE_TEST_SUITE_P(Places, BufferQueueTest, testing::Values(Place::LOCAL, Place::REMOTE));

TEST_P(BufferQueueTest, KeepsOrderAndPixels) {
    int announced = 0;
    mConsumer->setFrameAvailableListener([&announced] { ++announced; });
    int64_t next = 0;
    for (int64_t number = 0; number < 60; number += 3) {
        for (int64_t i = number; i < number + 3; ++i) {
            ASSERT_EQ(present(i), OK);
        }
        for (int i = 0; i < 3; ++i) {
            AcquiredBuffer picture;
            EXPECT_EQ(take(&picture), next++);
            EXPECT_EQ(picture.frameNumber, static_cast<uint64_t>(next));
            EXPECT_EQ(release(picture.slot), OK);
        }
    }
    EXPECT_EQ(takeAndRelease(), -1);
    EXPECT_EQ(announced, 60);
}

// A window that stops costs pictures, a bounded time each and no memory; what it had been given
// and what waits for it stay as they are.
TEST_P(BufferQueueTest, StoppedConsumerCostsPicturesOnly) {
    AcquiredBuffer kept[BufferQueue::MAX_ACQUIRED];
    for (int i = 0; i < BufferQueue::MAX_ACQUIRED; ++i) {
        ASSERT_EQ(present(i), OK);
        ASSERT_EQ(take(&kept[i]), i);
    }
    const int waiting = fill(BufferQueue::MAX_ACQUIRED);
    EXPECT_GE(waiting, 1);

    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(present(200), WOULD_BLOCK);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));

    AcquiredBuffer more;
    EXPECT_EQ(mConsumer->acquire(&more, 0), INVALID_OPERATION);
    for (int i = 0; i < BufferQueue::MAX_ACQUIRED; ++i) {
        EXPECT_TRUE(shows(kept[i].buffer.get(), i));
        EXPECT_EQ(release(kept[i].slot), OK);
        EXPECT_EQ(release(kept[i].slot), BAD_VALUE);
    }
    ASSERT_EQ(present(210), OK);
    EXPECT_EQ(mConsumer->counters().dropped, 21u);
    for (int i = 0; i < waiting; ++i) {
        EXPECT_EQ(takeAndRelease(), BufferQueue::MAX_ACQUIRED + i);
    }
    EXPECT_EQ(takeAndRelease(), 210);
}

// Buffers of the old size serve those who hold them and then go, everywhere.
TEST_P(BufferQueueTest, SizeChangeFreesOldBuffersAsTheyComeBack) {
    AcquiredBuffer held;
    std::vector<wp<GraphicBuffer>> old;
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(present(i), OK);
    }
    ASSERT_EQ(take(&held), 0);
    sp<GraphicBuffer> unused;
    ASSERT_EQ(dequeue(&unused), OK);
    old.push_back(unused);
    mSurface->cancelBuffer(unused);
    unused.clear();
    old.push_back(held.buffer);
    ANativeWindowBuffer* borrowed = borrow();
    ASSERT_NE(borrowed, nullptr);

    ASSERT_EQ(present(3, 128, 96), OK);
    EXPECT_EQ(old[0].promote(), nullptr) << "an idle buffer of the old size";
    EXPECT_TRUE(shows(held.buffer.get(), 0));
    EXPECT_TRUE(shows(GraphicBuffer::from(borrowed).get(), 2));
    old.push_back(GraphicBuffer::from(borrowed));
    EXPECT_EQ(giveBack(borrowed), OK);
    EXPECT_EQ(takeAndRelease(), 1);
    EXPECT_EQ(takeAndRelease(), 2);
    release(held.slot);
    held = {};
    ASSERT_EQ(take(&held), 3);
    EXPECT_EQ(held.buffer->getWidth(), 128u);
    release(held.slot);
    for (const auto& buffer : old) {
        EXPECT_EQ(buffer.promote(), nullptr);
    }
    ASSERT_EQ(present(4), OK);
    EXPECT_EQ(takeAndRelease(), 4);
}

// A still is read while every other buffer is in use, and disturbs nothing.
TEST_P(BufferQueueTest, LendsThePicturePresentedLast) {
    EXPECT_EQ(borrow(), nullptr) << "nothing was presented yet";
    AcquiredBuffer kept[2];
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(present(i), OK);
        ASSERT_EQ(take(&kept[i]), i);
    }
    const int last = fill(2) + 1;
    ANativeWindowBuffer* borrowed = borrow();
    ASSERT_NE(borrowed, nullptr);
    EXPECT_EQ(borrow(), nullptr) << "one reader at a time";

    android_ycbcr planes;
    GraphicBufferMapper& mapper = GraphicBufferMapper::get();
    EXPECT_EQ(mapper.lockYCbCr(borrowed->handle, 3, Rect(WIDTH, HEIGHT), &planes), OK);
    EXPECT_EQ(mapper.unlock(borrowed->handle), OK);

    // Still the same picture after the window has moved on by a whole round of buffers.
    for (int i = 0; i < 2; ++i) {
        release(kept[i].slot);
    }
    for (int number = 2; number <= last; ++number) {
        EXPECT_EQ(takeAndRelease(), number);
    }
    const int others = fill(100);
    EXPECT_EQ(others, IGraphicBufferProducer::BUFFER_SLOTS - 1);
    for (int number = 100; number < 100 + others; ++number) {
        EXPECT_EQ(takeAndRelease(), number);
    }
    EXPECT_EQ(mConsumer->lastRead().timestamp, last);
    EXPECT_EQ(*static_cast<uint8_t*>(planes.y), last);
    EXPECT_TRUE(shows(GraphicBuffer::from(borrowed).get(), last));

    const uint64_t queued = mConsumer->counters().queued;
    EXPECT_EQ(giveBack(borrowed), OK);
    EXPECT_EQ(giveBack(borrowed), BAD_VALUE);
    EXPECT_EQ(takeAndRelease(), -1) << "a picture given back is not shown again";
    EXPECT_EQ(mConsumer->counters().queued, queued);

    // Nor is the last picture written over between its release and the next one.
    const int shown = 100 + others - 1;
    sp<GraphicBuffer> writing;
    while (dequeue(&writing) == OK) {
        void* pixels = nullptr;
        ASSERT_EQ(writing->lock(GraphicBuffer::USAGE_SW_WRITE_OFTEN, &pixels), OK);
        memset(pixels, 0xFF, writing->getByteSize());
    }
    borrowed = borrow();
    ASSERT_NE(borrowed, nullptr);
    EXPECT_TRUE(shows(GraphicBuffer::from(borrowed).get(), shown));

    // The codec may go while the still is being read.
    EXPECT_EQ(mSurface->disconnect(NATIVE_WINDOW_API_MEDIA), OK);
    mConsumer->abandon();
    EXPECT_TRUE(shows(GraphicBuffer::from(borrowed).get(), shown));
    EXPECT_EQ(giveBack(borrowed), NO_INIT);
}

TEST_P(BufferQueueTest, CropIsTheWindowsAndStaysInsideTheBuffer) {
    constexpr int MIN = std::numeric_limits<int>::min();
    constexpr int MAX = std::numeric_limits<int>::max();
    const struct {
        android_native_rect_t set, shown;
    } cases[] = {{{0, 0, 31, 23}, {0, 0, 31, 23}},      {{8, 4, 63, 47}, {8, 4, 63, 47}},
                 {{-5, -5, 99, 99}, {0, 0, 63, 47}},    {{64, 0, 99, 47}, {0, 0, 63, 47}},
                 {{20, 20, 10, 30}, {0, 0, 63, 47}},    {{MIN, MIN, MAX, MAX}, {0, 0, 63, 47}},
                 {{MAX, MAX, MIN, MIN}, {0, 0, 63, 47}}};
    for (const auto& c : cases) {
        ASSERT_EQ(native_window_set_crop(mSurface.get(), &c.set), OK);
        ASSERT_EQ(present(1), OK);
        AcquiredBuffer picture;
        ASSERT_EQ(take(&picture), 1);
        const android_native_rect_t& crop = picture.input.crop;
        EXPECT_TRUE(crop.left == c.shown.left && crop.top == c.shown.top &&
                    crop.right == c.shown.right && crop.bottom == c.shown.bottom)
            << c.set.left << " " << c.set.top << " " << c.set.right << " " << c.set.bottom;
        release(picture.slot);
    }
    EXPECT_LT(mSurface->perform(mSurface.get(), 99), 0);
}

TEST_P(BufferQueueTest, OneProducerAtATimeAndNoneWithoutConnection) {
    EXPECT_EQ(mSurface->connect(NATIVE_WINDOW_API_CPU), BAD_VALUE);
    EXPECT_EQ(mSurface->disconnect(NATIVE_WINDOW_API_CPU), BAD_VALUE);
    ASSERT_EQ(present(1), OK);
    sp<GraphicBuffer> held[3];
    for (auto& buffer : held) {
        ASSERT_EQ(dequeue(&buffer), OK);
    }
    ASSERT_EQ(mSurface->disconnect(NATIVE_WINDOW_API_MEDIA), OK);
    EXPECT_EQ(present(2), NO_INIT);
    EXPECT_EQ(borrow(), nullptr);
    EXPECT_EQ(mSurface->queueBuffer(held[0], {}), BAD_VALUE);

    // The next codec gets all the slots that the last one kept; its pictures come in order.
    sp<Surface> next = new Surface(mProducer);
    ASSERT_EQ(next->connect(NATIVE_WINDOW_API_MEDIA), OK);
    mSurface = next;
    EXPECT_EQ(fill(2), IGraphicBufferProducer::BUFFER_SLOTS - 1);
    EXPECT_EQ(takeAndRelease(), 1);
    EXPECT_EQ(takeAndRelease(), 2);
}

// Slot numbers come from another process.
TEST_P(BufferQueueTest, RefusesSlotsThatTheProducerDoesNotHold) {
    ASSERT_EQ(present(1), OK);
    for (const int slot : {-1, 0, 1, 5, 6, 99, std::numeric_limits<int>::min()}) {
        sp<GraphicBuffer> buffer;
        EXPECT_EQ(mProducer->requestBuffer(slot, &buffer), BAD_VALUE);
        EXPECT_EQ(mProducer->queueBuffer(slot, {}), BAD_VALUE);
        EXPECT_EQ(mProducer->cancelBuffer(slot), BAD_VALUE);
        EXPECT_EQ(release(slot), BAD_VALUE);
    }
    int slot = -1;
    for (const uint32_t width : {0u, 8193u, 0xFFFFFFFFu}) {
        EXPECT_EQ(mProducer->dequeueBuffer(&slot, width, HEIGHT, PIXEL_FORMAT_YCBCR_420_SP,
                                           GraphicBuffer::USAGE_SW_WRITE_OFTEN),
                  BAD_VALUE);
    }
}

// A queue in another process that answers wrongly, as a hostile window would.
class LyingProducer : public IGraphicBufferProducer {
public:
    int mSlot = 0;
    uint32_t mExtent = 16;
    int mCancelled = 0;

    status_t requestBuffer(int, sp<GraphicBuffer>* buffer) override {
        *buffer = mExtent == 0 ? nullptr
                               : new GraphicBuffer(mExtent, mExtent, PIXEL_FORMAT_YCBCR_420_SP,
                                                   GraphicBuffer::USAGE_SW_WRITE_OFTEN);
        return OK;
    }
    status_t dequeueBuffer(int* slot, uint32_t, uint32_t, PixelFormat, uint64_t) override {
        *slot = mSlot;
        return 0;
    }
    status_t queueBuffer(int, const QueueBufferInput&) override { return OK; }
    status_t cancelBuffer(int) override {
        ++mCancelled;
        return OK;
    }
    status_t query(int, int*) override { return OK; }
    status_t connect(int) override { return OK; }
    status_t disconnect(int) override { return OK; }
};

TEST(SurfaceTest, DoesNotTrustTheQueue) {
    sp<LyingProducer> producer = new LyingProducer;
    sp<Surface> surface = new Surface(producer);
    sp<GraphicBuffer> buffer;
    const auto dequeue = [&] {
        return surface->dequeueBuffer(1920, 1080, PIXEL_FORMAT_YCBCR_420_SP, &buffer);
    };
    EXPECT_EQ(dequeue(), FAILED_TRANSACTION) << "a buffer smaller than the picture";
    EXPECT_EQ(producer->mCancelled, 1);
    for (const int slot : {-1, 6, 1 << 30}) {
        producer->mSlot = slot;
        EXPECT_EQ(dequeue(), FAILED_TRANSACTION);
    }
    producer->mSlot = 1;
    producer->mExtent = 0;
    EXPECT_EQ(dequeue(), NO_MEMORY) << "no buffer at all";
    EXPECT_EQ(buffer, nullptr);

    sp<Surface> none = new Surface(nullptr);
    EXPECT_FALSE(Surface::isValid(none));
    EXPECT_EQ(none->connect(NATIVE_WINDOW_API_MEDIA), NO_INIT);
    EXPECT_EQ(none->dequeueBuffer(16, 16, PIXEL_FORMAT_YCBCR_420_SP, &buffer), NO_INIT);
}

// After the window has gone every call fails at once, and buffers in hand stay usable.
TEST_P(BufferQueueTest, EverythingEndsWithTheConsumer) {
    int width = -1;
    mConsumer->setDisplaySize(1280, 720);
    settle();
    EXPECT_EQ(mSurface->query(NATIVE_WINDOW_WIDTH, &width), OK);
    EXPECT_EQ(width, 1280);
    EXPECT_EQ(mSurface->query(1000, &width), BAD_VALUE);

    ASSERT_EQ(present(1), OK);
    AcquiredBuffer acquired;
    ASSERT_EQ(take(&acquired), 1);
    sp<GraphicBuffer> held;
    ASSERT_EQ(dequeue(&held), OK);
    mConsumer->abandon();
    settle();
    EXPECT_TRUE(shows(acquired.buffer.get(), 1));
    EXPECT_EQ(release(acquired.slot), OK);
    mConsumer.clear();

    void* pixels = nullptr;
    ASSERT_EQ(held->lock(GraphicBuffer::USAGE_SW_WRITE_OFTEN, &pixels), OK);
    memset(pixels, 1, held->getByteSize());
    EXPECT_EQ(mSurface->queueBuffer(held, {}), NO_INIT);
    EXPECT_EQ(present(2), NO_INIT);
    EXPECT_EQ(borrow(), nullptr);
    EXPECT_EQ(mSurface->query(NATIVE_WINDOW_WIDTH, &width), NO_INIT);
    EXPECT_EQ(mSurface->disconnect(NATIVE_WINDOW_API_MEDIA), NO_INIT);
    EXPECT_EQ(mSurface->connect(NATIVE_WINDOW_API_MEDIA), NO_INIT);
}

}  // namespace
