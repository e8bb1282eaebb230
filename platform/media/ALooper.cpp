#include <media/stagefright/foundation/ALooper.h>
#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "media/LooperTask.h"

namespace android {

// Lives as long as looper or thread: the last reference to a looper may be dropped by one of its
// own tasks, and the thread then has to finish without it.
struct ALooper::State {
    std::mutex lock;
    std::condition_variable posted;
    struct Entry {
        std::weak_ptr<orvhost::LooperTask> task;
        std::chrono::steady_clock::time_point due;  // the epoch: at once
    };
    std::deque<Entry> tasks;
    std::string name = "ALooper";
    std::thread thread;
    bool running = false;
    bool exitPending = false;

    static void loop(const std::shared_ptr<State>& state);
};

void ALooper::State::loop(const std::shared_ptr<State>& state) {
    std::unique_lock guard(state->lock);
    pthread_setname_np(pthread_self(), state->name.substr(0, 15).c_str());
    while (true) {
        state->posted.wait(guard, [&] { return state->exitPending || !state->tasks.empty(); });
        if (!state->exitPending && state->tasks.front().due != decltype(Entry::due)()) {
            state->posted.wait_until(guard, state->tasks.front().due,
                                     [&] { return state->exitPending; });
        }
        if (state->exitPending) {
            return;
        }
        std::shared_ptr<orvhost::LooperTask> task = state->tasks.front().task.lock();
        state->tasks.pop_front();
        guard.unlock();
        if (task != nullptr) {
            task->run();
            task.reset();  // may be the last reference: never under the lock
        }
        guard.lock();
    }
}

ALooper::ALooper() : mState(std::make_shared<State>()) {}

ALooper::~ALooper() {
    stop();
}

void ALooper::setName(const char* name) {
    std::lock_guard guard(mState->lock);
    mState->name = name != nullptr ? name : "";
}

status_t ALooper::start(bool runOnCallingThread, bool /*canCallJava*/, int32_t /*priority*/) {
    std::lock_guard guard(mState->lock);
    if (mState->running || runOnCallingThread) {
        return INVALID_OPERATION;
    }
    mState->exitPending = false;
    try {
        mState->thread = std::thread(State::loop, mState);
    } catch (const std::system_error& error) {
        return -error.code().value();
    }
    mState->running = true;
    return OK;
}

status_t ALooper::stop() {
    std::thread thread;
    {
        std::lock_guard guard(mState->lock);
        if (!mState->running) {
            return INVALID_OPERATION;
        }
        mState->running = false;
        mState->exitPending = true;
        thread.swap(mState->thread);
    }
    mState->posted.notify_all();
    if (thread.get_id() == std::this_thread::get_id()) {
        thread.detach();  // ends on its own after the task that called us
    } else {
        thread.join();
    }
    return OK;
}

void ALooper::post(const std::weak_ptr<orvhost::LooperTask>& task, int64_t delayUs) {
    State::Entry entry = {task, {}};
    if (delayUs > 0) {
        entry.due = std::chrono::steady_clock::now() + std::chrono::microseconds(delayUs);
    }
    {
        std::lock_guard guard(mState->lock);
        mState->tasks.push_back(std::move(entry));
    }
    mState->posted.notify_one();
}

}  // namespace android
