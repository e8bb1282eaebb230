#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <set>
#include <thread>

#include "CodecDriver.h"
#include "graphics/BufferQueue.h"
#include "media/CodecStatistics.h"

using namespace android;
using namespace orvtest;
using orvhost::AcquiredBuffer;
using orvhost::BufferQueue;

namespace {

struct Window {
    sp<IGraphicBufferProducer> producer;
    sp<BufferQueue::Consumer> consumer;
    sp<Surface> surface;

    Window() {
        BufferQueue::create(&producer, &consumer);
        surface = new Surface(producer);
    }
};

struct VideoCase {
    std::string name;
    VideoOptions options;
};

void PrintTo(const VideoCase& test, std::ostream* out) {
    *out << test.name;
}

class VideoStreamTest : public testing::TestWithParam<VideoCase> {};

// Each picture comes out once, in order, with its own time, and arrives in the window as it was.
TEST_P(VideoStreamTest, ShowsEachPictureOnceInOrder) {
    const VideoOptions& options = GetParam().options;
    const Stream stream = encodeVideo(options);
    ASSERT_EQ(stream.units.size(), static_cast<size_t>(options.frames));
    Window window;
    CodecDriver driver("video/avc", window.surface);
    ASSERT_EQ(driver.configureAndStart(), OK);
    driver.render = true;
    int shown = 0;
    driver.onOutput = [&](const Output& output) {
        AcquiredBuffer picture;
        ASSERT_EQ(window.consumer->acquire(&picture, 0), OK);
        EXPECT_EQ(picture.input.timestamp, output.timeUs * 1000);
        EXPECT_EQ(picture.input.interlaced, options.interlaced);
        EXPECT_EQ(picture.input.topFieldFirst, options.interlaced);
        EXPECT_EQ(picture.input.sampleAspectWidth, 4u);
        EXPECT_EQ(picture.input.sampleAspectHeight, 3u);
        EXPECT_EQ(picture.input.crop.right, options.width - 1);
        EXPECT_EQ(picture.input.crop.bottom, options.height - 1);
        EXPECT_EQ(picture.input.dataSpace & HAL_DATASPACE_STANDARD_MASK,
                  static_cast<int>(HAL_DATASPACE_STANDARD_BT709));
        android_ycbcr planes;
        ASSERT_EQ(picture.buffer->lockYCbCr(GraphicBuffer::USAGE_SW_READ_OFTEN, &planes), OK);
        const size_t bottom = static_cast<size_t>(options.height - 1);
        const size_t right = static_cast<size_t>(options.width - 1);
        const auto* y = static_cast<uint8_t*>(planes.y);
        const auto* cb = static_cast<uint8_t*>(planes.cb);
        const auto* cr = static_cast<uint8_t*>(planes.cr);
        const size_t lastChroma = bottom / 2 * planes.cstride + right / 2 * 2;
        EXPECT_NEAR(y[0], lumaOfFrame(shown), 2);
        EXPECT_NEAR(y[bottom * planes.ystride + right], lumaOfFrame(shown), 2);
        EXPECT_NEAR(cb[lastChroma], 90, 2);
        EXPECT_NEAR(cr[lastChroma], 160, 2);
        picture.buffer->unlock();
        window.consumer->release(picture.slot);
        ++shown;
    };
    driver.play(stream);

    EXPECT_EQ(driver.events, "F.");
    EXPECT_EQ(driver.times(), stream.timesInOrder());
    ASSERT_EQ(driver.formats.size(), 1u);
    const auto& format = driver.formats[0];
    EXPECT_EQ(int32Of(format, "width"), options.width);
    EXPECT_EQ(int32Of(format, "height"), options.height);
    EXPECT_EQ(int32Of(format, "color-format"), 0x105);
    int32_t left = -1, top = -1, right = -1, bottom = -1;
    ASSERT_TRUE(format->findRect("crop", &left, &top, &right, &bottom));
    EXPECT_EQ((std::vector{left, top, right, bottom}),
              (std::vector{0, 0, options.width - 1, options.height - 1}));
}

INSTANTIATE_TEST_SUITE_P(
    Streams, VideoStreamTest,
    testing::Values(
        VideoCase{"NoReordering", {.x264 = "bframes=0"}},
        VideoCase{"Reordered", {.x264 = "bframes=2:b-pyramid=none"}},
        VideoCase{"Pyramid", {.x264 = "bframes=3:b-pyramid=normal:ref=4"}},
        VideoCase{"OpenGroups", {.x264 = "bframes=2:open-gop=1"}},
        VideoCase{"Slices", {.x264 = "bframes=2:slices=4"}},
        VideoCase{
            "Interlaced",
            {.width = 320, .height = 256, .x264 = "bframes=2:tff=1:slices=4", .interlaced = true}},
        VideoCase{"Cropped", {.width = 318, .height = 234}}),
    [](const auto& tested) { return tested.param.name; });

// Two fields make one picture with the time of the first, whether they come as one unit or as two.
TEST(VideoCodecTest, JoinsFieldPictures) {
    const Stream fields = makeFieldPairs(30);
    Stream pairs;
    for (size_t i = 0; i < fields.units.size(); i += 2) {
        Unit pair = fields.units[i];
        const auto& second = fields.units[i + 1].bytes;
        pair.bytes.insert(pair.bytes.end(), second.begin(), second.end());
        pairs.units.push_back(pair);
    }
    for (const Stream& stream : {fields, pairs}) {
        Window window;
        CodecDriver driver("video/avc", window.surface);
        ASSERT_EQ(driver.configureAndStart(), OK);
        driver.render = true;
        int shown = 0;
        driver.onOutput = [&](const Output&) {
            AcquiredBuffer picture;
            ASSERT_EQ(window.consumer->acquire(&picture, 0), OK);
            EXPECT_TRUE(picture.input.interlaced);
            EXPECT_TRUE(picture.input.topFieldFirst);
            android_ycbcr planes;
            ASSERT_EQ(picture.buffer->lockYCbCr(GraphicBuffer::USAGE_SW_READ_OFTEN, &planes), OK);
            const auto* y = static_cast<uint8_t*>(planes.y);
            EXPECT_EQ(y[62 * planes.ystride], lumaOfFrame(shown));
            EXPECT_EQ(y[63 * planes.ystride], lumaOfFrame(shown) + 20);
            picture.buffer->unlock();
            window.consumer->release(picture.slot);
            ++shown;
        };
        driver.play(stream);
        EXPECT_EQ(driver.times(), pairs.timesInOrder());
    }
}

// The last picture of one size and the first of the next have the announcement between them.
TEST(VideoCodecTest, AnnouncesEachSize) {
    const Stream small = encodeVideo({.frames = 12});
    Stream both = small;
    for (const Unit& unit :
         encodeVideo({.width = 640, .height = 360, .frames = 12}).delayed(12 * FRAME_US).units) {
        both.units.push_back(unit);
    }
    CodecDriver driver("video/avc");
    ASSERT_EQ(driver.configureAndStart(), OK);
    driver.play(both);
    EXPECT_EQ(driver.events, "F.F.");
    EXPECT_EQ(driver.times(), both.timesInOrder());
    ASSERT_EQ(driver.formats.size(), 2u);
    EXPECT_EQ(int32Of(driver.formats[0], "width"), 320);
    EXPECT_EQ(int32Of(driver.formats[1], "width"), 640);
}

// With all output buffers out the codec takes a few more units and then no more; nothing is lost
// once they come back.
TEST(VideoCodecTest, StallsWhileAllPicturesAreOut) {
    const Stream stream = encodeVideo({.frames = 60});
    CodecDriver driver("video/avc");
    ASSERT_EQ(driver.configureAndStart(), OK);
    std::vector<size_t> held;
    std::vector<int64_t> times;
    size_t fed = 0;
    // Feeds and keeps what comes until `count` pictures came, then looks that there are no more.
    const auto takeAndHold = [&](size_t count) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        status_t result = OK;
        while (times.size() < count + (result == -EAGAIN ? 0 : 1)) {
            while (fed < stream.units.size() && driver.feed(&stream.units[fed], 0, 0)) {
                ++fed;
            }
            size_t index, offset, size;
            int64_t timeUs;
            uint32_t flags;
            result =
                driver.codec->dequeueOutputBuffer(&index, &offset, &size, &timeUs, &flags, 50000);
            if (result == OK) {
                held.push_back(index);
                times.push_back(timeUs);
            }
            ASSERT_LT(std::chrono::steady_clock::now(), deadline);
        }
        EXPECT_EQ(times.size(), count);
    };
    takeAndHold(8);
    EXPECT_EQ(std::set<size_t>(held.begin(), held.end()).size(), 8u);
    EXPECT_LT(fed, 30u);
    size_t index = 0;
    EXPECT_EQ(driver.codec->dequeueInputBuffer(&index, 1000), -EAGAIN);

