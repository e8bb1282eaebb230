// Stills of what a surface shows.

#include <gtest/gtest.h>
#include <gui/Surface.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "common/CaptureFrameListener.h"
#include "decoder/MediaCodecDecoder.h"
#include "graphics/BufferQueue.h"
#include "support/Await.h"
#include "support/TraceCapture.h"
#include "trace/OneSegPGL.h"

namespace {

using namespace OrvPlayer;
using android::GraphicBuffer;
using android::sp;
using orvtest::await;

// Keeps copies of the stills and can make the capture thread wait in its call.
class Stills final : public CaptureFrameListener {
public:
    struct Still {
        std::vector<uint32_t> words;
        unsigned int width, height;
        bool twoBytes;
    };

    void onCaptureFrame(unsigned char* pixels, unsigned int width, unsigned int height,
                        bool twoBytes) override {
        Still still{std::vector<uint32_t>(size_t{width} * height), width, height, twoBytes};
        memcpy(still.words.data(), pixels, 4 * still.words.size());
        std::unique_lock<std::mutex> guard(mLock);
        mStills.push_back(still);
        mChanged.wait(guard, [this] { return !mHeld; });
    }
    void hold(bool held) {
        std::lock_guard<std::mutex> guard(mLock);
        mHeld = held;
        mChanged.notify_all();
    }
    size_t count() const {
        std::lock_guard<std::mutex> guard(mLock);
        return mStills.size();
    }
    Still last() const {
        std::lock_guard<std::mutex> guard(mLock);
        return mStills.back();
    }

private:
    mutable std::mutex mLock;
    std::condition_variable mChanged;
    bool mHeld = false;
    std::vector<Still> mStills;
};

// A window that takes a picture back and says that it did not.
class FailingWindow : public android::Surface {
public:
    explicit FailingWindow(const sp<android::IGraphicBufferProducer>& producer)
        : android::Surface(producer) {
        sQueueBuffer = ANativeWindow::queueBuffer;
        ANativeWindow::queueBuffer = [](ANativeWindow* window, ANativeWindowBuffer* buffer,
                                        int fence) {
            sQueueBuffer(window, buffer, fence);
            return -19;
        };
    }

private:
    static inline int (*sQueueBuffer)(ANativeWindow*, ANativeWindowBuffer*, int) = nullptr;
};

class CaptureFrameTest : public testing::Test {
protected:
    void SetUp() override {
        OneSegPGL_InitializeDebug();
        mDecoder = new MediaCodecDecoder("Decoder");
    }
    void TearDown() override {
        mStills.hold(false);
        mDecoder = nullptr;
    }

    void makeSurface() {
        orvhost::BufferQueue::create(&mProducer, &mConsumer);
        mSurface = new android::Surface(mProducer);
        ASSERT_EQ(mSurface->connect(NATIVE_WINDOW_API_MEDIA), android::OK);
        ASSERT_EQ(mDecoder->setSurface(mSurface), 0);
    }

    // A picture of one luma, whose chroma tells the column: Cb = x / 2, Cr = 128.
    void present(uint8_t luma, uint32_t width, uint32_t height) {
        sp<GraphicBuffer> buffer;
        ASSERT_EQ(
            mSurface->dequeueBuffer(width, height, android::PIXEL_FORMAT_YCBCR_420_SP, &buffer),
            android::OK);
        android_ycbcr planes;
        ASSERT_EQ(buffer->lockYCbCr(GraphicBuffer::USAGE_SW_WRITE_OFTEN, &planes), android::OK);
        memset(planes.y, luma, planes.ystride * height);
        for (uint32_t y = 0; y < (height + 1) / 2; ++y) {
            auto* pairs = static_cast<uint8_t*>(planes.cb) + planes.cstride * y;
            for (uint32_t x = 0; x < (width + 1) / 2; ++x) {
                pairs[2 * x] = static_cast<uint8_t>(x);
                pairs[2 * x + 1] = 128;
            }
        }
        buffer->unlock();
        ASSERT_EQ(mSurface->queueBuffer(buffer, {}), android::OK);
        orvhost::AcquiredBuffer picture;
        ASSERT_EQ(mConsumer->acquire(&picture, 0), android::OK);
        mConsumer->release(picture.slot);
    }

    bool capture(int width, int height, uint32_t colorFormat = 0x105) {
        VideoFrameData frame;
        frame.mColorFormat = colorFormat;
        frame.mWidth = width;
        frame.mHeight = height;
        return mDecoder->captureFrame(frame, &mStills);
    }

    // The thread that called the listener goes a moment later.
    bool captureOnceFree(int width, int height) {
        return await([&] { return capture(width, height); });
    }

    bool isTraced(const std::string& wanted) {
        for (const std::string& line : mTrace.take()) {
            mTraced.push_back(line);
        }
        return std::find(mTraced.begin(), mTraced.end(), wanted) != mTraced.end();
    }
    bool awaitTraced(const std::string& wanted) {
        return await([&] { return isTraced(wanted); });
    }

