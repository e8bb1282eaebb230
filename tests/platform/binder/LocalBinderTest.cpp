#include <binder/Binder.h>
#include <binder/IInterface.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "binder/LocalOneWay.h"
#include "support/Await.h"

namespace android {

class IRecorder : public IInterface {
public:
    DECLARE_META_INTERFACE(Recorder)
};

IMPLEMENT_META_INTERFACE_WITHOUT_PROXY(Recorder, "Recorder")

namespace {

using orvhost::LocalOneWay;
using orvtest::await;

// Keeps what it is called with, and can be held up.
class Recorder : public BnInterface<IRecorder> {
public:
    enum : uint32_t { HOLD = FIRST_CALL_TRANSACTION, READ_FILE, NOTE };

    status_t dump(int fd, const Vector<String16>& args) override {
        std::string line;
        for (const String16& argument : args) {
            line += String8(argument).string();
        }
        return write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size()) ? OK
                                                                                        : -errno;
    }

    std::vector<std::string> calls() {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mCalls;
    }

    std::promise<void> mGoOn;

protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        if (code < HOLD || code > NOTE) {
            return BBinder::onTransact(code, data, reply, flags);
        }
        reply->writeInt32(static_cast<int32_t>(code));  // whether anybody wants it or not
        std::string note = "hold";
        if (code == HOLD) {
            mGoOn.get_future().wait();
        } else if (code == READ_FILE) {
            char text[8] = {};
            note = read(data.readFileDescriptor(), text, sizeof(text)) > 0 ? text : "unreadable";
        } else {
            char thread[16] = {};
            pthread_getname_np(pthread_self(), thread, sizeof(thread));
            note = std::to_string(data.readInt32()) + ' ' + thread + ' ' +
                   std::to_string(IPCThreadState::self()->getCallingUid() == getuid());
        }
        const std::lock_guard<std::mutex> lock(mMutex);
        mCalls.push_back(note);
        return OK;
    }

private:
    std::mutex mMutex;
    std::vector<std::string> mCalls;
};

TEST(LocalBinder, AnswersThePlatformsCodes) {
    const sp<IBinder> object = new Recorder;
    Parcel data;
    Parcel reply;
    reply.writeInt32(1);
    EXPECT_EQ(object->transact(IBinder::PING_TRANSACTION, data, &reply), OK);
    EXPECT_EQ(reply.dataSize(), 0u);
    EXPECT_EQ(object->transact(IBinder::INTERFACE_TRANSACTION, data, &reply), OK);
    EXPECT_EQ(reply.readString16(), String16("Recorder"));
    EXPECT_EQ(object->transact(Recorder::NOTE + 1, data, &reply), UNKNOWN_TRANSACTION);
    EXPECT_EQ(object->linkToDeath(nullptr), INVALID_OPERATION);
    EXPECT_EQ(object->unlinkToDeath(nullptr), NAME_NOT_FOUND);
    EXPECT_EQ(object->queryLocalInterface(String16("Other")), nullptr);
    const sp<IBinder> plain = new BBinder;
    EXPECT_EQ(plain->queryLocalInterface(String16()), nullptr);
}

TEST(LocalBinder, DumpTakesADescriptorAndItsArguments) {
    const sp<IBinder> object = new Recorder;
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const struct {
        const char* name;
        bool withFile;
        int32_t count;
        status_t status;
    } cases[] = {
        {"as it should be", true, 2, OK},
        {"no descriptor", false, 2, BAD_TYPE},
        {"more arguments than there are", true, 3, NOT_ENOUGH_DATA},
        {"a hostile count", true, 0x7fffffff, BAD_VALUE},
        {"a negative count", true, -1, BAD_VALUE},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        Parcel data;
        if (each.withFile) {
            data.writeFileDescriptor(ends[1]);
        }
        data.writeInt32(each.count);
        data.writeString16(String16("-a "));
        data.writeString16(String16("-b"));
        EXPECT_EQ(object->transact(IBinder::DUMP_TRANSACTION, data, nullptr), each.status);
    }
    close(ends[1]);
    char text[64] = {};
    EXPECT_EQ(read(ends[0], text, sizeof(text)), 5);
    EXPECT_STREQ(text, "-a -b");
    close(ends[0]);
}

