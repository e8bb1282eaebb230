// A recording as an application plays it, through the library and the service's process: time,
// pauses, seeks and the end. ORV_SEEKS=N and ORV_PAUSES=N ask for more of them and print what they
// came to, ORV_SEEK_SOURCE=FILE takes another sample.

#include <gtest/gtest.h>
#include <orvclient/Player.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Distribution.h"
#include "MonotonicTime.h"
#include "SoundMeter.h"
#include "SyncMeter.h"
#include "pattern/TestPattern.h"
#include "programs/Program.h"
#include "support/Await.h"

namespace orvtest {
namespace {

using orvclient::Status;
using orvplay::Distribution;
using orvplay::monotonicNs;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds BOUND{SANITIZED ? 60 : 20};
constexpr int64_t GROUP_MS = 501;  // from one random access point of the sample to the next
constexpr int64_t SOON_MS = SANITIZED ? 10'000 : 1500;
constexpr double IN_STEP_MS = SANITIZED ? 500 : 60;

// As many as asked for, else so many.
int countOf(const char* variable, int otherwise) {
    const char* const asked = getenv(variable);
    return asked != nullptr ? atoi(asked) : otherwise;
}

// Looks at the pictures of the player.
class Watcher {
public:
    Watcher(orvclient::PictureQueue& pictures, orvplay::SyncMeter& sync)
        : mPictures(pictures), mSync(sync), mThread([this] { watch(); }) {}
    ~Watcher() {
        mEnded = true;
        mThread.join();
    }
    Watcher(const Watcher&) = delete;  // its thread knows it by address
    Watcher& operator=(const Watcher&) = delete;

    struct First {
        int64_t positionMs;
        int64_t timeNs;
    };
    // The next picture is the first one.
    void expect() {
        std::lock_guard<std::mutex> guard(mLock);
        mFirst.reset();
        mCount = 0;
        mFlashOn = true;  // what was on before did not begin
    }
    std::optional<First> first() const {
        std::lock_guard<std::mutex> guard(mLock);
        return mFirst;
    }
    int count() const {
        std::lock_guard<std::mutex> guard(mLock);
        return mCount;
    }

private:
    void watch() {
        orvclient::Picture picture;
        while (!mEnded) {
            if (mPictures.acquire(&picture, 20)) {
                look(picture);
                mPictures.release(picture);
            }
        }
    }
    void look(const orvclient::Picture& picture) {
        const auto stride = static_cast<int>(picture.stride);
        const auto width = static_cast<int>(picture.width);
        const auto height = static_cast<int>(picture.height);
        const auto number = readFrameNumber(picture.luma, stride, width, height);
        const bool flash = number && isFlash(picture.luma, stride, width, height);
        const int64_t now = monotonicNs();
        std::lock_guard<std::mutex> guard(mLock);
        ++mCount;
        if (number && !mFirst) {
            mFirst = First{int64_t{*number} * 1001 / 30, now};
        }
        if (flash && !mFlashOn) {
            mSync.onFlash(now);
        }
        mFlashOn = flash;
    }

    orvclient::PictureQueue& mPictures;
    orvplay::SyncMeter& mSync;
    mutable std::mutex mLock;
    std::optional<First> mFirst;
    int mCount = 0;
    bool mFlashOn = true;
    std::atomic<bool> mEnded{false};
    std::thread mThread;
};

class RecordedPlaybackTest : public testing::Test {
protected:
    void SetUp() override {
        mHome = testing::TempDir() + "orv-recorded-XXXXXX";
        ASSERT_NE(mkdtemp(mHome.data()), nullptr);
        const char* const source = getenv("ORV_SEEK_SOURCE");
        ASSERT_NO_FATAL_FAILURE(connect());
        import(source != nullptr ? source : ORV_SAMPLES_DIR "/small-long.ts");
    }
    void TearDown() override {
        mPlayer = nullptr;
        std::filesystem::remove_all(mHome);
    }