    orvtest::TraceCapture mTrace;
    std::vector<std::string> mTraced;
    Stills mStills;
    sp<android::IGraphicBufferProducer> mProducer;
    sp<orvhost::BufferQueue::Consumer> mConsumer;
    sp<android::Surface> mSurface;
    sp<MediaCodecDecoder> mDecoder;
};

const std::string NOT_COPIED =
    "captureFrame: Failed to copy frame contents to convert color format";

// Also where chroma rows are wider than the picture, which must not shear its colours.
TEST_F(CaptureFrameTest, TakesWhatIsShown) {
    makeSurface();
    const std::pair<int, int> sizes[] = {{16, 2}, {360, 240}, {320, 240}, {500, 6}};
    for (const auto& [width, height] : sizes) {
        SCOPED_TRACE(width);
        const size_t before = mStills.count();
        present(10, static_cast<uint32_t>(width), static_cast<uint32_t>(height));
        present(20, static_cast<uint32_t>(width), static_cast<uint32_t>(height));
        const uint64_t queued = mConsumer->counters().queued;
        ASSERT_TRUE(captureOnceFree(width, height));
        // The window goes on at once; the still stays what it was.
        present(30, static_cast<uint32_t>(width), static_cast<uint32_t>(height));
        EXPECT_EQ(mConsumer->counters().queued, queued + 1) << "reading is not showing";
        ASSERT_TRUE(await([&] { return mStills.count() == before + 1; }));
        const Stills::Still still = mStills.last();
        EXPECT_EQ(static_cast<int>(still.width), width);
        EXPECT_EQ(static_cast<int>(still.height), height);
        EXPECT_FALSE(still.twoBytes);
        for (int i = 0; i < width * height; ++i) {
            const int u = i % width / 2 - 128;
            const auto blue = static_cast<uint32_t>(std::clamp(20 + ((u * 1814) >> 10), 0, 255));
            const auto green = static_cast<uint32_t>(std::max(20 - ((u * 352) >> 10), 0));
            ASSERT_EQ(still.words[static_cast<size_t>(i)], 0xFF140000 | green << 8 | blue) << i;
        }
    }
}

TEST_F(CaptureFrameTest, RefusesASecondOneWhileOneRuns) {
    makeSurface();
    present(1, 64, 48);
    mStills.hold(true);
    ASSERT_TRUE(capture(64, 48));
    EXPECT_FALSE(capture(64, 48));
    EXPECT_TRUE(isTraced("captureFrame: Capture is in progress"));
    ASSERT_TRUE(await([&] { return mStills.count() == 1; }));
    EXPECT_FALSE(capture(64, 48)) << "the listener still runs";
    mStills.hold(false);
    ASSERT_TRUE(captureOnceFree(64, 48));
    ASSERT_TRUE(await([&] { return mStills.count() == 2; })) << "refused, not put off";
}

TEST_F(CaptureFrameTest, RefusesWhatItCannotTake) {
    EXPECT_FALSE(capture(64, 48));
    EXPECT_TRUE(isTraced("captureFrame: m_pSurface is null fail to capture"));
    makeSurface();
    EXPECT_FALSE(capture(64, 48));
    EXPECT_TRUE(isTraced("Surface::dequeueBuffer returned error -11")) << "nothing is shown yet";
    EXPECT_TRUE(isTraced(NOT_COPIED));

    struct {
        uint32_t shownWidth, shownHeight;
        int width, height;
    } const cases[] = {{64, 48, 64, 50}, {64, 48, 62, 48}, {65, 48, 65, 48},  {64, 49, 64, 49},
                       {14, 48, 14, 48}, {64, 48, 0, 0},   {64, 48, -64, -48}};
    for (const auto& test : cases) {
        SCOPED_TRACE(std::to_string(test.width) + " " + std::to_string(test.height));
        present(1, test.shownWidth, test.shownHeight);
        mTraced.clear();
        mTrace.take();
        EXPECT_FALSE(capture(test.width, test.height));
        EXPECT_TRUE(isTraced(NOT_COPIED));
    }

    // Whoever reads the window keeps it from the still for a few milliseconds only.
    present(1, 64, 48);
    ANativeWindowBuffer* read = nullptr;
    ASSERT_EQ(native_window_dequeue_buffer_and_wait(mSurface.get(), &read), 0);
    EXPECT_FALSE(capture(64, 48));
    ASSERT_EQ(mSurface->ANativeWindow::queueBuffer(mSurface.get(), read, -1), 0);

    ASSERT_TRUE(capture(64, 48, 19));
    EXPECT_TRUE(awaitTraced("threadLoop: Error converting frame"));
    EXPECT_TRUE(isTraced("convertFrameFromYvuToRgba: Color format not supported"));
    ASSERT_TRUE(captureOnceFree(64, 48)) << "nothing stays lent after a refusal";
    ASSERT_TRUE(await([&] { return mStills.count() == 1; }));
}

TEST_F(CaptureFrameTest, TellsWhenTheWindowGoesMeanwhile) {
    orvhost::BufferQueue::create(&mProducer, &mConsumer);
    mSurface = new FailingWindow(mProducer);
    ASSERT_EQ(mSurface->connect(NATIVE_WINDOW_API_MEDIA), android::OK);
    ASSERT_EQ(mDecoder->setSurface(mSurface), 0);
    present(1, 64, 48);
    EXPECT_TRUE(capture(64, 48)) << "the picture was copied before";
    EXPECT_TRUE(isTraced("copyFrameContents Surface::queueBuffer returned error -19"));
    EXPECT_TRUE(await([&] { return mStills.count() == 1; }));
}

// Surface, decoder and listener go while a still is made: it is given up or the decoder waits.
TEST_F(CaptureFrameTest, EndsWithItsDecoder) {
    for (int i = 0; i < 20; ++i) {
        mDecoder = new MediaCodecDecoder("Decoder");
        makeSurface();
        present(1, 640, 480);
        auto stills = std::make_unique<Stills>();
        VideoFrameData frame;
        frame.mColorFormat = 0x105;
        frame.mWidth = 640;
        frame.mHeight = 480;
        ASSERT_TRUE(mDecoder->captureFrame(frame, stills.get()));
        if (i % 2 == 0) {
            ASSERT_TRUE(await([&] { return stills->count() == 1; }));
        }
        sp<android::Surface> none;
        mDecoder->setSurface(none);
        mSurface = nullptr;
        mConsumer = nullptr;
        mDecoder = nullptr;
    }
}

}  // namespace
