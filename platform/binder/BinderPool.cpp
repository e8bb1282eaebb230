#include "binder/BinderPool.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <system_error>
#include <utility>

namespace orvhost {

namespace {

constexpr size_t THREADS = 4;
// More only while calls wait for calls of their own.
constexpr size_t MAX_THREADS = 16;

enum : uint64_t { EVENT_WORK, EVENT_READ, EVENT_WRITE };

thread_local const BinderPool* tPool = nullptr;
thread_local bool tLeads = false;  // that pool

void closeIfOpen(int fd) {
    if (fd >= 0) {
        close(fd);
    }
}

}  // namespace

BinderPool::~BinderPool() {
    for (int fd : {mEpollFd, mWorkFd, mReadFd, mWriteFd}) {
        closeIfOpen(fd);
    }
}

bool BinderPool::open(int socket, std::string* error) {
    mReadFd = fcntl(socket, F_DUPFD_CLOEXEC, 3);
    mWriteFd = fcntl(socket, F_DUPFD_CLOEXEC, 3);
    mEpollFd = epoll_create1(EPOLL_CLOEXEC);
    mWorkFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE);
    if (mReadFd < 0 || mWriteFd < 0 || mEpollFd < 0 || mWorkFd < 0) {
        *error = std::string("no descriptors left: ") + strerror(errno);
        return false;
    }
    struct {
        int fd;
        uint32_t events;
        uint64_t what;
    } const watched[] = {{mWorkFd, EPOLLIN, EVENT_WORK},
                         {mReadFd, EPOLLONESHOT, EVENT_READ},
                         {mWriteFd, EPOLLONESHOT, EVENT_WRITE}};
    for (const auto& one : watched) {
        epoll_event event = {};
        event.events = one.events;
        event.data.u64 = one.what;
        if (epoll_ctl(mEpollFd, EPOLL_CTL_ADD, one.fd, &event) != 0) {
            *error = std::string("the socket cannot be watched: ") + strerror(errno);
            return false;
        }
    }
    return true;
}

bool BinderPool::start(const std::shared_ptr<Work>& work, std::string* error) {
    mWork = work;
    for (size_t i = 0; i < THREADS; ++i) {
        if (!spawn() && i == 0) {
            *error = "no thread can be started";
            return false;
        }
    }
    return true;
}

bool BinderPool::spawn() {
    const std::shared_ptr<Work> work = mWork.lock();
    if (work == nullptr) {
        return false;
    }
    std::lock_guard<std::mutex> guard(mThreadsLock);
    if (mStopping || mThreads.size() >= MAX_THREADS) {
        return false;
    }
    // Signals are for the threads of the program.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    bool started = true;
    try {
        mThreads.emplace_back([this, work] { run(work); });
    } catch (const std::system_error&) {
        started = false;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return started;
}

void BinderPool::run(const std::shared_ptr<Work>& work) {
    pthread_setname_np(pthread_self(), "Binder");
    tPool = this;
    bool goesOn = true;
    while (goesOn) {
        {
            std::unique_lock<std::mutex> guard(mLeadLock);
            ++mFollowers;
            mLeadIsFree.wait(guard, [this] { return !mHasLeader; });
            --mFollowers;
            mHasLeader = true;
        }
        tLeads = true;
        goesOn = lead(*work);
    }
    passLead();
}

// Until another one leads; false: the pool has stopped.
bool BinderPool::lead(Work& work) {
    while (tLeads) {
        epoll_event event = {};
        if (epoll_wait(mEpollFd, &event, 1, -1) <= 0) {
            continue;  // a debugger; nothing else interrupts it
        }
        if (event.data.u64 == EVENT_READ) {
            work.readable();
        } else if (event.data.u64 == EVENT_WRITE) {
            work.writable();
        } else {
            uint64_t one = 0;
            const bool isPosted = mStopping || read(mWorkFd, &one, sizeof one) == sizeof one;
            if (isPosted && !work.runTask() && mStopping) {
                return false;
            }
        }
    }
    return true;
}

void BinderPool::watch(int fd, uint32_t events, uint64_t what) {
    epoll_event event = {};
    event.events = events;
    event.data.u64 = what;
    epoll_ctl(mEpollFd, EPOLL_CTL_MOD, fd, &event);
}

void BinderPool::watchReading() {
    watch(mReadFd, EPOLLIN, EVENT_READ);
}

void BinderPool::stopWatchingReading() {
    watch(mReadFd, EPOLLONESHOT, EVENT_READ);  // a hang-up is told once all the same
}

void BinderPool::watchWriting() {
    watch(mWriteFd, EPOLLOUT | EPOLLONESHOT, EVENT_WRITE);
}

void BinderPool::post() {
    const uint64_t one = 1;
    (void)!write(mWorkFd, &one, sizeof one);
}

void BinderPool::passLead() {
    if (tPool != this || !std::exchange(tLeads, false)) {
        return;
    }
    bool isAnyoneFree = false;
    {
        std::lock_guard<std::mutex> guard(mLeadLock);
        mHasLeader = false;
        isAnyoneFree = mFollowers > 0;
    }
    if (isAnyoneFree) {
        mLeadIsFree.notify_one();
    } else {
        spawn();
    }
}

bool BinderPool::isOwnThread() const {
    return tPool == this;
}

void BinderPool::stop() {
    if (mWorkFd < 0) {
        return;
    }
    std::vector<std::thread> threads;
    {
        std::lock_guard<std::mutex> guard(mThreadsLock);
        mStopping = true;
    }
    // The semaphore stays up from here on: every thread comes to see.
    const uint64_t many = 1u << 20;
    (void)!write(mWorkFd, &many, sizeof many);
    std::unique_lock<std::mutex> stopping(mStopLock, std::defer_lock);
    if (!isOwnThread()) {
        stopping.lock();
    }
    {
        std::lock_guard<std::mutex> guard(mThreadsLock);
        threads.swap(mThreads);
    }
    for (std::thread& thread : threads) {
        if (thread.get_id() == std::this_thread::get_id()) {
            thread.detach();
        } else {
            thread.join();
        }
    }
}

}  // namespace orvhost