    // A service of our own, with recordings of its own, and no sound device.
    void connect() {
        setenv("XDG_DATA_HOME", mHome.c_str(), 1);
        setenv("ORV_AUDIO", "silent", 1);
        setenv("ORV_TRACE", "error", 0);
        orvclient::Player::Options options;
        options.daemon = ORV_DAEMON;
        options.commandTimeout = BOUND;
        orvclient::Callbacks callbacks;
        callbacks.onTime = [this](int second) {
            std::lock_guard<std::mutex> guard(mLock);
            mTimes.push_back({second, monotonicNs()});
        };
        callbacks.onEnd = [this] { ++mEnds; };
        callbacks.onError = [this](int) { ++mErrors; };
        std::string error;
        mPlayer = orvclient::Player::create(options, callbacks, &error);
        unsetenv("XDG_DATA_HOME");
        unsetenv("ORV_AUDIO");
        ASSERT_NE(mPlayer, nullptr) << error;
        ASSERT_TRUE(mPlayer->setSurface(&mPictures).ok());
    }
    void import(const std::string& path) {
        const auto imported = mPlayer->recordings().importFile(path, {}, {}, &mRecording);
        ASSERT_TRUE(imported.ok()) << imported.message;
    }
    void play() {
        const Status opened = mPlayer->openRecording(mRecording.number);
        ASSERT_TRUE(opened.ok()) << opened.message;
        ASSERT_TRUE(mPlayer->start().ok());
        ASSERT_TRUE(await([this] { return mWatcher.count() > 10; }, BOUND));
    }

    struct Time {
        int second;
        int64_t toldNs;
    };
    std::vector<Time> times() {
        std::lock_guard<std::mutex> guard(mLock);
        return mTimes;
    }
    int lastTime() {
        const auto all = times();
        return all.empty() ? 0 : all.back().second;
    }
    bool awaitTime(int second) {
        return await(
            [&] {
                listen();
                return lastTime() >= second;
            },
            BOUND);
    }
    bool awaitPictures(int more) {
        const int wanted = mWatcher.count() + more;
        return await([&] { return mWatcher.count() >= wanted; }, BOUND);
    }

    void listen() { mSound.onFigures(mPlayer->figures()); }
    void listenFor(milliseconds time) {
        const int64_t endNs = monotonicNs() + std::chrono::nanoseconds(time).count();
        while (monotonicNs() < endNs) {
            listen();
            std::this_thread::sleep_for(milliseconds(50));
        }
    }
    // What was announced of the old place belongs to nothing of the new one.
    void takeBreak() {
        listen();
        mSync.onBreak();
    }

    void seekAndJudge(milliseconds target, bool paused) {
        SCOPED_TRACE(testing::Message() << "to " << target.count() << (paused ? ", paused" : ""));
        const int64_t begunNs = monotonicNs();
        const Status sought = mPlayer->seek(target);
        ASSERT_TRUE(sought.ok()) << sought.message;
        mWatcher.expect();  // what came of the old place came before
        takeBreak();
        ASSERT_TRUE(await([&] { return mWatcher.first().has_value(); }, BOUND));
        const Watcher::First first = *mWatcher.first();
        const int64_t tookMs = (first.timeNs - begunNs) / 1'000'000;
        mSeekTimes.add(static_cast<double>(tookMs));
        EXPECT_LE(std::abs(first.positionMs - target.count()), GROUP_MS);
        EXPECT_LE(tookMs, SOON_MS);
        EXPECT_EQ(mPlayer->elapsed(), target);
    }
    // It stands after a picture or some, until it goes on.
    void expectStillness() {
        std::this_thread::sleep_for(milliseconds(1000));
        const int shown = mWatcher.count();
        std::this_thread::sleep_for(milliseconds(300));
        EXPECT_EQ(mWatcher.count(), shown);
    }
    void resumeAndAwaitPictures() {
        ASSERT_TRUE(mPlayer->resume().ok());
        takeBreak();
        EXPECT_TRUE(awaitPictures(10));
    }

