#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace orvhost {

// The threads of a connection ("Binder"). One of them, the leader, waits for the socket and for
// work that other threads leave, and does itself what there is to do: there is no thread that only
// reads. It stays the leader while that is short, so that nobody else wakes up for it; before
// anything that may wait it passes the lead on (passLead()), to a thread that is free or a new one.
//
// Reading is watched until that is stopped, writing once.
class BinderPool {
public:
    // What the threads do. Called on them, several at a time, with no lock of the pool's held.
    class Work {
    public:
        virtual void readable() = 0;
        virtual void writable() = 0;
        // Does one thing that post() was called for; false: there was nothing.
        virtual bool runTask() = 0;

    protected:
        ~Work() = default;
    };

    BinderPool() = default;
    ~BinderPool();
    BinderPool(const BinderPool&) = delete;  // its threads know it by address
    BinderPool& operator=(const BinderPool&) = delete;

    // Prepares to watch a socket, through duplicates that stay open until the pool goes: a thread
    // that waits for it never waits for another file of the same number.
    bool open(int socket, std::string* error);
    // Starts the threads; `work` is kept by each of them until it ends.
    bool start(const std::shared_ptr<Work>& work, std::string* error);

    // The duplicate that may be polled for reading beside the pool.
    int readFd() const { return mReadFd; }
    void watchReading();
    void stopWatchingReading();
    void watchWriting();

    // Any thread: runTask() is called once more.
    void post();

    // By a thread that is about to run code of others, which may wait: another one leads from here
    // on. There is a bound; beyond it whoever is ready first does. Not the leader: no effect.
    void passLead();

    // True on the threads of this pool.
    bool isOwnThread() const;

    // Lets the threads finish what they do and what was posted, and joins them; one that calls this
    // itself ends later, on its own. A second caller waits for the first.
    void stop();

private:
    bool spawn();
    void run(const std::shared_ptr<Work>& work);
    bool lead(Work& work);
    void watch(int fd, uint32_t events, uint64_t what);

    int mEpollFd = -1;
    int mWorkFd = -1;  // a semaphore of the posted tasks
    int mReadFd = -1;
    int mWriteFd = -1;
    std::weak_ptr<Work> mWork;
    std::atomic<bool> mStopping{false};
    std::mutex mLeadLock;  // the three below
    std::condition_variable mLeadIsFree;
    bool mHasLeader = false;
    int mFollowers = 0;  // that wait for the lead, or begin to
    std::mutex mStopLock;
    std::mutex mThreadsLock;
    std::vector<std::thread> mThreads;
};

}  // namespace orvhost
