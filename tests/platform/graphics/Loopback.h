#pragma once

#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <unistd.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

// Two "processes" in one, and what lies between them: one-way calls are executed in their order on
// a thread of each side, a few conditions can be set that a real connection meets rarely.
class Loopback {
public:
    enum Side { SERVICE, APPLICATION };

    // Who the application takes the service for.
    explicit Loopback(pid_t servicePid = getpid());
    ~Loopback();
    Loopback(const Loopback&) = delete;  // its threads know it
    Loopback& operator=(const Loopback&) = delete;

    // What the other side gets when `side` passes it an object of its own.
    android::sp<android::IBinder> proxyOf(Side side, const android::sp<android::IBinder>& object);

    // A stopped side executes nothing; what is sent to it waits.
    void stop(Side side);
    void resume(Side side);
    // How many calls may wait for a side before more are refused.
    void setRoom(Side side, size_t calls);
    size_t waiting(Side side);
    // Calls that were sent to it and taken.
    size_t received(Side side);
    // Until no call waits or runs on a side that is not stopped.
    void settle();
    // The connection is gone: calls fail, each side's death recipients are told, no object is held
    // for the other side any more.
    void cut();

private:
    class Proxy;
    struct Lane {
        std::deque<std::function<void()>> calls;
        bool isStopped = false;
        bool isBusy = false;
        size_t room = 1000;
        size_t received = 0;
        std::thread thread;
    };

    void run(Lane& lane, pid_t callingPid);
    android::status_t send(const Proxy& proxy, uint32_t code, const android::Parcel& data);
    android::status_t carry(Side to, const android::Parcel& data, android::Parcel* twin);

    std::mutex mLock;
    std::condition_variable mChanged;
    Lane mLanes[2];  // by the side that executes
    std::map<android::IBinder*, android::wp<android::IBinder>> mProxies;  // by object
    bool mIsCut = false;
    bool mIsOver = false;
};