    std::string mHome;
    orvhost::RecordingDetails mRecording;
    orvclient::PictureQueue mPictures;
    orvplay::SyncMeter mSync;
    orvplay::SoundMeter mSound{mSync};
    Watcher mWatcher{mPictures, mSync};
    Distribution mSeekTimes;
    std::atomic<int> mEnds{0};
    std::atomic<int> mErrors{0};
    std::unique_ptr<orvclient::Player> mPlayer;

private:
    std::mutex mLock;
    std::vector<Time> mTimes;
};

TEST_F(RecordedPlaybackTest, SeeksShowTheTargetSoonAndInStep) {
    ASSERT_NO_FATAL_FAILURE(play());
    std::mt19937 random(7);
    std::uniform_int_distribution<int64_t> target(0, mRecording.durationMs - 3000);
    const int seeks = countOf("ORV_SEEKS", 3);
    for (int i = 0; i < seeks; ++i) {
        const bool paused = i % 3 == 2;
        if (paused) {
            EXPECT_TRUE(mPlayer->pause().ok());
        }
        ASSERT_NO_FATAL_FAILURE(seekAndJudge(milliseconds(target(random)), paused));
        if (paused) {
            expectStillness();
            resumeAndAwaitPictures();
        }
        listenFor(milliseconds(i % 2 == 0 ? 1600 : 300));
    }
    // Stopped and started it goes on there.
    const milliseconds elapsed = mPlayer->elapsed();
    EXPECT_TRUE(mPlayer->stop().ok());
    mWatcher.expect();
    takeBreak();
    EXPECT_TRUE(mPlayer->start().ok());
    EXPECT_TRUE(await([this] { return mWatcher.first().has_value(); }, BOUND));
    EXPECT_NEAR(static_cast<double>(mWatcher.first().value_or(Watcher::First()).positionMs),
                static_cast<double>(elapsed.count()), 1000 + GROUP_MS);
    const Distribution skew = mSync.skew();
    if (getenv("ORV_SEEKS") != nullptr) {
        printf(
            "%d seeks: median %.0f, p99 %.0f, slowest %.0f ms; skew of %d: median %.1f, "
            "p99 %.1f, most %.1f ms\n",
            seeks, mSeekTimes.quantileMs(0.5), mSeekTimes.quantileMs(0.99), mSeekTimes.maxMs(),
            static_cast<int>(skew.count()), skew.quantileMs(0.5), skew.quantileMs(0.99),
            skew.maxMs());
    }
    EXPECT_TRUE(mSync.measuredByMarks());
    EXPECT_LE(skew.quantileMs(0.99), IN_STEP_MS);
    EXPECT_EQ(mEnds + mErrors, 0);
}

// Time stands with the picture; the end comes once, and nothing can be sought after it.
TEST_F(RecordedPlaybackTest, TimeRisesStandsAndEnds) {
    ASSERT_NO_FATAL_FAILURE(play());
    ASSERT_TRUE(awaitTime(2));
    ASSERT_TRUE(mPlayer->pause().ok());
    takeBreak();
    const int paused = lastTime();
    expectStillness();
    EXPECT_EQ(lastTime(), paused);
    resumeAndAwaitPictures();
    ASSERT_TRUE(awaitTime(paused + 2));
    const auto told = times();
    for (size_t i = 0; i < told.size(); ++i) {
        EXPECT_EQ(told[i].second, static_cast<int>(i) + 1);
    }
    const int64_t lastSecondNs = told.back().toldNs - told[told.size() - 2].toldNs;
    EXPECT_NEAR(static_cast<double>(lastSecondNs) * 1e-9, 1.0, SANITIZED ? 1.0 : 0.2);
    EXPECT_LE(mSync.skew().maxMs(), IN_STEP_MS);

    ASSERT_NO_FATAL_FAILURE(seekAndJudge(milliseconds(mRecording.durationMs - 3000), false));
    EXPECT_TRUE(await([this] { return mEnds > 0; }, BOUND));
    EXPECT_NEAR(lastTime(), mRecording.durationMs / 1000, 1);  // whole seconds
    EXPECT_EQ(mPlayer->seek(seconds(1)).code, Status::REFUSED);
    EXPECT_FALSE(await([this] { return mEnds > 1; }, milliseconds(500)));
    EXPECT_EQ(mErrors, 0);
}

TEST_F(RecordedPlaybackTest, ASeekToTheLastSecondAndAHalfIsTheEnd) {
    ASSERT_NO_FATAL_FAILURE(play());
    EXPECT_TRUE(mPlayer->seek(milliseconds(mRecording.durationMs - 1500)).ok());
    EXPECT_TRUE(await([this] { return mEnds == 1; }, BOUND));
    EXPECT_EQ(mErrors, 0);
}

TEST_F(RecordedPlaybackTest, AHundredPausesLeaveThePictureRunning) {
    ASSERT_NO_FATAL_FAILURE(play());
    for (int i = 0; i < countOf("ORV_PAUSES", 100); ++i) {
        ASSERT_TRUE(mPlayer->pause().ok());
        ASSERT_TRUE(mPlayer->resume().ok());
        std::this_thread::sleep_for(milliseconds(i % 4 * 10));
    }
    EXPECT_TRUE(awaitPictures(30));
    EXPECT_EQ(mEnds + mErrors, 0);
}

}  // namespace
}  // namespace orvtest
