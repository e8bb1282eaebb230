#include "service/COrvPlayer.h"

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "COrvPlayerFixture.h"

namespace {

using namespace OrvPlayer;
using android::sp;
using orvtest::COrvPlayerTest;
using orvtest::FakeAudio;

constexpr int IDLE = COrvPlayer::ORVPLAYER_STATE_IDLE;
constexpr int OPEN = COrvPlayer::ORVPLAYER_STATE_OPEN;
constexpr int PLAY = COrvPlayer::ORVPLAYER_STATE_PLAY;
constexpr int PAUSE = COrvPlayer::ORVPLAYER_STATE_PAUSE;

// What each new controller is given.
const std::string PREPARED =
    " capture monitor captions error audio video player recorder"
    " setAudioEnable(1) setSurface(none) setAVSync(0)";
const std::string OPENED = "main configure(sourceType=0,videoPid=273)" + PREPARED;

// Every command in every state. stop while idle ends the process: see COrvPlayerFaultTest.
TEST_F(COrvPlayerTest, CommandsInEveryState) {
    using Command = std::function<int(COrvPlayer&)>;
    const Command start = [](COrvPlayer& player) { return player.start(); };
    const Command stop = [](COrvPlayer& player) { return player.stop(); };
    const Command pause = [](COrvPlayer& player) { return player.pause(); };
    const Command resume = [](COrvPlayer& player) { return player.resume(); };
    const Command seek = [](COrvPlayer& player) { return player.seek(5); };
    const Command close = [](COrvPlayer& player) { return player.close(); };
    const Command open = [](COrvPlayer& player) { return player.openUri(LIVE, URI); };
    const std::string opened = "onBufferingBegin() openUriComplete(0)";
    struct {
        const char* name;
        Command command;
        int before, result, after;
        std::string client, controller;
    } const cases[] = {
        {"start", start, IDLE, 0, IDLE, "startComplete(1)", ""},
        {"start", start, OPEN, 0, PLAY, "startComplete(0)", "start"},
        {"start", start, PLAY, 0, PLAY, "startComplete(1)", ""},
        {"start", start, PAUSE, 0, PAUSE, "startComplete(1)", ""},
        {"stop", stop, OPEN, 0, OPEN, "", ""},
        {"stop", stop, PLAY, 0, OPEN, "", "stop"},
        {"stop", stop, PAUSE, 0, OPEN, "", "stop"},
        {"pause", pause, IDLE, 1, IDLE, "onPaused(1)", ""},
        {"pause", pause, OPEN, 1, OPEN, "onPaused(1)", ""},
        {"pause", pause, PLAY, 0, PAUSE, "onPaused(0)", "pause"},
        {"pause", pause, PAUSE, 1, PAUSE, "onPaused(1)", ""},
        {"resume", resume, IDLE, 1, IDLE, "onResumed(1)", ""},
        {"resume", resume, OPEN, 1, OPEN, "onResumed(1)", ""},
        {"resume", resume, PLAY, 1, PLAY, "onResumed(1)", ""},
        {"resume", resume, PAUSE, 0, PLAY, "onResumed(0)", "resume"},
        {"seek", seek, IDLE, 1, IDLE, "onEndOfContent()", ""},
        {"seek", seek, OPEN, 0, OPEN, "onSeeked(5)", "seek(5) resume"},
        {"seek", seek, PLAY, 0, PLAY, "onSeeked(5)", "seek(5) resume"},
        {"seek", seek, PAUSE, 0, PAUSE, "onSeeked(5)", "seek(5)"},
        {"close", close, IDLE, 0, IDLE, "", ""},
        {"close", close, OPEN, 0, IDLE, "", "~"},
        {"close", close, PLAY, 0, IDLE, "", "stop ~"},
        {"close", close, PAUSE, 0, IDLE, "", "stop ~"},
        {"open", open, IDLE, 0, OPEN, opened, OPENED},
        {"open", open, OPEN, 0, OPEN, opened, "~ " + OPENED},
        {"open", open, PLAY, 0, OPEN, opened, "stop ~ " + OPENED},
        {"open", open, PAUSE, 0, OPEN, opened, "stop ~ " + OPENED},
    };
    for (const bool hasClient : {true, false}) {
        for (const auto& wanted : cases) {
            SCOPED_TRACE(wanted.name + (" in state " + std::to_string(wanted.before)) +
                         (hasClient ? "" : " without a client"));
            renew();
            if (!hasClient) {
                mPlayer = new orvtest::ScriptedPlayer;
            }
            reach(wanted.before);
            EXPECT_EQ(wanted.command(*mPlayer), wanted.result);
            EXPECT_EQ(mPlayer->getState(), wanted.after);
            EXPECT_EQ(mClient->take(), hasClient ? wanted.client : "");
            EXPECT_EQ(mPlayer->script.take(), wanted.controller);
        }
    }
}

TEST_F(COrvPlayerTest, FailuresOfTheController) {
    mPlayer->script.startResult = 21;
    reach(OPEN);
    EXPECT_EQ(mPlayer->start(), 0);
    EXPECT_EQ(mPlayer->getState(), OPEN);
    EXPECT_EQ(mClient->take(), "startComplete(21)");
    EXPECT_TRUE(isTraced("start: Error starting player"));
    mPlayer->script.startResult = 0;
    mPlayer->start();
    mPlayer->script.seekResult = 22;
    EXPECT_EQ(mPlayer->seek(-7), 22);
    EXPECT_EQ(mClient->take(), "startComplete(0) onEndOfContent()");
    EXPECT_EQ(mPlayer->script.take(), "start start seek(-7) resume");
    mTrace.take();
    EXPECT_EQ(mPlayer->resume(), 1);
    EXPECT_TRUE(mTrace.take().empty());
    mPlayer->pause();
    EXPECT_EQ(mPlayer->pause(), 1);
    EXPECT_TRUE(isTraced("pause mState != ORVPLAYER_STATE_PLAY - end"));
}

TEST_F(COrvPlayerTest, WhatIsOpenedChoosesTheController) {
    struct {
        const char* uri;
        int type;
        int result;
        std::string controller, line;
    } const cases[] = {
        {"MTV://t/l?a=1;b=2;", 5, 0, "main configure(a=1,b=2,sourceType=0)" + PREPARED,
         "openUri: pUri: MTV://t/l?a=1;b=2; type: 5"},
        {"FILE:///rec/one?", 5, 0, "main configure(filePath=/rec/on,sourceType=2)" + PREPARED, ""},
        {"FILE:///r?filePath=/r/1;sourceType=7;", 5, 0,
         "main configure(filePath=/r/1,sourceType=7)" + PREPARED, ""},
        {"HTTP://t/l", 5, 0, "main configure(sourceType=-1)" + PREPARED,
         "openUri: Unknown URI Scheme"},
        {"/a b.mp4", 0, 0, "file configure(path=/a b.mp4)" + PREPARED, ""},
        {"", 0, 0, "file configure(path=)" + PREPARED, ""},
        {nullptr, 0, 0, "file configure(path=)" + PREPARED, ""},
        {"", 5, 1, "", "openUri: uri parsing error"},
        {nullptr, 5, 1, "", "openUri: uri parsing error"},
        {"MTV://t", 5, 1, "", "openUri: Error configuring Controller: 1"},
        {LIVE, 3, 1, "", "openUri: Source type is not supported: 3"},
        {LIVE, -1, 1, "", "openUri: Error configuring Controller: 1"},
    };
    for (const auto& wanted : cases) {
        SCOPED_TRACE(wanted.uri != nullptr ? wanted.uri : "null");
        renew();
        mTrace.take();
        EXPECT_EQ(mPlayer->openUri(wanted.uri, wanted.type), wanted.result);
        EXPECT_EQ(mPlayer->getState(), wanted.result == 0 ? OPEN : IDLE);
        EXPECT_EQ(mPlayer->script.take(), wanted.controller);
        EXPECT_EQ(mClient->take(), wanted.result == 0 ? "onBufferingBegin() openUriComplete(0)"
                                                      : "openUriComplete(1)");
        EXPECT_TRUE(wanted.line.empty() || isTraced(wanted.line));
    }
    // Deliberate: an unknown scheme is a source of the kind of the last one.
    mPlayer->openUri("FILE:///x", URI);
    forget();
    mPlayer->openUri("HTTP://t/l", URI);
    EXPECT_EQ(mPlayer->script.take(), "~ main configure(sourceType=2)" + PREPARED);
    // What cannot be configured is dropped, after what was open.
    forget();
    mPlayer->script.configureResult = 23;
    EXPECT_EQ(mPlayer->openUri(LIVE, URI), 23);
    EXPECT_EQ(mPlayer->getState(), IDLE);
    EXPECT_EQ(mPlayer->script.take(), "~ main configure(sourceType=0,videoPid=273) ~");
    EXPECT_EQ(mClient->take(), "openUriComplete(23)");
    EXPECT_TRUE(isTraced("openUri: Error configuring Controller: 23"));
    mPlayer->hasFileController = false;
    EXPECT_EQ(mPlayer->openUri("/a.mp4", 0), 1);
    EXPECT_EQ(mClient->take(), "openUriComplete(1)");
}

// Without a controller, with one, and what the next controller is told.
TEST_F(COrvPlayerTest, SettingsReachTheControllerAndTheNextOne) {
    using Call = std::function<int(COrvPlayer&)>;
    struct {
        const char* name;
        Call call;
        int without, with;
        const char* controller;
    } const cases[] = {
        {"sound effect", [](auto& p) { return p.setSoundEffect(1, 9); }, 0, 0, "setSoundEffect(9)"},
        {"too large", [](auto& p) { return p.setSoundEffect(1, 10); }, 0, 0, ""},
        {"negative", [](auto& p) { return p.setSoundEffect(1, -5); }, 0, 0, "setSoundEffect(-5)"},
        {"sync", [](auto& p) { return p.setAVSync(250); }, 0, 0, "setAVSync(50)"},
        {"least", [](auto& p) { return p.setAVSync(INT32_MIN); }, 0, 0, "setAVSync(2147483448)"},
        {"again", [](auto& p) { return p.setAVSync(150); }, 0, 0, "setAVSync(-50)"},
        {"captions", [](auto& p) { return p.setCaptionSync(9); }, 0, 0, ""},
        {"language", [](auto& p) { return p.setCaptionLanguage(9); }, 0, 0, ""},
        {"sound only", [](auto& p) { return p.setAudioOnlyMode(2); }, 0, 12, "setAudioOnlyMode(2)"},
        {"sound PID", [](auto& p) { return p.setAudioPID(-1); }, 0, 13, "setAudioPID(-1)"},
        {"caption PID", [](auto& p) { return p.setCCPID(305); }, 0, 14, "setCCPID(305)"},
        {"sound on", [](auto& p) { return p.setAudioEnable(2); }, 0, 11, "setAudioEnable(2)"},
        {"sound off", [](auto& p) { return p.setAudioEnable(0); }, 0, 11, "setAudioEnable(0)"},
        {"no window", [](auto& p) { return p.setSurface(nullptr); }, 0, 0, "setSurface(none)"},
        {"window", [](auto& p) { return p.setSurface(new android::Surface(nullptr)); }, 0, 0,
         "setSurface(some)"},
        {"still", [](auto& p) { return p.getFrame(3, -4); }, 0, 0, "getFrame(3,-4)"},
        {"no still", [](auto& p) { return p.cancelCaptureFrame(); }, 0, 0, "cancelCaptureFrame"},
        {"crop", [](auto& p) { return p.setCropRect(1, 2, 3, 4, 5); }, 1, 17,
         "setCropRect(1,2,3,4,5)"},
        {"rate", [](auto& p) { return p.getFrameRate(); }, -1, 30, "getFrameRate"},
        {"record", [](auto& p) { return p.startRecorder("X:/a"); }, 393219, 0, "startRecord(a)"},
        {"record null", [](auto& p) { return p.startRecorder(nullptr); }, 393219, 393219, ""},
        {"record bad", [](auto& p) { return p.startRecorder("X"); }, 393219, 393219, ""},
        {"keep", [](auto& p) { return p.stopRecorder(2); }, 0, 0, "stopRecord(1)"},
        {"discard", [](auto& p) { return p.stopRecorder(0); }, 0, 0, "stopRecord(0)"},
    };
    for (const auto& wanted : cases) {
        SCOPED_TRACE(wanted.name);
        mPlayer->close();
        forget();
        EXPECT_EQ(wanted.call(*mPlayer), wanted.without);
        EXPECT_EQ(mPlayer->script.take(), "");
        reach(OPEN);
        EXPECT_EQ(wanted.call(*mPlayer), wanted.with);
        EXPECT_EQ(mPlayer->script.take(), wanted.controller);
    }
    mPlayer->openUri(LIVE, URI);
    EXPECT_EQ(mPlayer->script.take(),
              "~ main configure(sourceType=0,videoPid=273)"
              " capture monitor captions error audio video player recorder"
              " setAudioEnable(0) setSurface(some) setSoundEffect(-5) setAVSync(-50)");
    mTrace.take();
    mPlayer->script.recordResult = 5;
    EXPECT_EQ(mPlayer->startRecorder("X:/a"), 393219);
    EXPECT_TRUE(isTraced("startRecorder: Error starting recorder"));
    EXPECT_EQ(mPlayer->getPCRValue(), 0x1'2345'6789);
    mPlayer->close();
    EXPECT_EQ(mPlayer->getPCRValue(), 0);
    EXPECT_EQ(mPlayer->setCropRect(1, 2, 3, 4, 5), 1);
    EXPECT_TRUE(isTraced("setCropRect - m_pPlayer == NULL"));
}

TEST_F(COrvPlayerTest, ForcesTheAudioPath) {
    forget();
    EXPECT_EQ(mPlayer->setAudioPathForce(3), 0);
    EXPECT_TRUE(mTrace.take().empty());
    EXPECT_LT(mPlayer->setAudioPathForce(-3), 0);
    EXPECT_TRUE(isTraced("setAudioPathForce: Error to set audio path"));
    EXPECT_EQ(FakeAudio::instance().takeRouting(), "force(1,3) force(1,-3)");
}

class NamedModule : public Module {
public:
    NamedModule() : Module("Renderer X") {}
    int start() override { return 0; }
    int stop() override { return 0; }
};

TEST_F(COrvPlayerTest, EventsReachTheClient) {
    const sp<NamedModule> module = new NamedModule;
    unsigned char text[] = "abcde";
    unsigned char pixels[2 * 1 * 4] = {};
    using Event = ServiceController::event_t;
    const auto monitor = [](Event event) {
        return [event](COrvPlayer& p) { p.onServiceControllerEvent(event, 3, 0xFFFFFFFF); };
    };
    const std::string received = "onServiceControllerEvent: Received ";
    struct {
        std::function<void(COrvPlayer&)> event;
        std::string client, line;
    } const cases[] = {
        {[&](COrvPlayer& p) { p.onClosedCaptionReceived(text, 4); }, "closedCaptionText(4,4,abcd)",
         ""},
        {[](COrvPlayer& p) { p.onClosedCaptionReceived(nullptr, 0); }, "closedCaptionText(0,0)",
         ""},
        {[](COrvPlayer& p) { p.onClosedCaptionReceived(nullptr, 4); }, "", ""},
        {[&](COrvPlayer& p) { p.onClosedCaptionReceived(text, -1); }, "", ""},
        {[&](COrvPlayer& p) { p.onCaptureFrame(pixels, 2, 1, true); }, "onCaptureFrame(2,1,1)", ""},
        {[&](COrvPlayer& p) { p.onCaptureFrame(pixels, 2, 1, false); }, "onCaptureFrame(2,1,0)",
         ""},
        {[](COrvPlayer& p) { p.onAudioSessionId(-1); }, "onAudioSessionId(-1)", ""},
        {[](COrvPlayer& p) { p.onFirstFrameRendered(6, 7); }, "onStartVideoTask(6,7)", ""},
        {[](COrvPlayer& p) { p.onTimeUpdate(8); }, "onTimeUpdate(8)", ""},
        {[](COrvPlayer& p) { p.onEndOfContent(); }, "onEndOfContent()", ""},
        {[](COrvPlayer& p) { p.onRecorderStarted(9); }, "onRecorderStarted(9)", ""},
        {[](COrvPlayer& p) { p.onRecorderStopped(0x60001); }, "onRecorderStopped(393217)", ""},
        {[](COrvPlayer& p) { static_cast<IPlayerListener&>(p).onError(0x21003); },
         "onError(135171)", "onError <135171>"},
        {[](COrvPlayer& p) { static_cast<IRecorderListener&>(p).onError(0); }, "onError(0)",
         "onError <0>"},
        {[&](COrvPlayer& p) { static_cast<ErrorListener&>(p).onError(0x41003, module.get()); },
         "onError(266243)", "onError <266243> Module:Renderer X"},
        {monitor(ServiceController::SIGNAL_UPDATE_EVENT), "onSignalStatusChanged(3,-1)",
         received + "SIGNAL_UPDATE_EVENT: pre 3 curr -1"},
        {monitor(ServiceController::BUFFERING_BEGIN_EVENT), "onBufferingBegin()",
         received + "BUFFERING_BEGIN_EVENT"},
        {monitor(ServiceController::BUFFERING_END_EVENT), "onBufferingEnd()",
         received + "BUFFERING_END_EVENT"},
        {monitor(ServiceController::BUFFERING_EVENT), "onBuffering(3)",
         received + "BUFFERING_EVENT: progress 3"},
        {monitor(ServiceController::START_VIDEO_TASK_EVENT), "onStartVideoTask(3,-1)",
         received + "START_VIDEO_TASK_EVENT: width: 3 height: -1"},
        {monitor(ServiceController::EOC_EVENT), "onEndOfContent()", received + "EOC_EVENT"},
        {monitor(static_cast<Event>(6)), "", ""},
    };
    for (const auto& wanted : cases) {
        SCOPED_TRACE(wanted.client);
        wanted.event(*mPlayer);
        EXPECT_EQ(mClient->take(), wanted.client);
        EXPECT_TRUE(wanted.line.empty() || isTraced(wanted.line));
    }
    mPlayer = new orvtest::ScriptedPlayer;  // nobody listens
    for (const auto& wanted : cases) {
        wanted.event(*mPlayer);
    }
}

// Another replaces it; the same one again, or none, changes nothing.
TEST_F(COrvPlayerTest, OneClientHears) {
    const sp<orvtest::ClientBinder> second = new orvtest::ClientBinder;
    mPlayer->registerClient(nullptr);
    mTrace.take();
    registerClient();
    EXPECT_TRUE(mTrace.take().empty());
    mPlayer->start();
    EXPECT_EQ(mClient->take(), "startComplete(1)");
    mPlayer->registerClient(ICOrvPlayerClient::asInterface(second));
    mPlayer->start();
    EXPECT_EQ(mClient->take(), "");
    EXPECT_EQ(second->take(), "startComplete(1)");
}

// The death of a client, registered or replaced, closes what plays.
TEST_F(COrvPlayerTest, DeathOfAClientClosesEverything) {
    for (const bool isRegistered : {true, false}) {
        for (const int state : {IDLE, OPEN, PLAY, PAUSE}) {
            SCOPED_TRACE(state);
            renew();
            reach(state);
            FakeAudio::instance().takeRouting();
            const sp<android::IBinder> other = new orvtest::ClientBinder;
            mPlayer->binderDied(isRegistered ? sp<android::IBinder>(mClient) : other);
            EXPECT_EQ(FakeAudio::instance().takeRouting(),
                      "force(1,0) parameters(0,audioParam;DMB_FORCE_SPEAKER=off)");
            const char* const calls[] = {"", "", "stopTSReceiver ~", "stopTSReceiver stop ~",
                                         "stopTSReceiver stop ~"};
            EXPECT_EQ(mPlayer->script.take(), calls[state]);
            EXPECT_EQ(mPlayer->getState(), IDLE);
            mPlayer->start();
            EXPECT_EQ(mClient->take(), isRegistered ? "" : "startComplete(1)");
        }
    }
}

TEST_F(COrvPlayerTest, DumpIsRefusedToWhoMayNot) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(mPlayer->dump(ends[1], {}), 0);
    {
        const android::IPCThreadState::CallerScope caller(4711, 65534);
        EXPECT_EQ(mPlayer->dump(ends[1], {}), 0);
        EXPECT_EQ(mPlayer->dump(-1, {}), 0);
    }
    char text[200] = {};
    EXPECT_GT(read(ends[0], text, sizeof text - 1), 0);
    EXPECT_STREQ(text, "Permission Denial: can't dump CameraService from pid=4711, uid=65534\n");
    close(ends[0]);
    const android::IPCThreadState::CallerScope caller(4711, 65534);
    EXPECT_EQ(mPlayer->dump(ends[1], {}), 0);  // a pipe that nobody reads would end the process
    close(ends[1]);
}

