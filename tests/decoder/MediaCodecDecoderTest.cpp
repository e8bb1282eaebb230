#include "decoder/MediaCodecDecoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <cstdarg>
#include <string>
#include <thread>
#include <vector>

#include "decoder/OutstandingFrames.h"
#include "decoder/PesRing.h"
#include "support/AacFrames.h"
#include "support/Await.h"
#include "support/FakeCodec.h"
#include "support/H264Builder.h"
#include "support/TraceCapture.h"
#include "trace/OneSegPGL.h"

namespace {

using namespace OrvPlayer;
using android::sp;
using orvtest::await;
using orvtest::Bytes;
using orvtest::FakeCodec;
using orvtest::operator+;
using Events = std::vector<std::string>;

// A window of a given size that keeps the crop it was told.
class Window : public android::Surface {
public:
    Window(int width, int height) : android::Surface(nullptr), mWidth(width), mHeight(height) {
        ANativeWindow::query = [](const ANativeWindow* window, int what, int* value) {
            const auto* self = static_cast<const Window*>(window);
            *value = what == NATIVE_WINDOW_WIDTH ? self->mWidth : self->mHeight;
            return 0;
        };
        ANativeWindow::perform = takeCrop;
    }
    std::vector<int> crop() const {
        std::lock_guard<std::mutex> guard(mLock);
        return {mCrop.left, mCrop.top, mCrop.right, mCrop.bottom};
    }
    std::atomic<int> status{0};  // what setting the crop returns

private:
    static int takeCrop(ANativeWindow* window, int operation, ...) {
        auto* self = static_cast<Window*>(window);
        va_list arguments;
        va_start(arguments, operation);
        const auto* crop = va_arg(arguments, const android_native_rect_t*);
        va_end(arguments);
        std::lock_guard<std::mutex> guard(self->mLock);
        self->mCrop = *crop;
        return self->status;
    }

    const int mWidth;
    const int mHeight;
    mutable std::mutex mLock;
    android_native_rect_t mCrop{};
};

class Resolution : public Decoder::DecoderInfoListener {
public:
    void onVideoResolution(int newWidth, int newHeight) override {
        width = newWidth;
        height = newHeight;
    }
    std::atomic<int> width{0};
    std::atomic<int> height{0};
};

class MediaCodecDecoderTest : public testing::Test {
protected:
    void SetUp() override {
        OneSegPGL_InitializeDebug();
        mCodec.reset();
    }
    void TearDown() override { mDecoder = nullptr; }