// The caller goes on while the first call is held up, may close and forget what it sent, and the
// calls are executed in order on their own thread, as this process's.
TEST(LocalOneWay, KeepsTheOrderAndNeverRunsOnTheCaller) {
    const sp<Recorder> object = new Recorder;
    const IPCThreadState::CallerScope someoneElse(1, getuid() + 1);
    std::vector<std::string> expected{"hold", "text"};
    {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        ASSERT_EQ(write(ends[1], "text", 4), 4);
        Parcel data;
        EXPECT_EQ(object->transact(Recorder::HOLD, data, nullptr, IBinder::FLAG_ONEWAY), OK);
        data.writeFileDescriptor(ends[0], true);
        EXPECT_EQ(object->transact(Recorder::READ_FILE, data, nullptr, IBinder::FLAG_ONEWAY), OK);
        close(ends[1]);
    }
    for (int i = 0; i < 50; ++i) {
        Parcel data;
        data.writeInt32(i);
        EXPECT_EQ(object->transact(Recorder::NOTE, data, nullptr, IBinder::FLAG_ONEWAY), OK);
        expected.push_back(std::to_string(i) + " LocalOneWay 1");
    }
    EXPECT_TRUE(object->calls().empty());
    object->mGoOn.set_value();
    EXPECT_TRUE(await([&] { return object->calls().size() == expected.size(); }));
    EXPECT_EQ(object->calls(), expected);
}

TEST(LocalOneWay, RefusesMoreThanItsBounds) {
    const auto gate = std::make_shared<std::promise<void>>();
    const auto entered = std::make_shared<std::promise<void>>();
    LocalOneWay& queue = LocalOneWay::instance();
    ASSERT_EQ(queue.post(
                  [gate, entered] {
                      entered->set_value();
                      gate->get_future().wait();
                  },
                  0),
              OK);
    entered->get_future().wait();
    const auto executed = std::make_shared<std::atomic<size_t>>(0);
    const auto count = [executed] { ++*executed; };
    EXPECT_EQ(queue.post(count, LocalOneWay::MAX_BYTES), OK);
    EXPECT_EQ(queue.post(count, 1), FAILED_TRANSACTION);
    for (size_t i = 1; i < LocalOneWay::MAX_CALLS; ++i) {
        ASSERT_EQ(queue.post(count, 0), OK);
    }
    EXPECT_EQ(queue.post(count, 0), FAILED_TRANSACTION);
    gate->set_value();
    EXPECT_TRUE(await([&] { return *executed == LocalOneWay::MAX_CALLS; }));
    EXPECT_EQ(queue.post([] {}, LocalOneWay::MAX_BYTES), OK);
}

// Calls that an object has executed while the process exits; 0 before.
std::atomic<size_t> gCallsAtExit{0};

// Runs after everything that is destroyed at exit, and gives the thread time to notice.
__attribute__((destructor)) void afterAllDestructors() {
    if (gCallsAtExit != 0) {
        const size_t before = gCallsAtExit;
        await([before] { return gCallsAtExit > before + 2; });
    }
}

// The thread is in the middle of calls, and uses what the binder keeps in static memory, all the
// time that the process takes to exit.
TEST(LocalOneWayDeathTest, TheProcessExitsUnderIt) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const auto callUntilTheEnd = [] {
        const sp<IBinder> object = new Recorder;
        for (;; ++gCallsAtExit) {
            Parcel data;
            data.writeInterfaceToken(IRecorder::descriptor);
            data.setDataPosition(0);
            if (!data.checkInterface(object.get()) ||
                defaultServiceManager()->checkService(String16("none")) != nullptr) {
                abort();
            }
        }
    };
    EXPECT_EXIT(
        {
            LocalOneWay::instance().post(callUntilTheEnd, 0);
            await([] { return gCallsAtExit > 0; });
            exit(7);
        },
        testing::ExitedWithCode(7), "");
}

TEST(ServiceManager, KeepsOneObjectAName) {
    const sp<IServiceManager> manager = defaultServiceManager();
    const sp<IBinder> first = new BBinder;
    const sp<IBinder> second = new BBinder;
    EXPECT_EQ(manager->addService(String16("Test"), nullptr), BAD_VALUE);
    EXPECT_EQ(manager->addService(String16(), first), BAD_VALUE);
    EXPECT_EQ(manager->getService(String16("Test")), nullptr);
    EXPECT_EQ(manager->addService(String16("Test"), first), OK);
    EXPECT_EQ(manager->addService(String16("Test"), second), OK);
    EXPECT_EQ(defaultServiceManager()->checkService(String16("Test")), second);
    ASSERT_EQ(manager->listServices().size(), 1u);
    EXPECT_EQ(manager->listServices()[0], String16("Test"));
}

TEST(IPCThreadState, TheCallerIsTheThreadsOwnAndNests) {
    const auto caller = [] {
        const IPCThreadState* const state = IPCThreadState::self();
        return std::pair(state->getCallingPid(), state->getCallingUid());
    };
    const std::pair own(getpid(), getuid());
    const IPCThreadState::CallerScope outer(11, 22);
    {
        const IPCThreadState::CallerScope inner(33, 44);
        EXPECT_EQ(caller(), std::pair(pid_t{33}, uid_t{44}));
        std::thread([&] { EXPECT_EQ(caller(), own); }).join();
    }
    EXPECT_EQ(caller(), std::pair(pid_t{11}, uid_t{22}));
}

}  // namespace
}  // namespace android
