#include "recording/PlaybackEvents.h"

#include <pthread.h>

#include <chrono>

#include "trace/HostLog.h"

namespace orvhost {

PlaybackEvents::~PlaybackEvents() {
    {
        std::lock_guard lock(mMutex);
        mEnding = true;
    }
    mPosted.notify_all();
    if (mThread.joinable()) {
        mThread.join();
    }
}

void PlaybackEvents::listen(RecPlayerBinder_EventCallback callback, void* userData) {
    std::unique_lock lock(mMutex);
    mCallback = nullptr;
    mEvents.clear();
    if (std::this_thread::get_id() != mThread.get_id() &&
        !mDone.wait_for(lock, std::chrono::milliseconds(MAX_WAIT_MS),
                        [this] { return !mCalling; })) {
        HOST_LOGW("%s: a callback does not return\n", __func__);
    }
    mCallback = callback;
    mUserData = userData;
    if (callback != nullptr && !mThread.joinable()) {
        mThread = std::thread(&PlaybackEvents::run, this);
    }
}

void PlaybackEvents::post(int event) {
    {
        std::lock_guard lock(mMutex);
        if (mCallback == nullptr) {
            return;
        }
        mEvents.push_back(event);
    }
    mPosted.notify_one();
}

void PlaybackEvents::run() {
    pthread_setname_np(pthread_self(), "RecEvents");
    std::unique_lock lock(mMutex);
    for (;;) {
        mPosted.wait(lock, [this] { return mEnding || !mEvents.empty(); });
        if (mEnding) {
            return;
        }
        const int event = mEvents.front();
        mEvents.pop_front();
        const RecPlayerBinder_EventCallback callback = mCallback;
        void* const userData = mUserData;
        if (callback == nullptr) {
            continue;
        }
        mCalling = true;
        lock.unlock();
        callback(event, userData);
        lock.lock();
        mCalling = false;
        mDone.notify_all();
    }
}

}  // namespace orvhost
