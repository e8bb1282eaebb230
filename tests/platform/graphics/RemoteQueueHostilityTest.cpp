#include <cutils/ashmem.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <climits>
#include <functional>
#include <random>

#include "QueueFixture.h"
#include "graphics/ProducerWire.h"

using namespace android;
namespace wire = orvhost::producerwire;

namespace {

// An application whose queue says what a test wants it to say.
class HostileQueue : public BBinder {
public:
    sp<IBinder> mLink;
    int64_t mSession = 0;
    uint32_t mGeneration = 0;

    void say(uint32_t code, const std::function<void(Parcel&)>& write) {
        Parcel data;
        data.writeInterfaceToken(wire::LINK_DESCRIPTOR);
        write(data);
        EXPECT_EQ(mLink->transact(code, data, nullptr, FLAG_ONEWAY), OK);
    }
    // The descriptor is the queue's no more; -2: none is sent, although one is announced.
    void credit(uint32_t generation, int slot, bool hasMemory, int fd = -2) {
        say(wire::CREDIT, [&](Parcel& data) {
            data.writeUint32(generation);
            data.writeInt32(slot);
            data.writeInt32(hasMemory);
            if (fd >= 0) {
                data.writeFileDescriptor(fd, true);
            }
        });
    }

protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel*, uint32_t) override {
        EXPECT_TRUE(data.enforceInterface(IGraphicBufferProducer::descriptor));
        if (code == wire::CONNECT) {
            mSession = data.readInt64();
            data.readInt32();
            mLink = data.readStrongBinder();
        } else if (code == wire::REQUEST_BUFFERS) {
            data.readInt64();
            mGeneration = data.readUint32();
        }
        return OK;
    }
};

class HostileApplicationTest : public QueueFixture {
protected:
    void SetUp() override {
        mLoopback = std::make_unique<Loopback>();
        mHostile = new HostileQueue;
        mQueue = mHostile;
        mProducer = newProxy();
        mSurface = new Surface(mProducer);
        ASSERT_EQ(mSurface->connect(NATIVE_WINDOW_API_MEDIA), OK);
        EXPECT_EQ(present(0), WOULD_BLOCK);
        ASSERT_NE(mHostile->mGeneration, 0u);
    }

    static int memory(size_t bytes) { return ashmem_create_region("GraphicBuffer", bytes); }

    static int unsealedMemory() {
        const int fd = memfd_create("unsealed", MFD_CLOEXEC | MFD_ALLOW_SEALING);
        EXPECT_EQ(ftruncate(fd, static_cast<off_t>(BYTES)), 0);
        return fd;
    }

    static int readOnlyMemory() {
        const int fd = memory(BYTES);
        EXPECT_EQ(fcntl(fd, F_ADD_SEALS, F_SEAL_WRITE), 0);
        return fd;
    }

    static constexpr size_t BYTES = 64 * 48 * 3 / 2;
    sp<HostileQueue> mHostile;
};

// Nothing of this may be used, and an honest credit after it is.
TEST_F(HostileApplicationTest, BadCreditsAreNoCredits) {
    const uint32_t generation = mHostile->mGeneration;
    for (const int slot : {-1, 6, 1 << 30, INT_MIN, INT_MAX}) {
        mHostile->credit(generation, slot, true, memory(BYTES));
        mHostile->credit(generation, slot, false);
    }
    mHostile->credit(generation, 0, true, memory(BYTES - 1));
    mHostile->credit(generation, 0, true, unsealedMemory());
    mHostile->credit(generation, 0, true, readOnlyMemory());
    mHostile->credit(generation, 0, true, open("/dev/null", O_RDWR | O_CLOEXEC));
    mHostile->credit(generation, 0, true);   // announced and not sent
    mHostile->credit(generation, 0, false);  // known, it says
    for (const uint32_t stale : {generation - 1, generation + 1, 0u, UINT_MAX}) {
        mHostile->credit(stale, 0, true, memory(BYTES));
    }
    settle();
    EXPECT_EQ(present(1), WOULD_BLOCK);

    mHostile->credit(generation, 3, true, memory(BYTES));
    settle();
    sp<GraphicBuffer> writing;
    ASSERT_EQ(dequeue(&writing), OK);
    // What is being written to cannot be exchanged; nor is the slot given away twice.
    mHostile->credit(generation, 3, true, memory(BYTES));
    mHostile->credit(generation, 3, false);
    settle();
    void* pixels = nullptr;
    ASSERT_EQ(writing->lock(GraphicBuffer::USAGE_SW_WRITE_OFTEN, &pixels), OK);
    memset(pixels, 7, writing->getByteSize());
    EXPECT_EQ(present(2), WOULD_BLOCK);
    EXPECT_EQ(mSurface->queueBuffer(writing, {}), OK);

    // The picture queued last is lent, and its slot credited against the rules: whoever reads it
    // is not disturbed.
    ANativeWindowBuffer* borrowed = borrow();
    ASSERT_NE(borrowed, nullptr);
    mHostile->credit(generation, 3, false);
    settle();
    EXPECT_EQ(present(3), WOULD_BLOCK);
    EXPECT_TRUE(shows(writing.get(), 7));
    EXPECT_EQ(giveBack(borrowed), OK);
    EXPECT_EQ(present(4), OK);
}

