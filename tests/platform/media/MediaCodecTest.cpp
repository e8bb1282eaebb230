#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <thread>

#include "CodecDriver.h"
#include "media/Av.h"

using namespace android;
using namespace orvtest;

namespace {

TEST(MediaCodecTest, KnowsItsComponents) {
    sp<ALooper> looper = new ALooper;
    struct {
        bool byName;
        const char* asked;
        const char* name;  // null: refused
    } const cases[] = {
        {false, "video/avc", "OMX.orv.avc.dec"},  {false, "audio/mp4a-latm", "OMX.orv.aac.dec"},
        {false, "audio/mpeg", "OMX.QEL.mp3.dec"}, {true, "OMX.QEL.mp3.dec", "OMX.QEL.mp3.dec"},
        {false, "video/hevc", nullptr},           {true, "video/avc", nullptr},
    };
    for (const auto& test : cases) {
        status_t error = OK;
        sp<MediaCodec> codec = test.byName
                                   ? MediaCodec::CreateByComponentName(looper, test.asked, &error)
                                   : MediaCodec::CreateByType(looper, test.asked, false, &error);
        ASSERT_EQ(codec != nullptr, test.name != nullptr) << test.asked;
        EXPECT_EQ(error == OK, test.name != nullptr);
        if (codec != nullptr) {
            AString name;
            EXPECT_EQ(codec->getName(&name), OK);
            EXPECT_STREQ(name.c_str(), test.name);
        }
    }
    EXPECT_EQ(MediaCodec::CreateByType(looper, "video/avc", true), nullptr);
    EXPECT_EQ(MediaCodec::CreateByType(nullptr, "video/avc", false), nullptr);
}

// Everything but stop() and release() is refused outside its state.
TEST(MediaCodecTest, RefusesCallsInTheWrongState) {
    CodecDriver driver("video/avc");
    const sp<MediaCodec>& codec = driver.codec;
    const auto expectNotStarted = [&] {
        size_t index = 0, offset, size;
        int64_t timeUs;
        uint32_t flags;
        AString detail;
        sp<AMessage> format;
        Vector<sp<MediaCodecBuffer>> buffers;
        EXPECT_EQ(codec->dequeueInputBuffer(&index, WAIT_US), -38);
        EXPECT_EQ(codec->queueInputBuffer(0, 0, 0, 0, 0, &detail), -38);
        EXPECT_FALSE(detail.empty());
        EXPECT_EQ(codec->dequeueOutputBuffer(&index, &offset, &size, &timeUs, &flags, WAIT_US),
                  -38);
        EXPECT_EQ(codec->releaseOutputBuffer(0), -38);
        EXPECT_EQ(codec->renderOutputBufferAndRelease(0), -38);
        EXPECT_EQ(codec->getOutputFormat(&format), -38);
        EXPECT_EQ(codec->getInputBuffers(&buffers), -38);
        EXPECT_EQ(codec->getOutputBuffers(&buffers), -38);
    };
    expectNotStarted();
    EXPECT_EQ(codec->start(), -38);
    EXPECT_EQ(codec->stop(), OK);

    sp<AMessage> format = new AMessage;
    EXPECT_EQ(codec->configure(nullptr, nullptr, nullptr, 0), BAD_VALUE);
    EXPECT_EQ(codec->configure(format, nullptr, nullptr, 1), ERROR_UNSUPPORTED);
    format->setString("mime", "audio/mpeg");
    EXPECT_EQ(codec->configure(format, nullptr, nullptr, 0), BAD_VALUE);

    ASSERT_EQ(driver.configureAndStart(), OK);
    EXPECT_EQ(codec->start(), -38);
    EXPECT_EQ(codec->configure(new AMessage, nullptr, nullptr, 0), -38);
    EXPECT_EQ(codec->stop(), OK);
    expectNotStarted();
    EXPECT_EQ(codec->release(), OK);
    EXPECT_EQ(codec->release(), OK);
    EXPECT_EQ(codec->configure(new AMessage, nullptr, nullptr, 0), -38);
}

TEST(MediaCodecTest, ChecksIndicesAndRanges) {
    CodecDriver driver("video/avc");
    ASSERT_EQ(driver.configureAndStart(), OK);
    const sp<MediaCodec>& codec = driver.codec;
    Vector<sp<MediaCodecBuffer>> buffers;
    ASSERT_EQ(codec->getInputBuffers(&buffers), OK);
    const size_t capacity = buffers[0]->capacity();
    EXPECT_GE(capacity, 4u * 1024 * 1024);

    size_t index = 0;
    ASSERT_EQ(codec->dequeueInputBuffer(&index), OK);
    AString detail;
    EXPECT_EQ(codec->queueInputBuffer(99, 0, 0, 0, 0, &detail), -ERANGE);
    EXPECT_EQ(codec->queueInputBuffer(index ^ 1, 0, 0, 0, 0, &detail), -EACCES);
    EXPECT_EQ(codec->queueInputBuffer(index, 0, capacity + 1, 0, 0, &detail), BAD_VALUE);
    EXPECT_EQ(codec->queueInputBuffer(index, SIZE_MAX, 2, 0, 0, &detail), BAD_VALUE);
    EXPECT_FALSE(detail.empty());
    EXPECT_EQ(codec->releaseOutputBuffer(0), -EACCES);
    EXPECT_EQ(codec->releaseOutputBuffer(99), -ERANGE);

    // An empty buffer is taken and comes round again, however often.
    EXPECT_EQ(codec->queueInputBuffer(index, 0, 0, 0, 0), OK);
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(codec->dequeueInputBuffer(&index, WAIT_US), OK);
        ASSERT_EQ(codec->queueInputBuffer(index, 0, 0, i, 0), OK);
    }
    size_t offset, size;
    int64_t timeUs;
    uint32_t flags;
    EXPECT_EQ(codec->dequeueOutputBuffer(&index, &offset, &size, &timeUs, &flags, 1000), -EAGAIN);
}

