// The ways to the internal fault: the process is gone at once, whatever its other threads do.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "COrvPlayerFixture.h"

namespace {

using namespace OrvPlayer;
using orvtest::ScriptedPlayer;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::chrono::seconds BOUND{10};  // they look for leaks and races at the end
#else
constexpr std::chrono::seconds BOUND{1};
#endif
constexpr int STILL_THERE = 3;

void playWithEvents(ScriptedPlayer& player) {
    for (int i = 0; i < 3; ++i) {
        player.script.events.emplace_back([](COrvPlayer& p) {
            p.onTimeUpdate(1);
            p.onServiceControllerEvent(ServiceController::BUFFERING_EVENT, 1, 0);
        });
    }
    player.script.isLoud = false;
    player.openUri("MTV://t/l", ICOrvPlayer::OPEN_URI_SOURCE);
    player.start();
}

// Never returns: the fault ends the process, or the watch over it does.
void run(const std::function<void(ScriptedPlayer&)>& fault) {
    const android::sp<ScriptedPlayer> player = new ScriptedPlayer;
    player->registerClient(ICOrvPlayerClient::asInterface(new orvtest::ClientBinder));
    std::thread([] {
        std::this_thread::sleep_for(BOUND);
        _exit(STILL_THERE);
    }).detach();
    fault(*player);
    for (;;) {
        std::this_thread::sleep_for(BOUND);  // another thread is at it
    }
}

TEST(COrvPlayerFaultTest, EndsTheProcessFromAnyThread) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    struct {
        const char* name;
        const char* code;
        const char* line;  // of the trace
        std::function<void(ScriptedPlayer&)> fault;
    } const cases[] = {
        {"stop while idle", "code 1", "performStop - end", [](ScriptedPlayer& p) { p.stop(); }},
        {"a stop that fails", "code 1", "performStop Error stopping player",
         [](ScriptedPlayer& p) {
             playWithEvents(p);
             p.script.stopResult = 5;
             p.stop();
         }},
        {"close, and the stop fails", "code 1", "performStop Error stopping player",
         [](ScriptedPlayer& p) {
             playWithEvents(p);
             p.pause();
             p.script.stopResult = 5;
             p.close();
         }},
        {"the client dies, and the stop fails", "code 1", "performStop Error stopping player",
         [](ScriptedPlayer& p) {
             playWithEvents(p);
             p.script.stopResult = 5;
             p.binderDied(nullptr);
         }},
        {"a codec is lost, told by a module's thread", "code 200708", "onError <200708>",
         [](ScriptedPlayer& p) {
             p.script.events.emplace_back(
                 [](COrvPlayer& c) { static_cast<ErrorListener&>(c).onError(0x31004, nullptr); });
             playWithEvents(p);
         }},
        {"two threads at once, beside commands", "code 1", "onError <1>",
         [](ScriptedPlayer& p) {
             for (int i = 0; i < 2; ++i) {
                 p.script.events.emplace_back(
                     [](COrvPlayer& c) { static_cast<IRecorderListener&>(c).onError(1); });
             }
             playWithEvents(p);
             for (;;) {
                 p.setAVSync(0);
                 p.getPCRValue();
             }
         }},
    };
    for (const auto& wanted : cases) {
        SCOPED_TRACE(wanted.name);
        EXPECT_EXIT(
            run(wanted.fault), testing::ExitedWithCode(0),
            testing::AllOf(testing::HasSubstr(std::string("internal fault (") + wanted.code + ")"),
                           testing::HasSubstr(wanted.line),
                           testing::HasSubstr("onError: Commiting suicide due to unknown error.")));
    }
}

}  // namespace
