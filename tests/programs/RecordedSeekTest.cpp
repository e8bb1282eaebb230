// Seeks in a recording, as the controller does them: which picture comes, how soon, and whether the
// sound is with it. ORV_SEEKS=N asks for more of them, ORV_SEEK_SOURCE=FILE for another sample.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "StreamSelection.h"
#include "SyncMeter.h"
#include "audio/AudioOutput.h"
#include "audio/PlaybackTap.h"
#include "dtv/Tuner.h"
#include "graphics/BufferQueue.h"
#include "pattern/TestPattern.h"
#include "recording/RecordingPlayer.h"
#include "service/MainController.h"
#include "support/Await.h"
#include "support/LiveConfiguration.h"

namespace orvtest {
namespace {

using OrvPlayer::MainController;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr int SEEKS = 3;
constexpr int64_t GROUP_MS = 501;  // from one random access point of the sample to the next
constexpr milliseconds SOON(1500);
constexpr double IN_STEP_MS = 40;

int64_t nowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               steady_clock::now().time_since_epoch())
        .count();
}

// Looks at the pictures and listens to the sound of the player.
class Audience : public orvhost::PlaybackTap {
public:
    explicit Audience(const android::sp<orvhost::BufferQueue::Consumer>& consumer)
        : mConsumer(consumer), mThread([this] { watch(); }) {
        orvhost::setPlaybackTap(this);
    }
    ~Audience() override {
        orvhost::setPlaybackTap(nullptr);
        mEnding = true;
        mThread.join();
    }

    // The next picture is the first one.
    void expect() {
        std::lock_guard lock(mMutex);
        mFirst = std::nullopt;
        mPictures = 0;
        mFlashOn = true;  // what was on before did not begin
    }
    struct First {
        uint32_t number;
        int64_t timeNs;
    };
    std::optional<First> first() const {
        std::lock_guard lock(mMutex);
        return mFirst;
    }
    int pictures() const {
        std::lock_guard lock(mMutex);
        return mPictures;
    }
    orvplay::Distribution skew() const { return mSync.skew(); }

    void onBlock(const orvhost::PlaybackBlock& block) override {
        if (mDetector == nullptr) {
            mDetector = std::make_unique<BeepDetector>(static_cast<int>(block.sampleRate),
                                                       static_cast<int>(block.channelCount));
        }
        if (block.volumeLeft <= 0 || block.missedFrames >= block.frameCount) {
            mDetector->reset();
            return;
        }
        mSamples.resize(block.frameCount * block.channelCount);
        memcpy(mSamples.data(), block.pPcm, mSamples.size() * sizeof(int16_t));
        for (const int64_t us :
             mDetector->feed(mSamples.data(), block.frameCount, block.playTimeNs / 1000)) {
            mSync.onBeep(us * 1000);
        }
    }
    void onFlushed(int, int64_t) override {
        if (mDetector != nullptr) {
            mDetector->reset();
        }
    }

private:
    void watch() {
        while (!mEnding) {
            orvhost::AcquiredBuffer picture;
            if (mConsumer->acquire(&picture, 20) == android::OK) {
                look(picture);
                mConsumer->release(picture.slot);
            }
        }
    }
    void look(const orvhost::AcquiredBuffer& picture) {
        void* luma = nullptr;
        if (picture.buffer->lock(android::GraphicBuffer::USAGE_SW_READ_OFTEN, &luma) !=
            android::OK) {
            return;
        }
        const auto* pixels = static_cast<const uint8_t*>(luma);
        const auto stride = static_cast<int>(picture.buffer->getStride());
        const auto width = static_cast<int>(picture.buffer->getWidth());
        const auto height = static_cast<int>(picture.buffer->getHeight());
        const auto number = readFrameNumber(pixels, stride, width, height);
        const bool flash = number && isFlash(pixels, stride, width, height);
        picture.buffer->unlock();
        std::lock_guard lock(mMutex);
        ++mPictures;
        if (number && !mFirst) {
            mFirst = First{*number, nowNs()};
        }
        if (flash && !mFlashOn) {
            mSync.onFlash(nowNs());
        }
        mFlashOn = flash;
    }

    const android::sp<orvhost::BufferQueue::Consumer> mConsumer;
    orvplay::SyncMeter mSync;
    std::unique_ptr<BeepDetector> mDetector;  // the writer's thread
    std::vector<int16_t> mSamples;
    mutable std::mutex mMutex;
    std::optional<First> mFirst;
    int mPictures = 0;
    bool mFlashOn = true;
    std::atomic<bool> mEnding{false};
    std::thread mThread;
};

