#pragma once

#include <ctime>
#include <memory>

namespace OrvPlayer {

// A POSIX timer on the monotonic clock that calls on a thread of its own, once or periodically.
// Calls come one at a time: an expiry of a period that finds the one before still running is left
// out.
//
// The callback never runs after the destructor has returned, and the destructor waits for one that
// is running: deleting a POSIX timer alone promises neither. So the destructor must not run in the
// callback. The callback may still run once shortly after disarm(): it must look for itself
// whether it is wanted.
class CallbackTimer {
public:
    using Callback = void (*)(void* owner);

    CallbackTimer(Callback callback, void* owner);
    ~CallbackTimer();
    CallbackTimer(const CallbackTimer&) = delete;  // the system knows the timer
    CallbackTimer& operator=(const CallbackTimer&) = delete;

    // 0, or the errno of the failed creation; the timer then never fires.
    int creationError() const { return mCreationError; }

    // Starts the time (again), for one call. 0, or an errno.
    int arm(unsigned int seconds);
    // The same for one call after the period and one after each further period.
    int armPeriodic(unsigned int periodMs);
    int disarm();

    // Returns once no callback runs. Not in the callback.
    void waitForCallback();

    // Deletes the timer ahead of the destructor. 0, or an errno.
    int remove();

private:
    struct Record;

    timer_t mTimer{};
    int mCreationError = 0;
    std::shared_ptr<Record> mRecord;
    unsigned long mKey = 0;
};

}  // namespace OrvPlayer
