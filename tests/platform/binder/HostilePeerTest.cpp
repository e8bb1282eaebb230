// A process that speaks D-Bus, but not as it should: every message of it gets an error or nothing,
// and others are served as before.

#include <binder/IServiceManager.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include "binder/BinderConnection.h"
#include "binder/ParcelAccess.h"
#include "binder/WireMessage.h"
#include "platform/binder/PrivateBus.h"
#include "platform/binder/TestObject.h"
#include "support/Await.h"

#include <atomic>
#include <cstring>
#include <functional>
#include <future>

using android::IBinder;
using android::Parcel;
using android::sp;
using android::String16;
using orvhost::BinderConnection;
using orvhost::ParcelAccess;
using orvtest::await;

namespace wire = orvhost::wire;

namespace {

constexpr uint64_t TIMEOUT_US = 10'000'000;

class HostilePeerTest : public testing::Test {
protected:
    void SetUp() override {
        android::defaultServiceManager()->addService(String16("OrvTest"), mObject);
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        mSocket = ends[1];
        auto service = std::async(std::launch::async, [&] {
            std::string error;
            return BinderConnection::overSocket(ends[0], BinderConnection::SERVICE, &error);
        });
        ASSERT_GE(sd_bus_new(&mBus), 0);
        ASSERT_GE(sd_bus_set_fd(mBus, ends[1], ends[1]), 0);
        ASSERT_GE(sd_bus_set_anonymous(mBus, 1), 0);
        ASSERT_GE(sd_bus_start(mBus), 0);
        while (sd_bus_is_ready(mBus) == 0) {
            ASSERT_GE(sd_bus_process(mBus, nullptr), 0);
            ASSERT_GE(sd_bus_wait(mBus, 1000), 0);
        }
        mService = service.get();
        ASSERT_NE(mService, nullptr);
        mService->setDisconnectedCallback([this] { ++mDisconnected; });
        mId = askForService();
        ASSERT_NE(mId, 0u);
    }

    void TearDown() override {
        mObject->open();
        sd_bus_close_unref(mBus);
        if (mService != nullptr) {
            mService->disconnect();
        }
    }

    sd_bus_message* newCall(const char* member) {
        sd_bus_message* message = nullptr;
        sd_bus_message_new_method_call(mBus, &message, nullptr, wire::PATH, wire::INTERFACE,
                                       member);
        return message;
    }

    // The name of the error that answers; empty for none. Takes the message.
    std::string call(sd_bus_message* message, sd_bus_message** answer = nullptr) {
        sd_bus_error error = SD_BUS_ERROR_NULL;
        sd_bus_call(mBus, message, TIMEOUT_US, &error, answer);
        sd_bus_message_unref(message);
        const std::string name = error.name != nullptr ? error.name : "";
        sd_bus_error_free(&error);
        return name;
    }

    uint64_t askForService() {
        sd_bus_message* message = newCall(wire::GET_SERVICE);
        sd_bus_message_append(message, "s", "OrvTest");
        sd_bus_message* answer = nullptr;
        call(message, &answer);
        int32_t status = -1;
        const void* bytes = nullptr;
        size_t size = 0;
        uint64_t id = 0;
        if (answer != nullptr && sd_bus_message_read(answer, "i", &status) > 0 &&
            sd_bus_message_read_array(answer, 'y', &bytes, &size) > 0 && status == android::OK &&
            size == ParcelAccess::OBJECT_BYTES) {
            memcpy(&id, static_cast<const uint8_t*>(bytes) + 8, sizeof id);
        }
        sd_bus_message_unref(answer);
        return id;
    }

    // A Transact with these parts.
    sd_bus_message* transact(uint64_t id, uint32_t code, uint32_t flags,
                             const std::vector<uint8_t>& bytes,
                             const std::vector<uint32_t>& offsets, const std::vector<int>& fds) {
        sd_bus_message* message = newCall(wire::TRANSACT);
        sd_bus_message_append(message, "tuu", id, code, flags);
        sd_bus_message_append_array(message, 'y', bytes.data(), bytes.size());
        sd_bus_message_append_array(message, 'u', offsets.data(), offsets.size() * 4);
        sd_bus_message_open_container(message, 'a', "h");
        for (const int fd : fds) {
            sd_bus_message_append_basic(message, 'h', &fd);
        }
        sd_bus_message_close_container(message);
        return message;
    }

