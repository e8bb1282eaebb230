// A stop takes as long as the slowest worker needs to look up, whatever comes in and whenever it is
// asked for.
//
// Several players at a time play the same sound or damaged service; each is stopped up to three
// seconds after its start: before the first packet, before the first picture,
// with the outputs shut or open. ORV_STOPS=500 in the environment asks for as many stops.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "PictureOutput.h"
#include "StreamSelection.h"
#include "SyncMeter.h"
#include "audio/AudioOutput.h"
#include "damage/TsDamage.h"
#include "dtv/Tuner.h"
#include "programs/Program.h"
#include "service/MainController.h"
#include "support/Await.h"
#include "support/LiveConfiguration.h"
#include "support/ProcessUsage.h"
#include "support/TempFile.h"

namespace orvtest {
namespace {

using std::chrono::steady_clock;

constexpr size_t PLAYERS = 5;
constexpr size_t STOPS = 105;
constexpr int LATEST_STOP_MS = 3000;
constexpr double LIMIT_MS = SANITIZED ? 5000 : 500;
constexpr uint16_t VIDEO_PID = 273;

const std::vector<std::function<void(TsDamage&)>> INPUTS = {
    [](TsDamage&) {},
    [](TsDamage& s) { s.losePackets(1e-2); },
    [](TsDamage& s) { s.flipBits(1e-4); },
    [](TsDamage& s) { s.slipBytes(40); },
    [](TsDamage& s) { s.setScramblingBits(1e-2); },
    [](TsDamage& s) { s.removePid(VIDEO_PID); },
    [](TsDamage& s) { s.setTransportErrors(1); },  // nothing at all comes through
};

class StopAnytimeTest : public testing::Test {
protected:
    void SetUp() override {
        setenv("ORV_TRACE", "off", 0);
        orvhost::setAudioOutput(orvhost::AudioOutput::SILENT);
        std::ifstream file(ORV_SAMPLES_DIR "/small.ts", std::ios::binary);
        mSample = {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        mTuning.loop = true;
        ASSERT_TRUE(mTuner.tune(ORV_SAMPLES_DIR "/small.ts", mTuning).ok());
        std::string error;
        ASSERT_TRUE(orvplay::selectStreams(mTuner.services(5000).services, {}, &mSelection, &error))
            << error;
        mTuning.pcrPid = mSelection.pcrPid;
    }
    void TearDown() override { mTuner.untune(); }

    // Plays and stops again and again. Half of the players are started again after a stop, the
    // others give way to a new one.
    void playAndStop(size_t stops, uint64_t seed) {
        std::mt19937_64 random(seed);
        std::uniform_int_distribution<int> delayMs(0, LATEST_STOP_MS);
        android::sp<android::IGraphicBufferProducer> producer;
        android::sp<orvhost::BufferQueue::Consumer> consumer;
        orvhost::BufferQueue::create(&producer, &consumer);
        orvplay::SyncMeter sync;
        orvplay::PictureOutput pictures(consumer, nullptr, sync);
        EXPECT_TRUE(pictures.start());
        android::sp<android::Surface> surface = new android::Surface(producer);
        android::sp<OrvPlayer::MainController> player;
        for (size_t i = 0; i < stops; ++i) {
            if (player == nullptr) {
                player = new OrvPlayer::MainController;
                EXPECT_EQ(player->configure(configurationOf(mSelection)), 0);
                EXPECT_EQ(player->setSurface(surface), 0);
            }
            EXPECT_EQ(player->start(), 0);
            std::this_thread::sleep_for(std::chrono::milliseconds(delayMs(random)));
            const auto begin = steady_clock::now();
            EXPECT_EQ(player->stop(), 0);
            if (random() % 2 == 0) {
                player = nullptr;
            }
            const std::chrono::duration<double, std::milli> taken = steady_clock::now() - begin;
            std::lock_guard<std::mutex> guard(mLock);
            mTakenMs.push_back(taken.count());
        }
        player = nullptr;
        pictures.stop();
    }

    orvhost::Tuner& mTuner = orvhost::Tuner::instance();
    orvhost::TuneOptions mTuning;
    std::vector<uint8_t> mSample;
    orvplay::StreamSelection mSelection;
    std::mutex mLock;
    std::vector<double> mTakenMs;
};

TEST_F(StopAnytimeTest, StopsInTimeWhateverComesIn) {
    const char* const asked = getenv("ORV_STOPS");
    const size_t stops = asked != nullptr ? strtoul(asked, nullptr, 10) : STOPS;
    const size_t each = std::max<size_t>(1, stops / (INPUTS.size() * PLAYERS));
    playAndStop(2, 0);  // what lives as long as the process is there from now on
    mTuner.untune();
    const ProcessUsage before = ProcessUsage::now();
    mTakenMs.clear();
    for (size_t input = 0; input < INPUTS.size(); ++input) {
        TsDamage stream(mSample);
        INPUTS[input](stream);
        const TempFile file(stream.take());
        ASSERT_TRUE(mTuner.tune(file.path(), mTuning).ok());
        std::vector<std::thread> players;
        for (size_t i = 0; i < PLAYERS; ++i) {
            players.emplace_back([=, this] { playAndStop(each, 1 + input * PLAYERS + i); });
        }
        for (std::thread& player : players) {
            player.join();
        }
        mTuner.untune();
    }
    std::sort(mTakenMs.begin(), mTakenMs.end());
    const auto quantile = [this](size_t percent) {
        return mTakenMs[(mTakenMs.size() * percent + 99) / 100 - 1];
    };
    printf("%zu stops: p50 %.0f ms, p90 %.0f ms, p99 %.0f ms, longest %.0f ms\n", mTakenMs.size(),
           quantile(50), quantile(90), quantile(99), mTakenMs.back());
    EXPECT_LE(quantile(99), LIMIT_MS);
    EXPECT_TRUE(await([&] { return ProcessUsage::now().threads <= before.threads; }))
        << ProcessUsage::now().threads << " threads instead of " << before.threads;
    EXPECT_LE(ProcessUsage::now().descriptors, before.descriptors);
}

}  // namespace
}  // namespace orvtest
