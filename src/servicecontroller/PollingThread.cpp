#include "servicecontroller/PollingThread.h"

namespace OrvPlayer {

ServiceController::PollingThread::PollingThread(ServiceController* owner,
                                                std::chrono::milliseconds period)
    : mPeriod(period), mOwner(owner) {}

void ServiceController::PollingThread::requestExit() {
    android::Thread::requestExit();
    {
        std::lock_guard<std::mutex> guard(mLock);
        mExitRequested = true;
    }
    mWakeUp.notify_all();
}

void ServiceController::PollingThread::requestExitAndWait() {
    requestExit();
    android::Thread::requestExitAndWait();
}

bool ServiceController::PollingThread::threadLoop() {
    {
        std::unique_lock<std::mutex> lock(mLock);
        if (mWakeUp.wait_for(lock, mPeriod, [this] { return mExitRequested; })) {
            return true;  // the request is seen by who calls
        }
    }
    const android::sp<ServiceController> owner = mOwner.promote();
    return owner != nullptr && onCheckEvent(*owner);
}

bool ServiceController::BufferingThread::onCheckEvent(ServiceController& owner) {
    owner.bufferingProcess();
    return true;
}

bool ServiceController::CheckSignalThread::onCheckEvent(ServiceController& owner) {
    owner.checkSignalStrength();
    return true;
}

bool ServiceController::CheckEndOfContentThread::onCheckEvent(ServiceController& owner) {
    return owner.checkEndOfContent();
}

bool ServiceController::CheckFrameRateThread::onCheckEvent(ServiceController& owner) {
    owner.updateFrameRate();
    return true;
}

}  // namespace OrvPlayer