    ASSERT_EQ(driver.codec->releaseOutputBuffer(held.front()), OK);
    takeAndHold(9);

    for (size_t i = 1; i < held.size(); ++i) {
        ASSERT_EQ(driver.codec->releaseOutputBuffer(held[i]), OK);
    }
    std::thread feeder([&] {
        for (; fed < stream.units.size(); ++fed) {
            EXPECT_TRUE(driver.feed(&stream.units[fed]));
        }
        EXPECT_TRUE(driver.feed(nullptr));
    });
    driver.takeAll();
    feeder.join();
    for (const int64_t timeUs : driver.times()) {
        times.push_back(timeUs);
    }
    EXPECT_EQ(times, stream.timesInOrder());
}

// A window that keeps its buffers costs pictures, not time, whatever time the stream says it is.
TEST(VideoCodecTest, DropsPicturesThatTheWindowHasNoRoomFor) {
    const Stream stream = encodeVideo({.frames = 20}).delayed(100'000'000'000'000'000);
    Window window;
    CodecDriver driver("video/avc", window.surface);
    ASSERT_EQ(driver.configureAndStart(), OK);
    driver.render = true;
    auto& statistics = orvhost::codecStatistics();
    const uint64_t shown = statistics.picturesRendered;
    const uint64_t dropped = statistics.picturesDroppedAtWindow;
    const auto begin = std::chrono::steady_clock::now();
    driver.play(stream);
    const auto taken = std::chrono::steady_clock::now() - begin;
    EXPECT_EQ(driver.times(), stream.timesInOrder());
    EXPECT_GE(statistics.picturesDroppedAtWindow - dropped,
              20u - IGraphicBufferProducer::BUFFER_SLOTS);
    EXPECT_EQ(statistics.picturesRendered - shown + statistics.picturesDroppedAtWindow - dropped,
              20u);
    EXPECT_LT(taken, std::chrono::seconds(5));
}

// What is left of a group of pictures whose start was missed is not shown.
TEST(VideoCodecTest, StartsWithAPictureThatStandsByItself) {
    const Stream stream = encodeVideo({.frames = 50, .x264 = "bframes=2:open-gop=0"});
    Stream cut = stream;
    cut.units.erase(cut.units.begin(), cut.units.begin() + 7);
    // A tuner joins anywhere, but parameter sets come with every group: keep them for the rest of
    // this one.
    const auto& first = stream.units[0].bytes;
    const uint8_t idr[] = {0, 0, 1, 0x65};
    const auto slice = std::search(first.begin(), first.end(), std::begin(idr), std::end(idr));
    ASSERT_NE(slice, first.end());
    auto& bytes = cut.units[0].bytes;
    bytes.insert(bytes.begin(), first.begin(), slice);
    CodecDriver driver("video/avc");
    ASSERT_EQ(driver.configureAndStart(), OK);
    const uint64_t heldBack = orvhost::codecStatistics().picturesHeldBack;
    driver.play(cut);
    ASSERT_FALSE(driver.outputs.empty());
    EXPECT_EQ(driver.outputs.front().timeUs, stream.timesInOrder()[20]);
    EXPECT_EQ(driver.outputs.size(), 30u);
    EXPECT_GT(orvhost::codecStatistics().picturesHeldBack, heldBack);
}

// A parameter set may claim any size. Beyond what broadcasts use no picture is made at all.
TEST(VideoCodecTest, RefusesHugePictures) {
    Stream stream = encodeVideo({.width = 4112, .height = 2304, .frames = 1});
    const Stream clean = encodeVideo({.frames = 10}).delayed(FRAME_US);
    stream.units.insert(stream.units.end(), clean.units.begin(), clean.units.end());
    CodecDriver driver("video/avc");
    ASSERT_EQ(driver.configureAndStart(), OK);
    const uint64_t damaged = orvhost::codecStatistics().videoUnitsDamaged;
    driver.play(stream);
    EXPECT_EQ(driver.times(), clean.timesInOrder());
    EXPECT_GT(orvhost::codecStatistics().videoUnitsDamaged, damaged);
}

// Random bytes, cut and bent units: no crash, and clean units show again afterwards.
TEST(VideoCodecTest, SurvivesDamage) {
    const Stream clean = encodeVideo({.frames = 60, .x264 = "bframes=2:slices=2"});
    std::mt19937 random(7);
    Stream damaged;
    for (int i = 0; i < 50; ++i) {
        Unit noise;
        noise.timeUs = i;
        noise.bytes.resize(1 + random() % 3000);
        for (uint8_t& byte : noise.bytes) {
            byte = static_cast<uint8_t>(random());
        }
        noise.bytes.insert(noise.bytes.begin(), {0, 0, 1, static_cast<uint8_t>(i % 32)});
        damaged.units.push_back(noise);
    }
    for (Unit unit : clean.units) {
        for (int flips = 0; flips < 3; ++flips) {
            unit.bytes[random() % unit.bytes.size()] ^= static_cast<uint8_t>(1u << random() % 8);
        }
        unit.bytes.resize(1 + random() % unit.bytes.size());
        damaged.units.push_back(unit);
    }
    const Stream tail = clean.delayed(1000 * FRAME_US);
    for (const Unit& unit : tail.units) {
        damaged.units.push_back(unit);
    }
    CodecDriver driver("video/avc");
    ASSERT_EQ(driver.configureAndStart(), OK);
    const uint64_t damage = orvhost::codecStatistics().videoUnitsDamaged;
    driver.play(damaged);
    EXPECT_GT(orvhost::codecStatistics().videoUnitsDamaged, damage);
    std::vector<int64_t> times = driver.times();
    std::erase_if(times, [](int64_t timeUs) { return timeUs < 1000 * FRAME_US; });
    EXPECT_EQ(times, tail.timesInOrder());
}

}  // namespace
