#pragma once

#include <utils/Thread.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "servicecontroller/ServiceController.h"

namespace OrvPlayer {

// Runs one check of the monitor again and again, with a pause before each.
//
// An exit request ends the pause at once: it is looked at under the lock before the thread waits,
// so it cannot be missed. The monitor is held weakly: when it goes during a check, on whatever
// thread, nothing is called on it afterwards.
class ServiceController::PollingThread : public android::Thread {
public:
    PollingThread(ServiceController* owner, std::chrono::milliseconds period);

    void requestExit() override;
    // Returns when the thread has ended, at once on the thread itself.
    void requestExitAndWait();

protected:
    // False ends the thread.
    virtual bool onCheckEvent(ServiceController& owner) = 0;

private:
    bool threadLoop() override;

    const std::chrono::milliseconds mPeriod;
    const android::wp<ServiceController> mOwner;
    std::mutex mLock;
    std::condition_variable mWakeUp;
    bool mExitRequested = false;
};

class ServiceController::BufferingThread : public PollingThread {
public:
    explicit BufferingThread(ServiceController* owner)
        : PollingThread(owner, std::chrono::milliseconds(50)) {}

private:
    bool onCheckEvent(ServiceController& owner) override;
};

class ServiceController::CheckSignalThread : public PollingThread {
public:
    explicit CheckSignalThread(ServiceController* owner)
        : PollingThread(owner, std::chrono::milliseconds(300)) {}

private:
    bool onCheckEvent(ServiceController& owner) override;
};

class ServiceController::CheckEndOfContentThread : public PollingThread {
public:
    explicit CheckEndOfContentThread(ServiceController* owner)
        : PollingThread(owner, std::chrono::milliseconds(100)) {}

private:
    bool onCheckEvent(ServiceController& owner) override;
};

class ServiceController::CheckFrameRateThread : public PollingThread {
public:
    explicit CheckFrameRateThread(ServiceController* owner)
        : PollingThread(owner, std::chrono::milliseconds(1000)) {}

private:
    bool onCheckEvent(ServiceController& owner) override;
};

}  // namespace OrvPlayer
