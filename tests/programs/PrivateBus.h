#pragma once

#include <string>

#include "programs/Program.h"
#include "support/TempFile.h"

namespace orvtest {

// A D-Bus bus of the test's own, as a session's; ends with the object.
class PrivateBus {
public:
    // `configuration`: elements beside those that let everyone do everything.
    explicit PrivateBus(const std::string& configuration = "");

    // Empty when the bus could not be started.
    const std::string& address() const { return mAddress; }
    void kill();

private:
    const TempFile mConfig;
    Program mDaemon;
    std::string mAddress;
};

}  // namespace orvtest
