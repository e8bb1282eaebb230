// Recordings: playing one, and making one of what is watched.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "ControllerFixture.h"

namespace {

using namespace OrvPlayer;
using orvtest::await;

// Takes down what a player and a recorder have to say.
struct Told : IPlayerListener, IRecorderListener {
    void onTimeUpdate(int seconds) override { add("time", seconds); }
    void onEndOfContent() override { add("end", 0); }
    void onRecorderStarted(int result) override { add("started", result); }
    void onRecorderStopped(int result) override { add("stopped", result); }
    void onError(int code) override { add("error", code); }

    void add(const std::string& what, int value) {
        text += (text.empty() ? "" : " ") + what + ":" + std::to_string(value);
    }
    std::string take() { return std::exchange(text, ""); }
    std::string text;
};

class MainControllerRecordedTest : public orvtest::ControllerTest {
protected:
    void open(const char* type) {
        newController();
        mController->setPlayerListener(&mTold);
        mController->setRecorderListener(&mTold);
        ASSERT_EQ(mController->configure(recorded(type)), 0);
        EXPECT_EQ(mController->player->take(), "path(/rec/1)");
    }
    std::string played() { return mController->player->take(); }
    void endContent() {
        mController->player->tell([](IPlayerListener& listener) { listener.onEndOfContent(); });
    }
    // Lets the check for the end of content find pictures until it is over.
    void awaitEnd() {
        EXPECT_TRUE(await([&] { return mEvents.count() > 0; }));
        EXPECT_EQ(mEvents.take(), "5:0,0");
    }

