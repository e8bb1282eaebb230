// Round trip of a small call to another process, beside a bare sd_bus_call of the same size on the
// same kind of socket. The two take turns, so that a change of the machine's pace meets both, and
// the medians are compared. All of it runs on one processor: where the kernel puts two processes
// changes a round trip threefold, and changes from second to second.
//
//   binder_bench [ROUNDS]

#include <binder/Binder.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include "binder/BinderConnection.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <vector>

using android::IBinder;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using orvhost::BinderConnection;

namespace {

constexpr int CALLS_A_ROUND = 500;
constexpr double LIMIT = 1.5;

[[noreturn]] void fail(const char* what) {
    fprintf(stderr, "binder_bench: %s\n", what);
    exit(1);
}

void stayOnThisProcessor() {
    cpu_set_t here;
    CPU_ZERO(&here);
    CPU_SET(sched_getcpu(), &here);
    sched_setaffinity(0, sizeof here, &here);
}

class Echo : public android::BBinder {
public:
    bool isBrief(uint32_t) const override { return true; }

protected:
    status_t onTransact(uint32_t, const Parcel& data, Parcel* reply, uint32_t) override {
        const size_t size = data.dataAvail();
        return reply->write(data.readInplace(size), size);
    }
};

// Runs `serve` in a process of its own; the other end of its socket. No thread runs yet.
template <typename Serve>
int forkService(Serve serve) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        fail("no sockets");
    }
    const pid_t child = fork();
    if (child < 0) {
        fail("no process");
    }
    if (child == 0) {
        close(ends[1]);
        serve(ends[0]);
        _exit(0);
    }
    close(ends[0]);
    return ends[1];
}

void serveBinder(int fd) {
    android::defaultServiceManager()->addService(String16("Echo"), new Echo);
    std::string error;
    const auto link = BinderConnection::overSocket(fd, BinderConnection::SERVICE, &error);
    if (link == nullptr) {
        fail(error.c_str());
    }
    std::promise<void> ended;
    link->setDisconnectedCallback([&ended] { ended.set_value(); });
    ended.get_future().wait();
    link->disconnect();
}

sd_bus* openBus(int fd, bool isServer) {
    sd_bus* bus = nullptr;
    sd_id128_t id = {};
    sd_id128_randomize(&id);
    if (sd_bus_new(&bus) < 0 || sd_bus_set_fd(bus, fd, fd) < 0 ||
        (isServer && sd_bus_set_server(bus, 1, id) < 0) || sd_bus_set_anonymous(bus, 1) < 0 ||
        sd_bus_start(bus) < 0) {
        fail("no sd-bus connection");
    }
    return bus;
}

void serveBus(int fd) {
    sd_bus* bus = openBus(fd, true);
    while (true) {
        sd_bus_message* message = nullptr;
        const int result = sd_bus_process(bus, &message);
        if (result < 0) {
            return;
        }
        if (message == nullptr) {
            if (result == 0 && sd_bus_wait(bus, UINT64_MAX) < 0) {
                return;
            }
            continue;
        }
        const void* bytes = nullptr;
        size_t size = 0;
        sd_bus_message* answer = nullptr;
        if (sd_bus_message_read_array(message, 'y', &bytes, &size) > 0 &&
            sd_bus_message_new_method_return(message, &answer) >= 0) {
            sd_bus_message_append_array(answer, 'y', bytes, size);
            sd_bus_send(bus, answer, nullptr);
        }
        sd_bus_message_unref(answer);
        sd_bus_message_unref(message);
    }
}

void callBinder(const sp<IBinder>& echo, const std::vector<uint8_t>& data) {
    Parcel request;
    Parcel reply;
    request.write(data.data(), data.size());
    if (echo->transact(1, request, &reply) != android::OK || reply.dataSize() != data.size()) {
        fail("a call failed");
    }
}

void callBus(sd_bus* bus, const std::vector<uint8_t>& data) {
    sd_bus_message* message = nullptr;
    sd_bus_message* answer = nullptr;
    const void* bytes = nullptr;
    size_t size = 0;
    if (sd_bus_message_new_method_call(bus, &message, nullptr, "/", "org.orvplayer.Bench", "Echo") <
            0 ||
        sd_bus_message_append_array(message, 'y', data.data(), data.size()) < 0 ||
        sd_bus_call(bus, message, 0, nullptr, &answer) < 0 ||
        sd_bus_message_read_array(answer, 'y', &bytes, &size) <= 0 || size != data.size()) {
        fail("a bare call failed");
    }
    sd_bus_message_unref(message);
    sd_bus_message_unref(answer);
}

// Microseconds of one call.
template <typename Call>
double timed(Call call) {
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < CALLS_A_ROUND; ++i) {
        call();
    }
    const std::chrono::duration<double, std::micro> took = std::chrono::steady_clock::now() - begin;
    return took.count() / CALLS_A_ROUND;
}

double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::max(atoi(argv[1]), 1) : 21;
    stayOnThisProcessor();
    const int binderEnd = forkService(serveBinder);
    const int busEnd = forkService(serveBus);
    std::string error;
    const auto link =
        BinderConnection::overSocket(binderEnd, BinderConnection::APPLICATION, &error);
    const sp<IBinder> echo = link != nullptr ? link->getService(String16("Echo"), &error) : nullptr;
    if (echo == nullptr) {
        fail(error.c_str());
    }
    sd_bus* bus = openBus(busEnd, false);
    bool isGood = true;
    for (const size_t size : {16u, 4096u}) {
        const std::vector<uint8_t> data(size, 1);
        std::vector<double> ours;
        std::vector<double> bare;
        for (int round = 0; round < rounds; ++round) {
            ours.push_back(timed([&] { callBinder(echo, data); }));
            bare.push_back(timed([&] { callBus(bus, data); }));
        }
        const double ratio = median(ours) / median(bare);
        isGood = isGood && ratio <= LIMIT;
        printf("call of %4zu bytes: %6.1f us, sd_bus_call %6.1f us, ratio %.2f (limit %.1f)\n",
               size, median(ours), median(bare), ratio, LIMIT);
    }
    sd_bus_close_unref(bus);
    link->disconnect();
    while (wait(nullptr) > 0) {
    }
    return isGood ? 0 : 1;
}
