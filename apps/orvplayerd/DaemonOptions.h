#pragma once

#include <string>

namespace orvplayerd {

// How the service is reached: exactly one of them.
struct Options {
    int peerFd = -1;  // a connected socket, its other end being the application that started us
    bool session = false;
    bool system = false;
    std::string busAddress;  // of a bus that is neither
    bool checkConfig = false;
};

// What the program ends with; supervisors and scripts rely on the numbers.
enum ExitCode : int {
    EXIT_OK = 0,
    EXIT_FAILED = 1,
    EXIT_USAGE = 2,
    EXIT_SERVICE = 3,  // no bus, or another process is the service already
};

}  // namespace orvplayerd
