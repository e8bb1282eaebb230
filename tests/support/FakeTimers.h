#pragma once

#include <mutex>
#include <optional>
#include <vector>

#include <csignal>
#include <ctime>

namespace orvtest {

// POSIX timers that fire when the test says so. FakeTimers.cpp defines the timer functions of the
// C library for its program. Timers are told apart by the order of their creation since reset().
class FakeTimers {
public:
    static FakeTimers& instance();

    void reset();
    // timer_create fails with this errno; 0 ends it.
    void failCreation(int error);
    // Setting a timer fails with this errno; 0 ends it.
    void failSetting(int error);

    size_t created() const;
    // The seconds that a timer is armed for; nothing when it is disarmed or gone.
    std::optional<long> armedFor(size_t timer) const;
    // The same for one that goes on periodically.
    std::optional<long> periodMs(size_t timer) const;
    // Runs the notification, armed or not, as a late one would come, on a thread of its own.
    void fire(size_t timer);

    int create(const sigevent& event, timer_t* id);
    int set(timer_t id, const itimerspec& time);
    int remove(timer_t id);

private:
    struct Timer {
        sigevent event;
        std::optional<long> seconds;
        std::optional<long> periodMs;
        bool exists = true;
    };

    Timer* find(timer_t id);

    mutable std::mutex mLock;
    std::vector<Timer> mTimers;
    int mCreationError = 0;
    int mSettingError = 0;
};

}  // namespace orvtest
