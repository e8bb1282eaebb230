#include "binder/LocalOneWay.h"

#include <utility>

namespace orvhost {

using android::FAILED_TRANSACTION;
using android::NO_MEMORY;
using android::OK;
using android::status_t;

LocalOneWay& LocalOneWay::instance() {
    static auto* const self = new LocalOneWay;
    return *self;
}

status_t LocalOneWay::post(std::function<void()> call, size_t bytes) {
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mQueue.size() >= MAX_CALLS || bytes > MAX_BYTES - mBytes) {
        return FAILED_TRANSACTION;
    }
    if (!mStarted) {
        pthread_t thread;
        if (pthread_create(&thread, nullptr, &threadMain, this) != 0) {
            return NO_MEMORY;
        }
        pthread_setname_np(thread, "LocalOneWay");
        pthread_detach(thread);
        mStarted = true;
    }
    mQueue.push_back({std::move(call), bytes});
    mBytes += bytes;
    mPosted.notify_one();
    return OK;
}

void* LocalOneWay::threadMain(void* self) {
    static_cast<LocalOneWay*>(self)->run();
    return nullptr;
}

void LocalOneWay::run() {
    for (;;) {
        Waiting next;
        {
            std::unique_lock<std::mutex> lock(mMutex);
            mPosted.wait(lock, [this] { return !mQueue.empty(); });
            next = std::move(mQueue.front());
            mQueue.pop_front();
            mBytes -= next.bytes;
        }
        next.call();
        // What the call holds (the object perhaps for the last time) is let go here, unlocked.
    }
}

}  // namespace orvhost
