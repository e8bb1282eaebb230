// What a process sees of another one that stops, ends, or runs as another user.

#include <binder/IServiceManager.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "binder/BinderConnection.h"
#include "platform/binder/ChildProcess.h"
#include "platform/binder/PrivateBus.h"
#include "platform/binder/TestObject.h"
#include "support/Await.h"

#include <atomic>
#include <chrono>
#include <thread>

using android::IBinder;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using orvhost::BinderConnection;
using orvtest::await;

namespace {

enum Kind { SOCKET, BUS };

const char* nameOf(const testing::TestParamInfo<Kind>& kind) {
    return kind.param == SOCKET ? "Socket" : "Bus";
}

class DeathCounter : public IBinder::DeathRecipient {
public:
    void binderDied(const android::wp<IBinder>& who) override {
        last = who;
        ++deaths;
    }
    std::atomic<int> deaths{0};
    android::wp<IBinder> last;  // read after `deaths`
};

// A TestObject in a process of its own.
class OtherProcessTest : public testing::TestWithParam<Kind> {
protected:
    void SetUp() override {
        std::string error;
        if (GetParam() == SOCKET) {
            int ends[2];
            ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
            mOther = std::make_unique<ChildProcess>(
                std::vector<std::string>{ORV_TEST_PEER, "socket", std::to_string(ends[0])},
                ends[0]);
            mLink = BinderConnection::overSocket(ends[1], BinderConnection::APPLICATION, &error);
        } else {
            ASSERT_NE(mBus.address(), "") << "dbus-daemon is needed";
            mOther = std::make_unique<ChildProcess>(
                std::vector<std::string>{ORV_TEST_PEER, "bus", mBus.address()});
            mLink = BinderConnection::toBus(BinderConnection::SESSION_BUS, mBus.address(), &error);
        }
        ASSERT_NE(mLink, nullptr) << error;
        ASSERT_EQ(mOther->readLine(), "ready");
        mLink->setDisconnectedCallback([this] { ++mDisconnected; });
        mProxy = mLink->getService(String16("OrvTest"), &error);
        ASSERT_NE(mProxy, nullptr) << error;
    }

    void TearDown() override {
        if (mLink != nullptr) {
            mLink->disconnect();
        }
    }

    status_t count(int32_t number, uint32_t flags = 0) {
        Parcel request;
        request.writeInt32(number);
        return mProxy->transact(TestObject::COUNT, request, nullptr, IBinder::FLAG_ONEWAY | flags);
    }

