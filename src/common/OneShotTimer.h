#pragma once

#include <ctime>
#include <memory>

namespace OrvPlayer {

// A POSIX timer on the monotonic clock that fires once, on a thread of its own, each time it is
// armed.
//
// The callback never runs after the destructor has returned, and the destructor waits for one that
// is running: deleting a POSIX timer alone promises neither. So the destructor must not run in the
// callback. The callback may still run once shortly after disarm(): it must look for itself
// whether it is wanted.
class OneShotTimer {
public:
    using Callback = void (*)(void* owner);

    OneShotTimer(Callback callback, void* owner);
    ~OneShotTimer();
    OneShotTimer(const OneShotTimer&) = delete;  // the system knows the timer
    OneShotTimer& operator=(const OneShotTimer&) = delete;

    // 0, or the errno of the failed creation; the timer then never fires.
    int creationError() const { return mCreationError; }

    // Starts the time (again). 0, or an errno.
    int arm(unsigned int seconds);
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
