#pragma once

#include <pthread.h>
#include <utils/Errors.h>

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>

namespace orvhost {

// The one-way calls of this process to objects of its own: executed one at a time, in the order in
// which they were made, on a thread of their own ("LocalOneWay", made with the first call). So a
// one-way call has the same form wherever the object lives, and none ever runs on, or waits for,
// the thread that makes it.
//
// The queue is bounded: an object that hangs costs its callers FAILED_TRANSACTION, not memory.
//
// Never destroyed: the thread may stand anywhere in it when the process exits.
class LocalOneWay {
public:
    static constexpr size_t MAX_CALLS = 1024;
    static constexpr size_t MAX_BYTES = 32 * 1024 * 1024;  // of all waiting parcels

    static LocalOneWay& instance();

    LocalOneWay(const LocalOneWay&) = delete;  // its thread knows it by address
    LocalOneWay& operator=(const LocalOneWay&) = delete;

    // Queues a call, whose parcel has `bytes`, and returns at once. FAILED_TRANSACTION when the
    // queue is full, NO_MEMORY when there is no thread to be had; the call is dropped then. Any
    // thread, this one's own as well.
    android::status_t post(std::function<void()> call, size_t bytes);

private:
    struct Waiting {
        std::function<void()> call;
        size_t bytes = 0;
    };

    LocalOneWay() = default;
    ~LocalOneWay() = default;

    static void* threadMain(void* self);
    void run();

    std::mutex mMutex;
    std::condition_variable mPosted;
    // With the mutex.
    std::deque<Waiting> mQueue;
    size_t mBytes = 0;
    bool mStarted = false;
};

}  // namespace orvhost