    PrivateBus mBus;
    std::atomic<int> mDisconnected{0};
    std::unique_ptr<ChildProcess> mOther;
    sp<BinderConnection> mLink;
    sp<IBinder> mProxy;
};

TEST_P(OtherProcessTest, DeathEndsCallsAndIsToldOnce) {
    const sp<DeathCounter> twice = new DeathCounter;
    const sp<DeathCounter> unlinked = new DeathCounter;
    ASSERT_EQ(mProxy->linkToDeath(twice), android::OK);
    ASSERT_EQ(mProxy->linkToDeath(unlinked), android::OK);
    ASSERT_EQ(mProxy->unlinkToDeath(unlinked), android::OK);
    EXPECT_EQ(mProxy->unlinkToDeath(unlinked), android::NAME_NOT_FOUND);

    std::vector<std::thread> callers;
    std::atomic<int> begun{0};
    std::atomic<int> dead{0};
    for (int i = 0; i < 3; ++i) {
        callers.emplace_back([&] {
            const Parcel nothing;
            ++begun;
            dead += mProxy->transact(TestObject::WAIT, nothing, nullptr) == android::DEAD_OBJECT;
        });
    }
    ASSERT_TRUE(await([&] { return begun == 3; }));
    mOther->signal(SIGKILL);
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(dead, 3);
    ASSERT_TRUE(await([&] { return twice->deaths > 0; }));
    EXPECT_EQ(twice->last, mProxy);
    EXPECT_FALSE(mProxy->isBinderAlive());
    EXPECT_EQ(mProxy->linkToDeath(twice), android::DEAD_OBJECT);
    EXPECT_EQ(mProxy->pingBinder(), android::DEAD_OBJECT);
    EXPECT_EQ(count(0), android::DEAD_OBJECT);
    if (GetParam() == SOCKET) {
        EXPECT_TRUE(await([&] { return mDisconnected == 1; }));
        EXPECT_FALSE(mLink->isConnected());
        std::atomic<int> late{0};
        mLink->setDisconnectedCallback([&late] { ++late; });
        EXPECT_TRUE(await([&late] { return late == 1; }));
    }
    mLink->disconnect();
    EXPECT_EQ(twice->deaths, 1);
    EXPECT_EQ(unlinked->deaths, 0);
    EXPECT_EQ(mDisconnected, GetParam() == SOCKET ? 1 : 0) << "the bus is still there";
}

TEST_P(OtherProcessTest, OneWayCallsToAStoppedProcessAreBounded) {
    mOther->stop();
    int32_t sent = 0;
    while (sent < 20000 && count(sent, IBinder::FLAG_EXPENDABLE) == android::OK) {
        ++sent;
    }
    EXPECT_EQ(sent, 512) << "and leave room";
    while (sent < 20000 && count(sent) == android::OK) {
        ++sent;
    }
    EXPECT_EQ(sent, 1024);
    EXPECT_EQ(mLink->figures().queuedOneWay, 1024u);
    EXPECT_EQ(mLink->figures().droppedOneWay, 2u);
    const std::vector<uint8_t> large(5 << 20);
    Parcel request;
    request.write(large.data(), large.size());
    EXPECT_EQ(mProxy->transact(TestObject::COUNT, request, nullptr, IBinder::FLAG_ONEWAY),
              android::FAILED_TRANSACTION);

    mOther->signal(SIGCONT);
    EXPECT_TRUE(await([&] { return mLink->figures().queuedOneWay == 0; }));
    EXPECT_EQ(count(sent), android::OK);
    EXPECT_TRUE(await([&] {
        const Parcel nothing;
        Parcel counted;
        return mProxy->transact(TestObject::COUNTED, nothing, &counted) == android::OK &&
               counted.readInt32() == sent + 1;
    }));
}

TEST_P(OtherProcessTest, MuchDataToAStoppedProcessIsBoundedToo) {
    mOther->stop();
    const std::vector<uint8_t> data(64 << 10);
    size_t sent = 0;
    status_t status = android::OK;
    while (status == android::OK && sent < (64u << 20)) {
        Parcel request;
        request.writeInt32(0);
        request.write(data.data(), data.size());
        status = mProxy->transact(TestObject::COUNT, request, nullptr, IBinder::FLAG_ONEWAY);
        sent += data.size();
    }
    EXPECT_EQ(status, android::FAILED_TRANSACTION);
    EXPECT_LE(sent, 5u << 20);
    mOther->signal(SIGCONT);
    EXPECT_EQ(mProxy->pingBinder(), android::OK);
}

// No destructor waits for the threads that still run calls.
TEST_P(OtherProcessTest, ExitOfACallEndsTheProcessAtOnce) {
    std::vector<std::thread> callers;
    for (int i = 0; i < 3; ++i) {
        callers.emplace_back([&] {
            const Parcel nothing;
            mProxy->transact(TestObject::WAIT, nothing, nullptr);
        });
    }
    Parcel request;
    request.writeInt32(7);
    EXPECT_EQ(mProxy->transact(TestObject::EXIT, request, nullptr), android::DEAD_OBJECT);
    EXPECT_EQ(mOther->exitCode(), 7);
    for (std::thread& caller : callers) {
        caller.join();
    }
}

TEST_P(OtherProcessTest, BothKnowWhoTheOtherIs) {
    EXPECT_EQ(mLink->ownerPid(mProxy), mOther->pid());
    EXPECT_EQ(mLink->peerPid(), GetParam() == SOCKET ? mOther->pid() : -1);
    const Parcel nothing;
    Parcel caller;
    ASSERT_EQ(mProxy->transact(TestObject::CALLER, nothing, &caller), android::OK);
    EXPECT_EQ(caller.readInt32(), getpid());
    EXPECT_EQ(static_cast<uid_t>(caller.readInt32()), getuid());
    EXPECT_EQ(mProxy->getInterfaceDescriptor(), String16("orv.test"));
}

TEST_P(OtherProcessTest, WhatIsLostIsTold) {
    std::string error;
    EXPECT_EQ(mLink->getService(String16("Nobody"), &error), nullptr);
    EXPECT_NE(error.find("there is no service \"Nobody\""), std::string::npos) << error;
    if (GetParam() == SOCKET) {
        return;
    }
    EXPECT_FALSE(mLink->claimName(String16("OrvTest"), &error));
    EXPECT_NE(error.find("another process"), std::string::npos) << error;
    EXPECT_FALSE(mLink->claimName(String16("Forbidden"), &error));
    EXPECT_NE(error.find("does not let"), std::string::npos) << error;

    const sp<DeathCounter> counter = new DeathCounter;
    ASSERT_EQ(mProxy->linkToDeath(counter), android::OK);
    mBus.kill();
    EXPECT_TRUE(await([&] { return counter->deaths == 1 && mDisconnected == 1; }));
    EXPECT_EQ(mProxy->pingBinder(), android::DEAD_OBJECT);
    EXPECT_EQ(mOther->exitCode(), 0) << "the other one lost the bus, too";
    EXPECT_EQ(BinderConnection::toBus(BinderConnection::SESSION_BUS, mBus.address(), &error),
              nullptr);
    EXPECT_NE(error.find("cannot be reached"), std::string::npos) << error;
}

INSTANTIATE_TEST_SUITE_P(Over, OtherProcessTest, testing::Values(SOCKET, BUS), nameOf);

class OtherUserTest : public testing::TestWithParam<Kind> {};

TEST_P(OtherUserTest, IsRefused) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    android::defaultServiceManager()->addService(String16("OrvTest"), new TestObject);
    std::string error;
    PrivateBus bus;
    sp<BinderConnection> link;
    std::unique_ptr<ChildProcess> guest;
    const std::string path = bus.folder() + "/peer";
    if (GetParam() == SOCKET) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ASSERT_EQ(chmod(path.c_str(), 0777), 0);
        ASSERT_EQ(listen(listener, 1), 0);
        guest = std::make_unique<ChildProcess>(
            std::vector<std::string>{ORV_TEST_PEER, "guest-socket", path});
        const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        close(listener);
        link = BinderConnection::overSocket(fd, BinderConnection::SERVICE, &error);
        ASSERT_NE(link, nullptr) << error;
    } else {
        link = BinderConnection::toBus(BinderConnection::SESSION_BUS, bus.address(), &error);
        ASSERT_NE(link, nullptr) << error;
        ASSERT_TRUE(link->claimName(String16("OrvTest"), &error)) << error;
        guest = std::make_unique<ChildProcess>(
            std::vector<std::string>{ORV_TEST_PEER, "guest-bus", bus.address()});
    }
    EXPECT_EQ(guest->readLine(), "service \"OrvTest\" refuses this user");
}

INSTANTIATE_TEST_SUITE_P(Over, OtherUserTest, testing::Values(SOCKET, BUS), nameOf);

}  // namespace
