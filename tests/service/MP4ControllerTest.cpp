#include "service/MP4Controller.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "graphics/BufferQueue.h"
#include "support/Await.h"
#include "support/FakeMediaPlayer.h"
#include "support/FakeTimers.h"
#include "support/TraceCapture.h"
#include "trace/OneSegPGL.h"

namespace {

using namespace OrvPlayer;
using namespace orvtest;
using android::sp;
using std::string;

using Lines = std::vector<string>;

// Everything that the controller tells, in order, as text.
class Listeners : public IPlayerListener,
                  public ErrorListener,
                  public AudioRenderer::AudioRenderedListener,
                  public VideoRenderer::FrameRenderedListener {
public:
    void onTimeUpdate(int seconds) override { noteAndHold("time " + std::to_string(seconds)); }
    void onEndOfContent() override { noteAndHold("end"); }
    void onError(int code) override { note("player error " + std::to_string(code)); }
    void onError(unsigned int code, const Module* module) const override {
        note("error " + std::to_string(code) + (module != nullptr ? " of a module" : ""));
    }
    void onAudioSessionId(int id) override { note("session " + std::to_string(id)); }
    void onFirstFrameRendered(int width, int height) override {
        note("first " + std::to_string(width) + "x" + std::to_string(height));
    }

    Lines take() {
        const std::lock_guard guard(mLock);
        return std::exchange(mLines, {});
    }
    void hold(bool held) {
        const std::lock_guard guard(mLock);
        mHeld = held;
        mChanged.notify_all();
    }
    bool awaitInside() {
        std::unique_lock guard(mLock);
        return mChanged.wait_for(guard, std::chrono::seconds(10), [this] { return mInside; });
    }
    bool isInside() {
        const std::lock_guard guard(mLock);
        return mInside;
    }

private:
    void noteAndHold(const string& line) {
        std::unique_lock guard(mLock);
        mLines.push_back(line);
        mInside = true;
        mChanged.notify_all();
        mChanged.wait_for(guard, std::chrono::seconds(10), [this] { return !mHeld; });
        mInside = false;
    }
    void note(const string& line) const {
        const std::lock_guard guard(mLock);
        mLines.push_back(line);
    }

    mutable std::mutex mLock;
    std::condition_variable mChanged;
    mutable Lines mLines;
    bool mHeld = false;
    bool mInside = false;
};

class MP4ControllerTest : public testing::Test {
protected:
    void SetUp() override {
        OneSegPGL_InitializeDebug();
        mPlayer.reset();
        renew();
    }
    void TearDown() override {
        mController = nullptr;
        EXPECT_EQ(mPlayer.living(), 0u);
    }

    void renew() {
        mController = nullptr;
        mTimers.reset();
        mController = new MP4Controller;
        mController->setPlayerListener(&mListeners);
        mController->setErrorListener(&mListeners);
        mController->setAudioRenderedListener(&mListeners);
        mController->setVideoRenderedListener(&mListeners);
        mPlayer.take();
        mTrace.take();
    }

    bool isTraced(const string& wanted) {
        const auto lines = mTrace.take();
        return std::find(lines.begin(), lines.end(), wanted) != lines.end();
    }

