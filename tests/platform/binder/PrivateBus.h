#pragma once

#include <sys/types.h>

#include <string>

// A bus daemon of a test's own, which ends with it.
class PrivateBus {
public:
    PrivateBus();
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    // Empty when there is no daemon to be had.
    const std::string& address() const { return mAddress; }
    // Ends it at once.
    void kill();

private:
    std::string mFolder;
    std::string mAddress;
    pid_t mPid = -1;
};
