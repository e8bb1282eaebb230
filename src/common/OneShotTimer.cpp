#include "common/OneShotTimer.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <map>
#include <mutex>

namespace OrvPlayer {

// What a callback needs; cleared when the owner goes.
struct OneShotTimer::Record {
    std::mutex lock;  // held while the callback runs
    Callback callback;
    void* owner;
};

namespace {

// The system hands a number to the notification thread, which may come late; the number is looked
// up here. Never destroyed: such a thread may still come while the process ends.
template <typename Record>
struct Registry {
    std::mutex lock;
    unsigned long lastKey = 0;
    std::map<unsigned long, std::shared_ptr<Record>> records;

    static Registry& instance() {
        static auto* registry = new Registry;
        return *registry;
    }
};

int armOnce(timer_t timer, unsigned int seconds) {
    itimerspec time{};
    time.it_value.tv_sec = static_cast<time_t>(seconds);
    return timer_settime(timer, 0, &time, nullptr) == 0 ? 0 : errno;
}

}  // namespace

OneShotTimer::OneShotTimer(Callback callback, void* owner) : mRecord(new Record) {
    mRecord->callback = callback;
    mRecord->owner = owner;
    auto& registry = Registry<Record>::instance();
    {
        std::lock_guard<std::mutex> guard(registry.lock);
        mKey = ++registry.lastKey;
        registry.records[mKey] = mRecord;
    }
    sigevent event{};
    event.sigev_notify = SIGEV_THREAD;
    event.sigev_value.sival_ptr = reinterpret_cast<void*>(static_cast<uintptr_t>(mKey));
    event.sigev_notify_function = [](sigval value) {
        const auto key = static_cast<unsigned long>(reinterpret_cast<uintptr_t>(value.sival_ptr));
        auto& known = Registry<Record>::instance();
        std::shared_ptr<Record> record;
        {
            std::lock_guard<std::mutex> guard(known.lock);
            if (const auto found = known.records.find(key); found != known.records.end()) {
                record = found->second;
            }
        }
        if (record != nullptr) {
            std::lock_guard<std::mutex> guard(record->lock);
            if (record->owner != nullptr) {
                record->callback(record->owner);
            }
        }
    };
    if (timer_create(CLOCK_MONOTONIC, &event, &mTimer) != 0) {
        mCreationError = errno;
    }
}

OneShotTimer::~OneShotTimer() {
    remove();
}

int OneShotTimer::arm(unsigned int seconds) {
    return mCreationError != 0 ? mCreationError : armOnce(mTimer, seconds);
}

int OneShotTimer::disarm() {
    return mCreationError != 0 ? mCreationError : armOnce(mTimer, 0);
}

void OneShotTimer::waitForCallback() {
    if (mRecord != nullptr) {
        std::lock_guard<std::mutex> running(mRecord->lock);
    }
}

int OneShotTimer::remove() {
    if (mRecord == nullptr) {
        return 0;
    }
    const int status = mCreationError == 0 && timer_delete(mTimer) != 0 ? errno : 0;
    mCreationError = EINVAL;
    {
        auto& registry = Registry<Record>::instance();
        std::lock_guard<std::mutex> guard(registry.lock);
        registry.records.erase(mKey);
    }
    {
        std::lock_guard<std::mutex> running(mRecord->lock);
        mRecord->owner = nullptr;
    }
    mRecord = nullptr;
    return status;
}

}  // namespace OrvPlayer
