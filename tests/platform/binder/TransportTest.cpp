// Calls from one end of a connection to the other, both ends in this process.

#include <binder/IServiceManager.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "binder/BinderConnection.h"
#include "binder/CallTimeout.h"

#include "platform/binder/ConnectedEnds.h"
#include "platform/binder/TestObject.h"
#include "support/Await.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <memory>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

using android::IBinder;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using orvhost::BinderConnection;
using orvtest::await;

namespace {

enum Kind { SOCKET, BUS };

class TransportTest : public testing::TestWithParam<Kind>, protected orvtest::ConnectedEnds {
protected:
    void SetUp() override {
        android::defaultServiceManager()->addService(String16("OrvTest"), mObject);
        if (GetParam() == SOCKET) {
            connectOverSocket();
        } else {
            connectToBus(String16("OrvTest"));
        }
        ASSERT_TRUE(mApplication != nullptr && mService != nullptr) << mError;
        mProxy = mApplication->getService(String16("OrvTest"), &mError);
        ASSERT_NE(mProxy, nullptr) << mError;
        ASSERT_EQ(mProxy->localBinder(), nullptr);
    }

    sp<TestObject> mObject = new TestObject;
    sp<IBinder> mProxy;
};

TEST_P(TransportTest, EveryValueGoesThereAndBack) {
    const sp<TestObject> callback = new TestObject;
    for (const size_t blobSize : {0u, 5u, 1u << 20}) {
        Parcel request;
        Parcel reply;
        const std::vector<uint8_t> blob(blobSize, 0x5a);
        int pipe[2];
        ASSERT_EQ(pipe2(pipe, O_CLOEXEC), 0);
        request.writeInt32(-7);
        request.writeInt64(-(int64_t{1} << 40));
        request.writeString16(String16("a\u00e7\u00e3o"));
        request.writeInt32(static_cast<int32_t>(blobSize));
        request.write(blob.data(), blob.size());
        request.writeStrongBinder(callback);
        request.writeFileDescriptor(pipe[1], true);

        ASSERT_EQ(mProxy->transact(TestObject::ECHO, request, &reply), android::OK);
        EXPECT_EQ(reply.readInt32(), -7);
        EXPECT_EQ(reply.readInt64(), -(int64_t{1} << 40));
        EXPECT_EQ(reply.readString16(), String16("a\u00e7\u00e3o"));
        ASSERT_EQ(reply.readInt32(), static_cast<int32_t>(blobSize));
        const void* echoed = reply.readInplace(blobSize);
        ASSERT_NE(echoed, nullptr);
        EXPECT_TRUE(std::equal(blob.begin(), blob.end(), static_cast<const uint8_t*>(echoed)));
        EXPECT_EQ(reply.readStrongBinder(), callback) << "one's own object comes back as itself";
        const int fd = reply.readFileDescriptor();
        ASSERT_GE(fd, 0);
        EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
        ASSERT_EQ(write(fd, "x", 1), 1);
        char read1 = 0;
        EXPECT_EQ(read(pipe[0], &read1, 1), 1);
        EXPECT_EQ(read1, 'x');
        close(pipe[0]);
    }
}

TEST_P(TransportTest, SixteenThreadsCallAtOnce) {
    std::vector<std::thread> threads;
    std::atomic<int> good{0};
    for (int32_t thread = 0; thread < 16; ++thread) {
        threads.emplace_back([&, thread] {
            for (int32_t i = 0; i < 200; ++i) {
                Parcel request;
                Parcel reply;
                request.writeInt32(thread * 1000 + i);
                request.writeInt64(0);
                request.writeString16(String16("x"));
                request.writeInt32(0);
                request.writeStrongBinder(nullptr);
                good += mProxy->transact(TestObject::ECHO, request, &reply) == android::OK &&
                        reply.readInt32() == thread * 1000 + i;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(good, 16 * 200);
}

TEST_P(TransportTest, OneWayCallsKeepTheirOrder) {
    constexpr int32_t CALLS = 10000;
    for (int32_t i = 0; i < CALLS;) {
        Parcel request;
        request.writeInt32(i);
        const status_t status =
            mProxy->transact(TestObject::COUNT, request, nullptr, IBinder::FLAG_ONEWAY);
        if (status == android::OK) {
            ++i;
        } else {
            ASSERT_EQ(status, android::FAILED_TRANSACTION);
            std::this_thread::yield();
        }
    }
    ASSERT_TRUE(await([&] { return mObject->counted().size() == size_t{CALLS}; }));
    std::vector<int32_t> expected(CALLS);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(mObject->counted(), expected);
}

TEST_P(TransportTest, CallsComeBackWhileTheirCallerWaits) {
    const sp<TestObject> callback = new TestObject;
    std::vector<std::thread> threads;
    std::atomic<int> good{0};
    for (int thread = 0; thread < 3; ++thread) {
        threads.emplace_back([&] {
            for (const int32_t depth : {0, 1, 2, 5}) {
                Parcel request;
                Parcel reply;
                request.writeStrongBinder(callback);
                request.writeInt32(depth);
                good += mProxy->transact(TestObject::CALL_BACK, request, &reply) == android::OK &&
                        reply.readInt32() == depth;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(good, 3 * 4);
}

TEST_P(TransportTest, ObjectsLiveAsLongAsTheOtherEndHoldsThem) {
    android::wp<TestObject> weak;
    {
        const sp<TestObject> callback = new TestObject;
        weak = callback;
        Parcel request;
        request.writeStrongBinder(callback);
        request.writeStrongBinder(callback);
        ASSERT_EQ(mProxy->transact(TestObject::HOLD, request, nullptr), android::OK);
    }
    EXPECT_NE(weak.promote(), nullptr);
    EXPECT_EQ(mApplication->figures().exportedObjects, 1u);
    EXPECT_EQ(mService->figures().proxies, 1u);
    Parcel none;
    none.writeStrongBinder(nullptr);
    ASSERT_EQ(mProxy->transact(TestObject::HOLD, none, nullptr), android::OK);
    EXPECT_TRUE(await([&] { return weak.promote() == nullptr; }));
    EXPECT_EQ(mService->figures().proxies, 0u);

    mProxy = nullptr;
    EXPECT_TRUE(await([&] { return mService->figures().exportedObjects == 0; }));
}

TEST_P(TransportTest, WhatALateAnswerBringsIsGivenBack) {
    const Parcel nothing;
    {
        const orvhost::CallTimeout bound(std::chrono::milliseconds(20));
        EXPECT_EQ(mProxy->transact(TestObject::WAIT, nothing, nullptr), android::TIMED_OUT);
    }
    mObject->open();
    Parcel answer;
    ASSERT_EQ(mProxy->transact(TestObject::WAIT, nothing, &answer), android::OK);
    EXPECT_NE(answer.readStrongBinder(), nullptr);
    answer.freeData();
    EXPECT_TRUE(await([&] { return mService->figures().exportedObjects == 1; }));
}

TEST_P(TransportTest, AnObjectOfAThirdProcessIsNotPassedOn) {
    const sp<IBinder> own = mProxy;
    SetUp();  // another connection; the first one's ends when its proxies do
    Parcel request;
    request.writeStrongBinder(own);
    EXPECT_EQ(mProxy->transact(TestObject::HOLD, request, nullptr), android::INVALID_OPERATION);
    EXPECT_EQ(mProxy->pingBinder(), android::OK);
}

TEST_P(TransportTest, DisconnectingEndsTheCallsUnderWay) {
    std::vector<std::thread> callers;
    std::atomic<int> dead{0};
    for (int i = 0; i < 3; ++i) {
        callers.emplace_back([&] {
            const Parcel nothing;
            dead += mProxy->transact(TestObject::WAIT, nothing, nullptr) == android::DEAD_OBJECT;
        });
    }
    ASSERT_TRUE(await([&] { return mObject->waiting() == 3; }));
    std::atomic<int> told{0};
    mApplication->setDisconnectedCallback([&] { ++told; });
    mApplication->disconnect();
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(dead, 3);
    EXPECT_EQ(mProxy->pingBinder(), android::DEAD_OBJECT);
    EXPECT_TRUE(await([&] { return mService->figures().exportedObjects == 0; }));
    mObject->open();
    mService->disconnect();
    EXPECT_EQ(mObject->waiting(), 0) << "no thread runs after disconnect()";
    EXPECT_EQ(told, 0) << "it was our own doing";
}

class Obituary : public IBinder::DeathRecipient {
public:
    explicit Obituary(const sp<TestObject>& object) : mObject(object) {}
    void binderDied(const android::wp<IBinder>& /*who*/) override { waiting = mObject->waiting(); }

    std::atomic<int> waiting{-1};  // calls, when it was told

private:
    const sp<TestObject> mObject;
};

// What a call of the dead does comes before what its death leads to, unless the call hangs.
TEST_P(TransportTest, ADeathIsToldAfterTheLastCalls) {
    for (const bool hangs : {true, false}) {
        mObject = new TestObject;
        SetUp();
        Parcel request;
        request.writeStrongBinder(new TestObject);
        ASSERT_EQ(mProxy->transact(TestObject::HOLD, request, nullptr), android::OK);
        const sp<IBinder> held = mObject->held();
        const sp<Obituary> obituary = new Obituary(mObject);
        ASSERT_EQ(held->linkToDeath(obituary), android::OK);
        std::thread caller([this] {
            const Parcel nothing;
            mProxy->transact(TestObject::WAIT, nothing, nullptr);
        });
        ASSERT_TRUE(await([&] { return mObject->waiting() == 1; }));
        mApplication->disconnect();
        caller.join();
        EXPECT_TRUE(await([&] { return !held->isBinderAlive(); }));
        if (!hangs) {
            mObject->open();
        }
        EXPECT_TRUE(await([&] { return obituary->waiting >= 0; }));
        EXPECT_EQ(obituary->waiting, hangs ? 1 : 0);
        mObject->open();
    }
}

size_t entries(const char* folder) {
    const std::filesystem::directory_iterator begin(folder);
    return static_cast<size_t>(std::distance(begin, {}));
}

TEST_P(TransportTest, NothingIsLeftOfAConnection) {
    const size_t descriptors = entries("/proc/self/fd");
    const size_t threads = entries("/proc/self/task");
    for (int i = 0; i < (GetParam() == SOCKET ? 200 : 20); ++i) {
        mProxy = nullptr;
        mService->disconnect();
        SetUp();
        if (i % 2 == 0) {
            mApplication->disconnect();  // the other way round
        }
    }
    EXPECT_EQ(entries("/proc/self/fd"), descriptors);
    // Fewer, when a thread of an earlier test was still ending at the beginning.
    EXPECT_TRUE(await([&] { return entries("/proc/self/task") <= threads; }))
        << entries("/proc/self/task") << " threads after " << threads;
}

INSTANTIATE_TEST_SUITE_P(Over, TransportTest, testing::Values(SOCKET, BUS),
                         [](const auto& kind) { return kind.param == SOCKET ? "Socket" : "Bus"; });

}  // namespace