// Stopping in the middle of the work, with both clients waiting: they come back at once, nothing
// of the old run shows up in the new one, and no thread is left.
TEST(MediaCodecTest, StopsAndStartsAnyNumberOfTimes) {
    const Stream stream = encodeVideo({.frames = 60});
    const size_t threadsBefore = threadCount();
    {
        CodecDriver driver("video/avc");
        for (int round = 0; round < 10; ++round) {
            ASSERT_EQ(driver.configureAndStart(), OK);
            const Stream later = stream.delayed(round * 1000000000LL);
            std::atomic<int> taken = 0;
            std::thread feeder([&] {
                size_t next = 0;
                while (driver.feed(&later.units[next])) {
                    next = (next + 1) % later.units.size();
                }
            });
            std::thread taker([&] {
                size_t index;
                Output output;
                uint32_t flags;
                status_t result = OK;
                while (result != INVALID_OPERATION) {
                    result = driver.awaitOutput(&index, &output, &flags);
                    if (result == OK) {
                        EXPECT_GE(output.timeUs, round * 1000000000LL);
                        ++taken;
                        taken.notify_one();
                        if (taken < 20) {
                            driver.codec->releaseOutputBuffer(index);
                        }
                    }
                }
            });
            // 20 pictures on, buffers are kept: in the odd rounds the codec is stalled when it
            // stops, in the even ones it is at work.
            for (int seen = 0; seen < (round % 2 == 0 ? 10 : 27); seen = taken) {
                taken.wait(seen);
            }
            const auto begin = std::chrono::steady_clock::now();
            EXPECT_EQ(driver.codec->stop(), OK);
            feeder.join();
            taker.join();
            EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(500));
        }
    }
    // The kernel lists a thread for a moment after it was joined.
    for (int i = 0; i < 100 && threadCount() != threadsBefore; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(threadCount(), threadsBefore);
}

// Memory that runs out makes a sound codec fail: it says so, slowly enough for clients that keep
// asking, and is as new after a stop.
TEST(MediaCodecTest, FailsWithoutMemoryAndRecovers) {
    const Stream stream = encodeAudio({.encoder = "mp2", .blocks = 10});
    CodecDriver driver("audio/mpeg");
    ASSERT_EQ(driver.configureAndStart(), OK);
    av_max_alloc(100);
    size_t index;
    Output output;
    uint32_t flags;
    EXPECT_TRUE(driver.feed(&stream.units[0]));
    EXPECT_EQ(driver.awaitOutput(&index, &output, &flags), -38);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(driver.codec->dequeueInputBuffer(&index, 250000), -38);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(40));
    EXPECT_EQ(driver.codec->stop(), OK);
    EXPECT_NE(driver.configureAndStart(), OK);
    av_max_alloc(INT_MAX);
    ASSERT_EQ(driver.configureAndStart(), OK);
    driver.play(stream);
    EXPECT_EQ(driver.times(), stream.timesInOrder());
}

// The player lets go in this order: the looper may end with the codec's last piece of work.
TEST(MediaCodecTest, OutlivesItsLooper) {
    const Stream stream = encodeVideo({.frames = 10});
    CodecDriver driver("video/avc");
    ASSERT_EQ(driver.configureAndStart(), OK);
    ASSERT_TRUE(driver.feed(&stream.units[0]));
    driver.looper->stop();
    driver.looper.clear();
    size_t index, offset, size;
    int64_t timeUs;
    uint32_t flags;
    driver.feed(&stream.units[1]);
    EXPECT_NE(driver.codec->dequeueOutputBuffer(&index, &offset, &size, &timeUs, &flags, 1000), OK);
    EXPECT_EQ(driver.codec->stop(), OK);
    EXPECT_EQ(driver.codec->release(), OK);
}

}  // namespace