TEST_F(HostileApplicationTest, AbsurdAndShortMessagesChangeNothing) {
    const auto sayDisplay = [&](int width, int height) {
        mHostile->say(wire::DISPLAY_SIZE, [&](Parcel& data) {
            data.writeInt32(width);
            data.writeInt32(height);
        });
    };
    sayDisplay(1280, 720);
    for (const int extent : {-1, INT_MIN, INT_MAX}) {
        sayDisplay(extent, 720);
        sayDisplay(1280, extent);
    }
    mHostile->say(wire::DISPLAY_SIZE, [](Parcel& data) { data.writeInt32(5); });
    settle();
    int width = 0;
    EXPECT_EQ(mSurface->query(NATIVE_WINDOW_WIDTH, &width), OK);
    EXPECT_EQ(width, 1280);
    mHostile->say(wire::ENDED, [&](Parcel& data) {
        data.writeInt64(mHostile->mSession + 1);
        data.writeInt32(NO_INIT);
    });
    // Bytes of every length, with and without the token.
    std::mt19937 random(1);
    for (int i = 0; i < 600; ++i) {
        Parcel data;
        if (i % 3 != 0) {
            data.writeInterfaceToken(wire::LINK_DESCRIPTOR);
        }
        for (size_t words = random() % 6; words > 0; --words) {
            data.writeUint32(random() % 2 == 0 ? static_cast<uint32_t>(random()) : random() % 8);
        }
        mHostile->mLink->transact(wire::CREDIT + i % 4, data, nullptr, IBinder::FLAG_ONEWAY);
        settle();
    }
    mHostile->credit(mHostile->mGeneration, 0, true, memory(BYTES));
    settle();
    EXPECT_EQ(present(1), OK);
}

class HostileServiceTest : public QueueFixture {
protected:
    void say(uint32_t code, const std::function<void(Parcel&)>& write) {
        Parcel data;
        data.writeInterfaceToken(IGraphicBufferProducer::descriptor);
        write(data);
        const auto queue = mLoopback->proxyOf(Loopback::APPLICATION, mQueue);
        EXPECT_EQ(queue->transact(code, data, nullptr, IBinder::FLAG_ONEWAY), OK);
        settle();
    }

    // Every call but the last with a session and anything behind it.
    void babble(int64_t session) {
        std::mt19937 random(1);
        for (uint32_t i = 0; i < 1000; ++i) {
            say(wire::CONNECT + i % 4, [&](Parcel& data) {
                data.writeInt64(session);
                for (size_t words = random() % 14; words > 0; --words) {
                    const uint32_t choice[] = {
                        static_cast<uint32_t>(random()), PIXEL_FORMAT_YCBCR_420_SP,
                        static_cast<uint32_t>(random() % 6), static_cast<uint32_t>(random() % 6)};
                    data.writeUint32(choice[random() % 4]);
                }
            });
        }
    }
};

// What anybody who got hold of the queue's binder may say to it while a producer is connected.
TEST_F(HostileServiceTest, StrangersDoNotDisturbTheQueue) {
    makeQueue(Place::REMOTE);
    ASSERT_EQ(present(1), OK);
    babble(0);
    say(wire::DISCONNECT, [](Parcel& data) { data.writeInt64(0); });
    EXPECT_EQ(takeAndRelease(), 1);
    EXPECT_EQ(fill(2), IGraphicBufferProducer::BUFFER_SLOTS);
    EXPECT_EQ(mConsumer->counters().queued, 7u);
}

// A producer that talks nonsense: nothing of it outlives its session.
TEST_F(HostileServiceTest, NonsenseEndsWithItsSession) {
    makeQueue(Place::REMOTE);
    ASSERT_EQ(mSurface->disconnect(NATIVE_WINDOW_API_MEDIA), OK);
    settle();
    const sp<BBinder> link = new BBinder;
    say(wire::CONNECT, [&](Parcel& data) {
        data.writeInt64(5);
        data.writeInt32(NATIVE_WINDOW_API_CPU);
        data.writeStrongBinder(link);
    });
    const auto local = interface_cast<IGraphicBufferProducer>(mQueue);
    EXPECT_EQ(local->connect(NATIVE_WINDOW_API_CPU), BAD_VALUE);
    babble(5);
    for (orvhost::AcquiredBuffer picture; mConsumer->acquire(&picture, 0) == OK;) {
        const android_native_rect_t& crop = picture.input.crop;
        EXPECT_TRUE(crop.left >= 0 && crop.left <= crop.right && crop.top >= 0 &&
                    crop.top <= crop.bottom && crop.right < picture.buffer->width &&
                    crop.bottom < picture.buffer->height);
        release(picture.slot);
    }
    EXPECT_GT(mConsumer->counters().queued, 0u) << "some of it made sense";
    say(wire::DISCONNECT, [](Parcel& data) { data.writeInt64(5); });
    ASSERT_EQ(mSurface->connect(NATIVE_WINDOW_API_MEDIA), OK);
    EXPECT_EQ(fill(1), IGraphicBufferProducer::BUFFER_SLOTS);
}

}  // namespace
