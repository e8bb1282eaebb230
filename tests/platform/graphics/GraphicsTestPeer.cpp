// The other process of a test with a window in one process and a codec in another.
//
//   window FD  serves a queue as "OrvTestWindow" at a socket and takes pictures from it until the
//              connection ends; then writes how many, how many of them were wrong, and how many
//              descriptors and mappings of pictures are left
//   codec FD   draws into the "OrvTestWindow" of the other end, 100 pictures a second, until it is
//              killed

#include <binder/IServiceManager.h>
#include <stdio.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "binder/BinderConnection.h"
#include "graphics/BufferQueue.h"
#include "platform/graphics/BigPicture.h"
#include "platform/graphics/Holdings.h"

using android::IInterface;
using android::sp;
using android::String16;
using orvhost::BinderConnection;
using orvhost::BufferQueue;

namespace {

const char* const NAME = "OrvTestWindow";

int fail(const std::string& error) {
    fprintf(stderr, "GraphicsTestPeer: %s\n", error.c_str());
    return 1;
}

int runWindow(int fd) {
    sp<android::IGraphicBufferProducer> producer;
    sp<BufferQueue::Consumer> window;
    BufferQueue::create(&producer, &window);
    window->setDisplaySize(1280, 720);
    android::defaultServiceManager()->addService(String16(NAME), IInterface::asBinder(producer));
    std::string error;
    const auto link = BinderConnection::overSocket(fd, BinderConnection::APPLICATION, &error);
    if (link == nullptr) {
        return fail(error);
    }
    std::atomic<bool> isOver{false};
    link->setDisconnectedCallback([&isOver] { isOver = true; });
    puts("ready");
    fflush(stdout);
    int shown = 0;
    int wrong = 0;
    int64_t last = -1;
    while (!isOver) {
        orvhost::AcquiredBuffer picture;
        if (window->acquire(&picture, 20) != android::OK) {
            continue;
        }
        ++shown;
        const int64_t number = picture.input.timestamp;
        wrong += number <= last || !BigPicture::isIn(*picture.buffer, number);
        last = number;
        window->release(picture.slot);
    }
    link->disconnect();
    window.clear();
    producer.clear();
    android::defaultServiceManager()->addService(String16(NAME), nullptr);
    const Holdings left = Holdings::now();
    printf("%d %d %zu %zu\n", shown, wrong, left.descriptors, left.mappings);
    return 0;
}

int runCodec(int fd) {
    std::string error;
    const auto link = BinderConnection::overSocket(fd, BinderConnection::SERVICE, &error);
    if (link == nullptr) {
        return fail(error);
    }
    const sp<android::IBinder> queue = link->getService(String16(NAME), &error);
    if (queue == nullptr) {
        return fail(error);
    }
    const sp<android::Surface> surface =
        new android::Surface(android::interface_cast<android::IGraphicBufferProducer>(queue));
    if (surface->connect(NATIVE_WINDOW_API_MEDIA) != android::OK) {
        return fail("not connected");
    }
    for (int64_t number = 0;; ++number) {
        BigPicture::draw(*surface, number);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        return fail("needs two arguments");
    }
    const int fd = atoi(argv[2]);
    return std::string(argv[1]) == "window" ? runWindow(fd) : runCodec(fd);
}
