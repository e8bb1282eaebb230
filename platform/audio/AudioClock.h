#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace orvhost {

// The one place where audio reads the time and waits for it. Tests put their own clock here.
class AudioClock {
public:
    virtual ~AudioClock() = default;

    // Monotonic nanoseconds.
    virtual int64_t nowNs() = 0;

    // Waits on `wake` until it is notified or nowNs() reaches deadlineNs; may return early. `lock`
    // is held on entry and on return.
    virtual void waitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& wake,
                           int64_t deadlineNs) = 0;

    // The system's monotonic clock.
    static AudioClock& system();
};

}  // namespace orvhost