class RecordedSeekTest : public testing::Test {
protected:
    void SetUp() override {
        setenv("ORV_TRACE", "error", 0);
        orvhost::setAudioOutput(orvhost::AudioOutput::SILENT);
        android::sp<android::IGraphicBufferProducer> producer;
        android::sp<orvhost::BufferQueue::Consumer> consumer;
        orvhost::BufferQueue::create(&producer, &consumer);
        mAudience.emplace(consumer);
        const char* source = std::getenv("ORV_SEEK_SOURCE");
        const std::string path = source != nullptr ? source : ORV_SAMPLES_DIR "/small-long.ts";
        orvhost::TuneOptions tuning;
        tuning.recorded = true;
        ASSERT_TRUE(mTuner.tune(path, tuning).ok());
        orvplay::StreamSelection selection;
        std::string error;
        ASSERT_TRUE(orvplay::selectStreams(mTuner.services(5000).services, orvplay::PlayOptions(),
                                           &selection, &error))
            << error;
        auto configuration = configurationOf(selection);
        configuration["sourceType"] = "2";
        configuration["filePath"] = path;
        mPlayer = new MainController;
        ASSERT_EQ(mPlayer->configure(configuration), 0);
        android::sp<android::Surface> surface = new android::Surface(producer);
        ASSERT_EQ(mPlayer->setSurface(surface), 0);
        ASSERT_EQ(mPlayer->start(), 0);
        ASSERT_TRUE(await([&] { return mAudience->pictures() > 10; }, seconds(10)));
        orvhost::RecordingDetails details;
        ASSERT_TRUE(orvhost::RecordingPlayer::instance().details(path, &details));
        mLastTargetMs = static_cast<int>(details.durationMs) - 4000;
    }
    void TearDown() override {
        mPlayer = nullptr;
        mAudience.reset();
        mTuner.untune();
    }

    // Looks at the first picture after a seek to there.
    void seekAndJudge(int targetMs, bool paused) {
        SCOPED_TRACE(testing::Message() << "to " << targetMs << (paused ? " ms, paused" : " ms"));
        const int64_t begunNs = nowNs();
        EXPECT_EQ(mPlayer->seek(targetMs), 0);
        const int64_t soughtNs = nowNs();
        mAudience->expect();  // what came of the old place came before
        if (!paused) {
            EXPECT_EQ(mPlayer->resume(), 0);  // as the service does
        }
        ASSERT_TRUE(await([&] { return mAudience->first().has_value(); }, seconds(10)));
        const Audience::First first = *mAudience->first();
        const auto positionMs = static_cast<int64_t>(first.number) * 1001 / 30;
        const int64_t tookMs = (first.timeNs - begunNs) / 1'000'000;
        if (std::getenv("ORV_SEEKS") != nullptr) {
            printf("target %d shown %lld after %lld ms, %lld of them in the call%s\n", targetMs,
                   static_cast<long long>(positionMs), static_cast<long long>(tookMs),
                   static_cast<long long>((soughtNs - begunNs) / 1'000'000),
                   paused ? ", paused" : "");
        }
        EXPECT_LE(positionMs, targetMs + GROUP_MS);
        EXPECT_GE(positionMs, targetMs - GROUP_MS);
        EXPECT_LE(tookMs, SOON.count());
    }

    orvhost::Tuner& mTuner = orvhost::Tuner::instance();
    std::optional<Audience> mAudience;
    android::sp<MainController> mPlayer;
    int mLastTargetMs = 0;
};

TEST_F(RecordedSeekTest, ShowsTheTargetSoonAndInStep) {
    const char* asked = std::getenv("ORV_SEEKS");
    const int seeks = asked != nullptr ? std::atoi(asked) : SEEKS;
    std::mt19937 random(7);
    std::uniform_int_distribution<int> target(0, mLastTargetMs);
    for (int i = 0; i < seeks; ++i) {
        const bool paused = i % 3 == 2;
        if (paused) {
            EXPECT_EQ(mPlayer->pause(), 0);
        }
        seekAndJudge(target(random), paused);
        if (paused) {
            // It stands after that, until it goes on.
            std::this_thread::sleep_for(milliseconds(1000));
            const int shown = mAudience->pictures();
            std::this_thread::sleep_for(milliseconds(300));
            EXPECT_EQ(mAudience->pictures(), shown);
            EXPECT_LE(shown, 20);
            EXPECT_EQ(mPlayer->resume(), 0);
            EXPECT_TRUE(await([&] { return mAudience->pictures() > shown + 10; }, seconds(5)));
        }
        std::this_thread::sleep_for(milliseconds(i % 2 == 0 ? 1600 : 300));
    }
    const orvplay::Distribution skew = mAudience->skew();
    EXPECT_GT(skew.count(), 0u);
    EXPECT_LE(skew.quantileMs(0.5), IN_STEP_MS);
    EXPECT_EQ(mPlayer->stop(), 0);
}

}  // namespace
}  // namespace orvtest