    FakeMediaPlayer& mPlayer = FakeMediaPlayer::instance();
    FakeTimers& mTimers = FakeTimers::instance();
    TraceCapture mTrace;
    Listeners mListeners;
    sp<MP4Controller> mController;
};

TEST_F(MP4ControllerTest, HandsItsOperationsToThePlayer) {
    sp<android::IGraphicBufferProducer> producer;
    sp<orvhost::BufferQueue::Consumer> consumer;
    orvhost::BufferQueue::create(&producer, &consumer);
    sp<android::Surface> surface = new android::Surface(producer);
    sp<android::Surface> none;
    MP4Controller& it = *mController;
    const struct {
        const char* what;
        int result;
        int expected;
        Lines commands;
    } cases[] = {
        {"path", it.configure({{"path", "/a b.mp4"}}), 0, {"setDataSource '/a b.mp4'"}},
        {"no path", it.configure({}), 0, {"setDataSource ''"}},
        {"surface", it.setSurface(surface), 0, {"setVideoSurfaceTexture"}},
        {"no surface", it.setSurface(none), 0, {"setVideoSurfaceTexture null"}},
        {"start", it.start(), 0, {"setListener", "setVolume 0.0 0.0", "prepare", "start"}},
        {"sound", it.setAudioEnable(7), 0, {"setVolume 1.0 1.0"}},
        {"silence", it.setAudioEnable(0), 0, {"setVolume 0.0 0.0"}},
        {"pause", it.pause(), 0, {"pause"}},
        {"resume", it.resume(), 0, {"start"}},
        {"seek", it.seek(61'500), 0, {"seekTo 61500 0"}},
        {"stop", it.stop(), 0, {"stop", "setListener null"}},
        {"sound before", it.setAudioEnable(1), 0, {"setVolume 1.0 1.0"}},
        {"start anew", it.start(), 0, {"setListener", "setVolume 1.0 1.0", "prepare", "start"}},
        {"sound effect", it.setSoundEffect(3), 0, {}},
        {"frame rate", it.getFrameRate(), -1, {}},
        {"stream time", static_cast<int>(it.getPCRValue()), 0, {}},
        {"sync", it.setAVSync(40), 1, {}},
        {"caption sync", it.setCaptionSync(40), 1, {}},
        {"audio PID", it.setAudioPID(273), 1, {}},
        {"caption PID", it.setCCPID(304), 1, {}},
        {"sound only", it.setAudioOnlyMode(1), 1, {}},
        {"crop", it.setCropRect(0, 0, 9, 9, 0), 1, {}},
        {"still", it.getFrame(1, 0), 1, {}},
        {"record", it.startRecord(nullptr), 1, {}},
        {"no record", it.stopRecord(true), 1, {}},
        {"report", it.dump(stderr, {}, 0), 1, {}},
    };
    Lines commands;
    for (const auto& one : cases) {
        EXPECT_EQ(one.result, one.expected) << one.what;
        commands.insert(commands.end(), one.commands.begin(), one.commands.end());
    }
    EXPECT_EQ(mPlayer.take(), commands);
    EXPECT_EQ(mListeners.take(), (Lines{"session 77", "session 77"}));

    mPlayer.failSurfaces(-22);
    EXPECT_EQ(it.setSurface(surface), 1);
    EXPECT_TRUE(isTraced("setSurface: Error setting surface -22"));
}

// What the player tells, what becomes of it, and the lines that say so behind the first.
TEST_F(MP4ControllerTest, TellsWhatThePlayerTells) {
    const string INFO = "notify: Received MEDIA_INFO";
    const string START = "notify: MEDIA_INFO: MEDIA_INFO_RENDERING_START";
    const string SIZE = "notify: Received MEDIA_SET_VIDEO_SIZE";
    const struct {
        int msg, ext1, ext2;
        Lines told;
        Lines traced;
    } cases[] = {
        {200, 3, 0, {"first 0x0"}, {INFO, START}},
        {5, 720, 480, {}, {SIZE, "notify: Video size: 720 x 480"}},
        {5, 720, 480, {}, {SIZE}},  // the same once more
        {5, 720, 576, {}, {SIZE, "notify: Video size: 720 x 576"}},
        {200, 3, 0, {"first 720x576"}, {INFO, START}},
        {200, 4, 0, {}, {INFO}},
        {3, 42, 0, {}, {"notify: Received MEDIA_BUFFERING_UPDATE", "notify: Buffering at: 42"}},
        {2, 0, 0, {"end"}, {"notify: Received MEDIA_PLAYBACK_COMPLETE"}},
        {100, 7, -1004, {"error 1"}, {"notify: Received MEDIA_ERROR"}},
        {4, 1, 2, {}, {}},
    };
    mController->start();
    mListeners.take();
    for (const auto& one : cases) {
        SCOPED_TRACE(testing::Message() << one.msg << " " << one.ext1 << " " << one.ext2);
        mTrace.take();
        EXPECT_TRUE(mPlayer.tell(one.msg, one.ext1, one.ext2));
        EXPECT_EQ(mListeners.take(), one.told);
        Lines lines = one.traced;
        lines.insert(lines.begin(), "notify: msg " + std::to_string(one.msg) + ", ext1 " +
                                        std::to_string(one.ext1) + ", ext2 " +
                                        std::to_string(one.ext2));
        EXPECT_EQ(mTrace.take(), lines);
    }
    mController->setPlayerListener(nullptr);
    mController->setErrorListener(nullptr);
    mController->setVideoRenderedListener(nullptr);
    for (const int msg : {2, 100, 200}) {
        EXPECT_TRUE(mPlayer.tell(msg, 3));
    }
    mController->stop();
    EXPECT_FALSE(mPlayer.tell(2));
    EXPECT_EQ(mListeners.take(), Lines{});
}

TEST_F(MP4ControllerTest, ReportsThePositionTenTimesASecondWhilePlaying) {
    mTimers.fire(0);  // late ones, of before and after, do nothing
    EXPECT_EQ(mTimers.periodMs(0), std::nullopt);
    mController->start();
    mListeners.take();
    const struct {
        int ms, seconds;
    } cases[] = {{0, 0}, {1, 1}, {1000, 1}, {1000, 1}, {1001, 2}, {3'600'000, 3600}};
    for (const auto& one : cases) {
        EXPECT_EQ(mTimers.periodMs(0), 100);
        mPlayer.setPosition(one.ms);
        mTimers.fire(0);
        EXPECT_EQ(mListeners.take(), Lines{"time " + std::to_string(one.seconds)});
    }
    for (const bool paused : {true, false}) {
        EXPECT_EQ(paused ? mController->pause() : mController->stop(), 0);
        EXPECT_EQ(mTimers.periodMs(0), std::nullopt);
        mTimers.fire(0);
        EXPECT_EQ(mListeners.take(), Lines{});
        EXPECT_EQ(paused ? mController->resume() : mController->start(), 0);
        EXPECT_EQ(mTimers.periodMs(0), 100);
        mListeners.take();
    }
    mController->setPlayerListener(nullptr);
    mTimers.fire(0);
    EXPECT_EQ(mListeners.take(), Lines{});
}

// The timer runs while the player does, and is looked at with each command here.
TEST_F(MP4ControllerTest, ArmsTheTimerInItsPlaceAmongTheCommands) {
    mPlayer.annotate([this] { return mTimers.periodMs(0) ? " armed" : ""; });
    mController->start();
    mController->pause();
    mController->resume();
    mController->stop();
    EXPECT_EQ(mPlayer.take(),
              (Lines{"setListener", "setVolume 0.0 0.0", "prepare", "start", "pause", "start armed",
                     "stop armed", "setListener null armed"}));
    EXPECT_EQ(mTimers.periodMs(0), std::nullopt);
}

TEST_F(MP4ControllerTest, PlaysWithoutATimer) {
    mTimers.failSetting(EPERM);
    EXPECT_EQ(mController->start(), 0);
    EXPECT_TRUE(
        isTraced("startInternalTimer: Error starting timer to update UI: 1 (Operation not "
                 "permitted)"));
    EXPECT_EQ(mController->pause(), 0);
    EXPECT_TRUE(
        isTraced("stopInternalTimer: Error stopping timer to update UI: 1 (Operation not "
                 "permitted)"));
    mTimers.reset();  // none is known to the system any more
    mController = nullptr;
    EXPECT_TRUE(isTraced("~MP4Controller: Unable to delete internal timer"));
    mTimers.failCreation(EAGAIN);
    mController = new MP4Controller;
    EXPECT_TRUE(isTraced("MP4Controller: Could not create timer!"));
    mPlayer.take();
    EXPECT_EQ(mController->start(), 0);
    EXPECT_EQ(mPlayer.take(), (Lines{"setListener", "setVolume 0.0 0.0", "prepare", "start"}));
    EXPECT_EQ(mController->stop(), 0);
}

// A report or a notification in progress is waited for; a notification finds the controller or
// nothing; and who drops a controller that plays ends it.
TEST_F(MP4ControllerTest, EndsWhileItTells) {
    mController->start();
    for (const bool isReport : {true, false}) {
        mListeners.hold(true);
        std::thread teller([&] { isReport ? mTimers.fire(0) : void(mPlayer.tell(2)); });
        ASSERT_TRUE(mListeners.awaitInside());
        std::atomic<bool> entered{false};
        std::thread releaser([&] {
            await([&] { return entered.load(); });
            std::this_thread::yield();
            mListeners.hold(false);
        });
        entered = true;
        isReport ? mController->pause() : mController->stop();
        EXPECT_FALSE(mListeners.isInside());
        teller.join();
        releaser.join();
    }
    mController->start();
    std::atomic<bool> done{false};
    std::thread teller([&] {
        while (!done) {
            mPlayer.tell(2);
            mTimers.fire(0);
        }
    });
    mListeners.take();
    EXPECT_TRUE(await([&] { return mListeners.take().size() > 2; }));
    mController = nullptr;
    EXPECT_EQ(mPlayer.living(), 0u);
    mListeners.take();
    EXPECT_TRUE(mPlayer.tell(2));  // the player's reference outlived the controller
    EXPECT_EQ(mListeners.take(), Lines{});
    done = true;
    teller.join();
    EXPECT_EQ(mPlayer.take().back(), "disconnect");
    mPlayer.reset();
}

}  // namespace
