#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

namespace orvclient {

// Runs the application's callbacks, one at a time and in order, never on the thread that posts
// them: that one carries the service's results, which a callback may wait for.
//
//   post -> waits until it is due -> thread of the queue [-> executor] -> callback
//
// The executor gets the next callback when the one before has run, or was thrown away. So an
// application that is slow has everything wait here, where it is bounded: what comes in numbers is
// dropped first. Any thread.
class CallbackQueue {
public:
    using Callback = std::function<void()>;
    using Executor = std::function<void(Callback)>;
    using Clock = std::chrono::steady_clock;

    enum class Kind {
        EVENT,     // kept, up to MAX_EVENTS
        FREQUENT,  // dropped while more than MAX_FREQUENT callbacks wait
        STILL,     // the same, and beyond MAX_STILLS: they are megabytes
        CAPTION,   // as FREQUENT, and late by the caption delay
        LAST,      // replaces all that waits; nothing is taken after it until reopen()
    };
    static constexpr size_t MAX_STILLS = 4;
    static constexpr size_t MAX_FREQUENT = 64;
    static constexpr size_t MAX_EVENTS = 1024;

    // Empty: callbacks run on the thread of the queue.
    explicit CallbackQueue(Executor executor);
    // Waits for the callback that runs; what waits is dropped. An executor may still hold one: it
    // does nothing then. Not from a callback.
    ~CallbackQueue();
    CallbackQueue(const CallbackQueue&) = delete;  // its thread knows it by address
    CallbackQueue& operator=(const CallbackQueue&) = delete;

    void post(Kind kind, Callback callback);
    void dropCaptions();
    // Of captions that are posted from here on.
    void setCaptionDelay(std::chrono::milliseconds delay);
    // Takes callbacks again after LAST.
    void reopen();

private:
    struct Entry {
        Kind kind;
        Callback callback;
    };
    // What the executor's side of a callback looks at, and may outlive the queue.
    struct Turns;
    class Turn;

    bool isRoomFor(Kind kind) const;
    void run();
    void handOver(Callback callback);

    const Executor mExecutor;
    const std::shared_ptr<Turns> mTurns;
    std::mutex mLock;
    std::condition_variable mChanged;
    // By time and, of the same, number.
    std::map<std::pair<Clock::time_point, uint64_t>, Entry> mWaiting;
    uint64_t mPosted = 0;
    std::chrono::milliseconds mCaptionDelay{0};
    Clock::time_point mLastCaption;  // captions keep their order when the delay shrinks
    bool mClosed = false;
    bool mEnding = false;
    std::thread mThread;
};

}  // namespace orvclient
