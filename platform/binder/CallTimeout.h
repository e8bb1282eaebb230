#pragma once

#include <chrono>
#include <optional>

namespace orvhost {

// Bounds the calls of this thread to other processes, while it lives: one that has no answer in
// time returns TIMED_OUT, and the answer is dropped when it comes. The other side knows nothing of
// that and executes the call all the same. Without one a call waits for as long as the other
// process lives. They may nest; the earliest counts.
//
//   CallTimeout bound(std::chrono::seconds(2));
//   status_t status = binder->transact(...);
class CallTimeout {
public:
    using Clock = std::chrono::steady_clock;

    explicit CallTimeout(std::chrono::milliseconds timeout);
    ~CallTimeout();
    CallTimeout(const CallTimeout&) = delete;  // of one thread and scope
    CallTimeout& operator=(const CallTimeout&) = delete;

    // For the transports: when a call of this thread that begins now has waited long enough.
    static std::optional<Clock::time_point> deadline();
    // The same as poll() takes it: -1 when there is no bound.
    static int leftMs();

private:
    const std::optional<Clock::time_point> mOuter;
};

}  // namespace orvhost
