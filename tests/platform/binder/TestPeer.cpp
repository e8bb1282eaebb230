// The other process of a test, with threads of its own from the beginning.
//
//   socket FD          serves a TestObject as "OrvTest" at a socket
//   bus ADDRESS        the same on a bus
//   guest-socket PATH  asks for "OrvTest", as user nobody, at the socket that listens there
//   guest-bus ADDRESS  the same on a bus
//
// The first two write a line when they are ready and end with their connection; the others write
// what getService() says.

#include <binder/IServiceManager.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "binder/BinderConnection.h"
#include "platform/binder/TestObject.h"

#include <future>

using android::sp;
using android::String16;
using orvhost::BinderConnection;

namespace {

constexpr uid_t NOBODY = 65534;

int connectTo(const char* path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    return connect(fd, generic, sizeof address) == 0 ? fd : -1;
}

sp<BinderConnection> connection(const std::string& mode, const char* place, std::string* error) {
    if (mode == "socket") {
        return BinderConnection::overSocket(atoi(place), BinderConnection::SERVICE, error);
    }
    if (mode == "guest-socket") {
        return BinderConnection::overSocket(connectTo(place), BinderConnection::APPLICATION, error);
    }
    return BinderConnection::toBus(BinderConnection::SESSION_BUS, place, error);
}

int fail(const std::string& error) {
    fprintf(stderr, "TestPeer: %s\n", error.c_str());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        return fail("needs two arguments");
    }
    const std::string mode = argv[1];
    const String16 name("OrvTest");
    const bool isGuest = mode.starts_with("guest");
    if (isGuest && setuid(NOBODY) != 0) {
        return fail("cannot become nobody");
    }
    android::defaultServiceManager()->addService(name, new TestObject);
    std::string error;
    const sp<BinderConnection> link = connection(mode, argv[2], &error);
    if (link == nullptr) {
        return fail(error);
    }
    if (isGuest) {
        puts(link->getService(name, &error) != nullptr ? "got it" : error.c_str());
        return 0;
    }
    std::promise<void> ended;
    link->setDisconnectedCallback([&ended] { ended.set_value(); });
    if (mode == "bus" && !link->claimName(name, &error)) {
        return fail(error);
    }
    puts("ready");
    fflush(stdout);
    ended.get_future().wait();
    link->disconnect();
    return 0;
}