    Told mTold;
};

// Only the recorder service's own source is told to stop and where playback is.
TEST_F(MainControllerRecordedTest, DrivesThePlayer) {
    for (const char* type : {"1", "2"}) {
        SCOPED_TRACE(type);
        const bool followed = std::string(type) == "2";
        open(type);
        ASSERT_EQ(mController->start(), 0);
        EXPECT_EQ(mTimers.armedFor(PLAYBACK_TIMER), 10);
        mController->onFrameRendered(1440, 1080, 90'000);  // the sound is still to come
        EXPECT_EQ(played(), "start");
        mController->onAudioRendered();
        mController->onFrameRendered(1440, 1080, 93'003);
        EXPECT_EQ(played(), followed ? "at(93003)" : "");
        EXPECT_EQ(mController->pause(), 0);
        EXPECT_EQ(mController->resume(), 0);
        EXPECT_EQ(played(), "pause resume");
        EXPECT_EQ(mController->stop(), 0);
        EXPECT_EQ(played(), followed ? "stop" : "");
    }
}

TEST_F(MainControllerRecordedTest, EndsWithTheLastPicture) {
    open("2");
    ASSERT_EQ(mController->start(), 0);
    renderBoth();
    played();
    mEvents.take();
    mController->player->currentTimeMs = 12'345;
    endContent();
    EXPECT_EQ(mTold.take(), "time:12");
    awaitEnd();

    // From here on the check is paused, not the player.
    EXPECT_EQ(mController->pause(), 0);
    EXPECT_EQ(mController->resume(), 0);
    awaitEnd();
    mController->onFrameRendered(1440, 1080, 96'006);
    EXPECT_EQ(mController->seek(0), 1);
    EXPECT_EQ(mController->stop(), 0);
    EXPECT_EQ(played(), "");

    ASSERT_EQ(mController->start(), 0);  // and the player is back
    EXPECT_EQ(mController->pause(), 0);
    EXPECT_EQ(played(), "start pause");
    mController->player->currentTimeMs = 0;
    endContent();
    EXPECT_EQ(mTold.take(), "");
}

TEST_F(MainControllerRecordedTest, SeeksWithAFreshDecoder) {
    EXPECT_EQ(mController->seek(1'000), 1);  // no player
    open("2");
    mController->player->canSeek = false;
    ASSERT_EQ(mController->start(), 0);
    played();
    EXPECT_EQ(mController->seek(1'000), 1);
    EXPECT_EQ(played(), "");

    mController->player->canSeek = true;
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(mController->seek(30'000), 0);
        EXPECT_EQ(played(), "stop seek(30000) start");
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
    mController->player->seekEnds = true;  // a target at the end
    EXPECT_EQ(mController->seek(59'900), 0);
    EXPECT_TRUE(await([&] { return mEvents.count() > 0; }));
    EXPECT_EQ(mEvents.take(), "5:0,0");
}

// The destroyed controller is not called any more.
TEST_F(MainControllerRecordedTest, MayGoAnyTime) {
    open("2");
    const android::sp<orvtest::FakePlayer> player = mController->player;
    ASSERT_EQ(mController->start(), 0);
    std::atomic<bool> done{false};
    std::thread service([&] {
        while (!done) {
            player->tell([](IPlayerListener& listener) {
                listener.onEndOfContent();
                listener.onTimeUpdate(1);
            });
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
    const std::unique_ptr<Uri> target(Uri::parse("MTV://a/name?recType=1;"));
    const std::unique_ptr<Uri> plain(Uri::parse("MTV://a/other"));
    struct {
        const char* latm;
        const char* mpeg;
        const char* framing;
    } const cases[] = {{"1", "1", "0"}, {"0", "0", "1"}, {"0", "1", "2"}};
    for (const auto& wanted : cases) {
        SCOPED_TRACE(wanted.framing);
        const auto started = [&](const std::string& name) {
            return "start(" + name + ",273,274,305," + wanted.framing + ")";
        };
        newController();
        mController->setRecorderListener(&mTold);
        Config config = live();
        config["subtitlePid"] = "305";
        config["IsLATMAudio"] = wanted.latm;
        config["isMPEG2Audio"] = wanted.mpeg;
        ASSERT_EQ(mController->configure(config), 0);
        ASSERT_EQ(mController->start(), 0);
        EXPECT_EQ(mController->stopRecord(true), 1);
        EXPECT_EQ(mController->startRecord(target.get()), 0);
        EXPECT_EQ(mController->startRecord(plain.get()), 1);
        const android::sp<orvtest::FakeRecorder> recorder = mController->recorder;
        EXPECT_EQ(recorder->take(), started("name"));
        recorder->tell([](IRecorderListener& listener) {
            listener.onRecorderStarted(0);
            listener.onRecorderStopped(2);
            listener.onError(0x60001);
        });
        EXPECT_EQ(mTold.take(), "started:0 stopped:2 error:393217");
        EXPECT_EQ(mController->stopRecord(true), 0);
        EXPECT_EQ(mController->stopRecord(true), 1);
        EXPECT_EQ(mController->startRecord(plain.get()), 0);
        EXPECT_EQ(mController->stop(), 0);  // a stop discards
        EXPECT_EQ(recorder->take(), "stop(1) " + started("other") + " stop(0)");
        EXPECT_EQ(mController->startRecord(target.get()), 0);
        mController = nullptr;
        EXPECT_EQ(recorder->take(), started("name") + " stop(0)");
    }
    const android::sp<MainController> recorderless = new MainController;
    EXPECT_EQ(recorderless->startRecord(target.get()), 1);
    EXPECT_EQ(recorderless->startRecord(nullptr), 1);
}

// Deliberate: the errors of the player go where those of a recorder go.
TEST_F(MainControllerRecordedTest, TellsErrorsOfThePlayerAsRecorderErrors) {
    open("1");
    const auto fail = [](IPlayerListener& listener) {
        listener.onTimeUpdate(7);
        listener.onError(0x21001);
    };
    mController->player->tell(fail);
    EXPECT_EQ(mTold.take(), "time:7 error:135169");
    mController->setPlayerListener(nullptr);
    mController->setRecorderListener(nullptr);
    mController->player->tell(fail);
    EXPECT_EQ(mTold.take(), "");
}

}  // namespace
