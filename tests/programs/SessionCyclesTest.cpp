// Starting and stopping leaves nothing behind.

#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
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

// Reopened: each cycle has a session of its own, as after a change of service.
class SessionCyclesTest : public testing::TestWithParam<bool> {
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
    }
    void TearDown() override { orvhost::Tuner::instance().untune(); }

    std::unique_ptr<orvplay::PlayerSession> newSession(
        const android::sp<android::IGraphicBufferProducer>& producer) {
        orvplay::PlayerSession::Events events;
        events.onError = [this](unsigned int code, const std::string&) { mError = code; };
        events.onAudioSessionId = [](int) {};
        events.onAudioReady = [](long) {};
        auto session = std::make_unique<orvplay::PlayerSession>(producer, std::move(events));
        EXPECT_EQ(session->open(mSelection.configuration()), 0);
        return session;
    }

    orvplay::StreamSelection mSelection;
    std::atomic<unsigned int> mError{0};
};

// The first and the last cycles go on to the first picture; those between are stopped early, each
// a little later than the one before.
TEST_P(SessionCyclesTest, LeaveNothingBehind) {
    const bool reopened = GetParam();
    android::sp<android::IGraphicBufferProducer> producer;
    android::sp<orvhost::BufferQueue::Consumer> consumer;
    orvhost::BufferQueue::create(&producer, &consumer);
    orvplay::SyncMeter sync;
    orvplay::PictureOutput pictures(consumer, nullptr, sync);
    ASSERT_TRUE(pictures.start());

    std::unique_ptr<orvplay::PlayerSession> session;
    ProcessUsage settled;
    size_t settledHeap = 0;
    for (int cycle = 1; cycle <= CYCLES; ++cycle) {
        SCOPED_TRACE(cycle);
        if (session == nullptr) {
            session = newSession(producer);
        }
        const uint64_t framesBefore = pictures.figures().frames;
        ASSERT_EQ(session->start(), 0);
        if (cycle <= SETTLED_CYCLE || cycle == CYCLES) {
            EXPECT_TRUE(await([&] { return pictures.figures().frames > framesBefore + 5; },
                              std::chrono::seconds(30)));
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(50 * cycle));
        }
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(session->stop(), 0);
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
        EXPECT_LT(taken.count(), SANITIZED ? 5 : 0.5);
        if (reopened) {
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
    session = nullptr;
    pictures.stop();
}

INSTANTIATE_TEST_SUITE_P(OneOrMany, SessionCyclesTest, testing::Bool());

}  // namespace
}  // namespace orvtest