TEST_F(COrvPlayerTest, TheHostSeesTheController) {
    const auto report = [this] {
        char* text = nullptr;
        size_t size = 0;
        FILE* memory = open_memstream(&text, &size);
        mPlayer->dumpController(memory);
        fclose(memory);
        std::string all(text, size);
        free(text);
        return all;
    };
    EXPECT_EQ(report(), "");
    reach(OPEN);
    EXPECT_EQ(report(), "state 0\n");
}

TEST_F(COrvPlayerTest, ThereIsOneInAProcess) {
    COrvPlayer::instantiate();
    const sp<COrvPlayer> first = COrvPlayer::instance();
    ASSERT_NE(first, nullptr);
    EXPECT_TRUE(isTraced("instantiate: OrvPlayer service started and registered"));
    const android::String16 name("OrvPlayer");
    EXPECT_EQ(android::defaultServiceManager()->checkService(name), sp<android::IBinder>(first));
    COrvPlayer::instantiate();
    EXPECT_TRUE(isTraced("instantiate: Service already instantiated"));
    EXPECT_EQ(COrvPlayer::instance(), first);
    // Whether a media file can be played turns out later.
    EXPECT_EQ(first->openUri("/a.mp4", ICOrvPlayer::OPEN_MEDIA_FILE), 0);
    EXPECT_EQ(first->close(), 0);
}

}  // namespace
