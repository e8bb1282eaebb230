#include <cutils/ashmem.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <ui/GraphicBuffer.h>
#include <ui/GraphicBufferMapper.h>
#include <unistd.h>

#include <cstring>

using namespace android;

namespace {

constexpr PixelFormat FORMAT = PIXEL_FORMAT_YCBCR_420_SP;
constexpr uint64_t READ = GraphicBuffer::USAGE_SW_READ_OFTEN;
constexpr uint64_t WRITE = GraphicBuffer::USAGE_SW_WRITE_OFTEN;

struct Layout {
    uint32_t width, height, stride;
    size_t bytes;
};

class GraphicBufferLayoutTest : public testing::TestWithParam<Layout> {};

// Rows, planes and length fit each other, and every byte of it may be written.
TEST_P(GraphicBufferLayoutTest, PlanesFillTheMemory) {
    const Layout expected = GetParam();
    sp<GraphicBuffer> buffer = new GraphicBuffer(expected.width, expected.height, FORMAT, WRITE);
    ASSERT_EQ(buffer->initCheck(), OK);
    EXPECT_EQ(buffer->getStride(), expected.stride);
    EXPECT_EQ(buffer->getByteSize(), expected.bytes);
    android_ycbcr planes;
    ASSERT_EQ(buffer->lockYCbCr(WRITE, &planes), OK);
    EXPECT_EQ(static_cast<uint8_t*>(planes.cb) - static_cast<uint8_t*>(planes.y),
              static_cast<ptrdiff_t>(expected.stride * expected.height));
    EXPECT_EQ(static_cast<uint8_t*>(planes.cr) - static_cast<uint8_t*>(planes.cb), 1);
    EXPECT_EQ(planes.ystride, expected.stride);
    EXPECT_EQ(planes.cstride, expected.stride);
    EXPECT_EQ(planes.chroma_step, 2u);
    memset(planes.y, 0x5A, expected.bytes);
    EXPECT_EQ(buffer->unlock(), OK);
}
INSTANTIATE_TEST_SUITE_P(Sizes, GraphicBufferLayoutTest,
                         testing::Values(Layout{1920, 1080, 1920, 3110400},
                                         Layout{1440, 1080, 1440, 2332800},
                                         Layout{321, 241, 322, 322 * (241 + 121)},
                                         Layout{1, 1, 2, 4}, Layout{8192, 1, 8192, 16384}));

TEST(GraphicBufferTest, RefusesWhatAStreamMustNotAsk) {
    const struct {
        uint32_t width, height;
        PixelFormat format;
    } cases[] = {{0, 1080, FORMAT},  {1920, 0, FORMAT},        {8193, 16, FORMAT},
                 {16, 8193, FORMAT}, {0xFFFFFFFF, 16, FORMAT}, {0x80000000, 0x80000000, FORMAT},
                 {1920, 1080, 19},   {1920, 1080, 0}};
    for (const auto& c : cases) {
        sp<GraphicBuffer> buffer = new GraphicBuffer(c.width, c.height, c.format, WRITE);
        void* address = nullptr;
        EXPECT_EQ(buffer->initCheck(), BAD_VALUE) << c.width << " x " << c.height;
        EXPECT_EQ(buffer->lock(READ, &address), NO_INIT);
        EXPECT_EQ(buffer->getByteSize(), 0u);
    }
}

TEST(GraphicBufferTest, LocksOnlyWhatLiesInside) {
    sp<GraphicBuffer> buffer = new GraphicBuffer(64, 48, FORMAT, WRITE);
    GraphicBufferMapper& mapper = GraphicBufferMapper::get();
    const struct {
        Rect bounds;
        uint32_t usage;
        status_t result;
    } cases[] = {{Rect(64, 48), 3, OK},
                 {Rect(10, 10, 20, 20), 3, OK},
                 {Rect(65, 48), 3, BAD_VALUE},
                 {Rect(64, 49), 3, BAD_VALUE},
                 {Rect(0, 48), 3, BAD_VALUE},
                 {Rect(-1, 0, 64, 48), 3, BAD_VALUE},
                 {Rect(20, 0, 10, 8), 3, BAD_VALUE},
                 {Rect(64, 48), 0, BAD_VALUE}};
    for (const auto& c : cases) {
        android_ycbcr planes;
        EXPECT_EQ(mapper.lockYCbCr(buffer->handle, c.usage, c.bounds, &planes), c.result);
        EXPECT_EQ(mapper.unlock(buffer->handle), c.result == OK ? OK : INVALID_OPERATION);
    }
    void* address = nullptr;
    EXPECT_EQ(mapper.lock(nullptr, 3, Rect(1, 1), &address), BAD_VALUE);
    EXPECT_EQ(mapper.unlock(nullptr), BAD_VALUE);
}

// The other process sees the same memory, and can be kept from writing to it.
TEST(GraphicBufferTest, CrossesABorderAsADescriptor) {
    sp<GraphicBuffer> ours = new GraphicBuffer(64, 48, FORMAT, WRITE);
    sp<GraphicBuffer> theirs = new GraphicBuffer(64, 48, FORMAT, READ, dup(ours->getDescriptor()));
    ASSERT_EQ(theirs->initCheck(), OK);
    void* written = nullptr;
    void* read = nullptr;
    ASSERT_EQ(ours->lock(WRITE, &written), OK);
    memset(written, 0x42, ours->getByteSize());
    ASSERT_EQ(theirs->lock(READ, &read), OK);
    EXPECT_EQ(memcmp(read, written, ours->getByteSize()), 0);
    EXPECT_EQ(theirs->lock(WRITE, &read), PERMISSION_DENIED);
}

// A hostile peer's memory could vanish under the mapping or be too short for the picture.
TEST(GraphicBufferTest, RefusesMemoryThatMayShrinkOrIsShort) {
    const size_t bytes = GraphicBuffer::byteSizeOf(64, 48, FORMAT);
    const int unsealed = memfd_create("unsealed", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    ASSERT_EQ(ftruncate(unsealed, static_cast<off_t>(bytes)), 0);
    const int notMemory = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int fd : {unsealed, notMemory, ashmem_create_region("short", bytes - 1), -1}) {
        sp<GraphicBuffer> buffer = new GraphicBuffer(64, 48, FORMAT, WRITE, fd);
        EXPECT_EQ(buffer->initCheck(), BAD_VALUE);
        EXPECT_EQ(fcntl(fd, F_GETFD), -1) << "left open";
    }
}

}  // namespace
