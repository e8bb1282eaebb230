// Starting and stopping leaves nothing behind.

#include <dirent.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <thread>

#include "PictureOutput.h"
#include "PlayerSession.h"
#include "StreamSelection.h"
#include "SyncMeter.h"
#include "audio/AudioOutput.h"
#include "dtv/Tuner.h"
#include "programs/Program.h"

namespace orvtest {
namespace {

constexpr int CYCLES = 10;
constexpr int SETTLED_CYCLE = 2;  // what lives as long as the process is there by then
constexpr size_t HEAP_SLACK = 256 << 10;

size_t entriesOf(const char* folder) {
    size_t count = 0;
    DIR* const entries = opendir(folder);
    while (entries != nullptr && readdir(entries) != nullptr) {
        ++count;
    }
    closedir(entries);
    return count;
}

bool comesTrue(const std::function<bool()>& condition, std::chrono::seconds bound) {
    const auto deadline = std::chrono::steady_clock::now() + bound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

struct Usage {
    size_t threads = 0;
    size_t descriptors = 0;
    size_t heapBytes = 0;

    static Usage now() {
        return {entriesOf("/proc/self/task"), entriesOf("/proc/self/fd"), mallinfo2().uordblks};
    }
};

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
    Usage settled;
    for (int cycle = 1; cycle <= CYCLES; ++cycle) {
        SCOPED_TRACE(cycle);
        if (session == nullptr) {
            session = newSession(producer);
        }
        const uint64_t framesBefore = pictures.figures().frames;
        ASSERT_EQ(session->start(), 0);
        if (cycle <= SETTLED_CYCLE || cycle == CYCLES) {
            EXPECT_TRUE(comesTrue([&] { return pictures.figures().frames > framesBefore + 5; },
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
            settled = Usage::now();
        }
    }
    // A thread that a timer made for one notification may still be on its way out, now or then.
    EXPECT_TRUE(comesTrue([&] { return Usage::now().threads <= settled.threads; },
                          std::chrono::seconds(10)))
        << Usage::now().threads << " threads instead of " << settled.threads;
    const Usage last = Usage::now();
    EXPECT_LE(last.descriptors, settled.descriptors);
    if (!SANITIZED) {
        EXPECT_LT(last.heapBytes, settled.heapBytes + HEAP_SLACK);
    }
    EXPECT_EQ(mError, 0U);
    session = nullptr;
    pictures.stop();
}

INSTANTIATE_TEST_SUITE_P(OneOrMany, SessionCyclesTest, testing::Bool());

}  // namespace
}  // namespace orvtest
