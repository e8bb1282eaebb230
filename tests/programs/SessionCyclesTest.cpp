// Starting and stopping leaves nothing behind.

#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <thread>

#include "PictureOutput.h"
#include "PlayerSession.h"
#include "StreamSelection.h"
#include "SyncMeter.h"
#include "audio/AudioOutput.h"
#include "dtv/Tuner.h"
#include "programs/Program.h"
#include "support/Await.h"
#include "support/ProcessUsage.h"

namespace orvtest {
namespace {

constexpr int CYCLES = 10;
constexpr int SETTLED_CYCLE = 2;  // what lives as long as the process is there by then
constexpr size_t HEAP_SLACK = 256 << 10;

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

    std::unique_ptr<orvplay::PlayerSession> newSession() {
        orvplay::PlayerSession::Events events;
        events.onError = [this](unsigned int code, const std::string&) { mError = code; };
        events.onAudioSessionId = [](int) {};
        events.onAudioReady = [this](long) { ++mSoundReports; };
        auto session = std::make_unique<orvplay::PlayerSession>(mProducer, std::move(events));
        EXPECT_EQ(session->open(mSelection.configuration()), 0);
        return session;
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
    std::atomic<unsigned int> mError{0};
    std::atomic<int> mSoundReports{0};
};

// The first and the last cycles go on to the first picture; those between are stopped early, each
// a little later than the one before. Every second one has a session of its own, as after a change
// of service.
TEST_F(SessionCyclesTest, LeaveNothingBehind) {
    std::unique_ptr<orvplay::PlayerSession> session;
    ProcessUsage settled;
    size_t settledHeap = 0;
    for (int cycle = 1; cycle <= CYCLES; ++cycle) {
        SCOPED_TRACE(cycle);
        if (session == nullptr) {
            session = newSession();
        }
        ASSERT_EQ(session->start(), 0);
        if (cycle <= SETTLED_CYCLE || cycle == CYCLES) {
            EXPECT_TRUE(awaitPictures(5));
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(50 * cycle));
        }
        EXPECT_EQ(session->stop(), 0);
        if (cycle % 2 == 0) {
            session = nullptr;
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
    EXPECT_EQ(mError, 0U);
}

// Sound of another coding takes another player, on the same surface.
TEST_F(SessionCyclesTest, AnotherPlayerTakesOver) {
    const auto session = newSession();
    for (int player = 0; player < 3; ++player) {
        ASSERT_EQ(session->start(), 0);
        EXPECT_TRUE(awaitPictures(3));
        const int before = mSoundReports;
        EXPECT_TRUE(await([&] { return mSoundReports > before + 20; }, std::chrono::seconds(30)));
        ASSERT_EQ(session->stop(), 0);
        mSelection.audioPid = mSelection.nextSound()->pid;
        ASSERT_EQ(session->open(mSelection.configuration()), 0);
    }
    EXPECT_EQ(mError, 0U);
}

// A pause keeps the picture that waits for its time. The codec has fewer of them than there are
// pauses here, and gets each back even when no other one comes back in between.
TEST_F(SessionCyclesTest, PausesCostNoPicture) {
    android::sp<android::Surface> surface = new android::Surface(mProducer);
    android::sp<OrvPlayer::MainController> controller = new OrvPlayer::MainController;
    ASSERT_EQ(controller->configure(mSelection.configuration()), 0);
    controller->setSurface(surface);
    ASSERT_EQ(controller->start(), 0);
    ASSERT_TRUE(awaitPictures(3));
    for (int pause = 0; pause < 60; ++pause) {
        EXPECT_EQ(controller->pause(), 0);
        EXPECT_EQ(controller->resume(), 0);
    }
    EXPECT_TRUE(awaitPictures(3));
    EXPECT_EQ(controller->stop(), 0);
}

}  // namespace
}  // namespace orvtest