    sp<TestObject> mObject = new TestObject;
    std::atomic<int> mDisconnected{0};
    sp<BinderConnection> mService;
    sd_bus* mBus = nullptr;
    int mSocket = -1;
    uint64_t mId = 0;
};

std::vector<uint8_t> object(uint32_t type, uint64_t value) {
    std::vector<uint8_t> bytes(ParcelAccess::OBJECT_BYTES);
    memcpy(&bytes[0], &type, sizeof type);
    memcpy(&bytes[8], &value, sizeof value);
    return bytes;
}

TEST_F(HostilePeerTest, BrokenCallsAreRefused) {
    const std::vector<uint8_t> descriptor = object(ParcelAccess::DESCRIPTOR, 0);
    std::vector<uint8_t> twice = descriptor;
    twice.insert(twice.end(), descriptor.begin(), descriptor.end());
    const std::string invalid = SD_BUS_ERROR_INVALID_ARGS;
    const std::string noObject = SD_BUS_ERROR_UNKNOWN_OBJECT;
    struct {
        const char* what;
        uint64_t id;
        std::vector<uint8_t> bytes;
        std::vector<uint32_t> offsets;
        std::vector<int> fds;
        std::string error;
    } const cases[] = {
        {"an object nobody gave it", mId + 1, {}, {}, {}, noObject},
        {"the same with an object of its own",
         1,
         object(ParcelAccess::BINDER, 5),
         {0},
         {},
         noObject},
        {"an offset beyond the end", mId, descriptor, {4}, {0}, invalid},
        {"an offset far beyond the end", mId, descriptor, {0xfffffffc}, {0}, invalid},
        {"a type that is none", mId, object(77, 0), {0}, {}, invalid},
        {"a descriptor that did not come", mId, descriptor, {0}, {}, invalid},
        {"a descriptor of another index",
         mId,
         object(ParcelAccess::DESCRIPTOR, 1),
         {0},
         {0},
         invalid},
        {"one descriptor twice", mId, twice, {0, 24}, {0}, invalid},
        {"an object of ours it does not hold",
         mId,
         object(ParcelAccess::HANDLE, mId + 9),
         {0},
         {},
         invalid},
        {"more objects than may be", mId, {}, std::vector<uint32_t>(300), {}, invalid},
        {"more bytes than may be",
         mId,
         std::vector<uint8_t>(ParcelAccess::MAX_BYTES + 4),
         {},
         {},
         invalid},
    };
    for (const auto& one : cases) {
        EXPECT_EQ(call(transact(one.id, TestObject::COUNTED, 0, one.bytes, one.offsets, one.fds)),
                  one.error)
            << one.what;
    }

    sd_bus_message* message = newCall(wire::TRANSACT);
    sd_bus_message_append(message, "s", "no call");
    EXPECT_EQ(call(message), SD_BUS_ERROR_UNKNOWN_METHOD);
    EXPECT_EQ(call(newCall("Format")), SD_BUS_ERROR_UNKNOWN_METHOD);
    message = newCall(wire::RELEASE);
    sd_bus_message_append(message, wire::RELEASE_SIGNATURE, mId + 5, 1u);
    sd_bus_send(mBus, message, nullptr);
    sd_bus_message_unref(message);

    EXPECT_EQ(call(transact(mId, TestObject::COUNTED, 0, {}, {}, {})), "");
    EXPECT_EQ(mService->figures().proxies, 0u);
}

TEST_F(HostilePeerTest, AnObjectGivenBackCannotBeCalled) {
    for (const uint32_t count : {1u, 1000u}) {
        sd_bus_message* message = newCall(wire::RELEASE);
        sd_bus_message_append(message, wire::RELEASE_SIGNATURE, mId, count);
        sd_bus_send(mBus, message, nullptr);
        sd_bus_message_unref(message);
    }
    EXPECT_EQ(call(transact(mId, TestObject::COUNTED, 0, {}, {}, {})), SD_BUS_ERROR_UNKNOWN_OBJECT);
    EXPECT_EQ(mService->figures().exportedObjects, 0u);
    EXPECT_NE(askForService(), 0u);
}

// The first call blocks the queue; what does not fit is refused, and the rest executed.
TEST_F(HostilePeerTest, OneWayCallsWithoutEndAreRefused) {
    const auto onAnswer = [](sd_bus_message* message, void* count, sd_bus_error*) {
        int* const* counts = static_cast<int**>(count);
        ++*counts[sd_bus_message_is_method_error(message, nullptr) > 0 ? 1 : 0];
        return 0;
    };
    const auto pump = [&](auto condition) {
        while (!condition() && sd_bus_process(mBus, nullptr) >= 0) {
            sd_bus_wait(mBus, 1000);
        }
    };
    struct {
        int calls;
        size_t descriptors;
        int fit;
    } const cases[] = {{6000, 0, 2 * 1024}, {40, 16, 2 * 128 / 16}};
    for (const auto& one : cases) {
        std::vector<uint8_t> bytes(4 + one.descriptors * ParcelAccess::OBJECT_BYTES);
        std::vector<uint32_t> offsets;
        for (size_t i = 0; i < one.descriptors; ++i) {
            offsets.push_back(static_cast<uint32_t>(4 + i * ParcelAccess::OBJECT_BYTES));
            ParcelAccess::put(bytes.data(), offsets.back(), ParcelAccess::DESCRIPTOR, i);
        }
        const std::vector<int> fds(one.descriptors, STDERR_FILENO);
        int executed = 0;
        int refused = 0;
        int* counts[] = {&executed, &refused};
        const size_t before = mObject->counted().size();
        mObject->shut();
        for (int i = 0; i < one.calls; ++i) {
            const uint32_t code = i == 0 ? TestObject::WAIT : TestObject::COUNT;
            sd_bus_message* message =
                transact(mId, code, IBinder::FLAG_ONEWAY, bytes, offsets, fds);
            sd_bus_call_async(mBus, nullptr, message, onAnswer, counts, TIMEOUT_US);
            sd_bus_message_unref(message);
        }
        pump([&] { return refused >= one.calls - one.fit - 1; });
        mObject->open();
        pump([&] { return executed + refused == one.calls; });
        EXPECT_LE(executed, one.fit + 1);
        EXPECT_EQ(mObject->counted().size(), before + static_cast<size_t>(executed - 1));
    }
}

TEST_F(HostilePeerTest, BytesThatAreNoMessageEndTheConnection) {
    const char garbage[] = "this is no message at all, in no byte order";
    ASSERT_GT(send(mSocket, garbage, sizeof garbage, MSG_NOSIGNAL), 0);
    EXPECT_TRUE(await([&] { return mDisconnected == 1; }));
    EXPECT_FALSE(mService->isConnected());
}

// Answers that nobody reads: it is cut off before they fill the memory.
TEST_F(HostilePeerTest, WhoNeverReadsIsCutOff) {
    while (mDisconnected == 0) {
        sd_bus_message* message = transact(mId, TestObject::COUNTED, 0, {}, {}, {});
        uint64_t cookie = 0;
        const int sent = sd_bus_send(mBus, message, &cookie);
        sd_bus_message_unref(message);
        if (sent < 0) {
            break;
        }
        uint64_t queued = 0;
        sd_bus_get_n_queued_write(mBus, &queued);
        if (queued > 0) {
            pollfd socket = {mSocket, POLLOUT, 0};
            poll(&socket, 1, 100);
            sd_bus_message* unread = nullptr;  // stays one: the others are not asked for
            if (sd_bus_process(mBus, &unread) < 0) {
                break;
            }
            sd_bus_message_unref(unread);
        }
    }
    EXPECT_TRUE(await([&] { return mDisconnected == 1; }));
}

// Nothing was given to it: over a bus it has to be identified first.
TEST(StrangerOnTheBusTest, GetsErrors) {
    const PrivateBus daemon;
    ASSERT_NE(daemon.address(), "") << "dbus-daemon is needed";
    std::string error;
    const auto kind = BinderConnection::SESSION_BUS;
    const sp<BinderConnection> service = BinderConnection::toBus(kind, daemon.address(), &error);
    ASSERT_NE(service, nullptr) << error;
    ASSERT_TRUE(service->claimName(String16("OrvTest"), &error)) << error;
    struct {
        const char* member;
        const char* signature;
        std::string error;
    } const cases[] = {
        {"Format", "", SD_BUS_ERROR_UNKNOWN_METHOD},
        {wire::TRANSACT, "tu", SD_BUS_ERROR_UNKNOWN_METHOD},
        {wire::TRANSACT, "tuuayauah", SD_BUS_ERROR_UNKNOWN_OBJECT},
    };
    for (const auto& one : cases) {
        sd_bus* stranger = nullptr;
        ASSERT_GE(sd_bus_new(&stranger), 0);
        ASSERT_GE(sd_bus_set_address(stranger, daemon.address().c_str()), 0);
        ASSERT_GE(sd_bus_set_bus_client(stranger, 1), 0);
        ASSERT_GE(sd_bus_start(stranger), 0);
        sd_bus_message* message = nullptr;
        ASSERT_GE(sd_bus_message_new_method_call(stranger, &message, "org.orvplayer.OrvTest",
                                                 wire::PATH, wire::INTERFACE, one.member),
                  0);
        sd_bus_message_append(message, one.signature, uint64_t{1}, 1u, 0u, 0, 0, 0);
        sd_bus_error answer = SD_BUS_ERROR_NULL;
        sd_bus_call(stranger, message, TIMEOUT_US, &answer, nullptr);
        EXPECT_EQ(std::string(answer.name != nullptr ? answer.name : ""), one.error) << one.member;
        sd_bus_error_free(&answer);
        sd_bus_message_unref(message);
        sd_bus_close_unref(stranger);
    }
    service->disconnect();
}

TEST(HandshakeTest, FailsWithoutAnotherEnd) {
    std::string error;
    EXPECT_EQ(BinderConnection::overSocket(-1, BinderConnection::SERVICE, &error), nullptr);
    EXPECT_NE(error, "");
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(BinderConnection::overSocket(ends[0], BinderConnection::SERVICE, &error), nullptr);
    close(ends[1]);
    for (const auto role : {BinderConnection::SERVICE, BinderConnection::APPLICATION}) {
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        ASSERT_GT(send(ends[1], "GET / HTTP/1.0\r\n\r\n", 18, 0), 0);
        shutdown(ends[1], SHUT_WR);
        EXPECT_EQ(BinderConnection::overSocket(ends[0], role, &error), nullptr);
        EXPECT_NE(error.find("does not answer"), std::string::npos) << error;
        close(ends[1]);
    }
}

}  // namespace
