#include "dtv/HostClock.h"

#include <chrono>

namespace orvhost {

namespace {

using std::chrono::nanoseconds;
using std::chrono::steady_clock;

class MonotonicClock : public HostClock {
public:
    int64_t nowNs() override {
        return std::chrono::duration_cast<nanoseconds>(steady_clock::now().time_since_epoch())
            .count();
    }

    void waitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& wake,
                   int64_t deadlineNs) override {
        wake.wait_until(lock, steady_clock::time_point(nanoseconds(deadlineNs)));
    }
};

}  // namespace

HostClock& HostClock::monotonic() {
    // Never destroyed: a feeding thread asks it until the process is gone.
    static auto* const clock = new MonotonicClock;
    return *clock;
}

}  // namespace orvhost
