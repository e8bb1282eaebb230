// From packets to pictures and back: what is watched is recorded, the recording is played.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "PictureOutput.h"
#include "StreamSelection.h"
#include "SyncMeter.h"
#include "audio/AudioOutput.h"
#include "dtv/Tuner.h"
#include "recording/Catalogue.h"
#include "service/MainController.h"
#include "support/Await.h"
#include "support/EventLog.h"
#include "support/LiveConfiguration.h"
#include "support/RecordingsLog.h"

namespace orvtest {
namespace {

using OrvPlayer::MainController;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

class RecordedPlaybackTest : public testing::Test {
protected:
    void SetUp() override {
        setenv("ORV_TRACE", "error", 0);
        mFolder = testing::TempDir() + "orv-recordings-XXXXXX";
        ASSERT_NE(mkdtemp(mFolder.data()), nullptr);
        setenv("XDG_DATA_HOME", mFolder.c_str(), 1);
        unsetenv("ORV_RECORDING_DIR");
        orvhost::setAudioOutput(orvhost::AudioOutput::SILENT);
        orvhost::BufferQueue::create(&mProducer, &mConsumer);
        mPictures.emplace(mConsumer, nullptr, mSync);
        ASSERT_TRUE(mPictures->start());
    }
    void TearDown() override {
        mPlayer = nullptr;
        mPictures->stop();
        mTuner.untune();
        std::filesystem::remove_all(mFolder);
    }

    // A started player of this source, as a broadcast or as a recording.
    void play(const std::string& path, bool recorded) {
        orvhost::TuneOptions tuning;
        tuning.loop = !recorded;
        tuning.recorded = recorded;
        const orvhost::TuneResult tuned = mTuner.tune(path, tuning);
        ASSERT_TRUE(tuned.ok()) << tuned.message;
        orvplay::StreamSelection selection;
        std::string error;
        ASSERT_TRUE(orvplay::selectStreams(mTuner.services(5000).services, orvplay::PlayOptions(),
                                           &selection, &error))
            << error;
        mPlayer = nullptr;
        mPlayer = new MainController;
        auto configuration = configurationOf(selection);
        if (recorded) {
            configuration["sourceType"] = "2";
            configuration["filePath"] = path;
        }
        ASSERT_EQ(mPlayer->configure(configuration), 0);
        mPlayer->setServiceControllerListener(&mEvents);
        mPlayer->setPlayerListener(&mTold);
        mPlayer->setRecorderListener(&mTold);
        android::sp<android::Surface> surface = new android::Surface(mProducer);
        ASSERT_EQ(mPlayer->setSurface(surface), 0);
        ASSERT_EQ(mPlayer->start(), 0);
    }

    bool awaitPictures(uint64_t more) {
        const uint64_t wanted = mPictures->figures().frames + more;
        return await([&] { return mPictures->figures().frames >= wanted; }, seconds(30));
    }
    // No picture for a third of a second, within ten.
    bool awaitStillness() {
        uint64_t last = mPictures->figures().frames;
        steady_clock::time_point since = steady_clock::now();
        return await([&] {
            const uint64_t frames = mPictures->figures().frames;
            if (frames != last) {
                last = frames;
                since = steady_clock::now();
            }
            return steady_clock::now() - since > milliseconds(330);
        });
    }
    // Whether this was told, among what was told since the last time.
    bool awaitTold(const std::string& wanted) {
        std::string told;
        const bool found = await(
            [&] {
                told += " " + mTold.take();
                return (told + " ").find(" " + wanted + " ") != std::string::npos;
            },
            seconds(30));
        EXPECT_TRUE(found) << wanted << " in" << told;
        return found;
    }

    orvhost::Tuner& mTuner = orvhost::Tuner::instance();
    std::string mFolder;
    android::sp<android::IGraphicBufferProducer> mProducer;
    android::sp<orvhost::BufferQueue::Consumer> mConsumer;
    orvplay::SyncMeter mSync;
    std::optional<orvplay::PictureOutput> mPictures;
    EventLog mEvents;
    RecordingsLog mTold;
    android::sp<MainController> mPlayer;
};

TEST_F(RecordedPlaybackTest, PlaysWhatWasRecorded) {
    ASSERT_NO_FATAL_FAILURE(play(ORV_SAMPLES_DIR "/small.ts", false));
    ASSERT_TRUE(awaitPictures(1));
    const std::unique_ptr<OrvPlayer::Uri> target(
        OrvPlayer::Uri::parse("MTV://live/record?channelName=Canal;programName=Jornal;"));
    ASSERT_EQ(mPlayer->startRecord(target.get()), 0);
    ASSERT_TRUE(awaitTold("started:1"));
    ASSERT_TRUE(awaitPictures(150));
    EXPECT_EQ(mPlayer->stopRecord(true), 0);
    ASSERT_TRUE(awaitTold("stopped:1"));
    ASSERT_TRUE(awaitPictures(1));  // and what is watched goes on
    EXPECT_EQ(mPlayer->stop(), 0);

    orvhost::RecordingDetails recording;
    ASSERT_TRUE(orvhost::Catalogue::instance()->find(1, &recording).ok());
    EXPECT_EQ(recording.stationName + "/" + recording.programmeName, "Canal/Jornal");
    EXPECT_GT(recording.durationMs, 4'000);

    ASSERT_NO_FATAL_FAILURE(play(recording.path, true));
    ASSERT_TRUE(awaitTold("time:1"));
    EXPECT_EQ(mPlayer->pause(), 0);
    EXPECT_TRUE(awaitStillness());
    mTold.take();
    EXPECT_EQ(mPlayer->resume(), 0);
    EXPECT_TRUE(awaitTold("time:2"));
    EXPECT_TRUE(
        await([&] { return mEvents.take().find("5:0,0") != std::string::npos; }, seconds(30)));
    EXPECT_EQ(mTold.take().find("error"), std::string::npos);
    EXPECT_EQ(mPlayer->stop(), 0);
}

}  // namespace
}  // namespace orvtest
