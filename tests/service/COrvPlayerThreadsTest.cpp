// Many callers at once, over a pipeline that raises events all the time.

#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <random>
#include <thread>
#include <vector>

#include "COrvPlayerFixture.h"

namespace {

using namespace OrvPlayer;
using android::sp;
using orvtest::ClientBinder;
using orvtest::ScriptedPlayer;

constexpr int THREADS = 8;
constexpr int CALLS = 300;

// All but stop, which ends the process where nothing is open.
void call(ScriptedPlayer& player, const sp<ClientBinder>& client, unsigned int which) {
    switch (which % 16) {
        case 0:
        case 1:
            player.openUri("MTV://t/l?videoPid=273;", ICOrvPlayer::OPEN_URI_SOURCE);
            break;
        case 2:
            player.openUri("/a", ICOrvPlayer::OPEN_MEDIA_FILE);
            break;
        case 3:
        case 4:
        case 5:
            player.start();
            break;
        case 6:
            player.pause();
            break;
        case 7:
            player.resume();
            break;
        case 8:
            player.seek(1);
            break;
        case 9:
            player.close();
            break;
        case 10:
            player.registerClient(ICOrvPlayerClient::asInterface(client));
            break;
        case 11:
            player.binderDied(sp<android::IBinder>(client));
            break;
        case 12:
            player.setSurface(nullptr);
            player.setAudioEnable(1);
            break;
        case 13:
            player.startRecorder("X:/a");
            player.stopRecorder(1);
            break;
        default:
            for (int i = 0; i < 50; ++i) {
                player.getPCRValue();
                player.getState();
                player.getFrameRate();
            }
            break;
    }
}

TEST(COrvPlayerThreadsTest, CommandsAndEventsAtOnce) {
    OneSegPGL_InitializeDebug();
    const orvtest::TraceCapture trace;
    const sp<ScriptedPlayer> player = new ScriptedPlayer;
    player->script.isLoud = false;
    player->script.events = {
        [](COrvPlayer& p) { p.onTimeUpdate(1); },
        [](COrvPlayer& p) { p.onFirstFrameRendered(1, 2); },
        [](COrvPlayer& p) {
            p.onServiceControllerEvent(ServiceController::BUFFERING_EVENT, 1, 0);
            static_cast<ErrorListener&>(p).onError(0x21001, nullptr);
        },
    };
    std::vector<std::thread> callers;
    for (int i = 0; i < THREADS; ++i) {
        callers.emplace_back([&player, i] {
            const sp<ClientBinder> client = new ClientBinder;
            std::minstd_rand random(static_cast<unsigned int>(i) + 1);
            for (int j = 0; j < CALLS; ++j) {
                call(*player, client, random() >> 8);
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_LE(player->script.living, 1);
    EXPECT_EQ(player->close(), 0);
    EXPECT_EQ(player->getState(), COrvPlayer::ORVPLAYER_STATE_IDLE);
    EXPECT_EQ(player->script.living, 0);
}

// Who registers while the client before it dies stays registered.
TEST(COrvPlayerThreadsTest, AClientComesWhileAnotherDies) {
    OneSegPGL_InitializeDebug();
    const orvtest::TraceCapture trace;
    const sp<ScriptedPlayer> player = new ScriptedPlayer;
    const sp<ClientBinder> first = new ClientBinder;
    const sp<ClientBinder> second = new ClientBinder;
    constexpr int ROUNDS = 5000;
    std::barrier both(2);
    std::thread death([&] {
        for (int i = 0; i < ROUNDS; ++i) {
            both.arrive_and_wait();
            player->binderDied(sp<android::IBinder>(first));
            both.arrive_and_wait();
        }
    });
    int unheard = 0;
    std::minstd_rand random(1);
    for (int i = 0; i < ROUNDS; ++i) {
        player->registerClient(ICOrvPlayerClient::asInterface(first));
        both.arrive_and_wait();
        for (unsigned int pause = random() % 10000; pause > 0; --pause) {
            player->getState();
        }
        player->registerClient(ICOrvPlayerClient::asInterface(second));
        both.arrive_and_wait();
        player->onTimeUpdate(1);
        unheard += second->take() != "onTimeUpdate(1)";
    }
    death.join();
    EXPECT_EQ(unheard, 0);
}

}  // namespace
