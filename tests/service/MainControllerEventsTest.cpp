// What the controller tells of a live source, and how its outputs open.

#include <gtest/gtest.h>
#include <utils/Timers.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "ControllerFixture.h"
#include "support/CaptionPacket.h"
#include "support/MonotonicClock.h"
#include "support/MpegAudioFrames.h"

namespace {

using namespace OrvPlayer;
using namespace std::string_literals;
using orvtest::await;
using orvtest::Bytes;
using orvtest::operator+;
using std::chrono::milliseconds;

// Takes down caption texts, which are 32-bit code points.
struct Captions : ClosedCaptionListener {
    void onClosedCaptionReceived(unsigned char* text, int length) override {
        std::lock_guard<std::mutex> guard(lock);
        for (int i = 0; i < length; i += 4) {
            texts += static_cast<char>(text[i]);
        }
    }
    bool has(const std::string& wanted) {
        std::lock_guard<std::mutex> guard(lock);
        return texts.find(wanted) != std::string::npos;
    }
    std::mutex lock;
    std::string texts;
};

class MainControllerEventsTest : public orvtest::ControllerTest {
protected:
    // Two caption packets: the second completes the first.
    static Bytes caption(const std::string& text) {
        const Bytes payload = orvtest::CaptionPacket{.unit = text}.bytes();
        return orvtest::TsBuilder()
            .pes(305, 0xBD, 90'000, payload)
            .pes(305, 0xBD, 90'000, orvtest::CaptionPacket{}.bytes())
            .build();
    }
};

// With a picture alone, with sound alone, and with neither nor.
TEST_F(MainControllerEventsTest, TheTimerStartsWhatHasOnlyOneOfBoth) {
    Captions captions;
    mController->setCaptionListener(&captions);
    Config config = live();
    config["subtitlePid"] = "305";
    ASSERT_EQ(mController->configure(config), 0);
    const std::function<void()> firsts[] = {
        [&] { mController->onFrameRendered(1440, 1080, 90000); },
        [&] { mController->onAudioRendered(); }, [] {}};
    int number = 0;
    for (const auto& first : firsts) {
        SCOPED_TRACE(number++);
        ASSERT_EQ(mController->start(), 0);
        first();
        EXPECT_EQ(mAudio.volume(), 0.0f);
        mEvents.take();
        mTimers.fire(PLAYBACK_TIMER);
        EXPECT_EQ(mEvents.take(), "2:0,0");
        EXPECT_EQ(mAudio.volume(), 1.0f);
        const std::string text = "caption " + std::to_string(number);
        mDemux.feed(305, caption(text));
        EXPECT_TRUE(await([&] { return captions.has(text + "\n"); }));
        mTimers.fire(PLAYBACK_TIMER);  // again: nothing more to end
        EXPECT_EQ(mEvents.take(), "");
        ASSERT_EQ(mController->stop(), 0);
    }
}

TEST_F(MainControllerEventsTest, WatchesALiveSource) {
    orvtest::MonotonicClock clock(1'000'000);
    ASSERT_EQ(mController->configure(live()), 0);
    EXPECT_EQ(mController->getFrameRate(), -1);
    mController->onVideoResolution(1440, 1080);
    EXPECT_EQ(mEvents.take(), "4:1440,1080");
    ASSERT_EQ(mController->start(), 0);
    mController->onAudioReady(200);
    EXPECT_TRUE(await([&] { return mEvents.count() > 0; }));
    EXPECT_EQ(mEvents.take(), "3:25,0");
    renderBoth();
    EXPECT_EQ(mEvents.take(), "4:1920,1080 2:0,0");
    EXPECT_TRUE(await([&] { return mController->getFrameRate() == 1; }));
    clock.advance(3'000);
    EXPECT_TRUE(await([&] { return mEvents.count() > 0; }));
    clock.advance(5'000);
    EXPECT_TRUE(await([&] { return mEvents.count() > 1; }));
    mController->onVideoResolution(1440, 1080);  // pending again
    mController->onAudioReady(0);
    EXPECT_EQ(mEvents.take(), "0:0,1 0:1,2 4:1440,1080 0:2,0");
    ASSERT_EQ(mController->stop(), 0);
    ASSERT_EQ(mController->start(), 0);
    ASSERT_EQ(mController->stop(), 0);
    EXPECT_EQ(mEvents.take(), "2:0,0");  // the stop ends the buffering
}

// A start that fails leaves checks behind, which end with the controller, and it tells no more.
TEST_F(MainControllerEventsTest, TellsNothingWhenItIsDestroyed) {
    const size_t before = threads();
    mDemux.refuse(274);
    ASSERT_EQ(mController->configure(live()), 0);
    EXPECT_EQ(mController->start(), 0x11004);
    mController = nullptr;
    EXPECT_EQ(mEvents.take(), "");
    EXPECT_TRUE(await([&] { return threads() <= before; })) << threads() << " threads";
}

// Holds the thread that opens the outputs until a stop has come and, if it can, gone.
struct Holder : ServiceController::ServiceControllerListener {
    void onServiceControllerEvent(ServiceController::event_t event, unsigned int,
                                  unsigned int) override {
        if (event != ServiceController::BUFFERING_END_EVENT || holding.exchange(true)) {
            return;
        }
        await([this] { return stopping.load(); });
        stoppedBefore = await([this] { return stopped.load(); }, milliseconds(300));
    }
    std::atomic<bool> holding{false};
    std::atomic<bool> stopping{false};
    std::atomic<bool> stopped{false};
    std::atomic<bool> stoppedBefore{false};
};

// The stop waits for an opening that is on its way, on the audio renderer's thread, which it joins,
// and on the timer's, which nobody joins; neither waits for the stop.
TEST_F(MainControllerEventsTest, StopsWhileTheOutputsOpen) {
    const Bytes silence = orvtest::MpegHeader().bytes() + Bytes(572, 0);  // 192 kbit/s, 48 kHz
    for (const bool byTimer : {false, true}) {
        SCOPED_TRACE(byTimer);
        newController();
        Holder holder;
        mController->setServiceControllerListener(&holder);
        Config config = live();
        config["isMPEG2Audio"] = "1";
        ASSERT_EQ(mController->configure(config), 0);
        ASSERT_EQ(mController->start(), 0);
        std::thread timer;
        if (byTimer) {
            timer = std::thread([&] { mTimers.fire(PLAYBACK_TIMER); });
        } else {
            mController->onFrameRendered(1920, 1080, 90000);
            mDemux.feed(273, broadcast(273, 0xE0, 50));
            mDemux.feed(274, broadcast(274, 0xC0, 50, silence));
        }
        EXPECT_TRUE(await([&] { return holder.holding.load(); }));
        EXPECT_EQ(mAudio.volume(), 1.0f);
        holder.stopping = true;
        EXPECT_EQ(mController->stop(), 0);
        holder.stopped = true;
        EXPECT_FALSE(holder.stoppedBefore);
        if (byTimer) {
            timer.join();
        }
        mController = nullptr;
    }
}

// For whoever hosts the service; nothing is counted where nobody wants it.
TEST_F(MainControllerEventsTest, CountsWhatIsPlayed) {
    renderBoth();
    mController->onAudioReady(5);
    PlaybackFigures figures;
    mController->setFigures(&figures);
    const int64_t before = systemTime(SYSTEM_TIME_MONOTONIC);
    renderBoth();
    renderBoth();
    mController->onAudioReady(120);
    mController->onAudioReady(-30);
    EXPECT_EQ(figures.framesTimed, 2u);
    EXPECT_GE(figures.lastFrameTimedNs, before);
    EXPECT_EQ(figures.audioEarlyMs, -30);
    EXPECT_EQ(figures.audioEarlyCount, 2u);
}

}  // namespace
