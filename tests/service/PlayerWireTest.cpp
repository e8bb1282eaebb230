// The interfaces in one process, over a socket and over a bus: the same bytes everywhere.

#include <binder/IServiceManager.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "PlayerWire.h"
#include "ScriptedController.h"
#include "binder/BinderConnection.h"
#include "platform/binder/ConnectedEnds.h"
#include "support/Await.h"
#include "support/FakeAudio.h"
#include "support/ProcessUsage.h"
#include "support/TraceCapture.h"

namespace {

// What becomes of shared memory.
enum Regions { GOOD, NONE, UNUSABLE };
std::atomic<Regions> gRegions{GOOD};

}  // namespace

extern "C" int __real_ashmem_create_region(const char* name, size_t size);
extern "C" int __wrap_ashmem_create_region(const char* name, size_t size) {
    switch (gRegions) {
        case NONE:
            errno = EMFILE;
            return -1;
        case UNUSABLE:
            return open("/dev/null", O_RDWR | O_CLOEXEC);
        default:
            return __real_ashmem_create_region(name, size);
    }
}

namespace {

using android::IBinder;
using android::sp;
using android::String16;
using orvhost::BinderConnection;
using orvtest::RecordingService;

enum Way { LOCAL, SOCKET, BUS };

// Gives the application's end a binder of the service, on one of the ways.
class PlayerWireTest : public testing::TestWithParam<Way>, protected orvtest::ConnectedEnds {
protected:
    static inline const String16 NAME{"OrvPlayer"};

    sp<IBinder> connect(const sp<IBinder>& service) {
        if (GetParam() == LOCAL) {
            return service;
        }
        android::defaultServiceManager()->addService(NAME, service);
        GetParam() == SOCKET ? connectOverSocket() : connectToBus(NAME);
        if (mApplication == nullptr) {
            ADD_FAILURE() << mError;
            return nullptr;
        }
        const sp<IBinder> remote = mApplication->getService(NAME, &mError);
        EXPECT_NE(remote, nullptr) << mError;
        EXPECT_NE(remote, service);
        return remote;
    }

    orvtest::TraceCapture mTrace;
};

TEST_P(PlayerWireTest, RequestsAndCallbacks) {
    const sp<RecordingService> service = new RecordingService;
    const sp<IBinder> remote = connect(service);
    ASSERT_NE(remote, nullptr);
    orvtest::PlayerWire wire(remote, service);
    wire.checkRequests();
    mTrace.take();
    wire.checkBadRequests();
    EXPECT_THAT(mTrace.take(), testing::Each("Call incorrectly routed to ICOrvPlayer"));
    wire.checkObjects();
    wire.checkCallbacks();
    wire.checkStills();
}

using ApplicationDeathTest = PlayerWireTest;

// Whoever dies while something plays leaves the service idle.
TEST_P(ApplicationDeathTest, ClosesWhatPlays) {
    const sp<orvtest::ScriptedPlayer> player = new orvtest::ScriptedPlayer;
    const sp<IBinder> remote = connect(player);
    ASSERT_NE(remote, nullptr);
    const sp<orvtest::ClientBinder> client = new orvtest::ClientBinder;
    orvtest::PlayerWire::registerClient(remote, client);
    player->openUri("MTV://t/l", OrvPlayer::ICOrvPlayer::OPEN_URI_SOURCE);
    player->start();
    EXPECT_TRUE(orvtest::await([&] { return client->count() == 3; }));
    player->script.take();
    mApplication->disconnect();
    EXPECT_TRUE(orvtest::await(
        [&] { return player->getState() == OrvPlayer::COrvPlayer::ORVPLAYER_STATE_IDLE; }));
    EXPECT_EQ(player->script.take(), "stopTSReceiver stop ~");
}

// As if other parts of the service knew the clients as well.
class KeepingPlayer : public orvtest::ScriptedPlayer {
public:
    int registerClient(const sp<OrvPlayer::ICOrvPlayerClient>& client) override {
        mKept.push_back(client);
        return COrvPlayer::registerClient(client);
    }

private:
    std::vector<sp<OrvPlayer::ICOrvPlayerClient>> mKept;
};

// A client that comes back again and again is watched once.
TEST_P(ApplicationDeathTest, IsToldOnceOfEachClient) {
    const sp<KeepingPlayer> player = new KeepingPlayer;
    const sp<IBinder> remote = connect(player);
    ASSERT_NE(remote, nullptr);
    const sp<orvtest::ClientBinder> first = new orvtest::ClientBinder;
    const sp<orvtest::ClientBinder> second = new orvtest::ClientBinder;
    for (int i = 0; i < 3; ++i) {
        orvtest::PlayerWire::registerClient(remote, first);
        orvtest::PlayerWire::registerClient(remote, second);
    }
    orvtest::FakeAudio::instance().takeRouting();
    mApplication->disconnect();
    mService->disconnect();  // after all has been told
    const std::string once = "force(1,0) parameters(0,audioParam;DMB_FORCE_SPEAKER=off)";
    EXPECT_EQ(orvtest::FakeAudio::instance().takeRouting(), once + " " + once);
}

std::string nameOf(const testing::TestParamInfo<Way>& way) {
    const char* const names[] = {"Local", "Socket", "Bus"};
    return names[way.param];
}

INSTANTIATE_TEST_SUITE_P(Ways, PlayerWireTest, testing::Values(LOCAL, SOCKET, BUS), nameOf);
INSTANTIATE_TEST_SUITE_P(Ways, ApplicationDeathTest, testing::Values(SOCKET, BUS), nameOf);

// A still without memory is lost, and nothing else.
TEST(StillMemoryTest, FailuresLeaveNothingOpen) {
    const sp<orvtest::ClientBinder> client = new orvtest::ClientBinder;
    const sp<OrvPlayer::ICOrvPlayerClient> proxy = new OrvPlayer::BpCOrvPlayerClient(client);
    std::vector<uint8_t> pixels(64 * 64 * 4);
    const size_t before = orvtest::ProcessUsage::now().descriptors;
    for (const Regions regions : {NONE, UNUSABLE}) {
        gRegions = regions;
        proxy->onCaptureFrame(pixels.data(), 64, 64, false);
    }
    gRegions = GOOD;
    EXPECT_EQ(client->take(), "");
    EXPECT_EQ(orvtest::ProcessUsage::now().descriptors, before);
}

}  // namespace
