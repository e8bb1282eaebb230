// POSIX timers without the C library, for programs under ThreadSanitizer: the library's helper
// thread starts notification threads behind the sanitizer's back, and its run-time crashes on them.
//
// Only what the player uses: the monotonic clock, notification by thread, relative times. As with
// the library, each expiry runs on a thread of its own and deleting a timer does not wait for it.

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <ctime>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

// Shared by the owner and the timer's thread.
struct Timer {
    std::mutex lock;
    std::condition_variable changed;
    sigevent event{};
    bool armed = false;
    bool deleted = false;
    Clock::time_point due;
    std::chrono::nanoseconds interval{0};
};
using Handle = std::shared_ptr<Timer>;

void runTimer(const Handle& timer) {
    std::unique_lock<std::mutex> guard(timer->lock);
    while (!timer->deleted) {
        if (!timer->armed) {
            timer->changed.wait(guard);
        } else if (Clock::now() < timer->due) {
            timer->changed.wait_until(guard, timer->due);
        } else {
            timer->armed = timer->interval.count() > 0;
            timer->due += timer->interval;
            std::thread(timer->event.sigev_notify_function, timer->event.sigev_value).detach();
        }
    }
}

std::mutex gLock;

// Never destroyed: timers may outlive main().
std::set<Handle*>& handles() {
    static auto* all = new std::set<Handle*>;
    return *all;
}

Handle find(timer_t id) {
    std::lock_guard<std::mutex> guard(gLock);
    auto* handle = static_cast<Handle*>(id);
    return handles().count(handle) != 0 ? *handle : nullptr;
}

int fail(int error) {
    errno = error;
    return -1;
}

std::chrono::nanoseconds duration(const timespec& time) {
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

}  // namespace

extern "C" {

int timer_create(clockid_t clock, sigevent* event, timer_t* id) noexcept {
    if (clock != CLOCK_MONOTONIC || event == nullptr || event->sigev_notify != SIGEV_THREAD) {
        return fail(EINVAL);
    }
    auto* handle = new Handle(new Timer);
    (*handle)->event = *event;
    {
        std::lock_guard<std::mutex> guard(gLock);
        handles().insert(handle);
    }
    std::thread(runTimer, *handle).detach();
    *id = handle;
    return 0;
}

int timer_settime(timer_t id, int flags, const itimerspec* time, itimerspec* old) noexcept {
    const Handle timer = find(id);
    if (timer == nullptr || flags != 0 || old != nullptr) {
        return fail(EINVAL);
    }
    std::lock_guard<std::mutex> guard(timer->lock);
    const auto first = duration(time->it_value);
    timer->armed = first.count() > 0;
    timer->due = Clock::now() + first;
    timer->interval = duration(time->it_interval);
    timer->changed.notify_all();
    return 0;
}

int timer_delete(timer_t id) noexcept {
    const Handle timer = find(id);
    if (timer == nullptr) {
        return fail(EINVAL);
    }
    {
        std::lock_guard<std::mutex> guard(gLock);
        auto* handle = static_cast<Handle*>(id);
        handles().erase(handle);
        delete handle;
    }
    std::lock_guard<std::mutex> guard(timer->lock);
    timer->deleted = true;
    timer->changed.notify_all();
    return 0;
}
}
