#include "audio/AudioClock.h"

#include <chrono>

namespace orvhost {
namespace {

class SystemClock : public AudioClock {
public:
    int64_t nowNs() override {
        return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
    }

    void waitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& wake,
                   int64_t deadlineNs) override {
        const std::chrono::nanoseconds sinceEpoch(deadlineNs);
        wake.wait_until(lock, std::chrono::steady_clock::time_point(sinceEpoch));
    }
};

}  // namespace

AudioClock& AudioClock::system() {
    // Never destroyed: threads may still play while the process exits.
    static AudioClock* const spClock = new SystemClock;
    return *spClock;
}

}  // namespace orvhost
