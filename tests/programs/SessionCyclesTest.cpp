// Starting and stopping leaves nothing behind.

#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <thread>

#include "PictureOutput.h"
#include "StreamSelection.h"
#include "SyncMeter.h"
#include "audio/AudioOutput.h"
#include "dtv/Tuner.h"
#include "programs/Program.h"
#include "service/MainController.h"
#include "support/Await.h"
#include "support/LiveConfiguration.h"
#include "support/ProcessUsage.h"

namespace orvtest {
namespace {

constexpr int CYCLES = 10;
constexpr int SETTLED_CYCLE = 2;  // what lives as long as the process is there by then
constexpr size_t HEAP_SLACK = 256 << 10;

using OrvPlayer::MainController;

// What the player reports of failures.
class Reports : public OrvPlayer::ErrorListener {
public:
    void onError(unsigned int code, const OrvPlayer::Module*) const override { error = code; }

    mutable std::atomic<unsigned int> error{0};
};

class SessionCyclesTest : public testing::Test {
protected:
    void SetUp() override {
        setenv("ORV_TRACE", "error", 0);
        orvhost::setAudioOutput(orvhost::AudioOutput::SILENT);
        orvhost::TuneOptions tuning;
        tuning.loop = true;
        orvhost::Tuner& tuner = orvhost::Tuner::instance();
        ASSERT_TRUE(tuner.tune(ORV_SAMPLES_DIR "/small.ts", tuning).ok());
        orvplay::PlayOptions options;
        std::string error;
        ASSERT_TRUE(
            orvplay::selectStreams(tuner.services(5000).services, options, &mSelection, &error))
            << error;
        orvhost::BufferQueue::create(&mProducer, &mConsumer);
        mPictures.emplace(mConsumer, nullptr, mSync);
        ASSERT_TRUE(mPictures->start());
    }
    void TearDown() override {
        mPictures->stop();
        orvhost::Tuner::instance().untune();
    }

    android::sp<MainController> newPlayer() {
        android::sp<MainController> player = new MainController;
        EXPECT_EQ(player->configure(configurationOf(mSelection)), 0);
        player->setErrorListener(&mReports);
        player->setFigures(&mFigures);
        android::sp<android::Surface> surface = new android::Surface(mProducer);
        EXPECT_EQ(player->setSurface(surface), 0);
        return player;
    }

    bool awaitPictures(uint64_t more) {
        const uint64_t wanted = mPictures->figures().frames + more;
        return await([&] { return mPictures->figures().frames >= wanted; },
                     std::chrono::seconds(30));
    }

    android::sp<android::IGraphicBufferProducer> mProducer;
    android::sp<orvhost::BufferQueue::Consumer> mConsumer;
    orvplay::SyncMeter mSync;
    std::optional<orvplay::PictureOutput> mPictures;
    orvplay::StreamSelection mSelection;
    Reports mReports;
    OrvPlayer::PlaybackFigures mFigures;
};

// The first and the last cycles go on to the first picture; those between are stopped early, each
// a little later than the one before. Every second one has a player of its own, as after a change
// of service.
TEST_F(SessionCyclesTest, LeaveNothingBehind) {
    android::sp<MainController> player;
    ProcessUsage settled;
    size_t settledHeap = 0;
    for (int cycle = 1; cycle <= CYCLES; ++cycle) {
        SCOPED_TRACE(cycle);
        if (player == nullptr) {
            player = newPlayer();
        }
        ASSERT_EQ(player->start(), 0);
        if (cycle <= SETTLED_CYCLE || cycle == CYCLES) {
            EXPECT_TRUE(awaitPictures(5));
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(50 * cycle));
        }
        EXPECT_EQ(player->stop(), 0);
        if (cycle % 2 == 0) {
            player = nullptr;
        }
        if (cycle == SETTLED_CYCLE) {
            settled = ProcessUsage::now();
            settledHeap = mallinfo2().uordblks;
        }
    }
    // A thread that a timer made for one notification may still be on its way out, now or then.
    EXPECT_TRUE(await([&] { return ProcessUsage::now().threads <= settled.threads; }))
        << ProcessUsage::now().threads << " threads instead of " << settled.threads;
    EXPECT_LE(ProcessUsage::now().descriptors, settled.descriptors);
    if (!SANITIZED) {
        EXPECT_LT(mallinfo2().uordblks, settledHeap + HEAP_SLACK);
    }
    EXPECT_EQ(mReports.error, 0U);
}

// Sound of another coding takes another player.
TEST_F(SessionCyclesTest, AnotherPlayerTakesOver) {
    for (int turn = 0; turn < 3; ++turn) {
        const android::sp<MainController> player = newPlayer();
        ASSERT_EQ(player->start(), 0);
        EXPECT_TRUE(awaitPictures(3));
        const uint64_t before = mFigures.audioEarlyCount;
        EXPECT_TRUE(await([&] { return mFigures.audioEarlyCount > before + 20; },
                          std::chrono::seconds(30)));
        ASSERT_EQ(player->stop(), 0);
        mSelection.audioPid = mSelection.nextSound()->pid;
    }
    EXPECT_EQ(mReports.error, 0U);
}

// A pause keeps the picture that waits for its time. The codec has fewer of them than there are
// pauses here, and gets each back even when no other one comes back in between.
TEST_F(SessionCyclesTest, PausesCostNoPicture) {
    const android::sp<MainController> player = newPlayer();
    ASSERT_EQ(player->start(), 0);
    ASSERT_TRUE(awaitPictures(3));
    for (int pause = 0; pause < 60; ++pause) {
        EXPECT_EQ(player->pause(), 0);
        EXPECT_EQ(player->resume(), 0);
    }
    EXPECT_TRUE(awaitPictures(3));
    EXPECT_EQ(player->stop(), 0);
}

}  // namespace
}  // namespace orvtest
