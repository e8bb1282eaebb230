// Recordings: playing one, and making one of what is watched.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "ControllerFixture.h"
#include "support/MonotonicClock.h"
#include "support/RecordingsLog.h"

namespace {

using namespace OrvPlayer;
using orvtest::await;

constexpr Uint33 SECOND = 90'000;

class MainControllerRecordedTest : public orvtest::ControllerTest {
protected:
    void open(const char* type) {
        newController();
        mController->setPlayerListener(&mTold);
        mController->setRecorderListener(&mTold);
        mService.reset();
        mService.setClip(60'000);
        ASSERT_EQ(mController->configure(recorded(type)), 0);
    }
    void show(Uint33 pts) { mController->onFrameRendered(1440, 1080, pts); }
    // Lets the check for the end of content find pictures until it is over.
    void awaitEnd() {
        EXPECT_TRUE(await([&] { return mEvents.count() > 0; }));
        EXPECT_EQ(mEvents.take(), "5:0,0");
    }

    orvtest::RecordingsLog mTold;
};

// Only the recorder service's own source is told where playback is.
TEST_F(MainControllerRecordedTest, DrivesThePlayer) {
    for (const char* type : {"1", "2"}) {
        SCOPED_TRACE(type);
        const bool followed = std::string(type) == "2";
        open(type);
        ASSERT_EQ(mController->start(), 0);
        EXPECT_EQ(mService.take(), "active clip(/rec/1,0)");
        show(SECOND);  // the sound is still to come
        mController->onAudioRendered();
        show(2 * SECOND);
        show(4 * SECOND);
        EXPECT_EQ(mService.take(), followed ? "lap(2000,4000)" : "");
        EXPECT_EQ(mTold.take(), followed ? "time:2" : "");
        EXPECT_EQ(mController->pause(), 0);
        EXPECT_EQ(mController->resume(), 0);
        EXPECT_EQ(mService.take(), "pause resume");
        EXPECT_EQ(mController->stop(), 0);
        mController->onAudioRendered();
        show(6 * SECOND);
        EXPECT_EQ(mService.take(), "");
    }
}

// Both renderers stop, and the clock goes on from where it was.
TEST_F(MainControllerRecordedTest, APauseTakesNoTime) {
    orvtest::MonotonicClock clock(1'000'000);
    open("2");
    ASSERT_EQ(mController->start(), 0);
    mDemux.feed(274, broadcast(274, 0xC0, 2));
    mDemux.feed(273, broadcast(273, 0xE0, 2));
    EXPECT_TRUE(await([&] { return mController->getPCRValue() != 0; }));
    const int64_t streamTime = mController->getPCRValue();
    const size_t playing = threads();
    EXPECT_EQ(mController->pause(), 0);
    // Without them, and without the watch over the output device.
    EXPECT_TRUE(await([&] { return threads() + 3 <= playing; })) << threads() << " of " << playing;
    clock.advance(5'000);
    EXPECT_EQ(mController->resume(), 0);
    EXPECT_EQ(mController->getPCRValue(), streamTime);
}

TEST_F(MainControllerRecordedTest, EndsWithTheLastPicture) {
    open("2");
    ASSERT_EQ(mController->start(), 0);
    renderBoth();
    show(2 * SECOND);
    show(14 * SECOND + 31'050);
    mTold.take();
    mService.take();
    mEvents.take();
    mService.playerEvent(PLAYER_EVENT_END_OF_CONTENT);
    EXPECT_EQ(mTold.take(), "time:12");
    awaitEnd();

    // From here on the check is paused, not the player.
    EXPECT_EQ(mController->pause(), 0);
    EXPECT_EQ(mController->resume(), 0);
    awaitEnd();
    show(20 * SECOND);
    EXPECT_EQ(mService.take(), "");
    EXPECT_EQ(mController->seek(0), 1);
    EXPECT_EQ(mController->stop(), 0);
    EXPECT_EQ(mService.take(), "seekable");

    ASSERT_EQ(mController->start(), 0);  // and the player is back
    EXPECT_EQ(mController->pause(), 0);
    EXPECT_EQ(mService.take(), "active clip(/rec/1,0) pause");

    open("2");  // with nothing shown there is no time to tell
    ASSERT_EQ(mController->start(), 0);
    mService.playerEvent(PLAYER_EVENT_END_OF_CONTENT);
    EXPECT_EQ(mTold.take(), "");
}

// The service tells the end until its last filter has stopped.
TEST_F(MainControllerRecordedTest, AnEndThatComesWhileItStopsEndsNoOtherRun) {
    open("2");
    const size_t configured = threads();  // with the watch over the output device
    ASSERT_EQ(mController->start(), 0);
    mDemux.atNextStop([&] { mService.playerEvent(PLAYER_EVENT_END_OF_CONTENT); });
    EXPECT_EQ(mController->stop(), 0);
    EXPECT_TRUE(await([&] { return threads() < configured; })) << threads();
    EXPECT_EQ(mEvents.take(), "2:0,0");
}

TEST_F(MainControllerRecordedTest, SeeksWithAFreshDecoder) {
    EXPECT_EQ(mController->seek(1'000), 1);  // no player
    open("2");
    mService.answer("IsPossibleSeek", 0);
    ASSERT_EQ(mController->start(), 0);
    mService.take();
    EXPECT_EQ(mController->seek(1'000), 1);
    EXPECT_EQ(mService.take(), "seekable");

    mService.answer("IsPossibleSeek", 1);
    for (const char* elapsed : {"0", "30"}) {
        EXPECT_EQ(mController->seek(30'000), 0);
        EXPECT_EQ(mService.take(),
                  std::string("seekable reposition(") + elapsed + ",30000) active clip(/rec/1,0)");
        EXPECT_EQ(mDemux.running(), 3u);
        const std::string modules = report(0);
        EXPECT_GT(modules.find("VideoDecoder"), modules.find("ClosedCaptionRenderer"));
        EXPECT_LT(modules.find("VideoDecoder"), modules.size());
    }
    ASSERT_EQ(mController->stop(), 0);
    EXPECT_EQ(mController->seek(2'000), 0);  // from a stopped one it starts as well
    renderBoth();
    EXPECT_EQ(mAudio.volume(), 1.0f);

    mEvents.take();
    EXPECT_EQ(mController->seek(59'900), 0);  // a target at the end
    EXPECT_TRUE(await([&] { return mEvents.count() > 0; }));
    EXPECT_EQ(mEvents.take(), "5:0,0");
}

// The destroyed controller is not called any more.
TEST_F(MainControllerRecordedTest, MayGoAnyTime) {
    open("2");
    ASSERT_EQ(mController->start(), 0);
    std::atomic<bool> done{false};
    std::thread service([&] {
        while (!done) {
            mService.playerEvent(PLAYER_EVENT_END_OF_CONTENT);
            mService.playerEvent(PLAYER_EVENT_READ_FAILED);
        }
    });
    mController->pause();
    mController = nullptr;
    mTold.take();
    mEvents.take();
    done = true;
    service.join();
    EXPECT_EQ(mTold.take() + mEvents.take(), "");
}

TEST_F(MainControllerRecordedTest, RecordsWhatIsWatched) {
    const std::unique_ptr<Uri> target(Uri::parse("MTV://a/name?recType=1;storageType=1;"));
    const std::unique_ptr<Uri> plain(Uri::parse("MTV://a/other"));
    struct {
        const char* latm;
        const char* mpeg;
        const char* framing;
    } const cases[] = {{"1", "1", "0"}, {"0", "0", "1"}, {"0", "1", "2"}};
    for (const auto& wanted : cases) {
        SCOPED_TRACE(wanted.framing);
        const auto started = [&](const std::string& storage) {
            return "create(0," + storage + ",273,274," + wanted.framing + ") more start get";
        };
        newController();
        mController->setRecorderListener(&mTold);
        Config config = live();
        config["subtitlePid"] = "305";
        config["IsLATMAudio"] = wanted.latm;
        config["isMPEG2Audio"] = wanted.mpeg;
        ASSERT_EQ(mController->configure(config), 0);
        ASSERT_EQ(mController->start(), 0);
        EXPECT_EQ(mController->startRecord(nullptr), 1);
        EXPECT_EQ(mController->stopRecord(true), 1);
        EXPECT_EQ(mController->startRecord(target.get()), 0);
        EXPECT_EQ(mController->startRecord(plain.get()), 1);
        EXPECT_EQ(mService.take(), started("1"));
        mService.recorderEvent(RECORDER_EVENT_STORAGE_FULL);
        EXPECT_EQ(mTold.take(), "started:0 error:393217");
        EXPECT_EQ(mController->stopRecord(true), 0);
        EXPECT_EQ(mController->stopRecord(true), 1);
        EXPECT_EQ(mController->startRecord(plain.get()), 0);
        EXPECT_EQ(mController->stop(), 0);  // a stop discards
        EXPECT_EQ(mService.take(), "stop delete " + started("0") + " cancel delete");
        EXPECT_EQ(mTold.take(), "stopped:1 started:0 stopped:1");
        EXPECT_EQ(mController->startRecord(target.get()), 0);
        mController = nullptr;
        EXPECT_EQ(mService.take(), started("1") + " cancel delete");
        mService.recorderEvent(RECORDER_EVENT_STORAGE_FULL);
        EXPECT_EQ(mTold.take(), "started:0");
    }
}

// Deliberate: the errors of the player go where those of a recorder go.
TEST_F(MainControllerRecordedTest, TellsErrorsOfThePlayerAsRecorderErrors) {
    open("1");
    ASSERT_EQ(mController->start(), 0);
    mService.playerEvent(PLAYER_EVENT_READ_FAILED);
    mController->onTimeUpdate(7);
    EXPECT_EQ(mTold.take(), "error:135169 time:7");
    mController->setPlayerListener(nullptr);
    mController->setRecorderListener(nullptr);
    mService.playerEvent(PLAYER_EVENT_READ_FAILED);
    mController->onTimeUpdate(7);
    EXPECT_EQ(mTold.take(), "");
}

}  // namespace
