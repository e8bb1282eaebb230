// Another language while playing: the demultiplexer, the receiver and all behind them go on.

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <numbers>
#include <optional>
#include <string>
#include <vector>

#include "PictureOutput.h"
#include "StreamSelection.h"
#include "SyncMeter.h"
#include "audio/AudioOutput.h"
#include "audio/PlaybackTap.h"
#include "dtv/Tuner.h"
#include "service/MainController.h"
#include "support/Await.h"
#include "support/LiveConfiguration.h"

namespace orvtest {
namespace {

constexpr int FIRST_PID = 274, SECOND_PID = 275;
constexpr int FIRST_HZ = 220, SECOND_HZ = 440;  // the background of each, on the left
constexpr std::chrono::seconds PATIENCE(15);

// Which background the player plays, from every 200 ms of what is heard.
class LanguageMeter : public orvhost::PlaybackTap {
public:
    void onBlock(const orvhost::PlaybackBlock& block) override {
        const auto* pcm = static_cast<const int16_t*>(block.pPcm);
        for (size_t i = 0; i < block.frameCount && block.volumeLeft > 0; ++i) {
            mWindow.push_back(pcm[i * block.channelCount]);
            if (mWindow.size() == block.sampleRate / 5) {
                judge(block.sampleRate);
                mWindow.clear();
            }
        }
    }
    void onFlushed(int, int64_t) override { mWindow.clear(); }

    // Windows heard of one frequency alone since the last call; forgets them.
    int take(int hz) { return (hz == FIRST_HZ ? mFirst : mSecond).exchange(0); }

private:
    double power(int hz, uint32_t rate) const {
        double real = 0, imaginary = 0;
        for (size_t i = 0; i < mWindow.size(); ++i) {
            const double phase = 2 * std::numbers::pi * hz * static_cast<double>(i) / rate;
            real += mWindow[i] * std::cos(phase);
            imaginary += mWindow[i] * std::sin(phase);
        }
        const double half = static_cast<double>(mWindow.size()) / 2;
        return (real * real + imaginary * imaginary) / (half * half);
    }
    void judge(uint32_t rate) {
        constexpr double AUDIBLE = 250.0 * 250.0;  // half of the amplitude made
        const double first = power(FIRST_HZ, rate), second = power(SECOND_HZ, rate);
        if (first > AUDIBLE && first > 4 * second) {
            ++mFirst;
        } else if (second > AUDIBLE && second > 4 * first) {
            ++mSecond;
        }
    }

    std::vector<int16_t> mWindow;
    std::atomic<int> mFirst{0}, mSecond{0};
};

class SoundSwitchTest : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        orvhost::setAudioOutput(orvhost::AudioOutput::SILENT);
        orvhost::setPlaybackTap(&mMeter);
        orvhost::TuneOptions tuning;
        tuning.loop = true;
        orvhost::Tuner& tuner = orvhost::Tuner::instance();
        const std::string file = std::string(ORV_SAMPLES_DIR "/") + GetParam() + ".ts";
        ASSERT_TRUE(tuner.tune(file, tuning).ok());
        orvplay::StreamSelection selection;
        std::string error;
        ASSERT_TRUE(orvplay::selectStreams(tuner.services(5000).services, orvplay::PlayOptions{},
                                           &selection, &error))
            << error;
        ASSERT_EQ(selection.audioPid, FIRST_PID);
        android::sp<android::IGraphicBufferProducer> producer;
        orvhost::BufferQueue::create(&producer, &mConsumer);
        mPictures.emplace(mConsumer, nullptr, mSync);
        ASSERT_TRUE(mPictures->start());
        mController = new OrvPlayer::MainController;
        ASSERT_EQ(mController->configure(configurationOf(selection)), 0);
        android::sp<android::Surface> surface = new android::Surface(producer);
        ASSERT_EQ(mController->setSurface(surface), 0);
        ASSERT_EQ(mController->start(), 0);
    }
    void TearDown() override {
        if (mController != nullptr) {
            EXPECT_EQ(mController->stop(), 0);
            mController = nullptr;
        }
        orvhost::Tuner::instance().untune();
        orvhost::setPlaybackTap(nullptr);
        if (mPictures.has_value()) {
            mPictures->stop();
        }
    }

    // One background for most of a second, and nothing of the other.
    void expectSteady(int hz, int otherHz) {
        int heard = 0;
        EXPECT_TRUE(await([&] { return (heard += mMeter.take(hz)) > 0; }, PATIENCE)) << hz;
        mMeter.take(otherHz);
        EXPECT_TRUE(await([&] { return (heard += mMeter.take(hz)) >= 4; }, PATIENCE)) << hz;
        EXPECT_EQ(mMeter.take(otherHz), 0) << otherHz;
    }

    LanguageMeter mMeter;
    orvplay::SyncMeter mSync;
    android::sp<orvhost::BufferQueue::Consumer> mConsumer;
    std::optional<orvplay::PictureOutput> mPictures;
    android::sp<OrvPlayer::MainController> mController;
};

TEST_P(SoundSwitchTest, GoesFromOneLanguageToTheOtherAndBack) {
    expectSteady(FIRST_HZ, SECOND_HZ);
    EXPECT_EQ(mController->setAudioPID(SECOND_PID), 0);
    expectSteady(SECOND_HZ, FIRST_HZ);
    EXPECT_EQ(mController->setAudioPID(FIRST_PID), 0);
    expectSteady(FIRST_HZ, SECOND_HZ);
}

INSTANTIATE_TEST_SUITE_P(Samples, SoundSwitchTest, testing::Values("small", "small-mpeg"),
                         [](const auto& tested) {
                             return std::string(tested.param) == "small" ? "Latm" : "Mpeg";
                         });

}  // namespace
}  // namespace orvtest
