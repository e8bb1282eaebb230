#include "common/CallbackTimer.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <map>
#include <mutex>

namespace OrvPlayer {

// What a callback needs; cleared when the owner goes.
struct CallbackTimer::Record {
    std::mutex lock;  // held while the callback runs
    Callback callback;
    void* owner;
    std::atomic<bool> isPeriodic{false};

    void call() {
        std::unique_lock<std::mutex> running(lock, std::defer_lock);
        // A callback that takes longer than its period must not let threads pile up here.
        if (!isPeriodic) {
            running.lock();
        } else if (!running.try_lock()) {
            return;
        }
        if (owner != nullptr) {
            callback(owner);
        }
    }
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

int set(timer_t timer, const itimerspec& time) {
    return timer_settime(timer, 0, &time, nullptr) == 0 ? 0 : errno;
}

}  // namespace

CallbackTimer::CallbackTimer(Callback callback, void* owner) : mRecord(new Record) {
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
            record->call();
        }
    };
    if (timer_create(CLOCK_MONOTONIC, &event, &mTimer) != 0) {
        mCreationError = errno;
    }
}

CallbackTimer::~CallbackTimer() {
    remove();
}

int CallbackTimer::arm(unsigned int seconds) {
    if (mCreationError != 0) {
        return mCreationError;
    }
    mRecord->isPeriodic = false;
    itimerspec time{};
    time.it_value.tv_sec = static_cast<time_t>(seconds);
    return set(mTimer, time);
}

int CallbackTimer::armPeriodic(unsigned int periodMs) {
    if (mCreationError != 0) {
        return mCreationError;
    }
    mRecord->isPeriodic = true;
    itimerspec time{};
    time.it_value.tv_sec = static_cast<time_t>(periodMs / 1000);
    time.it_value.tv_nsec = static_cast<long>(periodMs % 1000) * 1'000'000;
    time.it_interval = time.it_value;
    return set(mTimer, time);
}

int CallbackTimer::disarm() {
    return mCreationError != 0 ? mCreationError : set(mTimer, itimerspec{});
}

void CallbackTimer::waitForCallback() {
    if (mRecord != nullptr) {
        std::lock_guard<std::mutex> running(mRecord->lock);
    }
}

int CallbackTimer::remove() {
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
