#pragma once

#include "platform/binder/ChildProcess.h"

#include <memory>
#include <string>

// A bus daemon of a test's own, which ends with it. Everyone may do everything there, but for one
// name that nobody gets.
class PrivateBus {
public:
    // `configuration`: elements behind those.
    explicit PrivateBus(const std::string& configuration = "");
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    const std::string& folder() const { return mFolder; }
    // Empty when there is no daemon to be had.
    const std::string& address() const { return mAddress; }
    // Ends it at once.
    void kill() { mDaemon = nullptr; }

private:
    std::string mFolder;
    std::string mAddress;
    std::unique_ptr<ChildProcess> mDaemon;
};
