#include "CallbackQueue.h"

#include <algorithm>

namespace orvclient {

struct CallbackQueue::Turns {
    std::mutex lock;
    std::condition_variable changed;
    bool isEnding = false;
    bool isRunning = false;
    uint64_t over = 0;  // turns that ran, or that nobody runs any more
};

// One callback in the hands of the executor.
class CallbackQueue::Turn {
public:
    Turn(std::shared_ptr<Turns> turns, Callback callback)
        : mTurns(std::move(turns)), mCallback(std::move(callback)) {}
    ~Turn() { finish(); }
    Turn(const Turn&) = delete;  // over once
    Turn& operator=(const Turn&) = delete;

    void run() {
        {
            std::lock_guard<std::mutex> guard(mTurns->lock);
            if (mTurns->isEnding || mFinished) {
                return;
            }
            mTurns->isRunning = true;
        }
        mCallback();
        finish();
    }

private:
    void finish() {
        mCallback = nullptr;  // may hold memory that the application waits for
        {
            std::lock_guard<std::mutex> guard(mTurns->lock);
            if (mFinished) {
                return;
            }
            mFinished = true;
            mTurns->isRunning = false;
            ++mTurns->over;
        }
        mTurns->changed.notify_all();
    }

    const std::shared_ptr<Turns> mTurns;
    Callback mCallback;
    bool mFinished = false;
};

CallbackQueue::CallbackQueue(Executor executor)
    : mExecutor(std::move(executor)), mTurns(std::make_shared<Turns>()) {
    mThread = std::thread([this] { run(); });
}

CallbackQueue::~CallbackQueue() {
    {
        std::lock_guard<std::mutex> guard(mLock);
        mEnding = true;
    }
    mChanged.notify_all();
    {
        std::unique_lock<std::mutex> guard(mTurns->lock);
        mTurns->isEnding = true;
        mTurns->changed.notify_all();
        mTurns->changed.wait(guard, [this] { return !mTurns->isRunning; });
    }
    mThread.join();
}

void CallbackQueue::post(Kind kind, Callback callback) {
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (mClosed || mEnding || !isRoomFor(kind)) {
            return;
        }
        Clock::time_point due = Clock::now();
        if (kind == Kind::CAPTION) {
            due = mLastCaption = std::max(due + mCaptionDelay, mLastCaption);
        } else if (kind == Kind::LAST) {
            mWaiting.clear();
            mClosed = true;
        }
        mWaiting.emplace(std::make_pair(due, ++mPosted), Entry{kind, std::move(callback)});
    }
    mChanged.notify_all();
}

// With the lock held.
bool CallbackQueue::isRoomFor(Kind kind) const {
    switch (kind) {
        case Kind::LAST:
            return true;
        case Kind::EVENT:
            return mWaiting.size() < MAX_EVENTS;
        case Kind::STILL:
            return std::count_if(mWaiting.begin(), mWaiting.end(), [](const auto& entry) {
                       return entry.second.kind == Kind::STILL;
                   }) < static_cast<std::ptrdiff_t>(MAX_STILLS);
        default:
            return mWaiting.size() < MAX_FREQUENT;
    }
}

void CallbackQueue::dropCaptions() {
    std::lock_guard<std::mutex> guard(mLock);
    std::erase_if(mWaiting, [](const auto& entry) { return entry.second.kind == Kind::CAPTION; });
    mLastCaption = {};
}

void CallbackQueue::setCaptionDelay(std::chrono::milliseconds delay) {
    std::lock_guard<std::mutex> guard(mLock);
    mCaptionDelay = std::max(delay, std::chrono::milliseconds(0));
}

void CallbackQueue::reopen() {
    std::lock_guard<std::mutex> guard(mLock);
    mClosed = false;
}

void CallbackQueue::run() {
    std::unique_lock<std::mutex> guard(mLock);
    while (!mEnding) {
        if (mWaiting.empty()) {
            mChanged.wait(guard);
            continue;
        }
        const auto first = mWaiting.begin();
        if (const auto due = first->first.first; due > Clock::now()) {
            mChanged.wait_until(guard, due);
            continue;
        }
        Callback callback = std::move(first->second.callback);
        mWaiting.erase(first);
        guard.unlock();
        handOver(std::move(callback));
        guard.lock();
    }
}

void CallbackQueue::handOver(Callback callback) {
    auto turn = std::make_shared<Turn>(mTurns, std::move(callback));
    uint64_t before = 0;
    {
        std::lock_guard<std::mutex> guard(mTurns->lock);
        before = mTurns->over;
    }
    if (!mExecutor) {
        turn->run();
        return;
    }
    mExecutor([turn] { turn->run(); });
    turn = nullptr;
    std::unique_lock<std::mutex> guard(mTurns->lock);
    mTurns->changed.wait(guard,
                         [this, before] { return mTurns->isEnding || mTurns->over > before; });
}

}  // namespace orvclient