    void make(Decoder::codingType_t type, unsigned outputExponent = 16) {
        mDecoder = new MediaCodecDecoder("Decoder");
        mRaw = new RingBuffer;
        ASSERT_EQ(mRaw->configure("raw", outputExponent), 0);
        mDecoder->setInput(mPES.buffer);
        mDecoder->addOutput(mRaw, nullptr);
        mDecoder->setDecoderInfoListenerListener(&mResolution);
        ASSERT_EQ(mDecoder->configure(type), 0);
    }
    void makeStarted(Decoder::codingType_t type, unsigned outputExponent = 16) {
        make(type, outputExponent);
        ASSERT_EQ(mDecoder->start(), 0);
        mCodec.takeEvents();
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

    // The next record of the output.
    template <typename Record>
    bool take(Record* record, Bytes* payload = nullptr) {
        unsigned char* block = nullptr;
        if (!await([&] {
                block = mRaw->read(Record::FIXED_SIZE, RingBuffer::NON_BLOCKING);
                return block != nullptr;
            })) {
            return false;
        }
        *record = *reinterpret_cast<Record*>(block);
        if (payload != nullptr) {
            payload->assign(block + Record::FIXED_SIZE, block + record->mSize);
        }
        mRaw->readAdvance(record->mSize);
        return true;
    }

    void announce(const android_native_rect_t& crop) {
        const sp<android::AMessage> format = new android::AMessage;
        format->setInt32("color-format", 0x105);
        format->setRect("crop", crop.left, crop.top, crop.right, crop.bottom);
        mCodec.setFormat(format);
        mCodec.addOutput({-1012, 0, 0, {}});
        EXPECT_TRUE(await([&] { return mCodec.outputsUsedUp(); }));
    }

    FakeCodec& mCodec = FakeCodec::instance();
    orvtest::TraceCapture mTrace;
    std::vector<std::string> mTraced;
    Resolution mResolution;
    PesRing mPES;
    sp<RingBuffer> mRaw;
    sp<MediaCodecDecoder> mDecoder;
};

TEST_F(MediaCodecDecoderTest, GoesThroughItsStates) {
    mDecoder = new MediaCodecDecoder("Decoder");
    mDecoder->setInput(mPES.buffer);
    EXPECT_EQ(mDecoder->start(), 1);
    EXPECT_TRUE(isTraced("start: Called in wrong state: 0"));
    EXPECT_EQ(mDecoder->stop(), 1);
    EXPECT_EQ(mDecoder->configure(static_cast<Decoder::codingType_t>(4)), 200705);
    EXPECT_TRUE(isTraced("configure: Unsupported type: 4"));
    EXPECT_EQ(mDecoder->configure(Decoder::H264), 0);
    EXPECT_EQ(mDecoder->configure(Decoder::H264), 1);
    EXPECT_EQ(mDecoder->stop(), 1);
    for (int run = 0; run < 2; ++run) {
        EXPECT_EQ(mDecoder->start(), 0);
        EXPECT_EQ(mDecoder->start(), 1);
        EXPECT_EQ(mDecoder->stop(), 0);
        EXPECT_EQ(mDecoder->stop(), 1);
    }
    EXPECT_TRUE(isTraced("start: Called in wrong state: 2"));
    EXPECT_EQ(mDecoder->start(), 0);  // and may go away like that
    EXPECT_EQ(mDecoder->setAudioOnlyMode(1), 0x31008);
}

TEST_F(MediaCodecDecoderTest, AsksForACodecByItsType) {
    struct Case {
        Decoder::codingType_t type;
        const char* mime;
        int32_t adts;
        const char* component;
    };
    for (const Case& wanted : {Case{Decoder::H264, "video/avc", 0, nullptr},
                               Case{Decoder::AAC_LATM, "audio/mp4a-latm", 0, nullptr},
                               Case{Decoder::AAC_ADTS, "audio/mp4a-latm", 1, nullptr},
                               Case{Decoder::MPEG_AUDIO, "audio/mpeg", 0, "OMX.QEL.mp3.dec"}}) {
        mDecoder = nullptr;
        mCodec.takeEvents();
        make(wanted.type);
        const std::string made = wanted.component != nullptr
                                     ? std::string("component ") + wanted.component
                                     : std::string("create ") + wanted.mime;
        EXPECT_EQ(mCodec.takeEvents().front(), made);
        ASSERT_EQ(mDecoder->start(), 0);
        const sp<android::AMessage> format = mCodec.format();
        const auto value = [&format](const char* key) {
            int32_t number = 0;
            format->findInt32(key, &number);
            return number;
        };
        android::AString mime;
        EXPECT_TRUE(format->findString("mime", &mime));
        EXPECT_STREQ(mime.c_str(), wanted.mime);
        const bool video = wanted.type == Decoder::H264;
        EXPECT_EQ(value("width"), video ? 1920 : 0);
        EXPECT_EQ(value("height"), video ? 1080 : 0);
        EXPECT_EQ(value("channel-count"), video ? 0 : 2);
        EXPECT_EQ(value("sample-rate"), video ? 0 : 48000);
        EXPECT_EQ(value("is-adts"), wanted.adts);
    }
}

TEST_F(MediaCodecDecoderTest, ReportsACodecThatDoesNotStart) {
    const std::pair<const char*, const char*> steps[] = {
        {"configure", "startMediaCodec: Error configuring MediaCodec"},
        {"start", "[fake] startMediaCodec: Error starting MediaCodec"},
        {"inputs", "[fake] startMediaCodec: Error getting MediaCodec input buffers"},
        {"outputs", "[fake] startMediaCodec: Error getting MediaCodec output buffers"},
    };
    for (const auto& [step, message] : steps) {
        mCodec.reset();
        make(Decoder::AAC_ADTS);
        mCodec.fail(step, -1010);
        EXPECT_EQ(mDecoder->start(), 1);
        EXPECT_TRUE(isTraced(message));
        mCodec.reset();
        EXPECT_EQ(mDecoder->start(), 0);  // it stayed configured
    }
    mCodec.fail("stop", -1);
    EXPECT_EQ(mDecoder->stop(), 0);
    EXPECT_TRUE(isTraced("[fake] stopMediaCodec: Error stopping MediaCodec"));

    mCodec.fail("create", -1);
    make(Decoder::H264);
    EXPECT_TRUE(isTraced("allocateMediaDecoder: Error creating MediaCodec"));
    EXPECT_EQ(mDecoder->start(), 0);  // without a codec there is nothing to do
    EXPECT_EQ(mDecoder->stop(), 0);
}

// Without a unit sound keeps its buffer for the next pass; pictures queue it empty.
TEST_F(MediaCodecDecoderTest, FeedsTheCodec) {
    makeStarted(Decoder::AAC_ADTS);
    EXPECT_TRUE(await([&] {
        for (const std::string& line : mTrace.take()) {
            mTraced.push_back(line);
        }
        return std::count(mTraced.begin(), mTraced.end(),
                          "[fake] feedCodec: buffer size 0 just return and reuse this index(0)") >
               1;
    }));
    EXPECT_EQ(mCodec.inputsOut(), 1u);
    EXPECT_TRUE(mCodec.inputs().empty());
    const orvtest::Adts adts;
    mPES.push(90'001, adts.frame({orvtest::aacUnit(1, 90)}) +
                          adts.frame({orvtest::aacUnit(2, 90)}) +
                          adts.frame({orvtest::aacUnit(3, 90)}));
    ASSERT_TRUE(mCodec.awaitInputs(2));
    EXPECT_EQ(mCodec.inputs()[0].flags, 2u);  // the configuration
    EXPECT_EQ(mCodec.inputs()[1].flags, 0u);

    mCodec.reset();
    makeStarted(Decoder::H264);
    ASSERT_TRUE(mCodec.awaitInputs(2));
    EXPECT_EQ(mCodec.inputs()[0], (FakeCodec::Input{{}, 0, 0}));
    EXPECT_EQ(mCodec.inputs()[1], (FakeCodec::Input{{}, 0, 0}));
    const Bytes unit = h264::aud() + h264::sps() + h264::pps() + h264::slice(1);
    mPES.push(90'001, unit);
    FakeCodec::Input picture{};
    EXPECT_TRUE(await([&] {
        for (const FakeCodec::Input& input : mCodec.inputs()) {
            picture = input.bytes.empty() ? picture : input;
        }
        return !picture.bytes.empty();
    }));
    EXPECT_EQ(picture.bytes, unit);
    EXPECT_EQ(picture.timeUs, 1'000'011);
    EXPECT_EQ(mResolution.width, 1920);
    EXPECT_EQ(mResolution.height, 1088);
}

// Frames that last 2^32 - 1 seconds each: the sum leaves the range of 64 bits, the rest goes on.
TEST_F(MediaCodecDecoderTest, FeedsPicturesOfAnyTime) {
    constexpr int64_t TICKS = 0xFFFFFFFF * int64_t{90'000};
    h264::SpsFields fields;
    fields.timing = h264::Timing{0xFFFFFFFF, 1, true};
    Bytes payload = h264::aud() + h264::sps(fields) + h264::slice(0);
    for (uint8_t i = 1; i < 30; ++i) {
        payload = payload + h264::aud() + h264::slice(i);
    }
    makeStarted(Decoder::H264);
    mPES.push(0, payload);
    std::vector<int64_t> times;
    ASSERT_TRUE(await([&] {
        times.clear();
        for (const FakeCodec::Input& input : mCodec.inputs()) {
            if (!input.bytes.empty()) {
                times.push_back(input.timeUs);
            }
        }
        return times.size() == 30;
    }));
    EXPECT_EQ(times[20], 20 * (TICKS / 9 * 100));
    EXPECT_EQ(times[29], -80'409'771'486'217'240) << "29 * TICKS * 1000 is 2^64 too much";
}

// Only sound restarts a codec that has failed.
TEST_F(MediaCodecDecoderTest, RestartsAFailedCodecForSound) {
    make(Decoder::AAC_LATM);
    mCodec.takeEvents();
    mCodec.failInput(-38, 3);
    ASSERT_EQ(mDecoder->start(), 0);
    ASSERT_TRUE(mCodec.await("start", 4));
    const Events once{"configure", "start", "outputs", "stop", "release", "create audio/mp4a-latm"};
    const Events events = mCodec.takeEvents();
    for (size_t i = 0; i < events.size(); ++i) {
        EXPECT_EQ(events[i], once[i % once.size()]);
    }
    EXPECT_TRUE(isTraced("restartDecoder errorCode = -38"));
    EXPECT_EQ(mDecoder->stop(), 0);
    EXPECT_EQ(mDecoder->start(), 0);

    // A codec that is stopped under the waiting thread has not failed.
    make(Decoder::AAC_LATM);
    mCodec.failInput(-11, 1000);
    EXPECT_EQ(mDecoder->start(), 0);
    mTraced.clear();
    EXPECT_EQ(mDecoder->stop(), 0);
    EXPECT_FALSE(isTraced("restartDecoder errorCode = -38"));

    mCodec.reset();
    makeStarted(Decoder::H264);
    mCodec.failInput(-38, 2);
    mCodec.failInput(-11, 1);
    mCodec.failInput(-5, 1);
    EXPECT_TRUE(awaitTraced("[fake] feedCodec: dequeue input returned: -5: Input/output error"));
    EXPECT_EQ(mCodec.takeEvents(), Events{});
}

// A restart meets stops, starts and the end of the decoder at any moment.
TEST_F(MediaCodecDecoderTest, MayBeStoppedAndDestroyedWhileItRestarts) {
    for (int i = 0; i < 20; ++i) {
        mCodec.reset();
        make(Decoder::AAC_ADTS);
        mCodec.failInput(-38, 100);
        ASSERT_EQ(mDecoder->start(), 0);
        ASSERT_TRUE(mCodec.await("release", 1 + i % 3));
        EXPECT_EQ(mDecoder->stop(), 0);
        EXPECT_EQ(mDecoder->start(), 0);
        mDecoder = nullptr;
    }
}

TEST_F(MediaCodecDecoderTest, CopiesSoundIntoRecords) {
    makeStarted(Decoder::AAC_ADTS, 12);
    const sp<android::AMessage> format = new android::AMessage;
    format->setInt32("sample-rate", 44100);
    format->setInt32("channel-count", 1);
    mCodec.addOutput({-1012, 0, 0, {}});  // no format to be had yet
    EXPECT_TRUE(awaitTraced("[fake] takeOutput: Error getting new format"));
    mCodec.setFormat(format);
    mCodec.addOutput({-1012, 0, 0, {}});
    mCodec.addOutput({-1014, 0, 0, {}});
    mCodec.addOutput({-77, 0, 0, {}});
    mCodec.addOutput({0, 99, 0, {}});  // no such buffer: given back
    mCodec.addOutput({0, 1, 1'000'000, Bytes(1999, 0x11)});
    mCodec.addOutput({0, 2, 95'443'717'700, Bytes(1999, 0x22)});  // 2^33 + 1 ticks
    mCodec.addOutput({0, 3, -100, Bytes(10, 0x33)});              // waits for room
    EXPECT_TRUE(mCodec.await("drop 2"));
    EXPECT_TRUE(await([&] { return mCodec.outputsUsedUp(); }));
    EXPECT_EQ(mCodec.takeEvents(), (Events{"outputs", "drop 99", "drop 1", "drop 2"}));

    AudioFragmentData record;
    Bytes payload;
    ASSERT_TRUE(take(&record, &payload));
    EXPECT_EQ(record.mType, Data::AUDIO_FRAGMENT);
    EXPECT_EQ(record.mSize, 32u + 1999);
    EXPECT_EQ(record.mPTS, 90'000u);
    EXPECT_EQ(record.mSamplingRate, 44100u);
    EXPECT_EQ(record.mNumberChannels, 1);
    EXPECT_EQ(record.mBitsPerSample, 16);
    EXPECT_EQ(payload, Bytes(1999, 0x11));
    ASSERT_TRUE(take(&record, &payload));
    EXPECT_EQ(record.mPTS, 1u);
    ASSERT_TRUE(take(&record, &payload));
    EXPECT_EQ(record.mPTS, 0x1FFFFFFF7u);
    EXPECT_EQ(payload, Bytes(10, 0x33));
    EXPECT_TRUE(mCodec.await("drop 3"));
}

// Sound that waits for room goes with its run: its index means another buffer afterwards.
TEST_F(MediaCodecDecoderTest, ForgetsWhatWaitsForRoomWithTheRun) {
    makeStarted(Decoder::AAC_ADTS, 12);
    mCodec.addOutput({0, 1, 0, Bytes(4000, 0x11)});
    mCodec.addOutput({0, 2, 0, Bytes(100, 0x22)});
    ASSERT_TRUE(await([&] { return mCodec.outputsUsedUp(); }));
    EXPECT_EQ(mDecoder->stop(), 0);
    AudioFragmentData record;
    Bytes payload;
    EXPECT_TRUE(take(&record, &payload));
    EXPECT_EQ(payload, Bytes(4000, 0x11));
    EXPECT_EQ(mDecoder->start(), 0);
    mCodec.addOutput({0, 3, 0, Bytes(100, 0x33)});
    EXPECT_TRUE(take(&record, &payload));
    EXPECT_EQ(payload, Bytes(100, 0x33));
}

TEST_F(MediaCodecDecoderTest, LeavesPicturesInTheCodecAndTakesThemBack) {
    makeStarted(Decoder::H264);
    const sp<android::AMessage> format = new android::AMessage;
    format->setInt32("width", 720);
    format->setInt32("height", 480);
    mCodec.setFormat(format);
    VideoFrameData frames[3];
    for (size_t i = 0; i < 3; ++i) {
        mCodec.addOutput({0, i, static_cast<int64_t>(i + 1) * 1'000'000, {}});
        ASSERT_TRUE(take(&frames[i]));
        EXPECT_EQ(frames[i].mType, Data::VIDEO_FRAME);
        EXPECT_EQ(frames[i].mSize, 80u);
        EXPECT_EQ(frames[i].mPTS, 90'000u * (i + 1));
        EXPECT_EQ(frames[i].mBufferIndex, i);
        EXPECT_EQ(frames[i].mListener, mDecoder.get());
        EXPECT_EQ(frames[i].mFlags, 0);
        EXPECT_EQ(frames[i].mWidth, 720);
        EXPECT_EQ(frames[i].mHeight, 480);
    }
    EXPECT_TRUE(isTraced("[fake] takeOutput: w/h is not get...w=720, h=480"));
    EXPECT_EQ(mCodec.takeEvents(), Events{});
    // The first was never given back: the second takes it along.
    EXPECT_TRUE(mDecoder->renderFrame(true, frames[1]));
    EXPECT_EQ(mCodec.takeEvents(), (Events{"drop 0", "render 1"}));
    EXPECT_TRUE(mDecoder->renderFrame(false, frames[0]));
    EXPECT_EQ(mCodec.takeEvents(), Events{});
    EXPECT_EQ(mDecoder->stop(), 0);
    EXPECT_EQ(mDecoder->start(), 0);
    mCodec.takeEvents();
    EXPECT_TRUE(mDecoder->renderFrame(true, frames[2]));  // of the run before
    EXPECT_EQ(mCodec.takeEvents(), Events{});
}

TEST_F(MediaCodecDecoderTest, RebuildsTheCodecForAnotherSurface) {
    make(Decoder::H264);
    sp<android::Surface> first = new Window(1280, 720);
    sp<android::Surface> second = new Window(1280, 720);
    sp<android::Surface> none;
    mCodec.takeEvents();
    EXPECT_EQ(mDecoder->setSurface(first), 0);
    EXPECT_EQ(mCodec.takeEvents(), (Events{"release", "create video/avc"}));
    ASSERT_EQ(mDecoder->start(), 0);
    mCodec.addOutput({0, 0, 1000, {}});
    ASSERT_TRUE(await([&] { return mRaw->getDataSize() == 80; }));
    mCodec.takeEvents();
    EXPECT_EQ(mDecoder->setSurface(first), 0);
    EXPECT_EQ(mCodec.takeEvents(), Events{});
    EXPECT_TRUE(isTraced("[fake] setSurface: same surface skip setSurface"));
    EXPECT_EQ(mDecoder->setSurface(second), 0);
    EXPECT_EQ(mCodec.takeEvents(),
              (Events{"stop", "release", "create video/avc", "configure", "start", "outputs"}));
    EXPECT_EQ(mRaw->getDataSize(), 0u);
    EXPECT_EQ(mDecoder->getSurface(), second);
    EXPECT_EQ(mDecoder->setSurface(none), 0);
    EXPECT_EQ(mCodec.takeEvents(), Events{});
    EXPECT_EQ(mDecoder->stop(), 0);
}

TEST_F(MediaCodecDecoderTest, ShowsThePartOfThePictureThatIsAskedFor) {
    makeStarted(Decoder::H264);
    EXPECT_EQ(mDecoder->setCropRect(0, 0, 640, 360, 0), 200708);
    EXPECT_TRUE(isTraced("[fake] setCropRect: mOrgNativeWindowCropRect is not initialized"));
    announce({0, 0, 1919, 1079});
    EXPECT_TRUE(awaitTraced("[fake] videoOutputCropChanged: surface is not set yet"));

    const sp<Window> window = new Window(1280, 720);
    sp<android::Surface> surface = window;
    EXPECT_EQ(mDecoder->setSurface(surface), 0);
    announce({0, 0, 1919, 1079});
    EXPECT_TRUE(await([&] { return window->crop() == std::vector<int>({0, 0, 1919, 1079}); }));
    mCodec.addOutput({0, 0, 1000, {}});
    VideoFrameData frame;
    ASSERT_TRUE(take(&frame));
    EXPECT_EQ(frame.mWidth, 1920);
    EXPECT_EQ(frame.mHeight, 1080);
    EXPECT_EQ(frame.mColorFormat, 0x105u);

    struct Case {
        int left, top, right, bottom, useOriginal;
        std::vector<int> crop;
    };
    const Case cases[] = {
        {0, 0, 640, 360, 0, {0, 0, 959, 539}},
        {320, 180, 960, 540, 0, {479, 269, 1439, 809}},
        {-50, -50, 5000, 5000, 0, {0, 0, 1919, 1079}},
        {INT_MIN, INT_MIN, INT_MAX, INT_MAX, 0, {0, 0, 1919, 1079}},
        {1, 2, 3, 4, 1, {0, 0, 1919, 1079}},
    };
    for (const Case& wanted : cases) {
        EXPECT_EQ(mDecoder->setCropRect(wanted.left, wanted.top, wanted.right, wanted.bottom,
                                        wanted.useOriginal),
                  0);
        EXPECT_EQ(window->crop(), wanted.crop);
    }
    window->status = -5;
    EXPECT_EQ(mDecoder->setCropRect(0, 0, 1, 1, 0), 200708);
    EXPECT_TRUE(isTraced("[fake] setCropRect: Error setting crop rect on Native Window -5"));

    sp<android::Surface> hidden = new Window(0, 0);
    EXPECT_EQ(mDecoder->setSurface(hidden), 0);
    announce({0, 0, 1919, 1079});
    EXPECT_TRUE(await([&] { return mDecoder->setCropRect(0, 0, 0, 0, 1) == 0; }));
    EXPECT_EQ(mDecoder->setCropRect(0, 0, 640, 360, 0), 200708);
    EXPECT_TRUE(isTraced("[fake] setCropSize: error displayWidth = 0, displayHeight = 0"));
}

TEST(OutstandingFramesTest, TakesFramesBackInOrderAndOfThisRunOnly) {
    OutstandingFrames frames;
    std::vector<size_t> skipped;
    for (uint32_t i = 0; i < 5; ++i) {
        frames.add(i, 100 + i);
    }
    EXPECT_TRUE(frames.takeBack(0, 100, &skipped));
    EXPECT_TRUE(skipped.empty());
    EXPECT_FALSE(frames.takeBack(0, 100, &skipped));  // once only
    EXPECT_FALSE(frames.takeBack(1, 999, &skipped));  // another picture had that index
    EXPECT_TRUE(frames.takeBack(3, 103, &skipped));
    EXPECT_EQ(skipped, (std::vector<size_t>{1, 2}));
    EXPECT_FALSE(frames.takeBack(2, 102, &skipped));
    frames.clear();
    EXPECT_FALSE(frames.takeBack(4, 104, &skipped));

    // All four are out: one record waits, one frame is in hand, the rest is lost.
    skipped.clear();
    for (uint32_t i = 0; i < 4; ++i) {
        frames.takeLost(4, 0, &skipped);
        frames.add(i, 200 + i);
    }
    EXPECT_TRUE(skipped.empty());
    frames.takeLost(4, 1, &skipped);
    EXPECT_EQ(skipped, (std::vector<size_t>{0, 1}));
    EXPECT_TRUE(frames.takeBack(2, 202, &skipped));
}

}  // namespace
